#include "Timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Parts.h"
#include "Picture.h"
#include "sample.h"

namespace {

using sample::at;
using watch::Axis;
using Kind = watch::Stage::Kind;

watch::Run lasting(double seconds) {
    watch::Run run;
    run.begin = sample::kBegin;
    run.end = at(seconds);
    return run;
}

TEST(Axis, SpreadsTheRunOverItsWidth) {
    const Axis axis(lasting(100));
    EXPECT_DOUBLE_EQ(axis.x(at(0)), Axis::kLeft);
    EXPECT_DOUBLE_EQ(axis.x(at(50)), (Axis::kLeft + Axis::kRight) / 2);
    EXPECT_DOUBLE_EQ(axis.x(at(100)), Axis::kRight);
    EXPECT_DOUBLE_EQ(axis.x(at(-3600)), Axis::kLeft);
    EXPECT_DOUBLE_EQ(axis.x(at(101)), Axis::kRight);
}

TEST(Axis, ReachesToTheLastEnd) {
    watch::Run run = lasting(100);
    run.processes = {sample::ended(1, "a", 1, 0, 200), sample::ended(2, "b", 1, 0, 50)};
    EXPECT_DOUBLE_EQ(Axis(run).x(at(100)), (Axis::kLeft + Axis::kRight) / 2);
}

TEST(Axis, StandsAClockThatWasSetBack) {
    const Axis axis(lasting(-5));
    EXPECT_DOUBLE_EQ(axis.x(at(0)), Axis::kLeft);
    EXPECT_DOUBLE_EQ(axis.x(at(1)), Axis::kRight);
    EXPECT_EQ(axis.ticks().size(), 2U);
}

TEST(Axis, HasRoundTicks) {
    const struct {
        double seconds;
        std::size_t count;
        const char* second;
        const char* last;
    } rows[] = {
        {0.0005, 2, "0.001 s", "0.001 s"},
        {0.02, 11, "0.002 s", "0.020 s"},
        {0.1, 11, "0.01 s", "0.10 s"},
        {0.9, 10, "0.1 s", "0.9 s"},
        {7, 8, "1 s", "7 s"},
        {64.75, 7, "10 s", "60 s"},
        {110, 6, "20 s", "100 s"},
        {299, 10, "30 s", "270 s"},
        {301, 11, "30 s", "300 s"},
        {331, 6, "1 min", "5 min"},
        {7200, 5, "30 min", "120 min"},
        {36'000, 11, "1 h", "10 h"},
        {40'000, 6, "2 h", "10 h"},
    };
    for (const auto& row : rows) {
        const std::vector<Axis::Tick> ticks = Axis(lasting(row.seconds)).ticks();
        ASSERT_EQ(ticks.size(), row.count) << row.seconds;
        EXPECT_EQ(ticks[1].label, row.second) << row.seconds;
        EXPECT_EQ(ticks.back().label, row.last) << row.seconds;
        EXPECT_DOUBLE_EQ(ticks[0].x, Axis::kLeft);
        EXPECT_GT(ticks[1].x, Axis::kLeft);
    }
}

TEST(Axis, NeverHasMoreThanElevenTicks) {
    for (double seconds = 0.001; seconds < 4e9; seconds *= 1.3) {
        const std::vector<Axis::Tick> ticks = Axis(lasting(seconds)).ticks();
        EXPECT_LE(ticks.size(), 11U) << seconds;
        EXPECT_GE(ticks.size(), 2U) << seconds;
    }
}

TEST(Parts, PutsQuickRowsTogether) {
    watch::Run run = lasting(10);
    run.stages = {
        sample::stage(Kind::gathering, 0, 1), sample::row(1, "a", 1, 2),       sample::row(2, "b", 2, 3),
        sample::row(3, "slow", 3, 6, {7}),    sample::row(4, "c", 6, 6.5),     sample::row(5, "also", 6.5, 7, {8}),
        sample::row(6, "too", 7, 8, {9, 10}), sample::stage(Kind::wait, 8, 9), sample::row(7, "d", 9, 10)};
    std::vector<std::string> labels;
    for (const watch::Part& part : watch::partsOf(run)) {
        labels.push_back(part.label);
    }
    EXPECT_THAT(labels, testing::ElementsAre("gathering", "table", "slow", "table", "also", "too", "wait", "table"));
    const watch::Part table = watch::partsOf(run)[1];
    EXPECT_EQ(table.begin, at(1));
    EXPECT_EQ(table.end, at(3));
    EXPECT_THAT(watch::partsOf(run)[5].waitedFor, testing::ElementsAre(9, 10));
}

TEST(Parts, AreInTheOrderOfTime) {
    watch::Run run = lasting(10);
    run.stages = {sample::stage(Kind::wait, 5, 6), sample::stage(Kind::kill, 2, 3)};
    EXPECT_EQ(watch::partsOf(run)[0].label, "kill");
}

/// No two labels of a tier touch, and none lies in the way of a line that leads down from a higher one.
void expectApart(const std::vector<watch::Band>& bands, const Axis& axis) {
    for (const watch::Band& left : bands) {
        for (const watch::Band& right : bands) {
            const double begin = axis.x(left.begin);
            const double end = begin + watch::picture::widthOf(left.label);
            const double other = axis.x(right.begin);
            if (&left != &right && left.isLabelled && right.isLabelled && left.tier <= right.tier && begin < other) {
                EXPECT_LT(left.tier == right.tier ? end : begin, other) << left.label << right.label;
                EXPECT_TRUE(left.tier == right.tier || end < other) << left.label << right.label;
            }
            if (&left < &right && left.isLabelled && right.isLabelled && begin == other) {
                EXPECT_NE(left.tier, right.tier);
            }
        }
    }
}

TEST(Bands, HaveLabelsThatDoNotTouch) {
    const watch::Run run = sample::run();
    const Axis axis(run);
    const std::vector<watch::Band> bands = watch::bands(run, axis);
    ASSERT_EQ(bands.size(), 8U);
    expectApart(bands, axis);
    EXPECT_EQ(bands[7].tier, 0U);
    EXPECT_EQ(bands[6].tier, 0U);
    EXPECT_EQ(bands[5].tier, 1U); // "kill" begins with the wait after it
}

TEST(Bands, LoseTheLabelsThatHaveNoRoom) {
    watch::Run run = lasting(100);
    for (int row = 1; row <= 20; ++row) {
        run.stages.push_back(sample::row(row, "x" + std::string(30, 'y'), row * 0.01, row * 0.01, {row}));
    }
    const Axis axis(run);
    const std::vector<watch::Band> bands = watch::bands(run, axis);
    EXPECT_EQ(std::count_if(bands.begin(), bands.end(), [](const watch::Band& band) { return band.isLabelled; }), 6);
    EXPECT_EQ(bands[19].tier, 0U);
    EXPECT_TRUE(bands[14].isLabelled);
    EXPECT_FALSE(bands[13].isLabelled);
    EXPECT_EQ(bands[0].label, "x" + std::string(18, 'y') + "…");
    expectApart(bands, axis);
}

TEST(InTableOrder, PutsRowsFirstThenProductsThenOthers) {
    watch::Run run = lasting(1);
    const auto add = [&](int pid, int row, int category) {
        run.processes.push_back(sample::process(pid, "p", row, watch::Outcome::spared));
        run.processes.back().category = category;
    };
    add(1, 0, 4);
    add(2, 0, 2);
    add(3, 0, 1);
    add(4, 66, 1);
    add(6, 3, 1);
    add(5, 3, 1);
    std::vector<int> pids;
    for (const watch::Process* process : watch::inTableOrder(run)) {
        pids.push_back(process->pid);
    }
    EXPECT_THAT(pids, testing::ElementsAre(5, 6, 4, 3, 2, 1));
}

} // namespace
