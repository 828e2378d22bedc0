#include <string>
#include <vector>

#include "SnapshotTest.h"

using fakes::FakeProcess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class WaitsTest : public SnapshotTest {
  protected:
    /// A process that no signal ends.
    FakeProcess& addStubborn(const std::string& name, std::int32_t pid) {
        FakeProcess& process = host.add(name, pid);
        process.diesOf.clear();
        return process;
    }

    int wait(int seconds, bool all = false, bool quiet = false) {
        int active = -1;
        m_printed = host.run([&] { active = m_processes->WaitForAllDone(seconds, all, quiet); });
        return active;
    }

    std::string m_printed;
};

// --- WaitForProcess --------------------------------------------------------------------------------------------------

TEST_F(WaitsTest, WaitForProcessReturnsAsSoonAsTheProcessIsGone) {
    addStubborn("halvd", 10).secondsLeft = 2;
    snapshot();
    EXPECT_TRUE(m_processes->WaitForProcess(record(10), 30));
    EXPECT_THAT(host.of({"probe", "sleep"}), ElementsAre("probe 10", "sleep 1", "probe 10", "sleep 1", "probe 10"));
    EXPECT_EQ(host.journal.front(), "enter Processes::WaitForProcess CV_Processes this");
}

TEST_F(WaitsTest, WaitForProcessOfNoProcessReturnsAtOnce) {
    snapshot();
    EXPECT_TRUE(m_processes->WaitForProcess(nullptr, 30));
    EXPECT_EQ(host.slept, 0);
}

TEST_F(WaitsTest, WaitForProcessGivesUpWhenTheSecondsAreOver) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), 3));
    EXPECT_THAT(host.of({"probe", "sleep"}),
                ElementsAre("probe 10", "sleep 1", "probe 10", "sleep 1", "probe 10", "sleep 1"));
}

TEST_F(WaitsTest, WaitForProcessOf45SecondsIsLoweredTo30) {
    addStubborn("halvd", 10);
    snapshot();
    bool gone = true;
    EXPECT_EQ(host.run([&] { gone = m_processes->WaitForProcess(record(10), 45); }),
              "Wait time too long (45), setting to 30\n");
    EXPECT_FALSE(gone);
    EXPECT_EQ(host.slept, 30);
    EXPECT_THAT(host.of({"msg"}), IsEmpty()) << "this text does not come from the catalog";
}

TEST_F(WaitsTest, WaitForProcessOfExactly30SecondsIsNotTooLong) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(host.run([&] { m_processes->WaitForProcess(record(10), 30); }), "");
    EXPECT_EQ(host.slept, 30);
}

TEST_F(WaitsTest, WaitForProcessLowersToTheWaitTimeOfTheCommandLine) {
    Args.waitTime = 4;
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(host.run([&] { m_processes->WaitForProcess(record(10), 31); }),
              "Wait time too long (31), setting to 4\n");
    EXPECT_EQ(host.slept, 4);
}

TEST_F(WaitsTest, WaitForProcessOfZeroSecondsChecksOnceAndReturnsAtOnce) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), 0));
    EXPECT_THAT(host.of({"probe", "sleep"}), ElementsAre("probe 10"));
}

TEST_F(WaitsTest, WaitForProcessOfNegativeSecondsReturnsFalseWithoutChecking) {
    host.add("halvd", 10).alive = false;
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), -5));
    EXPECT_THAT(host.of({"probe", "sleep"}), IsEmpty());
}

// --- WaitForAllDone --------------------------------------------------------------------------------------------------

TEST_F(WaitsTest, WaitForAllOfLessThanOneSecondReturnsAtOnce) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(0), 0);
    EXPECT_EQ(wait(-3), 0);
    EXPECT_THAT(host.of({"probe", "sleep", "log"}), IsEmpty());
}

TEST_F(WaitsTest, WaitForAllWithAnEmptyListReturnsZero) {
    snapshot();
    EXPECT_EQ(wait(30), 0);
    EXPECT_THAT(host.of({"probe", "sleep", "log"}), IsEmpty());
}

