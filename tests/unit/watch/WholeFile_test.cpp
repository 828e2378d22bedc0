#include "WholeFile.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder of its own, which is gone afterwards.
class WholeFile : public testing::Test {
  protected:
    void SetUp() override {
        std::string made = testing::TempDir() + "/whole.XXXXXX";
        ASSERT_NE(::mkdtemp(made.data()), nullptr);
        folder = made;
        path = folder / "run.json";
    }
    void TearDown() override { fs::remove_all(folder); }

    [[nodiscard]] std::size_t count() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
    }

    fs::path folder;
    fs::path path;
    watch::WholeFile file;
};

TEST_F(WholeFile, IsWrittenWholeAndLeavesNothingBeside) {
    EXPECT_FALSE(file);
    EXPECT_EQ(file.choose(path), "");
    EXPECT_TRUE(file);
    EXPECT_EQ(count(), 0U); // nothing before there is something to write
    const std::string text = std::string(1'000'000, 'x') + std::string("\0\n", 2);
    EXPECT_EQ(file.write(text), "");
    EXPECT_EQ(contentOf(path), text);
    EXPECT_EQ(file.write(""), "");
    EXPECT_EQ(contentOf(path), "");
    EXPECT_EQ(count(), 1U);
}

TEST_F(WholeFile, PiecesStayInTheirOrder) {
    ASSERT_EQ(file.choose(path), "");
    std::string whole;
    const auto produce = [&](const watch::Sink& sink) {
        for (const std::size_t length : {1U, 16'384U, 0U, 3U, 100'000U, 9'000U, 9'000U, 2U}) {
            const std::string piece(length, static_cast<char>('a' + whole.size() % 26));
            whole += piece;
            sink(piece);
        }
    };
    EXPECT_EQ(file.write(produce), "");
    EXPECT_EQ(contentOf(path), whole);
}

TEST_F(WholeFile, IsReadableAsTheUmaskSays) {
    const mode_t before = ::umask(027);
    ASSERT_EQ(file.choose(path), "");
    EXPECT_EQ(file.write("{}"), "");
    ::umask(before);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0640));
}

TEST_F(WholeFile, ReplacesAFileWithoutTouchingItsOtherNames) {
    std::ofstream(path) << "old";
    fs::create_hard_link(path, folder / "other");
    ASSERT_EQ(file.choose(path), "");
    EXPECT_EQ(file.write("new"), "");
    EXPECT_EQ(contentOf(path), "new");
    EXPECT_EQ(contentOf(folder / "other"), "old");
}

TEST_F(WholeFile, StaysWhereItWasChosenWhenTheWorkingDirectoryChanges) {
    const fs::path before = fs::current_path();
    fs::current_path(folder);
    EXPECT_EQ(file.choose("run.json"), "");
    fs::current_path("/");
    EXPECT_EQ(file.write("here"), "");
    fs::current_path(before);
    EXPECT_EQ(contentOf(path), "here");
}

TEST_F(WholeFile, RefusesWhatIsNoRegularFile) {
    fs::create_directory(folder / "sub");
    ASSERT_EQ(::mkfifo((folder / "fifo").c_str(), 0600), 0);
    std::ofstream(folder / "target") << "kept";
    fs::create_symlink("target", folder / "link");
    fs::create_symlink("nowhere", folder / "dangling");
    const struct {
        fs::path path;
        const char* why;
    } rows[] = {
        {folder / "sub", "is a folder"},
        {folder / "sub/", "is a folder"},
        {folder / "missing/", "is a folder"},
        {folder / "fifo", "is no regular file"},
        {"/dev/null", "is no regular file"},
        {folder / "link", "is a link"},
        {folder / "dangling", "is a link"},
        {folder / "missing/run.json", "No such file or directory"},
        {folder / "target/run.json", "Not a directory"},
        {"", "No such file or directory"},
        {folder / std::string(300, 'n'), "File name too long"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(file.choose(row.path), row.why) << row.path;
        EXPECT_FALSE(file);
    }
    EXPECT_EQ(contentOf(folder / "target"), "kept");
}

TEST_F(WholeFile, RefusesAFolderThatCannotBeWritten) {
    // It refuses root as well, though it says that root may write to it.
    EXPECT_EQ(file.choose("/proc/run.json"), "No such file or directory");
    EXPECT_FALSE(file);
}

TEST_F(WholeFile, FollowsALinkThatWasPutThereMeanwhileNeither) {
    ASSERT_EQ(file.choose(path), "");
    std::ofstream(folder / "target") << "kept";
    fs::create_symlink("target", path);
    EXPECT_EQ(file.write("new"), "is a link");
    EXPECT_EQ(contentOf(folder / "target"), "kept");
    EXPECT_EQ(count(), 2U);
}

TEST_F(WholeFile, KeepsTheOldOneWhereTheNewDoesNotFit) {
    std::ofstream(path) << "old";
    ASSERT_EQ(file.choose(path), "");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{4096, before.rlim_max};
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const std::string why = file.write(std::string(10'000, 'x'));
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    EXPECT_EQ(why, "File too large");
    EXPECT_EQ(contentOf(path), "old");
    EXPECT_EQ(count(), 1U);
}

TEST_F(WholeFile, SaysThatItsFolderIsGone) {
    fs::create_directory(folder / "sub");
    ASSERT_EQ(file.choose(folder / "sub/run.json"), "");
    fs::remove(folder / "sub");
    EXPECT_EQ(file.write("{}"), "No such file or directory");
}

} // namespace
