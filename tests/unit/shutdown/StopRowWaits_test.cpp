#include <string>

#include "StopRowTest.h"

using fakes::FakeProcess;
using ::testing::ElementsAre;

namespace {

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

} // namespace
