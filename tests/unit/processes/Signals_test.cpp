#include <string>
#include <vector>

#include "SnapshotTest.h"

using fakes::FakeProcess;
using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class SignalsTest : public SnapshotTest {
  protected:
    std::string kill(std::int32_t pid, sig_types signal, bool quiet = false) {
        return host.run([&] { m_processes->KillProcess(record(pid), signal, quiet); });
    }

    int wait(int seconds, bool all = false, bool quiet = false) {
        int active = -1;
        m_printed = host.run([&] { active = m_processes->WaitForAllDone(seconds, all, quiet); });
        return active;
    }

    /// A process that no signal ends.
    FakeProcess& addStubborn(const std::string& name, std::int32_t pid) {
        FakeProcess& process = host.add(name, pid);
        process.diesOf.clear();
        return process;
    }

    std::string m_printed;
};

// --- KillProcess -----------------------------------------------------------------------------------------------------

struct KindCase {
    int kind;
    const char* name;
};

class SignalKind : public SignalsTest, public ::testing::WithParamInterface<KindCase> {};

TEST_P(SignalKind, IsSentPrintedAndLoggedWithItsNumber) {
    host.add("halvd", 10);
    snapshot();
    EXPECT_EQ(kill(10, static_cast<sig_types>(GetParam().kind)), "Signaling process /usr/quarn/corvane/bin/halvd\n");
    EXPECT_THAT(host.journal,
                ElementsAre("enter Processes::KillProcess CV_Processes this", "kill 10 " + std::string(GetParam().name),
                            "msg MsgCvs0255N", "out Signaling process /usr/quarn/corvane/bin/halvd\n",
                            "log 2 Processes::KillProcess: Signaling process /usr/quarn/corvane/bin/halvd (" +
                                std::to_string(GetParam().kind) + ")",
                            "leave Processes::KillProcess"));
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalKind,
                         ::testing::Values(KindCase{0, "SIGHUP"}, KindCase{1, "SIGTERM"}, KindCase{2, "SIGINT"},
                                           KindCase{3, "SIGQUIT"}, KindCase{4, "SIGKILL"}));

TEST_F(SignalsTest, OnTheOwnRecordNothingHappens) {
    host.add("cvstop", host.ownPid);
    snapshot();
    record(host.ownPid)->excluded = 1;
    EXPECT_EQ(kill(host.ownPid, SIGTYPE_KILL), "");
    record(host.ownPid)->excluded = 0;
    EXPECT_EQ(kill(host.ownPid, SIGTYPE_KILL), "");
    EXPECT_THAT(host.of({"kill", "probe", "msg", "log", "debug"}), IsEmpty());
}

TEST_F(SignalsTest, OnAnExcludedRecordOnlyTheDebugLogIsWritten) {
    host.add("halvd", 10);
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(kill(10, SIGTYPE_KILL), "");
    EXPECT_THAT(host.of({"kill", "msg", "log", "debug"}),
                ElementsAre("debug 1 Processes::KillProcess: Ignoring process because it is on exclude list, Name = "
                            "halvd(CV_Processes:#)"));
}

TEST_F(SignalsTest, OnAnExcludedRecordWithoutALoggerNothingIsWritten) {
    host.add("halvd", 10);
    snapshot();
    record(10)->excluded = 1;
    CVLogger::s_default = nullptr;
    EXPECT_EQ(kill(10, SIGTYPE_KILL), "");
    EXPECT_THAT(host.of({"kill", "msg", "log", "debug"}), IsEmpty());
}

TEST_F(SignalsTest, OnAListedOnlyRecordOnlyTheDebugLogIsWritten) {
    host.add("editor", 10, 4);
    snapshot();
    EXPECT_EQ(kill(10, SIGTYPE_KILL), "");
    EXPECT_THAT(host.of({"kill", "msg", "log", "debug"}),
                ElementsAre("debug 1 Processes::KillProcess: Ignoring process because it is only listed, Name = "
                            "editor(CV_Processes:#)"));
}

TEST_F(SignalsTest, TheExcludeTestComesBeforeTheOneForListedOnlyRecords) {
    host.add("editor", 10, 4);
    snapshot();
    record(10)->excluded = 1;
    kill(10, SIGTYPE_KILL);
    EXPECT_EQ(host.of({"debug"}).size(), 1U);
    EXPECT_NE(host.of({"debug"})[0].find("on exclude list"), std::string::npos);
}

TEST_F(SignalsTest, ASignalKindOfSevenSendsNothingButIsPrintedAndLogged) {
    host.add("halvd", 10);
    snapshot();
    EXPECT_EQ(kill(10, static_cast<sig_types>(7)), "Signaling process /usr/quarn/corvane/bin/halvd\n");
    EXPECT_THAT(host.of({"kill", "probe", "log"}),
                ElementsAre("log 2 Processes::KillProcess: Signaling process /usr/quarn/corvane/bin/halvd (7)"));
}

