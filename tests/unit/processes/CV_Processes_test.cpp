#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "Fixture.h"
#include "Processes.h"

using fakes::ChildResult;
using fakes::inChild;
using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const auto kEverything = static_cast<Proc_categories>(7);

class ProcessesTest : public fakes::ProgramTest {
  protected:
    static std::vector<std::int32_t> pids(const CV_Process_s* list) {
        std::vector<std::int32_t> result;
        for (; list != nullptr; list = list->next) {
            result.push_back(list->pid);
        }
        return result;
    }

    void addNamed(const std::vector<std::string>& names) {
        std::int32_t pid = 10;
        for (const std::string& name : names) {
            host.add(name, pid++);
        }
    }

    /// Traces of Processes and the lister's calls, without the loading of the exclude list.
    Journal traces() const {
        Journal result;
        for (const std::string& entry : host.of({"enter", "leave", "list"})) {
            if (entry.find("loadExcludelist") == std::string::npos) {
                result.push_back(entry);
            }
        }
        return result;
    }
};

TEST_F(ProcessesTest, AnEmptySnapshotHasNoFirstRecord) {
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.list(), nullptr);
    EXPECT_EQ(processes.CountProcesses(), 0U);
    EXPECT_EQ(processes.findProcess("halvd"), nullptr);
    EXPECT_EQ(processes.findNextProcess("halvd"), nullptr);
    EXPECT_EQ(host.run([&] { processes.PrintProcesses(); }), "");
}

TEST_F(ProcessesTest, TheDefaultConstructorAsksForTheProductsProcesses) {
    host.add("halvd", 10);
    host.add("editor", 11, 2);
    Processes processes;
    EXPECT_THAT(pids(processes.list()), ElementsAre(10));
    EXPECT_THAT(host.of({"list"}), ElementsAre("list 1 0"));
}

TEST_F(ProcessesTest, TheExcludeListIsLoadedBeforeTheSnapshotIsTaken) {
    Processes processes(kEverything, 3);
    const Journal entries = host.of({"debug", "list", "log"});
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[0].rfind("debug 1 UserList::setProcessExcludelist: Parsing exclude list file: ", 0), 0U);
    EXPECT_EQ(entries[2], "log 2 Processes::getProcesses: Calling find_processes_CV with verbose = 3");
    EXPECT_EQ(entries[3], "list 7 3");
}

TEST_F(ProcessesTest, ConstructionWithoutArgumentsIsTraced) {
    const Processes processes;
    EXPECT_THAT(traces(), ElementsAre("enter Processes::Processes CV_Processes this",
                                      "enter Processes::getProcesses CV_Processes this", "list 1 0",
                                      "enter Processes::clearProcs CV_Processes this", "leave Processes::clearProcs",
                                      "leave Processes::getProcesses", "leave Processes::Processes"));
}

TEST_F(ProcessesTest, ConstructionIsTraced) {
    Processes processes(kEverything, 0);
    EXPECT_THAT(traces(), ElementsAre("enter Processes::Processes CV_Processes this",
                                      "enter Processes::getProcesses CV_Processes this", "list 7 0",
                                      "enter Processes::clearProcs CV_Processes this", "leave Processes::clearProcs",
                                      "leave Processes::getProcesses", "leave Processes::Processes"));
}