TEST_F(WaitsTest, WaitForAllOfOneSecondReportsWithoutSleeping) {
    addStubborn("halvd", 10);
    host.add("zeld", 11);
    addStubborn("kobd", 12);
    snapshot();
    record(10)->signalled = 1;
    record(12)->signalled = 1;
    EXPECT_EQ(wait(1), 2);
    EXPECT_EQ(m_printed, "Waiting for 2 processes to terminate. (Active process(es): halvd (10), kobd (12))\n"
                         "halvd (10) has not terminated\n"
                         "kobd (12) has not terminated\n");
    EXPECT_THAT(
        host.of({"sleep", "log", "msg"}),
        ElementsAre("msg MsgCvs0235N",
                    "log 2 Processes::WaitForAllDone: Waiting for 2 processes to terminate. (Active process(es): "
                    "halvd (10), kobd (12))",
                    "msg MsgCvs0240N", "log 8 Processes::WaitForAllDone: halvd(10) has not terminated",
                    "msg MsgCvs0240N", "log 8 Processes::WaitForAllDone: kobd(12) has not terminated"));
    EXPECT_EQ(host.journal.front(), "enter Processes::WaitForAllDone CV_Processes this");
}

TEST_F(WaitsTest, WaitForAllReturnsZeroAsSoonAsNothingIsActive) {
    addStubborn("halvd", 10).secondsLeft = 3;
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(30), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(host.slept, 3);
    EXPECT_THAT(host.of({"log"}), IsEmpty());
}

TEST_F(WaitsTest, ThirtySecondsAreThirtyChecksAndThreeReports) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(30), 1);
    EXPECT_EQ(host.count("probe 10"), 30U + 1U) << "one more for the report of survivors";
    EXPECT_EQ(host.slept, 29);
    std::vector<std::size_t> reportedAt;
    std::size_t checks = 0;
    for (const std::string& entry : host.of({"probe", "msg"})) {
        checks += entry == "probe 10" ? 1U : 0U;
        if (entry == "msg MsgCvs0235N") {
            reportedAt.push_back(checks);
        }
    }
    EXPECT_THAT(reportedAt, ElementsAre(10U, 20U, 30U));
}

TEST_F(WaitsTest, QuietWaitingOnlyLogs) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1, false, true), 1);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(host.of({"log"}).size(), 2U);
}

TEST_F(WaitsTest, WithVerboseClearSurvivorsAreStillPrinted) {
    Args.verbose = false;
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1), 1);
    EXPECT_EQ(m_printed, "halvd (10) has not terminated\n");
}

TEST_F(WaitsTest, UnsignalledProcessesAreNotWaitedForUnlessAllAreWanted) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(wait(5), 0);
    EXPECT_THAT(host.of({"probe"}), IsEmpty());
}

TEST_F(WaitsTest, WaitingForAllCountsUnsignalledOnesButReportsOnlySignalledOnes) {
    addStubborn("halvd", 10);
    addStubborn("zeld", 11);
    snapshot();
    record(11)->signalled = 1;
    EXPECT_EQ(wait(1, true), 2);
    EXPECT_EQ(m_printed, "Waiting for 2 processes to terminate. (Active process(es): halvd (10), zeld (11))\n"
                         "zeld (11) has not terminated\n");
}

TEST_F(WaitsTest, OnlyAFlagOfExactlyOneIsSignalled) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 2;
    EXPECT_EQ(wait(1), 0);
}

TEST_F(WaitsTest, TheCountOfTheLastPassIsReturned) {
    addStubborn("halvd", 10);
    addStubborn("zeld", 11).secondsLeft = 2;
    snapshot();
    record(10)->signalled = 1;
    record(11)->signalled = 1;
    EXPECT_EQ(wait(4), 1);
    EXPECT_EQ(host.slept, 3);
}

TEST_F(WaitsTest, AVeryLongListOfSurvivorsIsCutAt499Characters) {
    std::string all;
    for (std::int32_t pid = 10000; pid < 10060; ++pid) {
        addStubborn("longname", pid);
        all += (all.empty() ? "" : ", ") + ("longname (" + std::to_string(pid) + ")");
    }
    snapshot();
    for (CV_Process_s* proc = m_processes->list(); proc != nullptr; proc = proc->next) {
        proc->signalled = 1;
    }
    EXPECT_EQ(wait(1), 60);
    const std::string text = "Waiting for 60 processes to terminate. (Active process(es): " + all.substr(0, 499) + ")";
    EXPECT_EQ(m_printed.substr(0, m_printed.find('\n')), text);
    EXPECT_EQ(host.count("log 2 Processes::WaitForAllDone: " + text), 1U);
}

TEST_F(WaitsTest, AVeryLongNameIsCutToo) {
    addStubborn(std::string(1000, 'n'), 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1, false, true), 1);
    EXPECT_EQ(host.of({"log"})[0], "log 2 Processes::WaitForAllDone: Waiting for 1 processes to terminate. "
                                   "(Active process(es): " +
                                       std::string(499, 'n') + ")");
}

} // namespace
