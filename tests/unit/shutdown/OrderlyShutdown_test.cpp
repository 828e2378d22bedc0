#include <string>

#include "SnapshotTest.h"
#include "shutdown.h"

using fakes::FakeProcess;
using fakes::Journal;
using fakes::kAllSpecified;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kLooking = "log 2 OrderlyShutdown: Looking for remaining processes to shut down";
const std::string kDone = "log 2 OrderlyShutdown: All Corvane processes terminated normally.\n";

class OrderlyShutdownTest : public SnapshotTest {
  protected:
    std::int32_t shutDown(bool secondSignal = false, int pass = 1) {
        std::int32_t remaining = -1;
        m_printed = host.run([&] { remaining = OrderlyShutdown(*m_processes, secondSignal, pass); });
        return remaining;
    }

    /// What was logged under the name of the walk itself.
    [[nodiscard]] Journal ownLog() const {
        Journal own;
        for (const std::string& entry : host.of({"log"})) {
            if (entry.find(" OrderlyShutdown: ") != std::string::npos) {
                own.push_back(entry);
            }
        }
        return own;
    }

    std::string m_printed;
};

TEST_F(OrderlyShutdownTest, NothingRunningPrintsThatAllTerminated) {
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_EQ(m_printed, kAllSpecified);
    EXPECT_THAT(host.of({"kill", "system", "sleep"}), IsEmpty());
    EXPECT_THAT(ownLog(), ElementsAre(kLooking, kDone));
    EXPECT_EQ(host.count("msg MsgCvs0090N"), 1U);
}

TEST_F(OrderlyShutdownTest, NothingRunningAndQuietPrintsNothingButLogsTheSame) {
    Args.quiet = true;
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_THAT(ownLog(), ElementsAre(kLooking, kDone));
}

TEST_F(OrderlyShutdownTest, RowsAreCarriedOutInTableOrder) {
    FakeProcess& last = host.add("pazukiko", 10);
    last.stopsOn = "pazukiko";
    host.add("java", 11);
    host.add("sodo", 12);
    host.add("sawek", 13);
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill", "system"}),
                ElementsAre("kill 13 SIGKILL", "kill 12 SIGHUP", "kill 11 SIGTERM",
                            "system /usr/quarn/corvane/bin/pazukiko -terminate > /dev/null 2>&1 &"));
    EXPECT_THAT(ownLog(), ElementsAre("log 2 OrderlyShutdown: Terminate request for sawek",
                                      "log 2 OrderlyShutdown: Terminate request for sodo",
                                      "log 2 OrderlyShutdown: Terminate request for java",
                                      "log 2 OrderlyShutdown: Terminate request for pazukiko", kLooking, kDone));
}

TEST_F(OrderlyShutdownTest, AProcessOfNoRowGetsThreeSignalsOneSecondApart) {
    host.add("unknownd", 10).diesOf = {SIGQUIT};
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill", "sleep"}),
                ElementsAre("kill 10 SIGINT", "sleep 1", "kill 10 SIGTERM", "sleep 1", "kill 10 SIGQUIT"));
    EXPECT_THAT(ownLog(), ElementsAre(kLooking, "log 2 OrderlyShutdown: Name=unknownd Pid=10", kDone));
    EXPECT_EQ(m_printed, "Signaling process /usr/quarn/corvane/bin/unknownd\n" + kAllSpecified);
    EXPECT_EQ(record(10)->signalled, 1);
}

TEST_F(OrderlyShutdownTest, TheSeriesIsSentInFullEvenIfTheFirstSignalWasEnough) {
    Args.quiet = true;
    host.add("unknownd", 10);
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGINT", "kill 10 SIGTERM", "kill 10 SIGQUIT"));
    EXPECT_EQ(m_printed, "");
}

TEST_F(OrderlyShutdownTest, MarkedProcessesAreOnlyWaitedFor) {
    for (const char* name : {"nanid", "zeld", "hiwik"}) {
        FakeProcess& process = host.add(name, 10 + static_cast<std::int32_t>(host.fleet.size()));
        process.diesOf.clear();
        process.secondsLeft = 4;
    }
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill", "system"}), IsEmpty());
    EXPECT_EQ(host.slept, 4);
}

TEST_F(OrderlyShutdownTest, ALaterInstanceOfAFirstOnlyRowIsLeftToTheRemainingPass) {
    host.add("pazukiko", 10).stopsOn = "pazukiko";
    host.add("pazukiko", 11);
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 11 SIGINT", "kill 11 SIGTERM", "kill 11 SIGQUIT"));
}

TEST_F(OrderlyShutdownTest, ThirdPartyRecordsAreNeverStoppedByTheRemainingPass) {
    for (const int pass : {1, 2, 3}) {
        clear();
        host.add("editor", 10, 2);
        host.add("shell", 11, 4);
        host.add("odd", 12, 3);
        snapshot();
        EXPECT_EQ(shutDown(true, pass), 0);
        EXPECT_THAT(host.of({"kill", "system", "sleep"}), IsEmpty()) << "pass " << pass;
        m_processes.reset();
    }
}

