#include <string>
#include <vector>

#include "StopRowTest.h"

using fakes::binPath;
using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct CommandCase {
    kill_type killType;
    std::string name;
    std::string expected;
};

class CommandAction : public StopRowTest, public ::testing::WithParamInterface<CommandCase> {};

TEST_P(CommandAction, RunsPrintsLogsAndMarks) {
    const CommandCase& one = GetParam();
    host.add(one.name, 10);
    host.systemResults = {256};
    snapshot();
    EXPECT_EQ(stop(rowOf(one.name, one.killType, 1)), 1);
    const std::string path = binPath(one.name);
    EXPECT_THAT(host.of({"kill", "system", "sleep", "msg", "out", "log"}),
                ElementsAre("log 2 executeStop: Executing \"" + one.expected + kInBackground + "\"",
                            "system " + one.expected + kInBackground, "msg MsgCvs0070N",
                            "out Requesting termination of " + path + ".\n",
                            "log 2 terminateAllProcesses:  Requesting termination of " + path +
                                ". Return status=256. Command=" + one.expected));
    EXPECT_EQ(command, one.expected);
    EXPECT_TRUE(isMarked(10));
}

INSTANTIATE_TEST_SUITE_P(
    StopRow, CommandAction,
    ::testing::Values(CommandCase{NORMAL_TERMINATE, "halvd", "/usr/quarn/corvane/bin/halvd -terminate"},
                      CommandCase{PROXY_ALL, "mamegok", "/usr/quarn/corvane/bin/admincmd/vilohibo -all"},
                      CommandCase{LOCAL_TERMINATE, "kuror", "/usr/quarn/corvane/bin/kuror -terminate_local"},
                      CommandCase{HOST_T, "kobd", "/usr/quarn/volmgr/bin/nodakewe -h localhost -t"},
                      CommandCase{REMOVE, "ndmpsolekagent", "/usr/quarn/corvane/bin/ndmpsolekagent.stop -remove"},
                      CommandCase{MOSK_STOP, "mubd", "/usr/quarn/mosk/CorvaneDB/mubd -stop"},
                      CommandCase{STOP, "dbsrv17", "/usr/quarn/corvane/bin/duzahi_start_stop stop"}),
    [](const auto& one) { return kill_type_names[one.param.killType]; });

TEST_F(StopRowTest, SelectiveCancelRunsTwoCommands) {
    host.add("dobd", 10);
    snapshot();
    EXPECT_EQ(stop(rowOf("dobd", SELECTIVE_CANCEL, 1)), 1);
    const std::string tool = "/usr/quarn/corvane/bin/admincmd/humowow -M localhost ";
    EXPECT_THAT(
        host.of({"system", "log", "out"}),
        ElementsAre("log 2 executeStop: Executing \"" + tool + "-suspend_cancel_selective" + kInBackground + "\"",
                    "system " + tool + "-suspend_cancel_selective" + kInBackground,
                    "log 2 executeStop: Executing \"" + tool + "-terminate" + kInBackground + "\"",
                    "system " + tool + "-terminate" + kInBackground,
                    "out Requesting termination of /usr/quarn/corvane/bin/dobd.\n",
                    "log 2 terminateAllProcesses:  Requesting termination of /usr/quarn/corvane/bin/dobd. "
                    "Return status=0. Command=" +
                        tool + "-terminate"));
}

TEST_F(StopRowTest, SelectiveCancelWhoseFirstCommandFailsLogsAnErrorAndGoesOn) {
    host.add("dobd", 10);
    host.systemResults = {-1, 512};
    snapshot();
    EXPECT_EQ(stop(rowOf("dobd", SELECTIVE_CANCEL, 1)), 1);
    EXPECT_EQ(host.count("log 16 terminateAllProcesses: Command /usr/quarn/corvane/bin/admincmd/humowow -M localhost "
                         "-suspend_cancel_selective system call returned error: -1"),
              1U);
    EXPECT_EQ(host.of({"system"}).size(), 2U);
    EXPECT_NE(host.of({"log"}).back().find("Return status=512."), std::string::npos);
}

TEST_F(StopRowTest, QuietSuppressesTheRequestOnTheConsoleOnly) {
    Args.quiet = true;
    host.add("halvd", 10);
    snapshot();
    stop(rowOf("halvd", NORMAL_TERMINATE));
    EXPECT_EQ(m_printed, "");
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
    EXPECT_EQ(host.of({"log"}).size(), 2U);
}

TEST_F(StopRowTest, VerboseClearSuppressesTheRequestOnTheConsole) {
    Args.verbose = false;
    host.add("halvd", 10);
    snapshot();
    stop(rowOf("halvd", NORMAL_TERMINATE));
    EXPECT_EQ(m_printed, "");
}

