#include <string>
#include <vector>

#include "SnapshotTest.h"
#include "shutdown.h"

using fakes::binPath;
using fakes::ChildResult;
using fakes::FakeProcess;
using fakes::inChild;
using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kInBackground = " > /dev/null 2>&1 &";
const std::string kOnlyListed = "debug 1 terminateAllProcesses: Ignoring process because it is only listed, Name = ";
const std::string kExcluded = "debug 1 terminateAllProcesses: Ignoring process because it is on exclude list, Name = ";

killDef rowOf(const std::string& name, kill_type killType, std::int32_t firstOnly = 0, wait_type wait = WAIT_NONE) {
    return {1, GROUP_JOBS, name, false, killType, firstOnly, wait, 1, ""};
}

/// The debug lines without the place that wrote them.
Journal withoutSites(Journal entries) {
    for (std::string& entry : entries) {
        entry = entry.substr(0, entry.rfind('('));
    }
    return entries;
}

class StopRowTest : public SnapshotTest {
  protected:
    bool isMarked(std::int32_t pid) { return record(pid)->signalled == 1; }

    std::int32_t stop(const killDef& row, int secondSignal = 0, int pass = 1) {
        std::int32_t count = -1;
        m_printed = host.run([&] { count = terminateAllProcesses(*m_processes, row, secondSignal, pass); });
        return count;
    }

    [[nodiscard]] Journal actions() const { return host.of({"kill", "system", "sleep"}); }

    std::string m_printed;
};

// --- which records ---------------------------------------------------------------------------------------------------

TEST_F(StopRowTest, NoMatchingProcessReturnsZeroAndDoesNothing) {
    host.add("halvd2", 10);
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", KILL)), 0);
    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_FALSE(isMarked(10));
}

TEST_F(StopRowTest, FirstOnlyRowWhoseFirstProcessHasExitedLeavesLaterOnesUntouched) {
    host.add("halvd", 10).alive = false;
    host.add("halvd", 11);
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", NORMAL_TERMINATE, 1)), 1);
    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_TRUE(isMarked(10));
    EXPECT_FALSE(isMarked(11));
}

TEST_F(StopRowTest, ThreeInstancesTheFirstExcluded) {
    for (const std::int32_t pid : {10, 11, 12}) {
        host.add("momuhe", pid);
    }
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(stop(rowOf("momuhe", KILL)), 2);
    EXPECT_THAT(actions(), ElementsAre("kill 11 SIGTERM", "kill 12 SIGTERM"));
    EXPECT_FALSE(isMarked(10));
    EXPECT_TRUE(isMarked(11));
    EXPECT_TRUE(isMarked(12));
    EXPECT_THAT(withoutSites(host.of({"debug"})), ElementsAre(kExcluded + "momuhe"));
}

TEST_F(StopRowTest, FirstOnlyRowWithTheFirstExcludedHandlesTheSecond) {
    for (const std::int32_t pid : {10, 11, 12}) {
        host.add("halvd", pid);
    }
    host.fleet[1].path = "/second/halvd";
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(stop(rowOf("halvd", NORMAL_TERMINATE, 1)), 1);
    EXPECT_THAT(actions(), ElementsAre("system /second/halvd -terminate" + kInBackground));
    EXPECT_FALSE(isMarked(12));
}

TEST_F(StopRowTest, AllExcludedReturnsZeroWithoutProbingOrWaiting) {
    host.add("kuror", 10);
    snapshot();
    record(10)->excluded = 1;
    EXPECT_EQ(stop(rowOf("kuror", LOCAL_TERMINATE, 1, WAIT_PROCESS)), 0);
    EXPECT_THAT(host.of({"probe", "kill", "system", "sleep"}), IsEmpty());
    EXPECT_FALSE(isMarked(10));
}

TEST_F(StopRowTest, WithoutALoggerExcludedProcessesAreIgnoredSilently) {
    host.add("halvd", 10);
    snapshot();
    record(10)->excluded = 1;
    CVLogger::s_default = nullptr;
    EXPECT_EQ(stop(rowOf("halvd", NORMAL_TERMINATE)), 0);
    EXPECT_THAT(host.of({"debug"}), IsEmpty());
}

TEST_F(StopRowTest, ANonFirstOnlyRowStopsEveryInstanceInListOrder) {
    for (const std::int32_t pid : {30, 10, 20}) {
        host.add("hidon", pid).path = "/p/" + std::to_string(pid);
    }
    snapshot();
    EXPECT_EQ(stop(rowOf("hidon", NORMAL_TERMINATE)), 3);
    EXPECT_THAT(actions(),
                ElementsAre("system /p/30 -terminate" + kInBackground, "system /p/10 -terminate" + kInBackground,
                            "system /p/20 -terminate" + kInBackground));
}

