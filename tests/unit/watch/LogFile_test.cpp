#include "LogFile.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "TempFolder.h"

namespace {

constexpr int kAllGoWell = 1'000'000;

/// What happens behind the next look at a file; and how many reads go well before they fail.
std::function<void()> g_behindTheLook;
int g_goodReads = kAllGoWell;

} // namespace

// Names given by the linker's --wrap.
extern "C" {
int __real_lstat64(const char* path, struct stat* status);
int __wrap_lstat64(const char* path, struct stat* status);
int __wrap_lstat64(const char* path, struct stat* status) {
    const int result = __real_lstat64(path, status);
    if (const std::function<void()> act = std::exchange(g_behindTheLook, nullptr); act) {
        act();
    }
    return result;
}
ssize_t __real_pread64(int fd, void* to, std::size_t size, off_t offset);
ssize_t __wrap_pread64(int fd, void* to, std::size_t size, off_t offset);
ssize_t __wrap_pread64(int fd, void* to, std::size_t size, off_t offset) {
    if (g_goodReads == 0) {
        errno = EIO;
        return -1;
    }
    --g_goodReads;
    return __real_pread64(fd, to, size, offset);
}
ssize_t __wrap___pread64_chk(int fd, void* to, std::size_t size, off_t offset, std::size_t room);
ssize_t __wrap___pread64_chk(int fd, void* to, std::size_t size, off_t offset, std::size_t /*room*/) {
    return __wrap_pread64(fd, to, size, offset);
}
}

namespace watch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string record(int pid, const std::string& name) {
    return "2026-11-21T19:53:02.123456+00:00 client cvstop[" + std::to_string(pid) +
           "] info OrderlyShutdown: Terminate request for " + name + "\n";
}

class LogFileTest : public testing::Test {
  protected:
    ~LogFileTest() override {
        g_behindTheLook = nullptr;
        g_goodReads = kAllGoWell;
    }
    void append(const std::string& bytes, const std::string& name = "cvstop.log") const {
        std::ofstream(m_folder.at(name), std::ios::app | std::ios::binary) << bytes;
    }
    static std::vector<std::string> names(LogFile& log, int pid = 22) {
        std::vector<std::string> found;
        for (const LogEvent& event : log.read(pid)) {
            found.push_back(event.name);
        }
        return found;
    }
    /// Truncates the log and writes it anew, at another time than before.
    void rewrite(const std::string& bytes) const {
        const auto before = std::filesystem::last_write_time(path());
        std::filesystem::resize_file(path(), 0);
        append(bytes);
        std::filesystem::last_write_time(path(), before + std::chrono::seconds(1));
    }
    [[nodiscard]] std::string path() const { return m_folder.at("cvstop.log"); }

    TempFolder m_folder;
};

TEST_F(LogFileTest, BeginsAtTheEndThatItHas) {
    append(record(22, "before"));
    LogFile log(path());
    append(record(22, "one") + record(22, "two"));
    EXPECT_THAT(names(log), ElementsAre("one", "two"));
    EXPECT_THAT(names(log), IsEmpty());
    append(record(22, "three"));
    EXPECT_THAT(names(log), ElementsAre("three"));
    EXPECT_THAT(log.trouble(), IsEmpty());
    EXPECT_TRUE(log.found());
}

