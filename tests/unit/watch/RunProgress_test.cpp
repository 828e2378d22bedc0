#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "RunModel.h"
#include "course.h"

namespace watch {
namespace {

using course::end;
using course::event;
using course::model;
using course::process;
using course::read;
using sample::at;
using Doing = Progress::Doing;

constexpr Time seconds(double number) {
    return static_cast<Time>(number * static_cast<double>(kSecond));
}

TEST(RunProgress, GathersAtFirst) {
    RunModel run = model({process(5, "halvd"), process(6, "vi", 4)});
    EXPECT_EQ(run.progress(at(0.5)).doing, Doing::silent);
    run.read(event(0.1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    const Progress progress = run.progress(at(0.5));
    EXPECT_EQ(progress.doing, Doing::gathering);
    EXPECT_EQ(progress.total, 1U);
    EXPECT_EQ(progress.ended, 0U);
    EXPECT_EQ(progress.elapsed, seconds(0.5));
}

TEST(RunProgress, WithoutALogItIsNotKnownWhatItDoes) {
    RunModel run = model({process(5, "halvd")});
    EXPECT_EQ(run.progress(at(1.9)).doing, Doing::silent);
    EXPECT_EQ(run.progress(at(40)).doing, Doing::unknown);
    EXPECT_TRUE(run.progress(at(40)).observed);
    run.read(event(41, "Main", "whatever"));
    EXPECT_EQ(run.progress(at(42)).doing, Doing::gathering);
}

TEST(RunProgress, SaysWhetherThereWasAListing) {
    watch::Run run;
    run.begin = sample::kBegin;
    run.observed = false;
    EXPECT_FALSE(RunModel(run, false).progress(at(3)).observed);
}

TEST(RunProgress, GoesOnWithTheLogAndTheLives) {
    RunModel run = model({process(5, "momuhe"), process(6, "pazed")});
    run.read(course::signal(1, run.processes()[0].path, 1));
    EXPECT_EQ(run.progress(at(2)).doing, Doing::table);
    run.read(course::sweepBegins(3));
    EXPECT_EQ(run.progress(at(3)).doing, Doing::waiting);
    EXPECT_EQ(run.progress(at(3)).askedAgo, seconds(2));
    run.ended(0, at(4));
    EXPECT_TRUE(run.progress(at(5)).zombie);
    run.gone(0, at(5));
    EXPECT_EQ(run.progress(at(6)).pid, 6);
}

TEST(RunProgress, AsksUntilItLists) {
    RunModel run = model({process(5, "halvd")}, true);
    EXPECT_EQ(run.progress(at(5)).doing, Doing::silent);
    run.read(event(6, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    EXPECT_EQ(run.progress(at(7)).doing, Doing::gathering);
}

TEST(RunProgress, RowWaitsTwice) {
    RunModel run = model({process(67, "kuror"), process(68, "kuror")});
    run.read(event(1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    read(run, course::command(2, "kuror", "-terminate_local"));
    Progress progress = run.progress(at(12));
    EXPECT_EQ(progress.doing, Doing::waiting);
    EXPECT_EQ(progress.name, "kuror");
    EXPECT_EQ(progress.pid, 67);
    EXPECT_EQ(progress.askedAgo, seconds(10));
    EXPECT_EQ(progress.upTo, seconds(50));
    // The row asks the first of its name alone, and waits for no other.
    EXPECT_EQ(progress.more, 0U);
    run.read(course::rowDone(32, "kuror"));
    progress = run.progress(at(35));
    EXPECT_EQ(progress.askedAgo, seconds(33));
    EXPECT_EQ(progress.upTo, seconds(27));
    // The log is read now and then: a wait that should be over is not less than nothing.
    EXPECT_EQ(run.progress(at(70)).upTo, 0);
    end(run, 0, 36);
    progress = run.progress(at(36.5));
    EXPECT_EQ(progress.doing, Doing::table);
    EXPECT_FALSE(progress.upTo);
    EXPECT_EQ(progress.ended, 1U);
}

TEST(RunProgress, RowWaitsOnceForTheExcluded) {
    RunModel run = model({process(5, "gowid"), process(6, "halvd")});
    run.read(course::excluded(2, std::string(course::kBin) + "gowid"));
    run.read(course::passedOver(3, "terminateAllProcesses", "gowid"));
    const Progress progress = run.progress(at(13));
    EXPECT_EQ(progress.doing, Doing::waiting);
    EXPECT_TRUE(progress.excluded);
    EXPECT_FALSE(progress.askedAgo);
    EXPECT_EQ(progress.upTo, seconds(20));
    // It will not end, and nobody waits for that.
    EXPECT_EQ(progress.total, 1U);
}

TEST(RunProgress, RowThatDoesNotWait) {
    RunModel run = model({process(5, "momuhe")});
    run.read(event(1, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0"));
    run.read(course::signal(1, run.processes()[0].path, 1));
    EXPECT_EQ(run.progress(at(1.1)).doing, Doing::table);
    run.read(course::rowDone(2, "momuhe"));
    EXPECT_EQ(run.progress(at(2.1)).doing, Doing::table);
}

TEST(RunProgress, SweepShowsWhomItSignals) {
    RunModel run = model({process(5, "strayd")});
    run.read(course::sweepBegins(1));
    run.read(event(1, "OrderlyShutdown", "Name=strayd Pid=5"));
    run.read(course::signal(1, run.processes()[0].path, 2));
    const Progress progress = run.progress(at(2.5));
    EXPECT_EQ(progress.doing, Doing::sweeping);
    EXPECT_EQ(progress.pid, 5);
    EXPECT_EQ(progress.askedAgo, seconds(1.5));
}

TEST(RunProgress, WaitForAllShowsWhoWasAskedFirst) {
    RunModel run = model({process(5, "nanid"), process(6, "momuhe"), process(7, "pazed"), process(8, "sh", 2)});
    run.read(course::signal(2, run.processes()[2].path, 1));
    run.read(course::signal(1, run.processes()[1].path, 1));
    run.read(course::sweepBegins(3));
    Progress progress = run.progress(at(13));
    EXPECT_EQ(progress.doing, Doing::waiting);
    EXPECT_EQ(progress.pid, 6);
    EXPECT_EQ(progress.askedAgo, seconds(12));
    EXPECT_EQ(progress.upTo, seconds(19));
    EXPECT_EQ(progress.more, 2U);
    end(run, 1, 13);
    end(run, 2, 13);
    progress = run.progress(at(14));
    EXPECT_EQ(progress.pid, 5);
    EXPECT_FALSE(progress.askedAgo);
    EXPECT_EQ(progress.more, 0U);
}

TEST(RunProgress, ZombieIsWaitedForThoughItEnded) {
    RunModel run = model({process(5, "momuhe")});
    run.read(course::sweepBegins(3));
    run.ended(0, at(4));
    const Progress progress = run.progress(at(5));
    EXPECT_EQ(progress.doing, Doing::waiting);
    EXPECT_TRUE(progress.zombie);
    EXPECT_EQ(progress.ended, 1U);
}

TEST(RunProgress, WaitAfterTheKillBeginsAnew) {
    RunModel run = model({process(5, "strayd")});
    run.read(course::sweepBegins(3));
    run.read(event(33, "Processes::WaitForAllDone", "strayd(5) has not terminated"));
    run.read(event(33, "Main", "Attempting to kill remaining 1 process(es) "));
    run.read(course::signal(34, run.processes()[0].path, 4));
    EXPECT_EQ(run.progress(at(40)).upTo, seconds(23));
}

TEST(RunProgress, ThirdPartiesAndTheEnd) {
    RunModel run = model({process(5, "sh", 2)});
    run.read(course::sweepBegins(3));
    run.read(event(4, "OrderlyShutdown", "All Corvane processes terminated normally."));
    EXPECT_EQ(run.progress(at(4)).doing, Doing::over);
    run.read(event(4, "Processes::terminate3rdParty", "KILLING sh ACTION=0 PID=5"));
    EXPECT_EQ(run.progress(at(4)).doing, Doing::thirdParties);
}

} // namespace
} // namespace watch
