#include <csignal>
#include <cstdlib>
#include <string>

#include "ProcessesTest.h"

using fakes::ChildResult;
using fakes::inChild;
using fakes::Journal;
using fakes::kEverything;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

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

} // namespace
