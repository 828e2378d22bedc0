#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "LogTest.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;

class LogFile : public Log {};

std::string openedPath;

void rememberPath(const char* path) {
    openedPath = path;
}

/// The descriptor of this process that is open on `path`, or -1.
int descriptorOf(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry.path(), gone) == path) {
            return std::stoi(entry.path().filename());
        }
    }
    return -1;
}

TEST_F(LogFile, RecordIsInTheFileBeforeTheNextStatement) {
    const int status = inChild([this] {
        logger.openFile(path.c_str(), "db7", "cvstop", nullptr);
        logmsgf(kLogError, "Main", "last words");
        ::raise(SIGKILL);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(linesOf(path), ElementsAre(EndsWith("error Main: last words")));
}

TEST_F(LogFile, ModeIs0640WhateverTheUmask) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        const UmaskGuard guard(mask);
        const std::string name = folder.at("log" + std::to_string(mask));
        ASSERT_EQ(logger.openFile(name.c_str(), "db7", "cvstop", nullptr), 0);
        EXPECT_EQ(modeOf(name), 0640) << mask;
    }
}

TEST_F(LogFile, KeepsWhatIsThereAndTellsItsPath) {
    folder.write("cvstop.log", "before\n");
    openedPath.clear();
    ASSERT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", rememberPath), 0);
    EXPECT_EQ(openedPath, path);
    logmsgf(kLogWarning, "Main", "after");
    EXPECT_THAT(linesOf(path), ElementsAre("before", EndsWith("warning Main: after")));
}

TEST_F(LogFile, DescriptorAppendsAndIsNotInherited) {
    open();
    const int fd = descriptorOf(std::filesystem::canonical(path));
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(::fcntl(fd, F_GETFL) & O_APPEND);
}

TEST_F(LogFile, ReopeningClosesTheFirstFile) {
    open();
    ASSERT_EQ(logger.openFile(folder.at("second.log").c_str(), "db7", "cvstop", nullptr), 0);
    EXPECT_EQ(descriptorOf(std::filesystem::canonical(path)), -1);
}

TEST_F(LogFile, DoesNotFollowALink) {
    const std::string victim = folder.write("victim", "precious");
    std::filesystem::create_symlink(victim, path);
    EXPECT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), ELOOP);
    logmsgf(kLogProgress, "Main", "dropped");
    EXPECT_EQ(contentOf(victim), "precious");
}

TEST_F(LogFile, DoesNotBlockOnAFifo) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), ENXIO);
}

TEST_F(LogFile, CreatesNoDirectory) {
    openedPath.clear();
    EXPECT_EQ(logger.openFile(folder.at("missing/cvstop.log").c_str(), "db7", "cvstop", rememberPath), ENOENT);
    EXPECT_FALSE(std::filesystem::exists(folder.at("missing")));
    EXPECT_EQ(openedPath, "");
}

TEST_F(LogFile, DropsRecordsInSilenceWhenClosed) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    logmsgf(kLogError, "Main", "nobody hears");
    logger.logDebug("Main", 1, "nobody hears");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogFile, DropsRecordsInSilenceOnAFullDiskAndKeepsErrno) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int deviceMode = modeOf("/dev/full");
    ASSERT_EQ(logger.openFile("/dev/full", "db7", "cvstop", nullptr), 0);
    errno = ENOTTY;
    logmsgf(kLogError, "Main", "no room");
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(modeOf("/dev/full"), deviceMode);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogFile, RecordAfterATornOneStartsALineOfItsOwn) {
    const int status = inChild([this] {
        logger.openFile(path.c_str(), "db7", "cvstop", nullptr);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit small{20, limit.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        logmsgf(kLogProgress, "Main", "torn");
        logmsgf(kLogProgress, "Main", "lost");
        ::setrlimit(RLIMIT_FSIZE, &limit);
        logmsgf(kLogProgress, "Main", "whole");
        logmsgf(kLogProgress, "Main", "next");
    });
    ASSERT_EQ(status, 0);
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].size(), 20U);
    EXPECT_THAT(lines[1], MatchesRegex("[0-9]{4}-.* info Main: whole"));
    EXPECT_THAT(lines[2], MatchesRegex("[0-9]{4}-.* info Main: next"));
}

TEST_F(LogFile, TwoWritersNeverMixWithinALine) {
    constexpr int kRecords = 400;
    open();
    pid_t writers[2] = {};
    for (std::size_t writer = 0; writer < 2; ++writer) {
        writers[writer] = ::fork();
        if (writers[writer] == 0) {
            for (int record = 0; record < kRecords; ++record) {
                const std::string filler(static_cast<std::size_t>(record * 9 % 3000), writer == 0 ? 'a' : 'b');
                logmsgf(kLogProgress, "Main", "<%s>", filler.c_str());
            }
            ::_exit(0);
        }
    }
    for (const pid_t writer : writers) {
        int status = -1;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        ASSERT_EQ(status, 0);
    }
    const std::vector<std::string> lines = linesOf(path);
    EXPECT_EQ(lines.size(), 2U * kRecords);
    for (const std::string& line : lines) {
        EXPECT_THAT(line, MatchesRegex("[^<>]*cvstop[^<>]* info Main: <(a*|b*)>"));
    }
}

} // namespace
