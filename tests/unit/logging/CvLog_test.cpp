#include <chrono>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>

#include "LogTest.h"
#include "logtext.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

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

TEST_F(Log, LongTextIsCutAndMarked) {
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
    // Without a logger it is dropped.
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