TEST_F(StopRowTest, TheOwnProcessGetsNoSignal) {
    host.add("momuhe", host.ownPid);
    snapshot();
    EXPECT_EQ(stop(rowOf("momuhe", KILL), 1, 2), 1);
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

// --- records of other categories -------------------------------------------------------------------------------------

TEST_F(StopRowTest, AListedOnlyRecordIsPassedOverInEveryWay) {
    for (const kill_type killType :
         {NORMAL_TERMINATE, KILL, KILLH, KILL9, NOARGS, SKIP, TERMINATE_T, STOP, JAVA_STOP}) {
        clear();
        host.add("halvd", 10, 4);
        snapshot();
        EXPECT_EQ(stop(rowOf("halvd", killType, 0, WAIT_PROCESS), 1, 2), 0);
        EXPECT_THAT(actions(), IsEmpty());
        EXPECT_FALSE(isMarked(10));
        EXPECT_EQ(m_printed, "");
        EXPECT_THAT(withoutSites(host.of({"debug"})), ElementsAre(kOnlyListed + "halvd"));
        m_processes.reset();
    }
}

TEST_F(StopRowTest, AListedOnlyRecordDoesNotEndAFirstOnlyRow) {
    host.add("halvd", 10, 4);
    host.add("halvd", 11);
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", NORMAL_TERMINATE, 1)), 1);
    EXPECT_TRUE(isMarked(11));
    EXPECT_EQ(actions().size(), 1U);
}

TEST_F(StopRowTest, AListedOnlyRecordThatHasExitedIsPassedOverToo) {
    host.add("halvd", 10, 4).alive = false;
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", NORMAL_TERMINATE)), 0);
    EXPECT_FALSE(isMarked(10));
}

class CommandKind : public StopRowTest, public ::testing::WithParamInterface<kill_type> {};

TEST_P(CommandKind, RunsNothingForAThirdPartyRecord) {
    host.add("halvd", 10, 2);
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", GetParam())), 0);
    EXPECT_THAT(actions(), IsEmpty());
    EXPECT_FALSE(isMarked(10));
}

TEST_P(CommandKind, GoesOnToTheProductsRecordAfterAThirdPartyOne) {
    host.add("halvd", 10, 2).path = "/stranger/halvd";
    host.add("halvd", 11);
    snapshot();
    EXPECT_EQ(stop(rowOf("halvd", GetParam(), 1)), 1);
    EXPECT_TRUE(isMarked(11));
    EXPECT_FALSE(host.of({"system"}).empty());
    for (const std::string& entry : host.of({"system"})) {
        EXPECT_EQ(entry.find("/stranger"), std::string::npos) << entry;
    }
}

INSTANTIATE_TEST_SUITE_P(StopRow, CommandKind,
                         ::testing::Values(NORMAL_TERMINATE, PROXY_ALL, LOCAL_TERMINATE, SELECTIVE_CANCEL, HOST_T,
                                           REMOVE, MOSK_STOP, STOP));

TEST_F(StopRowTest, AThirdPartyRecordIsTakenByRowsThatSignalOrMark) {
    struct Case {
        kill_type killType;
        Journal actions;
    };
    const std::vector<Case> cases = {{KILL, {"kill 10 SIGTERM"}},
                                     {KILLH, {"kill 10 SIGHUP"}},
                                     {KILL9, {"kill 10 SIGKILL"}},
                                     {NOARGS, {}},
                                     {TERMINATE_T, {}},
                                     {SKIP, {}}};
    for (const Case& one : cases) {
        clear();
        host.add("java", 10, 2);
        snapshot();
        EXPECT_EQ(stop(rowOf("java", one.killType)), 1) << one.killType;
        EXPECT_EQ(actions(), one.actions) << one.killType;
        EXPECT_TRUE(isMarked(10));
        m_processes.reset();
    }
}

// --- actions ---------------------------------------------------------------------------------------------------------

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

TEST_F(StopRowTest, NormalTerminateRunsThePathWithTerminate) {
    host.add("halvd", 10);
    snapshot();
    stop(rowOf("halvd", NORMAL_TERMINATE));
    EXPECT_THAT(host.of({"system"}), ElementsAre("system /usr/quarn/corvane/bin/halvd -terminate > /dev/null 2>&1 &"));
}

TEST_F(StopRowTest, RemoveRunsThePathFollowedByStop) {
    host.add("ndmpsolekagent", 10);
    snapshot();
    stop(rowOf("ndmpsolekagent", REMOVE));
    EXPECT_THAT(host.of({"system"}),
                ElementsAre("system /usr/quarn/corvane/bin/ndmpsolekagent.stop -remove > /dev/null 2>&1 &"));
}

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

TEST_F(StopRowTest, SignallingRowsAnnounceEachSignalAsTheyAreTold) {
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

// --- waits -----------------------------------------------------------------------------------------------------------

TEST_F(StopRowTest, WaitProcessWaitsForEachProcessAfterItsAction) {
    for (const std::int32_t pid : {10, 11}) {
        FakeProcess& process = host.add("pazed", pid);
        process.diesOf.clear();
        process.secondsLeft = pid == 10 ? 2 : 3;
    }
    snapshot();
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_PROCESS)), 2);
    EXPECT_THAT(actions(), ElementsAre("kill 10 SIGTERM", "sleep 1", "sleep 1", "kill 11 SIGTERM", "sleep 1"));
}

