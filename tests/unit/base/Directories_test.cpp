#include "cvbase.h"

#include <cerrno>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "TempFolder.h"

namespace {

TEST(Mkdirpath, CreatesMissingParentsWithTheMode) {
    const TempFolder folder;
    const UmaskGuard guard(077);
    std::int32_t status = -5;
    EXPECT_EQ(mkdirpath(folder.at("a//b/c/").c_str(), 0755, &status), 0);
    EXPECT_EQ(status, 0);
    for (const char* name : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(modeOf(folder.at(name)), 0755) << name;
    }
}

TEST(Mkdirpath, LeavesWhatExistsAlone) {
    const TempFolder folder;
    ASSERT_EQ(::mkdir(folder.at("there").c_str(), 0700), 0);
    std::filesystem::create_directory_symlink("there", folder.at("link"));
    std::int32_t status = -5;
    EXPECT_EQ(mkdirpath(folder.at("there").c_str(), 0755, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(mkdirpath(folder.at("link/below").c_str(), 0755, nullptr), 0);
    EXPECT_EQ(modeOf(folder.at("there")), 0700);
    EXPECT_EQ(modeOf(folder.at("there/below")), 0755);
    EXPECT_EQ(mkdirpath("/", 0755, &status), 0);
}

TEST(Mkdirpath, FailureReportsItsErrno) {
    const TempFolder folder;
    const std::string file = folder.write("file", "x");
    std::filesystem::create_symlink("nowhere", folder.at("dangling"));
    const struct {
        std::string path;
        std::int32_t status;
    } rows[] = {{file, EEXIST},
                {file + "/below/it", ENOTDIR},
                {folder.at("dangling"), EEXIST},
                {folder.at(std::string(300, 'x')), ENAMETOOLONG},
                {"/proc/none/below", ENOENT},
                {"", ENOENT}};
    for (const auto& row : rows) {
        std::int32_t status = 0;
        EXPECT_EQ(mkdirpath(row.path.c_str(), 0755, &status), -1) << row.path;
        EXPECT_EQ(status, row.status) << row.path;
    }
    std::int32_t status = 0;
    EXPECT_EQ(mkdirpath(nullptr, 0755, &status), -1);
    EXPECT_EQ(status, EINVAL);
    EXPECT_EQ(mkdirpath("", 0755, nullptr), -1);
}

} // namespace