TEST_F(OrderlyShutdownTest, AnExitedProcessOfNoRowIsNotMarked) {
    host.add("unknownd", 10).alive = false;
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_EQ(record(10)->signalled, 0);
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

TEST_F(OrderlyShutdownTest, PassTwoStopsMarkedProcessesToo) {
    host.add("zeld", 10).diesOf = {SIGQUIT};
    snapshot();
    EXPECT_EQ(shutDown(false, 2), 0);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGINT", "kill 10 SIGTERM", "kill 10 SIGQUIT"));
}

TEST_F(OrderlyShutdownTest, OtherPassesStopNothingButStillLogExcludedRecords) {
    for (const int pass : {0, 3, -1}) {
        clear();
        host.add("unknownd", 10);
        host.add("otherd", 11);
        snapshot();
        record(11)->excluded = 1;
        EXPECT_EQ(shutDown(false, pass), 0);
        EXPECT_THAT(host.of({"kill", "sleep"}), IsEmpty());
        const Journal debug = host.of({"debug"});
        ASSERT_EQ(debug.size(), 1U);
        EXPECT_EQ(debug[0].rfind("debug 1 OrderlyShutdown: Ignoring process because it is on exclude list, Name = "
                                 "otherd(",
                                 0),
                  0U)
            << debug[0];
        m_processes.reset();
    }
}

TEST_F(OrderlyShutdownTest, AnExcludedProcessIsLeftAloneByRowsAndByTheRemainingPass) {
    host.add("halvd", 10);
    host.add("unknownd", 11);
    snapshot();
    record(10)->excluded = 1;
    record(11)->excluded = 1;
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill", "system", "sleep"}), IsEmpty());
    EXPECT_EQ(host.of({"debug"}).size(), 3U) << "once by its row, and each once by the remaining pass";
}

TEST_F(OrderlyShutdownTest, AWaitingRowWhoseFirstProcessIsExcludedDelaysTheWalkByTheFullWait) {
    host.add("gowid", 10);
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(shutDown(), 0);
    EXPECT_EQ(host.slept, 30);
    EXPECT_THAT(host.of({"kill", "system"}), IsEmpty());
}

TEST_F(OrderlyShutdownTest, AStubbornProcessOfAWaitingRowIsWaitedForTwiceAndThenOnceMore) {
    host.add("gowid", 10).diesOf.clear();
    snapshot();
    EXPECT_EQ(shutDown(), 1);
    EXPECT_EQ(host.slept, 30 + 30 + 29);
}

TEST_F(OrderlyShutdownTest, SecondSignalAndPassAreHandedToTheRows) {
    host.add("hiwik", 10).diesOf = {SIGHUP};
    snapshot();
    EXPECT_EQ(shutDown(true, 2), 0);
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGTERM", "kill 10 SIGHUP"));
}

TEST_F(OrderlyShutdownTest, SurvivorsAreCountedAndNoSuccessIsClaimed) {
    host.add("unknownd", 10).diesOf.clear();
    host.add("otherd", 11).diesOf.clear();
    snapshot();
    EXPECT_EQ(shutDown(), 2);
    EXPECT_EQ(host.count(kDone), 0U);
    EXPECT_EQ(host.count("msg MsgCvs0090N"), 0U);
    EXPECT_EQ(host.slept, 2 + 2 + 29);
    EXPECT_NE(m_printed.find("unknownd (10) has not terminated\notherd (11) has not terminated\n"), std::string::npos);
}

TEST_F(OrderlyShutdownTest, TheOwnRecordGetsNoSignal) {
    host.add("cvstop", host.ownPid);
    host.fleet[0].secondsLeft = 3;
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

TEST_F(OrderlyShutdownTest, TheKobdAndDobdRowsRunTheProductsTools) {
    host.add("kobd", 10).stopsOn = "nodakewe";
    host.add("dobd", 11).stopsOn = "humowow -M localhost -terminate";
    host.add("mamegok", 12).stopsOn = "vilohibo -all";
    snapshot();
    EXPECT_EQ(shutDown(), 0);
    EXPECT_THAT(host.of({"system"}),
                ElementsAre("system /usr/quarn/corvane/bin/admincmd/humowow -M localhost -suspend_cancel_selective > "
                            "/dev/null 2>&1 &",
                            "system /usr/quarn/corvane/bin/admincmd/humowow -M localhost -terminate > /dev/null 2>&1 &",
                            "system /usr/quarn/corvane/bin/admincmd/vilohibo -all > /dev/null 2>&1 &",
                            "system /usr/quarn/volmgr/bin/nodakewe -h localhost -t > /dev/null 2>&1 &"));
}

} // namespace