TEST_F(StopRowTest, APathWithConversionsIsPrintedAndLoggedLiterally) {
    host.add("halvd", 10).path = "/opt/%s%n";
    snapshot();
    stop(rowOf("halvd", NORMAL_TERMINATE));
    EXPECT_EQ(m_printed, "Requesting termination of /opt/%s%n.\n");
    EXPECT_EQ(host.count("log 2 terminateAllProcesses:  Requesting termination of /opt/%s%n. Return status=0. "
                         "Command=/opt/%s%n -terminate"),
              1U);
}

struct SignalCase {
    kill_type killType;
    int secondSignal;
    int pass;
    Journal signals;
};

class SignalAction : public StopRowTest, public ::testing::WithParamInterface<SignalCase> {};

TEST_P(SignalAction, SendsExactlyTheseSignals) {
    host.add("pazed", 10).diesOf.clear();
    snapshot();
    EXPECT_EQ(stop(rowOf("pazed", GetParam().killType), GetParam().secondSignal, GetParam().pass), 1);
    EXPECT_EQ(actions(), GetParam().signals);
    EXPECT_TRUE(isMarked(10));
    EXPECT_EQ(command, binPath("pazed"));
    EXPECT_EQ(host.count("msg MsgCvs0070N"), 0U);
}

INSTANTIATE_TEST_SUITE_P(StopRow, SignalAction,
                         ::testing::Values(SignalCase{KILL, 0, 1, {"kill 10 SIGTERM"}},
                                           SignalCase{KILL, 1, 1, {"kill 10 SIGTERM", "kill 10 SIGHUP"}},
                                           SignalCase{KILL, -3, 2, {"kill 10 SIGTERM", "kill 10 SIGHUP"}},
                                           SignalCase{KILLH, 0, 1, {"kill 10 SIGHUP"}},
                                           SignalCase{KILLH, 1, 1, {"kill 10 SIGHUP", "kill 10 SIGTERM"}},
                                           SignalCase{KILL9, 0, 1, {"kill 10 SIGKILL"}},
                                           SignalCase{KILL9, 1, 2, {"kill 10 SIGKILL"}}, SignalCase{SKIP, 0, 1, {}},
                                           SignalCase{SKIP, 1, 1, {}}, SignalCase{SKIP, 0, 2, {"kill 10 SIGTERM"}},
                                           SignalCase{SKIP, 1, 2, {"kill 10 SIGTERM", "kill 10 SIGHUP"}},
                                           SignalCase{SKIP, 0, 0, {"kill 10 SIGTERM"}},
                                           SignalCase{SKIP, 0, 3, {"kill 10 SIGTERM"}}, SignalCase{NOARGS, 1, 1, {}},
                                           SignalCase{NOARGS, 1, 2, {}}, SignalCase{TERMINATE_T, 1, 1, {}},
                                           SignalCase{TERMINATE_T, 1, 3, {}}));

TEST_F(StopRowTest, SignallingRowsAnnounceEachSignalUnlessQuiet) {
    host.add("pazed", 10).diesOf.clear();
    snapshot();
    stop(rowOf("pazed", KILL), 1);
    EXPECT_EQ(m_printed,
              "Signaling process /usr/quarn/corvane/bin/pazed\nSignaling process /usr/quarn/corvane/bin/pazed\n");
    Args.quiet = true;
    stop(rowOf("pazed", KILL), 1);
    EXPECT_EQ(m_printed, "");
}

class MarkingKind : public StopRowTest, public ::testing::WithParamInterface<kill_type> {};

TEST_P(MarkingKind, MarksEveryInstanceWhenFirstOnlyIsZero) {
    for (const std::int32_t pid : {10, 11, 12}) {
        host.add("zeld", pid);
    }
    snapshot();
    record(11)->excluded = 1;
    EXPECT_EQ(stop(rowOf("zeld", GetParam(), 0)), 2);
    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_TRUE(isMarked(10));
    EXPECT_FALSE(isMarked(11));
    EXPECT_TRUE(isMarked(12));
    EXPECT_EQ(m_printed, "");
}

TEST_P(MarkingKind, MarksOnlyTheFirstThatIsNotExcludedWhenFirstOnlyIsOne) {
    for (const std::int32_t pid : {10, 11, 12}) {
        host.add("zeld", pid);
    }
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(stop(rowOf("zeld", GetParam(), 1)), 1);
    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_FALSE(isMarked(10));
    EXPECT_TRUE(isMarked(11));
    EXPECT_FALSE(isMarked(12));
}

INSTANTIATE_TEST_SUITE_P(StopRow, MarkingKind, ::testing::Values(TERMINATE_T, NOARGS, SKIP));

} // namespace
