#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>

#include "Fixture.h"
#include "cvshutdown.h"
#include "front.h"

using fakes::FakeProcess;
using fakes::initiating;
using fakes::Journal;
using fakes::kAllSpecified;
using fakes::kEverything;
using fakes::kGathering;
using fakes::kNothing;
using fakes::requesting;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class ShutdownModeTest : public fakes::ProgramTest {
  protected:
    std::string shutDown(Proc_categories categories = CAT_CORVANE) {
        return host.run([&] { m_status = runShutdownMode(categories); });
    }

    /// A process that only SIGKILL ends.
    FakeProcess& addTough(const std::string& name, std::int32_t pid, std::int32_t category = 1) {
        FakeProcess& process = host.add(name, pid, category);
        process.diesOf = {SIGKILL};
        return process;
    }

    int m_status = -1;
};

TEST_F(ShutdownModeTest, NothingRunning) {
    EXPECT_EQ(shutDown(), kGathering + kNothing);
    EXPECT_EQ(m_status, 0);
    EXPECT_THAT(host.of({"msg"}), ElementsAre("msg MsgCvs0005N", "msg MsgCvs0015N"));
    EXPECT_THAT(host.of({"list"}), ElementsAre("list 1 0"));
}

TEST_F(ShutdownModeTest, NothingRunningAndQuietPrintsNothing) {
    Args.quiet = true;
    EXPECT_EQ(shutDown(), "");
    EXPECT_EQ(m_status, 0);
}