TEST_F(StopRowTest, WaitProcessGivesUpAfterTheWaitTime) {
    host.add("pazed", 10).diesOf.clear();
    snapshot();
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_PROCESS)), 1);
    EXPECT_EQ(host.slept, 30);
}

TEST_F(StopRowTest, WaitProcessWithAProcessThatHasExitedDoesNotSleep) {
    host.add("pazed", 10).alive = false;
    snapshot();
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_PROCESS)), 1);
    EXPECT_EQ(host.count("enter Processes::WaitForProcess CV_Processes this"), 1U);
    EXPECT_EQ(host.slept, 0);
}

TEST_F(StopRowTest, WaitAllWaitsForEverySignalledProcessAfterEach) {
    FakeProcess& other = host.add("sora", 9);
    other.diesOf.clear();
    other.secondsLeft = 3;
    host.add("pazed", 10);
    host.add("pazed", 11);
    snapshot();
    record(9)->signalled = 1;
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_ALL)), 2);
    EXPECT_THAT(actions(), ElementsAre("kill 10 SIGTERM", "sleep 1", "sleep 1", "sleep 1", "kill 11 SIGTERM"));
    EXPECT_EQ(host.count("enter Processes::WaitForAllDone CV_Processes this"), 2U);
}

TEST_F(StopRowTest, WaitAllFirstWaitsBeforeActingOnEachActiveProcess) {
    FakeProcess& other = host.add("sora", 9);
    other.diesOf.clear();
    other.secondsLeft = 2;
    host.add("pazed", 10).alive = false;
    FakeProcess& stubborn = host.add("pazed", 11);
    stubborn.diesOf.clear();
    stubborn.secondsLeft = 5;
    host.add("pazed", 12);
    snapshot();
    record(9)->signalled = 1;
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_ALL_FIRST)), 3);
    EXPECT_THAT(actions(), ElementsAre("sleep 1", "sleep 1", "kill 11 SIGTERM", "sleep 1", "sleep 1", "sleep 1",
                                       "kill 12 SIGTERM"));
    EXPECT_EQ(host.count("enter Processes::WaitForAllDone CV_Processes this"), 2U)
        << "none for the process that had exited, none after an action";
}

TEST_F(StopRowTest, WaitsTakeTheWaitTimeAndQuietOfTheCommandLine) {
    Args.waitTime = 2;
    Args.quiet = true;
    host.add("pazed", 10).diesOf.clear();
    snapshot();
    EXPECT_EQ(stop(rowOf("pazed", KILL, 0, WAIT_ALL)), 1);
    EXPECT_EQ(host.slept, 1);
    EXPECT_EQ(m_printed, "");
    EXPECT_EQ(host.count("log 8 Processes::WaitForAllDone: pazed(10) has not terminated"), 1U);
}

// --- command rows ----------------------------------------------------------------------------------------------------

killDef commandRow(kill_type killType) {
    return {1, GROUP_JOBS, "du-dun", true, killType, 1, WAIT_PROCESS, 1, ""};
}

TEST_F(StopRowTest, CommandRowsReturnZeroInEveryPass) {
    host.add("du-dun", 10);
    snapshot();
    for (const int pass : {0, 1, 2, 3, -1}) {
        for (const kill_type killType : {UNMOUNT, ZELDPARAMS}) {
            EXPECT_EQ(stop(commandRow(killType), 1, pass), 0);
        }
    }
    EXPECT_THAT(host.of({"kill", "probe", "system", "sleep", "msg", "log", "out"}), IsEmpty());
    EXPECT_FALSE(isMarked(10));
}

TEST_F(StopRowTest, ZeldparamsInPassOneLeavesNotSupportedInTheCommand) {
    snapshot();
    command = "before";
    stop(commandRow(ZELDPARAMS));
    EXPECT_EQ(command, "not supported");
    stop(commandRow(UNMOUNT));
    EXPECT_EQ(command, "");
    stop(commandRow(ZELDPARAMS));
    stop(commandRow(ZELDPARAMS), 0, 2);
    EXPECT_EQ(command, "") << "emptied before the pass is looked at";
}

