#include "RunModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "course.h"

namespace watch {
namespace {

using course::end;
using course::event;
using course::model;
using course::process;
using course::read;
using sample::at;
using testing::ElementsAre;
using testing::IsEmpty;
using Kind = Stage::Kind;

std::vector<Kind> kinds(const watch::Run& run) {
    std::vector<Kind> found;
    for (const Stage& stage : run.stages) {
        found.push_back(stage.kind);
    }
    return found;
}

std::vector<std::string> asked(const Process& process) {
    std::vector<std::string> found;
    for (const Asked& one : process.asked) {
        found.push_back(one.what);
    }
    return found;
}

TEST(RunModel, WithoutALogOnlyTheEndsAreKnown) {
    RunModel run = model({process(5, "halvd"), process(6, "strayd"), process(7, "vi", 4)});
    end(run, 0, 1.5);
    const auto told = run.finish(at(9));
    EXPECT_THAT(told.stages, IsEmpty());
    EXPECT_FALSE(told.logComplete);
    EXPECT_EQ(told.processes[0].outcome, Outcome::endedUnasked);
    EXPECT_EQ(told.processes[0].ended, at(1.5));
    EXPECT_FALSE(told.processes[0].certain);
    EXPECT_EQ(told.processes[1].outcome, Outcome::spared);
    EXPECT_FALSE(told.processes[1].certain);
    // What is only listed is never asked.
    EXPECT_TRUE(told.processes[2].certain);
}

TEST(RunModel, WhereRecordsMayBeMissingNobodyIsCertainlyUnasked) {
    RunModel run = model({process(5, "momuhe"), process(6, "pazed")});
    run.read(course::listing(0.5));
    run.read(course::signal(1, run.processes()[0].path, 1));
    end(run, 0, 1.5);
    end(run, 1, 20);
    RunModel complete = run;
    const auto told = run.finish(at(60), false);
    EXPECT_FALSE(told.logComplete);
    EXPECT_TRUE(told.processes[0].certain);
    EXPECT_FALSE(told.processes[1].certain);
    // How long the row took after its last record nobody knows.
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::row));
    EXPECT_EQ(told.stages[1].end, at(1));
    EXPECT_TRUE(complete.finish(at(60)).processes[1].certain);
}

TEST(RunModel, LogThatBreaksOffIsNoticed) {
    RunModel run = model({process(5, "momuhe"), process(6, "vi", 4)});
    run.read(event(0.1, "Main", "********************cvstop initiated********************"));
    EXPECT_TRUE(run.breaksOff(0));
    EXPECT_TRUE(run.breaksOff(1));
    EXPECT_FALSE(run.breaksOff(130));
    run.read(course::listing(0.5));
    EXPECT_TRUE(run.breaksOff(1));
    run.read(course::sweepBegins(1));
    EXPECT_TRUE(run.breaksOff(1));
    run.read(event(30, "Processes::WaitForAllDone", "momuhe(5) has not terminated"));
    EXPECT_FALSE(run.breaksOff(1));
    run.read(event(31, "Main", "Attempting to kill remaining 1 process(es) "));
    EXPECT_TRUE(run.breaksOff(1));
    run.read(event(32, "Main", "All processes terminated normally."));
    EXPECT_FALSE(run.breaksOff(1));
}

TEST(RunModel, WaitOfARowIsNotTheEnd) {
    RunModel run = model({process(5, "momuhe")});
    run.read(course::listing(0.5));
    run.read(event(30, "Processes::WaitForAllDone", "momuhe(5) has not terminated"));
    EXPECT_TRUE(run.breaksOff(1));
}

TEST(RunModel, WhereNothingIsLeftOrWantedTheLogHasNoEnd) {
    RunModel gone = model({process(5, "momuhe"), process(6, "vi", 4)});
    gone.read(course::listing(0.5));
    end(gone, 0, 0.4);
    EXPECT_FALSE(gone.breaksOff(0));
    RunModel declined = model({process(5, "momuhe")}, true);
    declined.read(event(0.1, "Main", "********************cvstop initiated********************"));
    EXPECT_FALSE(declined.breaksOff(0));
    EXPECT_TRUE(declined.breaksOff(1));
}

