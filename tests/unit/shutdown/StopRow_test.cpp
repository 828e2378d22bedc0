#include <string>
#include <vector>

#include "StopRowTest.h"

using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kOnlyListed = "debug 1 terminateAllProcesses: Ignoring process because it is only listed, Name = ";
const std::string kExcluded = "debug 1 terminateAllProcesses: Ignoring process because it is on exclude list, Name = ";

/// The debug lines without the place that wrote them.
Journal withoutSites(Journal entries) {
    for (std::string& entry : entries) {
        entry = entry.substr(0, entry.rfind('('));
    }
    return entries;
}

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

} // namespace
