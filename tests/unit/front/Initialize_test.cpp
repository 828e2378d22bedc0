#include <string>

#include "Fixture.h"
#include "cvlog.h"
#include "front.h"

using fakes::ChildResult;
using fakes::inChild;
using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kLogDirectory = "/usr/quarn/corvane/logs/cvstop";

class InitializeTest : public fakes::ProgramTest {
  protected:
    InitializeTest() {
        host.config.name = "host7";
        host.config.verbosity = 3;
    }

    /// The journal without the traces.
    static Journal untraced(const Journal& journal) {
        Journal rest;
        for (const std::string& entry : journal) {
            if (entry.rfind("enter ", 0) != 0 && entry.rfind("leave ", 0) != 0) {
                rest.push_back(entry);
            }
        }
        return rest;
    }
};

TEST_F(InitializeTest, TheOrderOfTheChecksIsFixed) {
    host.logDirectoryExists = false;
    EXPECT_EQ(host.run([] { Initialize(); }), "");
    EXPECT_THAT(untraced(host.journal), ElementsAre("geteuid", "log_set_pid", "access " + kLogDirectory + " F_OK",
                                                    "mkdirpath " + kLogDirectory + " 0755", "config read",
                                                    "open host7 cvstop cvstop null", "hask_is_server localhost"));
}

TEST_F(InitializeTest, IsTracedAsAFreeFunctionBeforeItChecksAnything) {
    Initialize();
    ASSERT_GE(host.journal.size(), 2U);
    EXPECT_EQ(host.journal.front().rfind("enter Initialize ", 0), 0U) << host.journal.front();
    EXPECT_EQ(host.journal.front().substr(host.journal.front().size() - 5), " null");
    EXPECT_EQ(host.journal.back(), "leave Initialize");
}

TEST_F(InitializeTest, ExistingLogDirectoryIsLeftAlone) {
    EXPECT_EQ(host.run([] { Initialize(); }), "");
    EXPECT_THAT(host.of({"mkdirpath", "msg"}), IsEmpty());
}

TEST_F(InitializeTest, LogDirectoryThatCannotBeMadePrintsTheStatusAndGoesOn) {
    host.logDirectoryExists = false;
    host.mkdirResult = -1;
    host.mkdirStatus = 30;
    EXPECT_EQ(host.run([] { Initialize(); }), "Unable to create log file.  status=30.  Continuing without logging.\n");
    EXPECT_THAT(
        host.of({"msg", "config", "open", "hask_is_server"}),
        ElementsAre("msg MsgCvs0042N", "config read", "open host7 cvstop cvstop null", "hask_is_server localhost"));
}

TEST_F(InitializeTest, OnlyANegativeResultOfMkdirpathIsAFailure) {
    host.logDirectoryExists = false;
    host.mkdirResult = 1;
    EXPECT_EQ(host.run([] { Initialize(); }), "");
}

TEST_F(InitializeTest, AnOrdinaryUserEndsWith132AndLogsNothing) {
    host.euid = 1000;
    const ChildResult result = inChild([] { Initialize(); });
    EXPECT_EQ(result.status, 132);
    EXPECT_EQ(result.output, "Must be Administrator.\n");
    EXPECT_THAT(result.of({"geteuid", "msg", "log", "open", "access", "config", "out", "log_set_pid"}),
                ElementsAre("geteuid", "msg MsgCvs0040N", "out Must be Administrator.\n"));
}

TEST_F(InitializeTest, UnreadableConfigurationEndsWith110) {
    host.configResult = 2;
    const ChildResult result = inChild([] { Initialize(); });
    EXPECT_EQ(result.status, 110);
    EXPECT_EQ(result.output, "Failed to read Master Config.\n");
    EXPECT_THAT(result.of({"msg", "log", "open", "hask_is_server"}), ElementsAre("msg MsgCvs0045N"));
}

TEST_F(InitializeTest, AServerHostIsRefusedWith55AndLogged) {
    host.isServer = 1;
    const ChildResult result = inChild([] { Initialize(); });
    EXPECT_EQ(result.status, 55);
    EXPECT_EQ(result.output, "Currently only supported on clients.\n");
    EXPECT_THAT(result.of({"open", "hask_is_server", "msg", "log"}),
                ElementsAre("open host7 cvstop cvstop null", "hask_is_server localhost", "msg MsgCvs0050N",
                            "log 16 Initialize: Attempt to run cvstop on a server, clients support only"));
}

TEST_F(InitializeTest, FatalMessagesArePrintedEvenWhenQuiet) {
    Args.quiet = true;
    host.isServer = 1;
    EXPECT_EQ(inChild([] { Initialize(); }).output, "Currently only supported on clients.\n");
}

TEST_F(InitializeTest, VerboseSetLeavesTheVerbosityToMain) {
    host.kokaVerbosity = 9;
    g_logger.setVerbosity(2);
    Initialize();
    EXPECT_EQ(g_logger.verbosity(), 2);
    EXPECT_THAT(host.of({"log_get_verbose", "log_set_verbosity_filter"}), IsEmpty());
}

TEST_F(InitializeTest, VerboseClearTakesTheVerbosityFromTheConfiguration) {
    Args.verbose = false;
    host.verboseResult = 6;
    Initialize();
    EXPECT_EQ(g_logger.verbosity(), 6);
    const Journal entries = host.of({"config", "log_get_verbose", "log_set_process_kokaconf_verbose",
                                     "log_set_verbosity_filter", "log_get_process_kokaconf_verbose", "open"});
    ASSERT_EQ(entries.size(), 6U);
    EXPECT_EQ(entries[0], "config read");
    EXPECT_EQ(entries[1], "log_get_verbose 3 3");
    EXPECT_THAT(Journal(entries.begin() + 2, entries.begin() + 4),
                ::testing::UnorderedElementsAre("log_set_process_kokaconf_verbose 6", "log_set_verbosity_filter 6"));
    EXPECT_EQ(entries[4], "log_get_process_kokaconf_verbose");
    EXPECT_EQ(entries[5], "open host7 cvstop cvstop null");
}

TEST_F(InitializeTest, BothDefaultLoggersAreTheProgramsAfterwards) {
    CVLogger::s_default = nullptr;
    CVLogger::s_defaultLib = nullptr;
    Initialize();
    EXPECT_EQ(CVLogger::s_default, &g_logger);
    EXPECT_EQ(CVLogger::s_defaultLib, &g_logger);
}

TEST_F(InitializeTest, ApplyVerbosityGivesTheCommandLinesVerbosityToTheLibrary) {
    Args.verbosity = 4;
    applyVerbosity();
    EXPECT_EQ(g_logger.verbosity(), 4);
    EXPECT_FALSE(g_logger.tracing());
    EXPECT_EQ(host.count("log_set_process_kokaconf_verbose 4"), 1U);
    EXPECT_EQ(host.count("log_set_verbosity_filter 4"), 1U);
}

TEST_F(InitializeTest, VerbosityAboveFourSwitchesTracingOn) {
    Args.verbosity = 5;
    applyVerbosity();
    EXPECT_EQ(g_logger.verbosity(), 5);
    EXPECT_TRUE(g_logger.tracing());
}

TEST_F(InitializeTest, WithVerboseClearTheVerbosityIsNotApplied) {
    Args.verbose = false;
    Args.verbosity = 3;
    g_logger.setVerbosity(7);
    applyVerbosity();
    EXPECT_EQ(g_logger.verbosity(), 7);
    EXPECT_THAT(host.of({"log_set_process_kokaconf_verbose", "log_set_verbosity_filter"}), IsEmpty());
}

} // namespace