TEST_F(LogFileTest, RecordsOfOthersAreNotTaken) {
    LogFile log(path());
    append(record(23, "other") + "no record\n" + record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
}

TEST_F(LogFileTest, HalfALineWaitsForTheRest) {
    LogFile log(path());
    const std::string line = record(22, "one");
    append(line.substr(0, 20));
    EXPECT_THAT(names(log), IsEmpty());
    EXPECT_FALSE(log.found());
    append(line.substr(20));
    EXPECT_THAT(names(log), ElementsAre("one"));
}

TEST_F(LogFileTest, LineWithoutAnEndIsGivenUp) {
    LogFile log(path());
    append(std::string(100'000, 'x'));
    EXPECT_THAT(names(log), IsEmpty());
    append("\n" + record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
}

TEST_F(LogFileTest, NoLogAtFirst) {
    LogFile log(path());
    EXPECT_FALSE(log.find());
    EXPECT_THAT(names(log), IsEmpty());
    EXPECT_THAT(log.trouble(), IsEmpty());
    append(record(22, "one"));
    EXPECT_TRUE(log.find());
    EXPECT_THAT(names(log), ElementsAre("one"));
}

TEST_F(LogFileTest, ReadThatFailsOnceLosesNothing) {
    LogFile log(path());
    append(record(22, "one"));
    ASSERT_TRUE(log.find());
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_THAT(names(log), IsEmpty());
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("cannot be read: ")));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, RotatedLogIsFollowedUnderItsNewName) {
    append("old\n");
    LogFile log(path());
    append(record(22, "one"));
    std::filesystem::rename(path(), m_folder.at("cvstop.log.1"));
    append(record(22, "new file"));
    append(record(22, "two"), "cvstop.log.1");
    EXPECT_THAT(names(log), ElementsAre("one", "two"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, LogThatWasFoundIsFollowedThoughNothingWasRead) {
    LogFile log(path());
    append(record(22, "one"));
    EXPECT_TRUE(log.find());
    std::filesystem::rename(path(), m_folder.at("elsewhere"));
    append("");
    EXPECT_THAT(names(log), ElementsAre("one"));
}

TEST_F(LogFileTest, LogThatWasTakenAwayIsMissedAloud) {
    append("old\n");
    LogFile log(path());
    std::filesystem::remove(path());
    EXPECT_THAT(names(log), IsEmpty());
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("taken away")));
    append(record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_EQ(log.trouble().size(), 1U);
}

TEST_F(LogFileTest, TruncatedLogIsReadFromItsBegin) {
    append("old old old old old old old old old old old old old old old old old old old old old old old old old old "
           "old old "
           "old old old old old old old old old old old old old old old old old old old old old old old old\n");
    LogFile log(path());
    std::filesystem::resize_file(path(), 0);
    append(record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("truncated")));
}

/// Many records, each of a time of its own.
std::string records(int count) {
    std::string text;
    for (int number = 0; number < count; ++number) {
        text +=
            "2026-11-21T19:53:02." + std::to_string(100'000 + number) + "+00:00 client cvstop[7] info Main: other\n";
    }
    return text;
}

TEST_F(LogFileTest, TruncatedLogThatHasOutgrownItsFormerSizeIsReadFromItsBegin) {
    append(records(100));
    LogFile log(path());
    append(record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
    rewrite(record(22, "two") + records(150) + record(22, "three"));
    EXPECT_THAT(names(log), ElementsAre("two", "three"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("truncated")));
    append(record(22, "four"));
    EXPECT_THAT(names(log), ElementsAre("four"));
}

TEST_F(LogFileTest, LogThatWasTruncatedBeforeItsFirstRecordIsReadFromItsBegin) {
    append(record(22, "former run"));
    LogFile log(path());
    rewrite(record(22, "one") + record(22, "two"));
    EXPECT_THAT(names(log), ElementsAre("one", "two"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("truncated")));
}

TEST_F(LogFileTest, TruncatedLogThatHasItsFormerSizeAgainIsReadFromItsBegin) {
    append(record(22, "old"));
    LogFile log(path());
    rewrite(record(22, "new"));
    EXPECT_THAT(names(log), ElementsAre("new"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("truncated")));
}

TEST_F(LogFileTest, HalfALineOfATruncatedLogIsDropped) {
    append(records(2));
    LogFile log(path());
    append(record(22, "one").substr(0, 40));
    EXPECT_THAT(names(log), IsEmpty());
    rewrite(records(3) + record(22, "two"));
    EXPECT_THAT(names(log), ElementsAre("two"));
}

TEST_F(LogFileTest, LogThatWasOnlyTouchedIsWhole) {
    append(record(22, "old"));
    LogFile log(path());
    std::filesystem::last_write_time(path(), std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_THAT(names(log), IsEmpty());
    append(record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, LogThatCouldNotBeReadAtFirstIsFollowedFromItsEnd) {
    append(records(3));
    g_goodReads = 0;
    LogFile log(path());
    g_goodReads = kAllGoWell;
    EXPECT_THAT(log.trouble(), IsEmpty());
    append(record(22, "one"));
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), IsEmpty());
    rewrite(record(22, "two"));
    EXPECT_THAT(names(log), ElementsAre("two"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("truncated")));
}

TEST_F(LogFileTest, ReadThatFailsAtOnceIsNoTruncation) {
    append(records(3));
    LogFile log(path());
    append(record(22, "one"));
    g_goodReads = 0;
    EXPECT_THAT(names(log), IsEmpty());
    EXPECT_THAT(log.trouble(), ElementsAre("the debug log cannot be read: Input/output error"));
    g_goodReads = kAllGoWell;
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, ReadThatFailsHalfWayKeepsWhatItGot) {
    append(records(3));
    LogFile log(path());
    append(record(22, "one") + std::string(70'000, 'x') + '\n' + record(22, "two"));
    g_goodReads = 1;
    EXPECT_THAT(names(log), ElementsAre("one"));
    EXPECT_THAT(log.trouble(), ElementsAre(HasSubstr("cannot be read: ")));
    g_goodReads = kAllGoWell;
    EXPECT_THAT(names(log), ElementsAre("two"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, LogThatIsRotatedBehindTheLookAtItIsFollowedUnderItsNewName) {
    append(records(3));
    LogFile log(path());
    append(record(22, "one"));
    g_behindTheLook = [this] {
        std::filesystem::rename(path(), m_folder.at("cvstop.log.1"));
        append(record(22, "new file") + records(10));
    };
    EXPECT_THAT(names(log), ElementsAre("one"));
    append(record(22, "two"), "cvstop.log.1");
    EXPECT_THAT(names(log), ElementsAre("two"));
    EXPECT_THAT(log.trouble(), IsEmpty());
}

TEST_F(LogFileTest, WhatIsNoFileIsNoLog) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    LogFile log(path());
    EXPECT_FALSE(log.find());
    EXPECT_THAT(names(log), IsEmpty());
    std::filesystem::remove(path());
    append(record(22, "one"), "elsewhere");
    std::filesystem::create_symlink(m_folder.at("elsewhere"), path());
    EXPECT_FALSE(log.find());
    std::filesystem::remove(path());
    std::filesystem::create_directory(path());
    EXPECT_FALSE(log.find());
}

/// The descriptors that lead below the folder.
int holders(const std::string& folder) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        count += std::filesystem::read_symlink(entry, error).string().starts_with(folder) ? 1 : 0;
    }
    return count;
}

TEST_F(LogFileTest, HoldsNothingOpen) {
    append("old\n");
    LogFile log(path());
    append(record(22, "one"));
    names(log);
    EXPECT_EQ(holders(m_folder.at("")), 0);
}

} // namespace
} // namespace watch
