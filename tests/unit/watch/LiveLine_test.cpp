#include "LiveLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Text.h"

namespace watch {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

Progress waiting(const std::string& name = "kuror") {
    Progress progress;
    progress.doing = Progress::Doing::waiting;
    progress.ended = 47;
    progress.total = 70;
    progress.elapsed = 12'900'000'000;
    progress.name = name;
    progress.pid = 67;
    progress.askedAgo = 10'999'999'999;
    progress.upTo = 49'000'000'001;
    progress.more = 2;
    return progress;
}

TEST(LiveLine, ShowsAllOfItWhereThereIsRoom) {
    EXPECT_EQ(liveLine(waiting(), 300), "[########----] 47 of 70 ended  12 s  waiting for kuror (67): asked 10 s ago, "
                                        "up to 50 s more  +2");
    EXPECT_EQ(plainLine(waiting()),
              "47 of 70 ended  12 s  waiting for kuror (67): asked 10 s ago, up to 50 s more  +2");
}

TEST(LiveLine, LeavesOutWhatMattersLeast) {
    const std::size_t whole = columns(liveLine(waiting(), 300));
    EXPECT_EQ(columns(liveLine(waiting(), whole)), whole);
    EXPECT_THAT(liveLine(waiting(), whole - 1), Not(StartsWith("[")));
    EXPECT_EQ(liveLine(waiting(), 70), "47 of 70 ended  12 s  waiting for kuror (67): up to 50 s more  +2");
    EXPECT_EQ(liveLine(waiting(), 50), "47 of 70 ended  12 s  waiting for kuror (67)  +2");
    EXPECT_EQ(liveLine(waiting(), 46), "47 of 70 ended  12 s  waiting for kuror (67)");
    EXPECT_EQ(liveLine(waiting(), 30), "47 of 70 ended  12 s");
    EXPECT_EQ(columns(liveLine(waiting(), 10)), 10U);
}

TEST(LiveLine, SaysNothingThatIsNotKnown) {
    Progress progress = waiting();
    progress.doing = Progress::Doing::unknown;
    EXPECT_EQ(liveLine(progress, 80), "[########----] 47 of 70 ended  12 s");
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s");
    progress.observed = false;
    EXPECT_EQ(liveLine(progress, 80), "12 s");
    progress.doing = Progress::Doing::waiting;
    EXPECT_EQ(liveLine(progress, 80), "12 s  waiting for kuror (67): asked 10 s ago, up to 50 s more  +2");
}

class EveryWidth : public testing::TestWithParam<const char*> {};

TEST_P(EveryWidth, IsKeptTo) {
    for (std::size_t width = 20; width <= 300; ++width) {
        const std::string line = liveLine(waiting(GetParam()), width);
        EXPECT_LE(columns(line), width) << line;
        EXPECT_THAT(line, HasSubstr("47 of 70 ended"));
        EXPECT_EQ(line.find('\n'), std::string::npos);
    }
}

const std::string kLong(1000, 'x');
INSTANTIATE_TEST_SUITE_P(LiveLine, EveryWidth,
                         testing::Values("kuror", "a", kLong.c_str(), "バックアップ停止監視プログラム日本語",
                                         "\x1b[31m\n\xff"));

TEST(LiveLine, NameIsCutBeforeAnythingElseGoes) {
    const std::string line = liveLine(waiting(kLong), 120);
    EXPECT_EQ(columns(line), 120U);
    EXPECT_THAT(line, HasSubstr("up to 50 s more  +2"));
    EXPECT_THAT(line, StartsWith("["));
}

TEST(LiveLine, NoNameSteersTheTerminal) {
    EXPECT_THAT(liveLine(waiting("\x1b[31mred\r"), 300), HasSubstr("waiting for ?[31mred? (67)"));
}

TEST(LiveLine, OtherDoings) {
    Progress progress = waiting();
    progress.askedAgo.reset();
    EXPECT_THAT(plainLine(progress), HasSubstr("waiting for kuror (67): up to 50 s more  +2"));
    progress.excluded = true;
    EXPECT_THAT(plainLine(progress), HasSubstr("kuror (67): excluded, up to 50 s more"));
    progress.zombie = true;
    EXPECT_THAT(plainLine(progress), HasSubstr("kuror (67): ended, its parent has not taken note, up to"));
    progress = waiting();
    progress.doing = Progress::Doing::sweeping;
    progress.upTo.reset();
    progress.more = 0;
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s  signalling kuror (67): asked 10 s ago");
    progress.doing = Progress::Doing::over;
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s");
    progress.name.clear();
    progress.doing = Progress::Doing::gathering;
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s  gathering");
    progress.doing = Progress::Doing::table;
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s  going through the table");
    progress.doing = Progress::Doing::thirdParties;
    EXPECT_EQ(plainLine(progress), "47 of 70 ended  12 s  ending third parties");
}

TEST(LiveLine, SilentWhileTheProgramAsks) {
    Progress progress = waiting();
    progress.doing = Progress::Doing::silent;
    EXPECT_EQ(liveLine(progress, 80), "");
    EXPECT_EQ(plainLine(progress), "");
}

TEST(LiveLine, NothingToEndIsAFullBar) {
    EXPECT_THAT(liveLine(Progress{}, 80), StartsWith("[############] 0 of 0 ended  0 s"));
}

} // namespace
} // namespace watch