TEST_F(ShutdownModeTest, AnOrderlyShutdownNeverSaysThatThereWasNothing) {
    host.add("pazukiko", 10).stopsOn = "pazukiko -terminate";
    EXPECT_EQ(shutDown(), kGathering + initiating(1) + requesting(fakes::binPath("pazukiko")) + kAllSpecified);
    EXPECT_EQ(m_status, 1) << "the record stays in the snapshot";
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

TEST_F(ShutdownModeTest, SurvivorsAreListedKilledAndWaitedFor) {
    addTough("zeld", 10);
    EXPECT_EQ(shutDown(), kGathering + initiating(1) +
                              "Waiting for 1 processes to terminate. (Active process(es): zeld (10))\n" +
                              "Waiting for 1 processes to terminate. (Active process(es): zeld (10))\n" +
                              "Waiting for 1 processes to terminate. (Active process(es): zeld (10))\n" +
                              "zeld (10) has not terminated\n"
                              "\nThere are still processes active.\n"
                              "zeld /usr/quarn/corvane/bin/zeld 10 Corvane    \n"
                              "\n***** Attempting to kill remaining 1 process(es).\n"
                              "Signaling process /usr/quarn/corvane/bin/zeld\n"
                              "All processes terminated normally.\n");
    EXPECT_EQ(m_status, 1);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGKILL"));
    EXPECT_EQ(host.count("log 2 Main: Attempting to kill remaining 1 process(es) "), 1U);
    EXPECT_EQ(host.count("log 2 Main: All processes terminated normally.\n"), 1U);
}

/// A process that was not signalled is not waited for.
TEST_F(ShutdownModeTest, AListedOnlyProcessDoesNotHoldUpTheEnd) {
    addTough("zeld", 10);
    host.add("editor", 20, CAT_OTHER_THIRD_PARTY);
    const std::string output = shutDown(kEverything);
    EXPECT_NE(output.find("Signaling process /usr/quarn/corvane/bin/zeld\nAll processes terminated normally.\n"),
              std::string::npos)
        << output;
    EXPECT_EQ(output.find("editor (20) has not terminated"), std::string::npos);
}

/// Levels up to 2, taken as unsigned, kill what remains.
TEST_F(ShutdownModeTest, SurvivorsAreKilledAtTheLevelsUpToTwo) {
    for (const auto& [level, kills] : {std::pair(0, 1U), {1, 1U}, {2, 1U}, {3, 0U}, {-1, 0U}}) {
        clear();
        Args.killLevel = level;
        addTough("zeld", 10);
        shutDown();
        EXPECT_EQ(host.count("kill 10 SIGKILL"), kills) << level;
    }
}

/// One signal per process, even if it ignores that one: a second one is for callers that ask for it.
TEST_F(ShutdownModeTest, ARowSendsItsSignalOnce) {
    addTough("momuhe", 10);
    shutDown();
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGTERM", "kill 10 SIGKILL"));
}

TEST_F(ShutdownModeTest, QuietPrintsNothingAndLogsTheSame) {
    Args.quiet = true;
    addTough("zeld", 10);
    EXPECT_EQ(shutDown(), "");
    EXPECT_EQ(host.count("log 2 Main: Attempting to kill remaining 1 process(es) "), 1U);
    EXPECT_EQ(host.count("log 2 Main: All processes terminated normally.\n"), 1U);
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGKILL"));
}

TEST_F(ShutdownModeTest, TheKillingComesAfterTheListAndBeforeTheWait) {
    addTough("zeld", 10);
    shutDown();
    const Journal order = host.of({"msg", "log", "kill"});
    const auto at = [&](const std::string& entry) {
        return std::find(order.begin(), order.end(), entry) - order.begin();
    };
    EXPECT_LT(at("msg MsgCvs0023N"), at("msg MsgCvs0025N"));
    EXPECT_LT(at("msg MsgCvs0025N"), at("log 2 Main: Attempting to kill remaining 1 process(es) "));
    EXPECT_LT(at("log 2 Main: Attempting to kill remaining 1 process(es) "), at("kill 10 SIGKILL"));
    EXPECT_LT(at("kill 10 SIGKILL"), at("msg MsgCvs0030N"));
    EXPECT_LT(at("msg MsgCvs0030N"), at("log 2 Main: All processes terminated normally.\n"));
}

TEST_F(ShutdownModeTest, AProcessThatSurvivesSigkillIsReportedAndNoSuccessIsClaimed) {
    host.add("zeld", 10).diesOf.clear();
    const std::string printed = shutDown();
    EXPECT_EQ(m_status, 1);
    EXPECT_EQ(printed.find("terminated normally"), std::string::npos);
    EXPECT_EQ(host.count("log 8 Processes::WaitForAllDone: zeld(10) has not terminated"), 2U);
    EXPECT_EQ(host.slept, 29 + 29);
}

TEST_F(ShutdownModeTest, AnExcludedSurvivorIsNotKilled) {
    host.files["/usr/quarn/corvane/bin/zeld"] = {1, 7};
    host.add("zeld", 10);
    addTough("kobd", 11);
    Args.excludeListFile = CVSTOP_TEST_DATA "/front/exclude_zeld.list";
    shutDown();
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 11 SIGKILL"));
    EXPECT_EQ(m_status, 1);
}

TEST_F(ShutdownModeTest, ThirdPartiesAreReportedAndTerminated) {
    addTough("holder", 11, 2);
    host.add("editor", 12, 4);
    const std::string printed = shutDown(kEverything);
    EXPECT_EQ(printed, kGathering + initiating(2) + kAllSpecified +
                           "\nThere are 2 3rd party processes active.\n"
                           "holder /usr/quarn/corvane/bin/holder 11 Third Party\n"
                           "Terminating third party process, holder pid-11\n"
                           "Signaling process /usr/quarn/corvane/bin/holder\n");
    EXPECT_EQ(host.of({"kill"}).size(), 5U);
    EXPECT_EQ(m_status, 1);
}

TEST_F(ShutdownModeTest, QuietThirdPartiesAreTerminatedSilently) {
    Args.quiet = true;
    addTough("holder", 11, 2);
    EXPECT_EQ(shutDown(kEverything), "");
    EXPECT_EQ(host.of({"kill"}).size(), 5U);
}

TEST_F(ShutdownModeTest, AStubbornDaemonDoesNotGetTheEditorKilled) {
    addTough("zeld", 10);
    host.add("editor", 12, 4);
    shutDown(kEverything);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGKILL"));
    EXPECT_TRUE(host.find(12)->alive);
}

TEST_F(ShutdownModeTest, OnlyRecordsWithoutTheProductsBitCountAsThirdParties) {
    host.add("odd", 12, 3).alive = false;
    host.add("none", 13, 0).alive = false;
    const std::string printed = shutDown(kEverything);
    EXPECT_NE(printed.find("\nThere are 1 3rd party processes active.\n"), std::string::npos) << printed;
}

TEST_F(ShutdownModeTest, AnExcludedThirdPartyIsListedAndLeft) {
    host.files["/usr/quarn/corvane/bin/zeld"] = {1, 7};
    host.add("zeld", 10, 2);
    Args.excludeListFile = CVSTOP_TEST_DATA "/front/exclude_zeld.list";
    const std::string printed = shutDown(kEverything);
    EXPECT_NE(printed.find("zeld /usr/quarn/corvane/bin/zeld 10 Third Party\n"), std::string::npos);
    EXPECT_EQ(printed.find("Nothing to terminate"), std::string::npos) << "the flag is set by the count";
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

TEST_F(ShutdownModeTest, BrokenPipesAndHangupsAreIgnoredButNotByTheStopCommands) {
    host.add("halvd", 10).stopsOn = "halvd -terminate";
    host.add("gutugav", 11).stopsOn = "gutugav -terminate";
    const fakes::ChildResult result = fakes::inChild([this] {
        std::signal(SIGPIPE, SIG_DFL);
        std::signal(SIGHUP, SIG_DFL);
        runShutdownMode(CAT_CORVANE);
        const auto& seen = host.atCommands;
        const bool areDefault = seen.size() == 2 && seen[0].pipeIsDefault && seen[0].hangupIsDefault &&
                                seen[1].pipeIsDefault && seen[1].hangupIsDefault;
        std::exit(areDefault ? 0 : 1);
    });
    EXPECT_EQ(result.status, 0);
}

/// The exit status, or minus the signal, of a shutdown that gets a signal while it waits for a process.
int statusAfterSignalWhileWaiting(int signal) {
    const fakes::ChildResult result = fakes::inChild([signal] {
        std::signal(SIGPIPE, SIG_DFL);
        std::signal(SIGHUP, SIG_DFL);
        std::signal(SIGINT, SIG_DFL); // ignored in what a shell starts in the background
        FakeProcess& process = fakes::world().add("zeld", 10);
        process.diesOf.clear();
        process.secondsLeft = 2;
        fakes::world().raiseAtSleep = signal;
        std::exit(runShutdownMode(CAT_CORVANE));
    });
    return result.signal != 0 ? -result.signal : result.status;
}

TEST_F(ShutdownModeTest, AHangupOrABrokenPipeDoesNotEndAShutdownHalfWay) {
    EXPECT_EQ(statusAfterSignalWhileWaiting(SIGHUP), 1);
    EXPECT_EQ(statusAfterSignalWhileWaiting(SIGPIPE), 1);
}

TEST_F(ShutdownModeTest, AnInterruptEndsAShutdown) {
    EXPECT_EQ(statusAfterSignalWhileWaiting(SIGINT), -SIGINT);
}

} // namespace
