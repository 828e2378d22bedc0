#include <string>

#include "StopRowTest.h"

using fakes::ChildResult;
using fakes::FakeProcess;
using fakes::inChild;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

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