TEST(RunModel, GatheringBeginsWhenTheQuestionIsAnswered) {
    RunModel run = model({process(5, "halvd")}, true);
    run.read(event(7, "Main", "something else"));
    RunModel declined = run;
    run.read(event(8, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    run.read(course::sweepBegins(9));
    const auto told = run.finish(at(10));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::wait));
    EXPECT_EQ(told.stages[0].begin, at(8));
    EXPECT_EQ(told.stages[0].end, at(9));
    EXPECT_THAT(declined.finish(at(8)).stages, IsEmpty());
}

TEST(RunModel, CommandsOfARow) {
    RunModel run = model({process(5, "halvd")});
    read(run, course::command(1, "halvd", "-terminate"));
    run.read(course::rowDone(1.003, "halvd"));
    end(run, 0, 1.001);
    EXPECT_THAT(run.commands(), ElementsAre("/usr/quarn/corvane/bin/halvd -terminate"));
    const auto told = run.finish(at(2));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::row));
    EXPECT_EQ(told.stages[1].row, 58);
    EXPECT_EQ(told.stages[1].name, "halvd");
    EXPECT_EQ(told.stages[1].begin, at(1));
    EXPECT_EQ(told.stages[1].end, at(1.003));
    // It ended before the record that names its path: the command had started by then.
    EXPECT_EQ(told.processes[0].outcome, Outcome::ended);
    EXPECT_EQ(told.processes[0].row, 58);
    EXPECT_EQ(told.processes[0].asked.at(0).time, at(1));
    EXPECT_EQ(told.processes[0].asked.at(0).kind, Asked::Kind::command);
}

TEST(RunModel, JobDaemonIsAskedTwice) {
    RunModel run = model({process(5, "dobd")});
    const std::string path = std::string(course::kBin) + "dobd";
    run.read(event(1, "executeStop", "Executing \"one > /dev/null 2>&1 &\""));
    run.read(event(2, "executeStop", "Executing \"two > /dev/null 2>&1 &\""));
    run.read(
        event(3, "terminateAllProcesses", " Requesting termination of " + path + ". Return status=0. Command=two"));
    const auto told = run.finish(at(4));
    EXPECT_THAT(asked(told.processes[0]), ElementsAre("one", "two"));
    EXPECT_EQ(told.processes[0].outcome, Outcome::survived);
}

