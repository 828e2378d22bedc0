#include <string>

#include "SnapshotTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class SignalsTest : public SnapshotTest {
  protected:
    std::string kill(std::int32_t pid, sig_types signal, bool quiet = false) {
        return host.run([&] { m_processes->KillProcess(record(pid), signal, quiet); });
    }
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
    host.add("halvd", 10).diesOf.clear();
    snapshot();
    EXPECT_EQ(kill(10, SIGTYPE_TERM, true), "");
    Args.verbose = false;
    EXPECT_EQ(kill(10, SIGTYPE_TERM), "");
    EXPECT_EQ(host.count("kill 10 SIGTERM"), 2U);
    EXPECT_EQ(host.of({"log"}).size(), 2U);
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(SignalsTest, AFailingKillIsIgnored) {
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

} // namespace
