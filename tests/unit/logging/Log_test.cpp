#include "cvlog.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TempFolder.h"
#include "logtext.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

std::string openedPath;

void rememberPath(const char* path) {
    openedPath = path;
}

class Log : public testing::Test {
  protected:
    void open() { ASSERT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), 0); }

    TempFolder folder;
    std::string path = folder.at("cvstop.log");
    CVLogger logger;
};

/// Runs `body` in a child process and returns its wait status.
template <class Body> int inChild(Body body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(pid, &status, 0);
    return status;
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

TEST_F(Log, LineHasTimeHostProcessLevelFunctionAndText) {
    open();
    logmsgf(kLogProgress, "Main", "%s %d", "found", 3);
    EXPECT_THAT(contentOf(path),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{6}[+-][0-9]{2}:[0-9]{2} db7 cvstop\\[" +
                             std::to_string(::getpid()) + "\\] info Main: found 3\n"));
}

TEST_F(Log, TimeIsTheLocalTimeOfTheRecord) {
    const auto now = [] {
        // time(2) reads a coarser clock than the record does, and could come out a second behind it.
        const std::time_t time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        char text[32];
        return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::localtime(&time)));
    };
    open();
    const std::string before = now();
    logmsgf(kLogProgress, "Main", "now");
    const std::string after = now();
    const std::string recorded = contentOf(path).substr(0, before.size());
    EXPECT_LE(before, recorded);
    EXPECT_LE(recorded, after);
}

TEST_F(Log, RecordIsInTheFileBeforeTheNextStatement) {
    const int status = inChild([this] {
        logger.openFile(path.c_str(), "db7", "cvstop", nullptr);
        logmsgf(kLogError, "Main", "last words");
        ::raise(SIGKILL);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(linesOf(path), ElementsAre(EndsWith("error Main: last words")));
}

TEST_F(Log, ModeIs0640WhateverTheUmask) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        const UmaskGuard guard(mask);
        const std::string name = folder.at("log" + std::to_string(mask));
        ASSERT_EQ(logger.openFile(name.c_str(), "db7", "cvstop", nullptr), 0);
        EXPECT_EQ(modeOf(name), 0640) << mask;
    }
}

TEST_F(Log, KeepsWhatIsThereAndTellsItsPath) {
    folder.write("cvstop.log", "before\n");
    openedPath.clear();
    ASSERT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", rememberPath), 0);
    EXPECT_EQ(openedPath, path);
    logmsgf(kLogWarning, "Main", "after");
    EXPECT_THAT(linesOf(path), ElementsAre("before", EndsWith("warning Main: after")));
}

TEST_F(Log, DescriptorAppendsAndIsNotInherited) {
    open();
    const int fd = descriptorOf(std::filesystem::canonical(path));
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(::fcntl(fd, F_GETFL) & O_APPEND);
}

TEST_F(Log, ReopeningClosesTheFirstFile) {
    open();
    ASSERT_EQ(logger.openFile(folder.at("second.log").c_str(), "db7", "cvstop", nullptr), 0);
    EXPECT_EQ(descriptorOf(std::filesystem::canonical(path)), -1);
}

TEST_F(Log, DoesNotFollowALink) {
    const std::string victim = folder.write("victim", "precious");
    std::filesystem::create_symlink(victim, path);
    EXPECT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), ELOOP);
    logmsgf(kLogProgress, "Main", "dropped");
    EXPECT_EQ(contentOf(victim), "precious");
}

TEST_F(Log, DoesNotBlockOnAFifo) {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(logger.openFile(path.c_str(), "db7", "cvstop", nullptr), ENXIO);
}

TEST_F(Log, CreatesNoDirectory) {
    openedPath.clear();
    EXPECT_EQ(logger.openFile(folder.at("missing/cvstop.log").c_str(), "db7", "cvstop", rememberPath), ENOENT);
    EXPECT_FALSE(std::filesystem::exists(folder.at("missing")));
    EXPECT_EQ(openedPath, "");
}