TEST(RunModel, AProcessThatEndsBetweenTheSignalAndItsRecordWasAsked) {
    RunModel run = model({process(5, "momuhe")});
    run.read(event(1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    end(run, 0, 1.5);
    run.read(course::signal(2, run.processes()[0].path, 1));
    EXPECT_EQ(run.finish(at(3)).processes[0].outcome, Outcome::ended);
}

TEST(RunModel, AZombieIsAskedAndHadEndedUnasked) {
    RunModel run = model({process(5, "momuhe")});
    run.ended(0, at(0.5));
    run.read(event(1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    run.read(course::signal(2, run.processes()[0].path, 1));
    RunModel reaped = run;
    EXPECT_EQ(run.finish(at(3)).processes[0].outcome, Outcome::survived);
    reaped.gone(0, at(2.5));
    EXPECT_EQ(reaped.finish(at(3)).processes[0].outcome, Outcome::endedUnasked);
}

TEST(RunModel, EachOfThoseThatTheLogDoesNotTellApartIsMarked) {
    RunModel run = model({process(5, "momuhe"), process(6, "momuhe"), process(7, "momuhe"), process(8, "strayd")});
    const std::string path = run.processes()[0].path;
    run.read(event(1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    // Two go while one of them is asked; the third stays, and was asked.
    end(run, 0, 1.5);
    end(run, 1, 1.6);
    run.read(course::signal(2, path, 1));
    run.read(course::signal(2.1, path, 1));
    run.read(course::rowDone(2.2, "momuhe"));
    end(run, 2, 5);
    end(run, 3, 5);
    const auto told = run.finish(at(9));
    EXPECT_FALSE(told.processes[0].certain);
    EXPECT_FALSE(told.processes[0].asked.at(0).certain);
    EXPECT_FALSE(told.processes[1].certain);
    EXPECT_EQ(told.processes[1].outcome, Outcome::endedUnasked);
    EXPECT_TRUE(told.processes[2].certain);
    EXPECT_EQ(told.processes[2].outcome, Outcome::ended);
    EXPECT_EQ(told.processes[2].asked.at(0).time, at(2.1));
    EXPECT_TRUE(told.processes[3].certain);
}

TEST(RunModel, WhoIsOfNoRowIsAskedByNone) {
    RunModel run = model({process(5, "strayd"), process(6, "momuhe")});
    run.read(course::signal(1, run.processes()[0].path, 1));
    run.read(course::rowDone(1.1, "strayd"));
    run.read(course::sweepBegins(2));
    // The table is through.
    run.read(course::signal(3, run.processes()[1].path, 1));
    const auto told = run.finish(at(4));
    EXPECT_THAT(told.processes[0].asked, IsEmpty());
    EXPECT_THAT(told.processes[1].asked, IsEmpty());
    EXPECT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::wait));
}

TEST(RunModel, ExcludedOnesAreKnownByTheirFile) {
    std::vector<Process> processes = {process(5, "momuhe"), process(6, "momuhe")};
    processes[1].path = "/usr/quarn/other/momuhe";
    RunModel run = model(processes);
    run.read(course::excluded(1, processes[1].path));
    EXPECT_EQ(run.progress(at(1.5)).total, 1U);
    run.read(course::sweepBegins(2));
    run.read(course::passedOver(3, "OrderlyShutdown", "momuhe"));
    const auto told = run.finish(at(4), false);
    EXPECT_FALSE(told.processes[0].excluded);
    EXPECT_TRUE(told.processes[1].excluded);
    // Whatever else is missing: it is not asked.
    EXPECT_FALSE(told.processes[0].certain);
    EXPECT_TRUE(told.processes[1].certain);
    EXPECT_THAT(told.notes, IsEmpty());
}

TEST(RunModel, ZombieThatIsTakenLateIsTold) {
    RunModel run = model({process(5, "momuhe"), process(6, "pazed"), process(7, "halvd")});
    run.read(course::listing(0.1));
    for (const std::size_t place : {0U, 1U, 2U}) {
        run.ended(place, at(1));
    }
    run.gone(0, at(1.15));
    run.gone(1, at(30));
    const auto told = run.finish(at(60));
    EXPECT_FALSE(told.processes[0].gone);
    EXPECT_EQ(told.processes[1].gone, at(30));
    EXPECT_FALSE(told.processes[2].gone);
}

TEST(RunModel, WhoEndedLongBeforeTheRecordOfItsRequestHadEndedUnasked) {
    // The program writes nothing while it waits: the record before may be half a minute old.
    const auto outcome = [](double endedAt) {
        RunModel run = model({process(5, "momuhe")});
        run.read(course::listing(1));
        run.ended(0, at(endedAt));
        run.read(course::signal(31, run.processes()[0].path, 1));
        run.gone(0, at(32));
        return run.finish(at(33)).processes[0].outcome;
    };
    EXPECT_EQ(outcome(16), Outcome::endedUnasked);
    EXPECT_EQ(outcome(29.9), Outcome::endedUnasked);
    EXPECT_EQ(outcome(30.1), Outcome::ended);
}

TEST(RunModel, TellsWhoWasSentSigkill) {
    RunModel run = model({process(5, "momuhe"), process(6, "pazed")});
    run.describe(1, {1, "systemd"}, "pazed.service");
    run.read(event(1, "Main", "Attempting to kill remaining 2 process(es) "));
    run.read(course::signal(2, run.processes()[1].path, 4));
    EXPECT_THAT(run.killed(), ElementsAre(false, true));
    const auto told = run.finish(at(4));
    EXPECT_EQ(told.processes[1].unit, "pazed.service");
    EXPECT_EQ(told.processes[1].parent, (Peer{1, "systemd"}));
}

TEST(RunModel, RequestOfTheKillsWithoutACommandIsNone) {
    RunModel run = model({process(5, "halvd")});
    run.read(event(1, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::command(2, "halvd", "-terminate").back());
    EXPECT_THAT(run.finish(at(3)).processes[0].asked, IsEmpty());
}

TEST(RunModel, CommandOfARecordThatWasCutIsNobodyElses) {
    RunModel run = model({process(5, "fahazude"), process(6, "halvd")});
    run.read(event(1, "executeStop", "Executing \"lost > /dev/null 2>&1 &\""));
    run.read(event(1.1, "terminateAllProcesses", " Requesting termination of /usr/quarn/lo [cut]"));
    read(run, course::command(2, "halvd", "-terminate"));
    end(run, 0, 1.5);
    end(run, 1, 3);
    const auto told = run.finish(at(4));
    EXPECT_THAT(asked(told.processes[1]), ElementsAre("/usr/quarn/corvane/bin/halvd -terminate"));
    EXPECT_THAT(told.notes, ElementsAre("a record of the debug log was too long and was cut, requests may be missing"));
}

TEST(RunModel, WholeCourse) {
    RunModel run = model({process(5, "kuror"), process(6, "strayd"), process(7, "nanid"), process(8, "vi", 4)});
    read(run, course::command(1, "kuror", "-terminate_local"));
    end(run, 0, 3);
    run.read(course::rowDone(4, "kuror"));
    run.read(course::rowDone(5, "nanid"));
    run.read(course::sweepBegins(5.1));
    run.read(event(5.2, "OrderlyShutdown", "Name=strayd Pid=6"));
    run.read(course::signal(5.2, run.processes()[1].path, 2));
    run.read(course::signal(6.2, run.processes()[1].path, 1));
    run.read(course::signal(7.2, run.processes()[1].path, 3));
    end(run, 2, 20);
    run.read(event(36, "Processes::WaitForAllDone", "strayd(6) has not terminated"));
    run.read(event(36.1, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::signal(36.2, run.processes()[1].path, 4));
    end(run, 1, 36.3);
    run.read(event(37.2, "Main", "All processes terminated normally."));
    const auto told = run.finish(at(37.3));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::row, Kind::row, Kind::sweep, Kind::wait, Kind::kill,
                                         Kind::waitAfterKill));
    const auto stage = [&](std::size_t place, double begin, double until, std::vector<int> waitedFor) {
        EXPECT_EQ(told.stages[place].begin, at(begin)) << place;
        EXPECT_EQ(told.stages[place].end, at(until)) << place;
        EXPECT_EQ(told.stages[place].waitedFor, waitedFor) << place;
    };
    stage(0, 0, 1, {});
    stage(1, 1, 5, {5});
    stage(2, 5, 5, {});
    stage(3, 5.2, 7.2, {6});
    stage(4, 7.2, 36, {6, 7});
    stage(5, 36.1, 36.2, {});
    stage(6, 36.2, 37.2, {6});
    EXPECT_EQ(told.processes[0].outcome, Outcome::ended);
    EXPECT_EQ(told.processes[1].outcome, Outcome::killed);
    EXPECT_THAT(asked(told.processes[1]), ElementsAre("SIGINT", "SIGTERM", "SIGQUIT", "SIGKILL"));
    EXPECT_EQ(told.processes[2].outcome, Outcome::endedUnasked);
    EXPECT_EQ(told.processes[3].outcome, Outcome::spared);
    EXPECT_THAT(told.strangers, IsEmpty());
    EXPECT_THAT(told.notes, IsEmpty());
}

TEST(RunModel, RowWaitsForTheFirstOfItsNameAndForTheOneThatItAsked) {
    // The first is excluded, or a third party: the next one is asked. The row waits for that one, and then for the
    // first.
    RunModel run = model({process(5, "gowid", 2), process(6, "gowid"), process(7, "gowid")});
    read(run, course::command(1, "gowid", "-terminate"));
    run.read(course::rowDone(31, "gowid"));
    end(run, 1, 20);
    run.read(course::sweepBegins(61));
    const auto told = run.finish(at(62));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::row, Kind::wait));
    EXPECT_THAT(told.stages[1].waitedFor, ElementsAre(5, 6));
    EXPECT_THAT(asked(told.processes[2]), IsEmpty());
}

TEST(RunModel, RowThatDoesNotWaitWaitedForNobody) {
    RunModel run = model({process(5, "halvd")});
    read(run, course::command(1, "halvd", "-terminate"));
    run.read(course::rowDone(1.003, "halvd"));
    EXPECT_THAT(run.finish(at(2)).stages.at(1).waitedFor, IsEmpty());
}

TEST(RunModel, RecordOfARowAmongTheKillsLeavesTheStagesWhole) {
    RunModel run = model({process(5, "momuhe")});
    run.read(event(1, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::rowDone(2, "momuhe"));
    run.read(course::signal(3, run.processes()[0].path, 4));
    const auto told = run.finish(at(4));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::kill, Kind::waitAfterKill, Kind::row));
    EXPECT_EQ(told.stages[3].end, at(2));
}

TEST(RunModel, SweepOfTwoIsOneStage) {
    RunModel run = model({process(5, "stray"), process(6, "dog")});
    run.read(course::sweepBegins(1));
    for (const int pid : {5, 6}) {
        const std::string path = run.processes()[static_cast<std::size_t>(pid - 5)].path;
        run.read(event(pid, "OrderlyShutdown", "Name=x Pid=" + std::to_string(pid)));
        run.read(course::signal(pid + 0.1, path, 2));
        run.read(course::signal(pid + 0.2, path, 1));
        run.read(course::signal(pid + 0.3, path, 3));
    }
    run.read(event(8, "OrderlyShutdown", "All Corvane processes terminated normally."));
    const auto told = run.finish(at(9));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::sweep, Kind::wait));
    EXPECT_EQ(told.stages[1].begin, at(5));
    EXPECT_EQ(told.stages[1].end, at(6.3));
    EXPECT_THAT(told.stages[1].waitedFor, ElementsAre(5, 6));
    EXPECT_THAT(asked(told.processes[0]), ElementsAre("SIGINT", "SIGTERM", "SIGQUIT"));
    EXPECT_THAT(asked(told.processes[1]), ElementsAre("SIGINT", "SIGTERM", "SIGQUIT"));
}

