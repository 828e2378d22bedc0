#include <cstdio>
#include <string>

#include "ProcessesTest.h"

using fakes::kEverything;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class LookUpTest : public ProcessesTest {};

TEST_F(LookUpTest, LookupsAreTracedUnderTheirOldNames) {
    host.add("halvd", 10);
    Processes processes(kEverything, 0);
    host.journal.clear();
    processes.findProcess("halvd");
    processes.findNextProcess("halvd");
    Processes::isProcessActive(processes.list());
    EXPECT_THAT(host.journal,
                ElementsAre("enter Processes::findProcesses CV_Processes this", "leave Processes::findProcesses",
                            "enter Processes::findNextProcesses CV_Processes this",
                            "leave Processes::findNextProcesses", "enter Processes::isProcessActive CV_Processes null",
                            "probe 10", "leave Processes::isProcessActive"));
}

TEST_F(LookUpTest, TwoRecordsOfOneNameAreFoundInListOrder) {
    addNamed({"a", "halvd", "b", "halvd", "c"});
    Processes processes(kEverything, 0);
    CV_Process_s* first = processes.findProcess("halvd");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->pid, 11);
    CV_Process_s* second = processes.findNextProcess("halvd");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->pid, 13);
    EXPECT_EQ(processes.findNextProcess("halvd"), nullptr);
    EXPECT_EQ(processes.findNextProcess("b"), nullptr) << "the cursor still points at the second";
    CV_Process_s* behind = processes.findNextProcess("c");
    ASSERT_NE(behind, nullptr);
    EXPECT_EQ(behind->pid, 14);
}

TEST_F(LookUpTest, AFailedLookupLeavesTheCursorWhereItWas) {
    addNamed({"halvd", "zeld", "halvd"});
    Processes processes(kEverything, 0);
    ASSERT_NE(processes.findProcess("zeld"), nullptr);
    EXPECT_EQ(processes.findProcess("absent"), nullptr);
    CV_Process_s* next = processes.findNextProcess("halvd");
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->pid, 12);
}

TEST_F(LookUpTest, FindNextWithoutACursorFindsNothing) {
    addNamed({"halvd"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findNextProcess("halvd"), nullptr);
}

TEST_F(LookUpTest, LookupsAreExactAndRemovalIgnoresCase) {
    addNamed({"Halvd", "zeld"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findProcess("halvd"), nullptr);
    EXPECT_EQ(processes.findProcess("Halv"), nullptr);
    EXPECT_EQ(processes.findProcess("Halvd2"), nullptr);
    processes.ExcludeProcess("hALVD");
    EXPECT_THAT(pids(processes.list()), ElementsAre(11));
}

TEST_F(LookUpTest, ALookupThatFoundNothingSetsNoCursor) {
    addNamed({"zeld", "java"});
    Processes processes(kEverything, 0);
    processes.findProcess("absent");
    processes.ExcludeProcess("java");
    EXPECT_EQ(processes.CountProcesses(), 1U);
}

TEST_F(LookUpTest, OnlyAProcessThatSignalZeroReachesIsActive) {
    host.add("halvd", 10);
    host.add("zeld", 11).alive = false;
    host.add("foreign", 12).foreign = true;
    Processes processes(kEverything, 0);
    EXPECT_TRUE(Processes::isProcessActive(processes.findProcess("halvd")));
    EXPECT_FALSE(Processes::isProcessActive(processes.findProcess("zeld")));
    EXPECT_FALSE(Processes::isProcessActive(processes.findProcess("foreign"))) << "EPERM counts as not active";
    host.journal.clear();
    EXPECT_FALSE(Processes::isProcessActive(nullptr));
    EXPECT_THAT(host.of({"probe", "kill"}), IsEmpty());
}

TEST_F(LookUpTest, TheGroupOfAProcessIsThatOfItsRow) {
    addNamed({"java", "fuzerd", "unheardof"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findGroup(processes.findProcess("java")), GROUP_JAVA);
    EXPECT_EQ(processes.findGroup(processes.findProcess("fuzerd")), GROUP_NULL);
    EXPECT_EQ(processes.findGroup(processes.findProcess("unheardof")), -1);
}

TEST_F(LookUpTest, TheGroupLookupFindsEveryName) {
    Processes processes(CAT_CORVANE, 0);
    for (const killDef& row : KillDefines) {
        CV_Process_s record = {};
        std::snprintf(record.name, sizeof record.name, "%s", row.name.c_str());
        EXPECT_EQ(processes.findGroup(&record), row.group) << row.name;
    }
    EXPECT_EQ(host.count("enter Process::findGroup CV_Processes this"), KillDefines.size());
}

TEST_F(LookUpTest, TheGroupLookupFailsForANameThatIsNotInTheTable) {
    Processes processes(CAT_CORVANE, 0);
    for (const char* name : {"Java", "halvd2", "", "halv"}) {
        CV_Process_s record = {};
        std::snprintf(record.name, sizeof record.name, "%s", name);
        EXPECT_EQ(processes.findGroup(&record), -1) << name;
        EXPECT_EQ(host.count("log 2 Process::findGroup: Could not find process name " + std::string(name) +
                             " in CV_Daemons table"),
                  1U);
    }
}

} // namespace
