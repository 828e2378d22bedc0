#include "Redraw.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "Json.h"
#include "Svg.h"
#include "sample.h"

namespace {

namespace fs = std::filesystem;

class Redraw : public testing::Test {
  protected:
    void SetUp() override {
        std::string made = testing::TempDir() + "/redraw.XXXXXX";
        ASSERT_NE(::mkdtemp(made.data()), nullptr);
        folder = made;
        json = folder / "run.json";
        svg = folder / "run.svg";
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path folder;
    fs::path json;
    fs::path svg;
};

TEST_F(Redraw, DrawsWhatTheRunDrew) {
    std::ofstream(json) << watch::toJson(sample::run());
    EXPECT_EQ(watch::redraw(json, svg), "");
    std::ifstream file(svg);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), watch::toSvg(sample::run()));
}

TEST_F(Redraw, SaysWhichFileIsWrongAndWritesNothing) {
    EXPECT_EQ(watch::redraw(json, svg), json.string() + ": No such file or directory");
    EXPECT_EQ(watch::redraw(folder, svg), folder.string() + ": Is a directory");
    std::ofstream(json) << "{}";
    EXPECT_EQ(watch::redraw(json, svg), json.string() + ": version: is missing");
    EXPECT_EQ(watch::redraw(json, folder), folder.string() + ": is a folder");
    EXPECT_FALSE(fs::exists(svg));
}

TEST_F(Redraw, RefusesAFileThatIsTooLarge) {
    std::ofstream(json) << "[";
    fs::resize_file(json, (64U << 20U) + 1);
    EXPECT_EQ(watch::redraw(json, svg), json.string() + ": File too large");
    fs::resize_file(json, 64U << 20U);
    EXPECT_EQ(watch::redraw(json, svg), json.string() + ": line 1: is no JSON");
}

} // namespace