TEST(RunModel, ThirdPartiesAreKnownByTheirPids) {
    RunModel run = model({process(5, "sh", 2), process(6, "sh", 2)});
    run.read(course::sweepBegins(1));
    run.read(event(2, "OrderlyShutdown", "All Corvane processes terminated normally."));
    run.read(event(3, "Processes::terminate3rdParty", "KILLING sh ACTION=0 PID=6"));
    for (const int kind : {2, 1, 0, 3, 4}) {
        run.read(course::signal(3.1, run.processes()[0].path, kind));
    }
    end(run, 1, 3.2);
    const auto told = run.finish(at(4));
    ASSERT_THAT(kinds(told), ElementsAre(Kind::gathering, Kind::wait, Kind::thirdParties));
    EXPECT_THAT(told.stages[1].waitedFor, IsEmpty());
    EXPECT_EQ(told.stages[2].end, at(4));
    EXPECT_THAT(asked(told.processes[0]), IsEmpty());
    EXPECT_THAT(asked(told.processes[1]), ElementsAre("SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT", "SIGKILL"));
    EXPECT_EQ(told.processes[1].outcome, Outcome::killed);
}

TEST(RunModel, WhoIsNotInTheSnapshotIsAStranger) {
    RunModel run = model({process(5, "halvd")});
    const std::string path = std::string(course::kBin) + "momuhe";
    run.read(course::signal(1, path, 1));
    run.read(course::signal(2, path, 1));
    run.read(course::sweepBegins(3));
    run.read(event(3, "OrderlyShutdown", "Name=late Pid=99"));
    run.read(course::signal(3, "/x/late", 2));
    const auto told = run.finish(at(4));
    ASSERT_EQ(told.strangers.size(), 2U);
    EXPECT_EQ(told.strangers[0].name, path);
    EXPECT_EQ(told.strangers[0].asked.size(), 2U);
    EXPECT_EQ(told.strangers[1].name, "late");
    EXPECT_EQ(told.strangers[1].pid, 99);
}

TEST(RunModel, PathWithAByteThatIsNoUtf8IsTheProcessOfThatPath) {
    Process odd = process(5, "odd", 2);
    odd.path = "/opt/\xff/odd";
    RunModel run = model({odd});
    run.read(event(1, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::signal(2, "/opt/\\xff/odd", 4));
    EXPECT_EQ(run.finish(at(3)).processes[0].asked.size(), 1U);
}

TEST(RunModel, PathWithABackslashOfItsOwnIsTheProcessOfThatPath) {
    Process odd = process(5, "odd", 2);
    odd.path = "/opt/\\xff/odd";
    RunModel run = model({odd});
    run.read(event(1, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::signal(2, odd.path, 4));
    EXPECT_EQ(run.finish(at(3)).processes[0].asked.size(), 1U);
}

} // namespace
} // namespace watch