TEST_F(SignalsTest, QuietOrNotVerboseSignalsWithoutPrinting) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(kill(10, SIGTYPE_TERM, true), "");
    Args.verbose = false;
    EXPECT_EQ(kill(10, SIGTYPE_TERM), "");
    EXPECT_EQ(host.count("kill 10 SIGTERM"), 2U);
    EXPECT_EQ(host.of({"log"}).size(), 2U);
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(SignalsTest, AFailingKillIsNotLookedAt) {
    host.add("halvd", 10).alive = false;
    host.add("foreign", 11).foreign = true;
    snapshot();
    EXPECT_EQ(kill(10, SIGTYPE_TERM), "Signaling process /usr/quarn/corvane/bin/halvd\n");
    EXPECT_EQ(kill(11, SIGTYPE_TERM), "Signaling process /usr/quarn/corvane/bin/foreign\n");
}

TEST_F(SignalsTest, APathWithConversionsIsPrintedAndLoggedLiterally) {
    host.add("halvd", 10).path = "/opt/100%s%n";
    snapshot();
    EXPECT_EQ(kill(10, SIGTYPE_TERM), "Signaling process /opt/100%s%n\n");
    EXPECT_EQ(host.count("log 2 Processes::KillProcess: Signaling process /opt/100%s%n (1)"), 1U);
}

TEST_F(SignalsTest, KillingChangesNoFieldOfTheRecord) {
    host.add("halvd", 10);
    snapshot();
    kill(10, SIGTYPE_TERM);
    EXPECT_EQ(record(10)->signalled, 0);
}

// --- SignalAllProcesses ----------------------------------------------------------------------------------------------

TEST_F(SignalsTest, EveryActiveProcessButTheProtectedOnesIsSignalled) {
    host.add("halvd", 10);
    host.add("gone", 11).alive = false;
    host.add("spared", 12);
    host.add("holder", 13, 2);
    host.add("editor", 14, 4);
    host.add("cvstop", host.ownPid);
    host.add("marked", 16);
    snapshot();
    record(12)->excluded = 1;
    record(16)->signalled = 1;
    const std::string printed = host.run([&] { m_processes->SignalAllProcesses(false, SIGTYPE_KILL); });
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGKILL", "kill 13 SIGKILL", "kill 16 SIGKILL"));
    EXPECT_EQ(printed, "Signaling process /usr/quarn/corvane/bin/halvd\n"
                       "Signaling process /usr/quarn/corvane/bin/holder\n"
                       "Signaling process /usr/quarn/corvane/bin/marked\n");
    EXPECT_EQ(record(10)->signalled, 0) << "signalled is not set";
    EXPECT_EQ(host.journal.front(), "enter Process::SignalAllProcesses CV_Processes this");
    EXPECT_EQ(host.journal.back(), "leave Process::SignalAllProcesses");
}

TEST_F(SignalsTest, QuietIsTheFirstArgumentOfSignalAll) {
    host.add("halvd", 10);
    snapshot();
    EXPECT_EQ(host.run([&] { m_processes->SignalAllProcesses(true, SIGTYPE_HUP); }), "");
    EXPECT_THAT(host.of({"kill"}), ElementsAre("kill 10 SIGHUP"));
}

// --- WaitForProcess --------------------------------------------------------------------------------------------------

TEST_F(SignalsTest, WaitForProcessReturnsAsSoonAsTheProcessIsGone) {
    addStubborn("halvd", 10).secondsLeft = 2;
    snapshot();
    EXPECT_TRUE(m_processes->WaitForProcess(record(10), 30));
    EXPECT_THAT(host.of({"probe", "sleep"}), ElementsAre("probe 10", "sleep 1", "probe 10", "sleep 1", "probe 10"));
    EXPECT_EQ(host.journal.front(), "enter Processes::WaitForProcess CV_Processes this");
}

TEST_F(SignalsTest, WaitForProcessOfNoProcessReturnsAtOnce) {
    snapshot();
    EXPECT_TRUE(m_processes->WaitForProcess(nullptr, 30));
    EXPECT_EQ(host.slept, 0);
}

TEST_F(SignalsTest, WaitForProcessGivesUpWhenTheSecondsAreOver) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), 3));
    EXPECT_THAT(host.of({"probe", "sleep"}),
                ElementsAre("probe 10", "sleep 1", "probe 10", "sleep 1", "probe 10", "sleep 1"));
}

TEST_F(SignalsTest, WaitForProcessOf45SecondsIsLoweredTo30) {
    addStubborn("halvd", 10);
    snapshot();
    bool gone = true;
    EXPECT_EQ(host.run([&] { gone = m_processes->WaitForProcess(record(10), 45); }),
              "Wait time too long (45), setting to 30\n");
    EXPECT_FALSE(gone);
    EXPECT_EQ(host.slept, 30);
    EXPECT_THAT(host.of({"msg"}), IsEmpty()) << "this text does not come from the catalog";
}

