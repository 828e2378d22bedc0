#include "Askings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "course.h"

namespace watch {
namespace {

using course::process;
using sample::at;
using testing::ElementsAre;
using testing::IsEmpty;

Lives livesOf(std::vector<Process> processes) {
    Lives lives;
    lives.gone.resize(processes.size());
    lives.processes = std::move(processes);
    for (Process& one : lives.processes) {
        one.row = rowNamed(one.name);
    }
    return lives;
}

std::vector<bool> excludedIn(const Lives& lives, const std::vector<LogEvent>& events) {
    LogStory story(sample::kBegin);
    for (const LogEvent& one : events) {
        story.read(one);
    }
    return settleAskings(lives, story).excluded;
}

TEST(Askings, RowsTakeOnlyWhomTheyMay) {
    // A third party of a row's name is signalled, but no command is run for it; one that is only listed is left alone.
    const Lives lives = livesOf({process(5, "momuhe", 4), process(6, "momuhe", 2), process(7, "halvd", 2)});
    LogStory story(sample::kBegin);
    story.read(course::signal(1, lives.processes[0].path, 1));
    for (const LogEvent& one : course::command(2, "halvd", "-terminate")) {
        story.read(one);
    }
    const Askings askings = settleAskings(lives, story);
    EXPECT_THAT(askings.of[0], IsEmpty());
    EXPECT_EQ(askings.of[1].size(), 1U);
    EXPECT_TRUE(askings.of[1].at(0).byRow);
    EXPECT_THAT(askings.of[2], IsEmpty());
    EXPECT_EQ(askings.strangers.size(), 1U);
}

TEST(Askings, AreInTheOrderOfTime) {
    const Lives lives = livesOf({process(5, "momuhe")});
    LogStory story(sample::kBegin);
    story.read(course::signal(1, lives.processes[0].path, 1));
    story.read(course::event(3, "Main", "Attempting to kill remaining 1 process(es) "));
    story.read(course::signal(4, lives.processes[0].path, 4));
    const Askings askings = settleAskings(lives, story);
    ASSERT_EQ(askings.of[0].size(), 2U);
    EXPECT_EQ(askings.of[0][0].asked.time, at(1));
    EXPECT_EQ(askings.of[0][1].asked.what, "SIGKILL");
    EXPECT_FALSE(askings.of[0][1].byRow);
    EXPECT_EQ(askings.of[0][1].earliest, at(3));
}

TEST(Askings, OfARowEachIsToldApartThatCanBe) {
    // The one in the middle goes by itself while the row is at it.
    Lives lives = livesOf({process(5, "momuhe"), process(6, "momuhe"), process(7, "momuhe"), process(8, "halvd")});
    const std::string path = lives.processes[0].path;
    LogStory story(sample::kBegin);
    story.read(course::signal(1, path, 1));
    story.read(course::signal(3, path, 1));
    // The row is not through: whoever has not been asked may be asked yet.
    EXPECT_THAT(settleAskings(lives, story).unsure, ElementsAre(false, false, false, false));
    story.read(course::rowDone(3.1, "momuhe"));
    // Somebody must have been gone by then, and all are there.
    EXPECT_THAT(settleAskings(lives, story).unsure, ElementsAre(true, true, true, false));
    lives.processes[1].ended = lives.gone[1] = at(2);
    const Askings told = settleAskings(lives, story);
    EXPECT_THAT(told.unsure, ElementsAre(false, false, false, false));
    EXPECT_EQ(told.of[0].at(0).asked.time, at(1));
    EXPECT_THAT(told.of[1], IsEmpty());
    EXPECT_EQ(told.of[2].at(0).asked.time, at(3));
    EXPECT_TRUE(told.of[0][0].asked.certain && told.of[2][0].asked.certain);
}

TEST(Askings, AnEndThatMayHaveBeenSeenLateTellsLess) {
    Lives lives = livesOf({process(5, "momuhe"), process(6, "momuhe")});
    LogStory story(sample::kBegin);
    story.read(course::signal(2, lives.processes[0].path, 1));
    story.read(course::rowDone(2.001, "momuhe"));
    lives.processes[0].ended = lives.gone[0] = at(2.05);
    lives.processes[1].ended = lives.gone[1] = at(1.5);
    EXPECT_THAT(settleAskings(lives, story).unsure, ElementsAre(false, false));
    // Looked at ten times a second, the first may have been gone at 2, and the request was for the other.
    lives.resolution = kSecond / 10;
    EXPECT_THAT(settleAskings(lives, story).unsure, ElementsAre(true, true));
}

TEST(Askings, AllThatRunAnExcludedFileAreExcluded) {
    std::vector<Process> processes = {process(5, "momuhe"), process(6, "momuhe"), process(7, "momuhe")};
    processes[1].path = "/usr/quarn/other/momuhe";
    const Lives lives = livesOf(processes);
    EXPECT_THAT(excludedIn(lives, {course::excluded(1, processes[0].path)}), ElementsAre(true, false, true));
    EXPECT_THAT(excludedIn(lives, {course::excluded(1, processes[1].path), course::excluded(1, "/x/momuhe")}),
                ElementsAre(false, true, false));
    // A name alone excludes nobody.
    EXPECT_THAT(excludedIn(lives, {course::sweepBegins(2), course::passedOver(3, "OrderlyShutdown", "momuhe")}),
                ElementsAre(false, false, false));
}

TEST(Askings, ExcludedPathIsKnownAsTheLogShowsIt) {
    Process odd = process(5, "odd");
    odd.path = "/opt/\xff/odd";
    EXPECT_THAT(excludedIn(livesOf({odd}), {course::excluded(1, "/opt/\\xff/odd")}), ElementsAre(true));
}

TEST(Handled, ByARowOrAMarkAlone) {
    const std::vector<Dated> byRow = {{{}, 0, true}};
    const std::vector<Dated> byKill = {{{}, 0, false}};
    const auto of = [](const char* name, int category) {
        Process made = process(5, name, category);
        made.row = rowNamed(name);
        return made;
    };
    EXPECT_TRUE(isHandled(of("strayd", 1), false, {}));
    EXPECT_FALSE(isHandled(of("strayd", 1), true, {}));
    EXPECT_FALSE(isHandled(of("sh", 2), false, byKill));
    EXPECT_TRUE(isHandled(of("momuhe", 2), false, byRow));
    EXPECT_FALSE(isHandled(of("momuhe", 2), false, {}));
    EXPECT_TRUE(isHandled(of("nanid", 2), false, {}));
    EXPECT_FALSE(isHandled(of("nanid", 4), false, {}));
}

} // namespace
} // namespace watch