TEST_F(StopRowTest, ACommandRowOfAnyOtherTypeEndsTheProgramWith16InPassOneOnly) {
    snapshot();
    for (const kill_type killType : {NORMAL_TERMINATE, KILL, JAVA_STOP, STOP, static_cast<kill_type>(18)}) {
        EXPECT_EQ(stop(commandRow(killType), 0, 2), 0);
        const std::string number = std::to_string(static_cast<int>(killType));
        const ChildResult result = inChild([&] {
            Args.quiet = true;
            terminateAllProcesses(*m_processes, commandRow(killType), 0, 1);
        });
        EXPECT_EQ(result.status, 16);
        EXPECT_EQ(result.output, "Unimplemented Definition(1) du-dun, " + number + " 5 .\n");
        EXPECT_THAT(result.of({"msg", "log", "system", "kill"}),
                    ElementsAre("msg MsgCvs0075N", "log 16 terminateAllProcesses: Unimplemented Definition " + number));
    }
}

TEST_F(StopRowTest, TheCommandBranchReportsARowThatIsNoCommand) {
    const killDef row = rowOf("halvd", KILL);
    EXPECT_EQ(host.run([&] { EXPECT_EQ(terminateCommand(row, 1), 0); }), "Unimplemented command, halvd 0\n");
    EXPECT_THAT(host.of({"msg", "log"}),
                ElementsAre("msg MsgCvs0085N", "log 16 terminateAllProcesses: Unimplemented command, halvd 0"));
    Args.quiet = true;
    EXPECT_EQ(host.run([&] { terminateCommand(row, 1); }), "");
    EXPECT_EQ(host.of({"log"}).size(), 2U);
    EXPECT_EQ(terminateCommand(row, 2), 0);
    EXPECT_EQ(host.of({"log"}).size(), 2U) << "nothing in other passes";
}

TEST_F(StopRowTest, NoCommandIsBuiltFromAThirdPartysPath) {
    host.add("java", 10, 2).path = "/stranger/java";
    snapshot();
    for (const kill_type killType : {KILL, KILLH, KILL9, NOARGS, SKIP, TERMINATE_T, NORMAL_TERMINATE, REMOVE}) {
        stop(rowOf("java", killType));
        EXPECT_EQ(command.find("/stranger"), std::string::npos) << killType;
    }
}

// --- table errors ----------------------------------------------------------------------------------------------------

class UndefinedKind : public StopRowTest, public ::testing::WithParamInterface<int> {
  protected:
    static killDef row(wait_type wait = WAIT_NONE) {
        return rowOf("halvd", static_cast<kill_type>(GetParam()), 0, wait);
    }
};

TEST_P(UndefinedKind, WithoutAProcessReturnsZero) {
    snapshot();
    EXPECT_EQ(stop(row()), 0);
    EXPECT_THAT(host.of({"msg", "log"}), IsEmpty());
}

TEST_P(UndefinedKind, WithExitedOrExcludedProcessesOnlyIsNoError) {
    host.add("halvd", 10).alive = false;
    host.add("halvd", 11);
    snapshot();
    record(11)->excluded = 1;
    EXPECT_EQ(stop(row()), 1);
    EXPECT_THAT(host.of({"msg", "log"}), IsEmpty());
}

TEST_P(UndefinedKind, WithARunningProcessEndsTheProgramWith16EvenWhenQuiet) {
    host.add("halvd", 10);
    snapshot();
    const ChildResult result = inChild([this] {
        Args.quiet = true;
        terminateAllProcesses(*m_processes, row(), 1, 2);
    });
    const std::string number = std::to_string(GetParam());
    EXPECT_EQ(result.status, 16);
    EXPECT_EQ(result.output, "Unimplemented Definition(0) halvd " + number + ".\n");
    EXPECT_THAT(result.of({"msg", "log", "kill", "system"}),
                ElementsAre("msg MsgCvs0065N", "log 16 terminateAllProcesses: Unimplemented Definition " + number));
}

TEST_P(UndefinedKind, IsMetAfterTheWaitForAllTheOthers) {
    FakeProcess& other = host.add("sora", 9);
    other.diesOf.clear();
    other.secondsLeft = 2;
    host.add("halvd", 10);
    snapshot();
    record(9)->signalled = 1;
    const ChildResult result = inChild([this] { terminateAllProcesses(*m_processes, row(WAIT_ALL_FIRST), 0, 1); });
    EXPECT_EQ(result.status, 16);
    EXPECT_THAT(result.of({"sleep", "msg"}), ElementsAre("sleep 1", "sleep 1", "msg MsgCvs0065N"));
}

INSTANTIATE_TEST_SUITE_P(StopRow, UndefinedKind,
                         ::testing::Values(LOCALHOST_TERMINATE, UNMOUNT, ZELDPARAMS, JAVA_STOP, 18, 1000));

} // namespace