TEST_F(SignalsTest, WaitForProcessOfExactly30SecondsIsNotTooLong) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(host.run([&] { m_processes->WaitForProcess(record(10), 30); }), "");
    EXPECT_EQ(host.slept, 30);
}

TEST_F(SignalsTest, WaitForProcessLowersToTheWaitTimeOfTheCommandLine) {
    Args.waitTime = 4;
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(host.run([&] { m_processes->WaitForProcess(record(10), 31); }),
              "Wait time too long (31), setting to 4\n");
    EXPECT_EQ(host.slept, 4);
}

TEST_F(SignalsTest, WaitForProcessOfZeroSecondsChecksOnceAndReturnsAtOnce) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), 0));
    EXPECT_THAT(host.of({"probe", "sleep"}), ElementsAre("probe 10"));
}

TEST_F(SignalsTest, WaitForProcessOfNegativeSecondsReturnsFalseWithoutChecking) {
    host.add("halvd", 10).alive = false;
    snapshot();
    EXPECT_FALSE(m_processes->WaitForProcess(record(10), -5));
    EXPECT_THAT(host.of({"probe", "sleep"}), IsEmpty());
}

// --- WaitForAllDone --------------------------------------------------------------------------------------------------

TEST_F(SignalsTest, WaitForAllOfLessThanOneSecondReturnsAtOnce) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(0), 0);
    EXPECT_EQ(wait(-3), 0);
    EXPECT_THAT(host.of({"probe", "sleep", "log"}), IsEmpty());
}

TEST_F(SignalsTest, WaitForAllWithAnEmptyListReturnsZero) {
    snapshot();
    EXPECT_EQ(wait(30), 0);
    EXPECT_THAT(host.of({"probe", "sleep", "log"}), IsEmpty());
}

TEST_F(SignalsTest, WaitForAllOfOneSecondReportsWithoutSleeping) {
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

TEST_F(SignalsTest, WaitForAllReturnsZeroAsSoonAsNothingIsActive) {
    addStubborn("halvd", 10).secondsLeft = 3;
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(30), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(host.slept, 3);
    EXPECT_THAT(host.of({"log"}), IsEmpty());
}

TEST_F(SignalsTest, ThirtySecondsAreThirtyChecksAndThreeReports) {
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

TEST_F(SignalsTest, QuietWaitingOnlyLogs) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1, false, true), 1);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(host.of({"log"}).size(), 2U);
}

TEST_F(SignalsTest, WithVerboseClearSurvivorsAreStillPrinted) {
    Args.verbose = false;
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1), 1);
    EXPECT_EQ(m_printed, "halvd (10) has not terminated\n");
}

TEST_F(SignalsTest, UnsignalledProcessesAreNotWaitedForUnlessAllAreWanted) {
    addStubborn("halvd", 10);
    snapshot();
    EXPECT_EQ(wait(5), 0);
    EXPECT_THAT(host.of({"probe"}), IsEmpty());
}

TEST_F(SignalsTest, WaitingForAllCountsUnsignalledOnesButReportsOnlySignalledOnes) {
    addStubborn("halvd", 10);
    addStubborn("zeld", 11);
    snapshot();
    record(11)->signalled = 1;
    EXPECT_EQ(wait(1, true), 2);
    EXPECT_EQ(m_printed, "Waiting for 2 processes to terminate. (Active process(es): halvd (10), zeld (11))\n"
                         "zeld (11) has not terminated\n");
}

TEST_F(SignalsTest, OnlyAFlagOfExactlyOneIsSignalled) {
    addStubborn("halvd", 10);
    snapshot();
    record(10)->signalled = 2;
    EXPECT_EQ(wait(1), 0);
}

TEST_F(SignalsTest, TheCountOfTheLastPassIsReturned) {
    addStubborn("halvd", 10);
    addStubborn("zeld", 11).secondsLeft = 2;
    snapshot();
    record(10)->signalled = 1;
    record(11)->signalled = 1;
    EXPECT_EQ(wait(4), 1);
    EXPECT_EQ(host.slept, 3);
}

TEST_F(SignalsTest, AVeryLongListOfSurvivorsIsCutAt499Characters) {
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

TEST_F(SignalsTest, AVeryLongNameIsCutToo) {
    addStubborn(std::string(1000, 'n'), 10);
    snapshot();
    record(10)->signalled = 1;
    EXPECT_EQ(wait(1, false, true), 1);
    EXPECT_EQ(host.of({"log"})[0], "log 2 Processes::WaitForAllDone: Waiting for 1 processes to terminate. "
                                   "(Active process(es): " +
                                       std::string(499, 'n') + ")");
}

} // namespace