TEST_F(Log, DropsRecordsInSilenceWhenClosed) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    logmsgf(kLogError, "Main", "nobody hears");
    logger.logDebug("Main", 1, "nobody hears");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Log, DropsRecordsInSilenceOnAFullDiskAndKeepsErrno) {
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

TEST_F(Log, RecordAfterATornOneStartsALineOfItsOwn) {
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

TEST_F(Log, TwoWritersNeverMixWithinALine) {
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

TEST_F(Log, LongTextIsCutAndSaysSo) {
    open();
    const std::string text(5000, 'x');
    logmsgf(kLogProgress, "Main", "%s", text.c_str());
    EXPECT_EQ(contentOf(path).size(), logtext::kMaxLine);
    EXPECT_THAT(contentOf(path), EndsWith("x [cut]\n"));
}

TEST_F(Log, ControlCharactersOfANameCannotForgeARecord) {
    open();
    logmsgf(kLogProgress, "Main", "Signaling process %s", "evil\n2026-01-01 forged\x1b[2J");
    EXPECT_THAT(linesOf(path), ElementsAre(EndsWith("Signaling process evil\\n2026-01-01 forged\\x1b[2J")));
}

TEST_F(Log, DebugRecordsAreWrittenAtLevel1OrUpToTheVerbosity) {
    const struct {
        int verbosity;
        int level;
        bool isWritten;
    } rows[] = {{0, 1, true}, {0, 2, false}, {0, 5, false}, {4, 5, false}, {5, 5, true}, {9, 5, true}, {-1, 1, true}};
    for (const auto& row : rows) {
        std::filesystem::remove(path);
        open();
        logger.setVerbosity(row.verbosity);
        logger.logDebug("Main", row.level, "text");
        const std::string wanted = " debug" + std::to_string(row.level) + " Main: text\n";
        EXPECT_EQ(contentOf(path).ends_with(wanted), row.isWritten) << row.verbosity << ' ' << row.level;
        EXPECT_EQ(contentOf(path).empty(), !row.isWritten);
    }
}

TEST_F(Log, DebugTextMayHoldNulBytes) {
    open();
    logger.logDebug("Main", 1, std::string("a\0b", 3));
    EXPECT_THAT(linesOf(path), ElementsAre(EndsWith("debug1 Main: a\\x00b")));
}

TEST_F(Log, NullTextsAreEmpty) {
    EXPECT_EQ(logger.openFile(path.c_str(), nullptr, nullptr, nullptr), 0);
    logger.write(nullptr, nullptr, nullptr);
    EXPECT_THAT(linesOf(path), ElementsAre(HasSubstr(" - [" + std::to_string(::getpid()) + "]")));
}

TEST_F(Log, ParametersAreOneRecord) {
    open();
    std::string first = "-b";
    std::string second = "a b\nc";
    char* arguments[] = {first.data(), second.data(), nullptr};
    logparams(2, arguments);
    logparams(0, arguments);
    logparams(-1, arguments);
    EXPECT_THAT(linesOf(path),
                ElementsAre(EndsWith(" info logparams: Arguments (2): [-b] [a b\\nc]"),
                            EndsWith(" info logparams: Arguments (0):"), EndsWith(" info logparams: Arguments (0):")));
}

TEST_F(Log, TracerWritesEnterAndLeaveWhileTracing) {
    open();
    logger.setTracing(true);
    { const Tracer tracer(&logger, nullptr, "Main", "main", 17); }
    { const Tracer tracer(&logger, this, "Processes::KillProcess", "CV_Processes", 99); }
    EXPECT_THAT(linesOf(path),
                ElementsAre(EndsWith(" enter Main: (main:17)"), EndsWith(" leave Main: (main:17)"),
                            MatchesRegex(".* enter Processes::KillProcess: \\(0x[0-9a-f]+\\) \\(CV_Processes:99\\)"),
                            MatchesRegex(".* leave Processes::KillProcess: \\(0x[0-9a-f]+\\) \\(CV_Processes:99\\)")));
}

TEST_F(Log, TracerIsSilentUnlessTracing) {
    open();
    {
        const Tracer tracer(&logger, nullptr, "Main", "main");
        logger.setTracing(true);
    }
    {
        const Tracer tracer(&logger, nullptr, "Main", "main", 3);
        logger.setTracing(false);
    }
    const Tracer without(nullptr, nullptr, "Main", "main");
    EXPECT_THAT(linesOf(path), ElementsAre(EndsWith(" enter Main: (main:3)")));
}

TEST_F(Log, TracerLeavesByExceptionToo) {
    open();
    logger.setTracing(true);
    try {
        const Tracer tracer(&logger, nullptr, "Main", "main", 5);
        throw std::runtime_error("out");
    } catch (const std::runtime_error&) {
        EXPECT_THAT(linesOf(path), ElementsAre(HasSubstr(" enter "), HasSubstr(" leave ")));
    }
}

TEST(LogSlots, FirstLoggerTakesThemAndLeavesThem) {
    ASSERT_EQ(CVLogger::s_default, nullptr);
    {
        CVLogger first;
        EXPECT_EQ(CVLogger::s_default, &first);
        EXPECT_EQ(CVLogger::s_defaultLib, &first);
        {
            const CVLogger second;
            EXPECT_EQ(CVLogger::s_default, &first);
        }
        EXPECT_EQ(CVLogger::s_defaultLib, &first);
    }
    EXPECT_EQ(CVLogger::s_default, nullptr);
    EXPECT_EQ(CVLogger::s_defaultLib, nullptr);
    // Nobody to write it: dropped.
    logmsgf(kLogProgress, "Main", "dropped");
    log_set_verbosity_filter(3);
}

TEST(LogVerbosity, LargerOneApplies) {
    EXPECT_EQ(log_get_verbose(3, 5), 5);
    EXPECT_EQ(log_get_verbose(5, 3), 5);
    EXPECT_EQ(log_get_verbose(4, 4), 4);
}

TEST(LogVerbosity, IsKeptForTheProcessAndTheLibraries) {
    CVLogger logger;
    log_set_process_kokaconf_verbose(7);
    EXPECT_EQ(log_get_process_kokaconf_verbose(), 7);
    EXPECT_EQ(logger.verbosity(), 0);
    log_set_verbosity_filter(6);
    EXPECT_EQ(logger.verbosity(), 6);
    log_set_process_kokaconf_verbose(0);
}

TEST_F(Log, SetPidStaysWithLaterRecords) {
    open();
    const int status = inChild([] {
        log_set_pid();
        logmsgf(kLogProgress, "Main", "own %d", static_cast<int>(::getpid()));
        inChild([] { logmsgf(kLogProgress, "Main", "inherited"); });
    });
    ASSERT_EQ(status, 0);
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), 2U);
    const std::string pid = lines[0].substr(lines[0].rfind(' ') + 1);
    EXPECT_THAT(lines[0], HasSubstr("cvstop[" + pid + "]"));
    EXPECT_THAT(lines[1], HasSubstr("cvstop[" + pid + "]"));
}

} // namespace