TEST_F(ProcessesTest, LookupsAreTracedUnderTheirOldNames) {
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

TEST_F(ProcessesTest, CountingAndPrintingAreNotTraced) {
    host.add("halvd", 10);
    {
        Processes processes(kEverything, 0);
        host.journal.clear();
        EXPECT_EQ(processes.CountProcesses(), 1U);
        host.run([&] { processes.PrintProcesses(); });
        processes.ExcludeProcess("halvd");
    }
    EXPECT_THAT(host.of({"enter", "leave"}), IsEmpty());
}

TEST_F(ProcessesTest, TheFieldsOfTheProgramStartAtZero) {
    addNamed({"halvd", "zeld"});
    Processes processes(kEverything, 0);
    for (const CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
        EXPECT_EQ(proc->signalled, 0);
        EXPECT_EQ(proc->excluded, 0);
    }
}

TEST_F(ProcessesTest, CleanProcsRecomputesBothFields) {
    addNamed({"halvd", "zeld"});
    Processes processes(kEverything, 0);
    for (CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
        proc->signalled = 1;
        proc->excluded = 1;
    }
    processes.cleanProcs();
    EXPECT_EQ(processes.list()->signalled, 0);
    EXPECT_EQ(processes.list()->excluded, 0);
    EXPECT_EQ(processes.list()->next->signalled, 0);
}

TEST_F(ProcessesTest, ANewSnapshotFreesTheOldOneAndStartsAgain) {
    addNamed({"halvd", "zeld"});
    Processes processes(CAT_CORVANE, 0);
    processes.list()->signalled = 1;
    host.fleet.pop_front();
    const CV_Process_s* first = processes.getProcesses(2, kEverything);
    EXPECT_EQ(first, processes.list());
    EXPECT_THAT(pids(processes.list()), ElementsAre(11));
    EXPECT_EQ(processes.list()->signalled, 0);
    EXPECT_EQ(fakes::liveRecords(), 1U);
    EXPECT_EQ(host.count("log 2 Processes::getProcesses: Calling find_processes_CV with verbose = 2"), 1U);
    EXPECT_EQ(host.count("list 7 2"), 1U);
}

TEST_F(ProcessesTest, TwoRecordsOfOneNameAreFoundInListOrder) {
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

TEST_F(ProcessesTest, AFailedLookupLeavesTheCursorWhereItWas) {
    addNamed({"halvd", "zeld", "halvd"});
    Processes processes(kEverything, 0);
    ASSERT_NE(processes.findProcess("zeld"), nullptr);
    EXPECT_EQ(processes.findProcess("absent"), nullptr);
    CV_Process_s* next = processes.findNextProcess("halvd");
    ASSERT_NE(next, nullptr);
    EXPECT_EQ(next->pid, 12);
}

TEST_F(ProcessesTest, FindNextWithoutACursorFindsNothing) {
    addNamed({"halvd"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findNextProcess("halvd"), nullptr);
}

TEST_F(ProcessesTest, LookupsAreExactAndRemovalIgnoresCase) {
    addNamed({"Halvd", "zeld"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findProcess("halvd"), nullptr);
    EXPECT_EQ(processes.findProcess("Halv"), nullptr);
    EXPECT_EQ(processes.findProcess("Halvd2"), nullptr);
    processes.ExcludeProcess("hALVD");
    EXPECT_THAT(pids(processes.list()), ElementsAre(11));
}

TEST_F(ProcessesTest, RemovedRecordsComeBackInReverseOrder) {
    addNamed({"Java", "a", "java", "b", "JAVA"});
    CV_Process_s* list = nullptr;
    ASSERT_EQ(find_processes_CV(&list, kEverything, 0), 0);
    CV_Process_s* removed = exclude_process(list, "java");
    EXPECT_THAT(pids(removed), ElementsAre(14, 12, 10));
    EXPECT_THAT(pids(list), ElementsAre(11, 13));
    free_process_list(removed);
    free_process_list(list);
}

TEST_F(ProcessesTest, RemovingEveryRecordEmptiesTheList) {
    addNamed({"java", "java"});
    CV_Process_s* list = nullptr;
    ASSERT_EQ(find_processes_CV(&list, kEverything, 0), 0);
    CV_Process_s* removed = exclude_process(list, "java");
    EXPECT_EQ(list, nullptr);
    EXPECT_THAT(pids(removed), ElementsAre(11, 10));
    free_process_list(removed);
}

TEST_F(ProcessesTest, RemovingFromAnEmptyListOrWithoutAMatchReturnsNothing) {
    CV_Process_s* list = nullptr;
    EXPECT_EQ(exclude_process(list, "java"), nullptr);
    addNamed({"zeld"});
    ASSERT_EQ(find_processes_CV(&list, kEverything, 0), 0);
    EXPECT_EQ(exclude_process(list, "java"), nullptr);
    EXPECT_THAT(pids(list), ElementsAre(10));
    free_process_list(list);
    free_process_list(nullptr);
}

TEST_F(ProcessesTest, ExcludeProcessFreesWhatItRemoves) {
    addNamed({"java", "zeld", "java"});
    Processes processes(kEverything, 0);
    processes.ExcludeProcess("java");
    EXPECT_EQ(processes.CountProcesses(), 1U);
    EXPECT_EQ(fakes::liveRecords(), 1U);
}

TEST_F(ProcessesTest, ExcludeProcessWithACursorSetAborts) {
    addNamed({"zeld"});
    Processes processes(kEverything, 0);
    processes.findProcess("zeld");
    const ChildResult result = inChild([&] { processes.ExcludeProcess("java"); });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_NE(result.error.find("lastProc == __null"), std::string::npos) << result.error;
}

TEST_F(ProcessesTest, ALookupThatFoundNothingSetsNoCursor) {
    addNamed({"zeld", "java"});
    Processes processes(kEverything, 0);
    processes.findProcess("absent");
    processes.ExcludeProcess("java");
    EXPECT_EQ(processes.CountProcesses(), 1U);
}

TEST_F(ProcessesTest, OnlyAProcessThatSignalZeroReachesIsActive) {
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

TEST_F(ProcessesTest, AFailingListerEndsTheProgramWith130) {
    host.listerStatus = 13;
    const ChildResult result = inChild([] { const Processes processes(kEverything, 0); });
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.output, "find_process_CV failed with status 13\n");
    EXPECT_THAT(result.of({"list", "log", "msg"}),
                ElementsAre("log 2 Processes::getProcesses: Calling find_processes_CV with verbose = 0", "list 7 0",
                            "log 16 Processes::getProcesses: find_processes_CV failed with status 13",
                            "msg MsgCvs0227N"));
}

TEST_F(ProcessesTest, AFailingListerIsReportedEvenWhenQuietAndWithAnyStatus) {
    host.listerStatus = -1;
    Args.quiet = true;
    const ChildResult result = inChild([] { const Processes processes; });
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.output, "find_process_CV failed with status -1\n");
}

TEST_F(ProcessesTest, AListerThatFailsTheSecondTimeFindsTheOldListFreed) {
    addNamed({"halvd"});
    const ChildResult result = inChild([this] {
        Processes processes(kEverything, 0);
        host.listerStatus = 12;
        std::atexit([] { fakes::world().record("records " + std::to_string(fakes::liveRecords())); });
        processes.getProcesses(0, kEverything);
    });
    EXPECT_EQ(result.status, 130);
    EXPECT_EQ(result.count("records 0"), 1U);
}

TEST_F(ProcessesTest, TheGroupOfAProcessIsThatOfItsRow) {
    addNamed({"java", "fuzerd", "unheardof"});
    Processes processes(kEverything, 0);
    EXPECT_EQ(processes.findGroup(processes.findProcess("java")), GROUP_JAVA);
    EXPECT_EQ(processes.findGroup(processes.findProcess("fuzerd")), GROUP_NULL);
    EXPECT_EQ(processes.findGroup(processes.findProcess("unheardof")), -1);
}

} // namespace
