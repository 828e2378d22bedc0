#include "Svg.h"

#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lane.h"
#include "Picture.h"
#include "sample.h"

namespace {

using sample::at;
using testing::HasSubstr;
using testing::Not;
using watch::Outcome;

std::string laneOf(const watch::Process& process) {
    const watch::Run run = sample::run();
    return watch::laneOf(process, run, watch::Axis(run), 100);
}

TEST(Px, IsShort) {
    EXPECT_EQ(watch::picture::px(12), "12");
    EXPECT_EQ(watch::picture::px(12.34), "12.3");
    EXPECT_EQ(watch::picture::px(12.96), "13");
    EXPECT_EQ(watch::picture::px(-0.01), "0");
    EXPECT_EQ(watch::picture::px(-0.5), "-0.5");
    EXPECT_EQ(watch::picture::px(100), "100");
}

TEST(Xml, EscapesAndCuts) {
    EXPECT_EQ(watch::picture::xml("a<b>&\"'", 10), "a&lt;b&gt;&amp;\"'");
    EXPECT_EQ(watch::picture::xml("a\x01\xff\xEF\xBF\xBE", 10), "a???");
    EXPECT_EQ(watch::picture::xml("abcdef", 3), "ab…");
    // Accents without end take no more room than others, and none is cut in two.
    std::string accents = "a";
    for (int count = 0; count < 500; ++count) {
        accents += "\xCC\x81";
    }
    EXPECT_LE(watch::picture::xml(accents, 10).size(), 50U);
    EXPECT_THAT(watch::picture::xml(accents, 10), Not(HasSubstr("?")));
    EXPECT_EQ(watch::picture::xml(std::string(500, '&'), 4), "&amp;&amp;&amp;…");
}

TEST(TextAt, StatesItsRoom) {
    EXPECT_EQ(watch::picture::textAt(1, 2.5, "<バ>"), "<text x=\"1\" y=\"2.5\" textLength=\"29.2\">&lt;バ&gt;</text>");
    EXPECT_EQ(watch::picture::textAt(1, 2, "a", "less"),
              "<text x=\"1\" y=\"2\" class=\"less\" textLength=\"7.3\">a</text>");
}

TEST(Lane, ShowsAnEndAfterARequest) {
    EXPECT_EQ(laneOf(sample::ended(102, "kuror", 66, 1.01, 3.25)),
              "<g id=\"p102\" class=\"lane\" role=\"listitem\" tabindex=\"0\" transform=\"translate(0 100)\">"
              "<title>kuror (102): ended</title>"
              "<desc>Asked: /usr/quarn/corvane/bin/kuror -terminate at 1.01 s; ended at 3.25 s.</desc>"
              "<rect class=\"row\" x=\"8\" width=\"1184\" height=\"16\"/>"
              "<text x=\"16\" y=\"12\" textLength=\"80.3\">kuror (102)</text>"
              "<path class=\"alive\" d=\"M270 8H281.9\"/>"
              "<rect class=\"bar\" x=\"281.9\" y=\"5\" width=\"26.3\" height=\"6\"/><use href=\"#c\" x=\"281.9\"/>"
              "<text x=\"1042\" y=\"12\" class=\"less\" textLength=\"87.6\">ended 2.24 s</text></g>\n");
}

TEST(Lane, ShowsASurvivorAsOpen) {
    const std::string lane = laneOf(sample::survivor(104, "mamegok"));
    EXPECT_THAT(lane, HasSubstr("<path class=\"survived\" d=\"M280.6 5H1030l5 3l-5 3H280.6z\"/>"));
    EXPECT_THAT(lane, HasSubstr("<use href=\"#s\" x=\"280.6\" class=\"guess\"/><use href=\"#k\" x=\"674.9\"/>"));
    EXPECT_THAT(lane, HasSubstr("SIGTERM at 0.90 s (a guess), SIGKILL at 34.5 s; sleeping uninterruptibly.</desc>"));
    EXPECT_THAT(lane, HasSubstr(">still there</text>"));
    EXPECT_THAT(lane, Not(HasSubstr("<rect class=\"bar\"")));
}

TEST(Lane, ShowsAZombieUntilTheEnd) {
    watch::Process zombie = sample::survivor(104, "mamegok");
    zombie.ended = at(35);
    EXPECT_THAT(laneOf(zombie), HasSubstr("H1030l5 3"));
    EXPECT_THAT(laneOf(zombie), HasSubstr("; ended at 35.0 s; sleeping"));
}

TEST(Lane, ShowsAZombieThatIsTakenLate) {
    watch::Process zombie = sample::ended(102, "kuror", 66, 1.01, 3.25);
    zombie.gone = at(64.75);
    EXPECT_THAT(laneOf(zombie), HasSubstr("width=\"26.3\" height=\"6\"/><path class=\"zombie\" d=\"M308.1 8H1030\"/>"));
    EXPECT_THAT(laneOf(zombie), HasSubstr("; ended at 3.25 s; zombie until 64.8 s.</desc>"));
    zombie.asked.clear();
    zombie.outcome = Outcome::endedUnasked;
    EXPECT_THAT(laneOf(zombie), HasSubstr("<path class=\"alive\" d=\"M270 8H308.1\"/><path class=\"zombie\""));
    EXPECT_THAT(laneOf(sample::ended(102, "kuror", 66, 1.01, 3.25)), Not(HasSubstr("zombie")));
}

TEST(Lane, ShowsAKilledOneInItsOwnStyle) {
    const std::string lane = laneOf(sample::killed(103, "stray"));
    EXPECT_THAT(lane, HasSubstr("<rect class=\"killed\" x=\"311.1\" y=\"5\" width=\"364\" height=\"6\"/>"));
    EXPECT_THAT(
        lane, HasSubstr("<use href=\"#s\" x=\"311.1\"/><use href=\"#s\" x=\"322.8\"/><use href=\"#s\" x=\"334.6\"/>"));
    EXPECT_THAT(lane, HasSubstr(">killed 31.0 s</text>"));
}

TEST(Lane, DrawsNoBarWhereNothingWasAsked) {
    watch::Process process = sample::process(105, "detd", 2, Outcome::endedUnasked);
    process.ended = at(0.5);
    EXPECT_THAT(laneOf(process), HasSubstr("</text><path class=\"alive\" d=\"M270 8H275.9\"/><text"));
    EXPECT_THAT(laneOf(process), HasSubstr("<desc>Nothing was asked of it; ended at 0.50 s.</desc>"));
    process.start = at(0.75); // a clock that was set back
    EXPECT_THAT(laneOf(process), Not(HasSubstr("<path")));
}

TEST(Lane, ShowsAnEndWithinAPixel) {
    EXPECT_THAT(laneOf(sample::ended(1, "a", 1, 10, 10.001)), HasSubstr("width=\"1.5\" height=\"6\"/>"));
    EXPECT_THAT(laneOf(sample::ended(1, "a", 1, 10, 9)), HasSubstr("width=\"1.5\" height=\"6\"/>"));
    EXPECT_THAT(laneOf(sample::ended(1, "a", 1, 10, 9)), HasSubstr("<path class=\"alive\" d=\"M270 8H375.6\"/>"));
    watch::Process late = sample::survivor(1, "a");
    late.asked = {sample::signal(64.75, "SIGKILL")};
    EXPECT_THAT(laneOf(late), HasSubstr("M1030 5H1034l5 3"));
}

TEST(Lane, SaysWhatBecameOfEach) {
    watch::Process process = sample::process(1, "a", 1, Outcome::spared);
    EXPECT_EQ(watch::outcomeText(process), "not asked");
    process.category = 2;
    EXPECT_EQ(watch::outcomeText(process), "not asked");
    process.category = 4;
    EXPECT_EQ(watch::outcomeText(process), "only listed");
    process.excluded = true;
    EXPECT_EQ(watch::outcomeText(process), "spared: excluded");
    process.outcome = Outcome::endedUnasked;
    EXPECT_EQ(watch::outcomeText(process), "ended, not asked");
    EXPECT_EQ(watch::outcomeText(sample::ended(1, "a", 1, 10, 12)), "ended 2.00 s");
    EXPECT_EQ(watch::outcomeText(sample::killed(1, "a")), "killed 31.0 s");
    watch::Process guessed = sample::ended(1, "a", 1, 10, 12);
    guessed.asked[0].certain = guessed.certain = false;
    EXPECT_EQ(watch::outcomeText(guessed), "ended 2.00 s?");
    guessed.outcome = watch::Outcome::survived;
    EXPECT_EQ(watch::outcomeText(guessed), "still there, asked?");
    guessed.asked.clear();
    guessed.outcome = watch::Outcome::endedUnasked;
    EXPECT_EQ(watch::outcomeText(guessed), "ended, not asked?");
    guessed.outcome = watch::Outcome::spared;
    EXPECT_EQ(watch::outcomeText(guessed), "not asked?");
    process.outcome = Outcome::killed;
    EXPECT_EQ(watch::outcomeText(process), "killed");
}

TEST(Lane, MarksWhatIsAGuess) {
    watch::Process process = sample::process(105, "detd", 2, Outcome::endedUnasked);
    process.certain = false;
    EXPECT_THAT(laneOf(process), HasSubstr("<title>detd (105): ended before it was asked?</title>"));
    EXPECT_THAT(laneOf(process), HasSubstr("<desc>Nothing was asked of it (a guess).</desc>"));
    // One of its requests may be another's, but that it was asked is certain.
    EXPECT_THAT(laneOf(sample::survivor(104, "mamegok")), HasSubstr("<title>mamegok (104): survived</title>"));
}

TEST(Lane, ClaimsNothingOfWhomMissingRecordsMayName) {
    watch::Run run = sample::run();
    run.logComplete = false;
    watch::Process process = sample::process(105, "detd", 2, Outcome::endedUnasked);
    process.certain = false;
    const std::string ended = watch::laneOf(process, run, watch::Axis(run), 100);
    EXPECT_THAT(ended, HasSubstr("<title>detd (105): ended, asked?</title>"));
    EXPECT_THAT(ended, HasSubstr("<desc>Whether anything was asked of it is not known.</desc>"));
    EXPECT_THAT(ended, HasSubstr(">ended, asked?</text>"));
    process.outcome = Outcome::spared;
    EXPECT_THAT(watch::laneOf(process, run, watch::Axis(run), 100), HasSubstr(">still there, asked?</text>"));
    // What is excluded is not asked, whatever is missing.
    process.excluded = process.certain = true;
    EXPECT_THAT(watch::laneOf(process, run, watch::Axis(run), 100), HasSubstr(">spared: excluded</text>"));
}

TEST(Lane, CutsTheNameAndKeepsThePid) {
    const std::string lane = laneOf(sample::ended(4'194'304, std::string(60, 'n'), 1, 1, 2));
    EXPECT_THAT(lane, HasSubstr(">" + std::string(23, 'n') + "… (4194304)</text>"));
    EXPECT_THAT(lane, HasSubstr("<title>" + std::string(23, 'n') + "… (4194304): ended</title>"));
}

TEST(Lane, TellsFiveRequestsAndCountsTheRest) {
    watch::Process process = sample::killed(1, "a");
    for (int count = 0; count < 40; ++count) {
        process.asked.push_back(sample::signal(40 + count * 0.5, "SIGHUP"));
    }
    const std::string lane = laneOf(process);
    EXPECT_THAT(lane, HasSubstr("SIGKILL at 34.5 s, SIGHUP at 40.0 s, and 39 more; ended"));
    EXPECT_EQ(std::count(lane.begin(), lane.end(), '#'), 10);
    process.asked.assign(40, sample::signal(40, "SIGHUP"));
    const std::string same = laneOf(process);
    EXPECT_EQ(std::count(same.begin(), same.end(), '#'), 1);
}

TEST(Lane, NeverTakesMoreThanAKilobyte) {
    const std::string amps(1000, '&');
    std::string accents = "a";
    for (int count = 0; count < 500; ++count) {
        accents += "\xCC\x81";
    }
    for (const std::string& name : {amps, accents, std::string(1000, 'x'), std::string(1000, '\xff')}) {
        watch::Process process = sample::survivor(4'194'304, name);
        process.path = process.unit = process.parent.name = name;
        for (int count = 0; count < 100; ++count) {
            process.asked.push_back(sample::command(count * 0.5, name));
        }
        process.ended = at(1);
        process.gone = at(64);
        EXPECT_LE(laneOf(process).size(), 1000U);
        EXPECT_THAT(laneOf(process), HasSubstr("<title>"));
    }
    EXPECT_THAT(laneOf(sample::killed(1, std::string(1000, 'x'))), HasSubstr("<desc>"));
}

TEST(Lane, ShowsWhatCameBackAndWhatOnlyTheLogNames) {
    const watch::Run run = sample::run();
    const watch::Axis axis(run);
    const std::string back = watch::laneOf(run.cameBack[0], run, axis, 8);
    EXPECT_THAT(back, HasSubstr("<g id=\"c130\""));
    EXPECT_THAT(back, HasSubstr("<desc>Started at 4.25 s, parent systemd (1), unit kuror.service.</desc>"));
    EXPECT_THAT(back, HasSubstr("<path class=\"alive\" d=\"M319.9 8H1030\"/><use href=\"#b\" x=\"319.9\"/>"));
    const std::string stranger = watch::laneOf(run.strangers[0], run, axis, 8);
    EXPECT_THAT(stranger, testing::StartsWith("<g class=\"lane\""));
    EXPECT_THAT(stranger, HasSubstr("<title>/usr/quarn/corvane/bin/late: named by the log alone</title>"));
    EXPECT_THAT(stranger, HasSubstr("<use href=\"#s\" x=\"305.2\"/>"));
}

bool holds(const std::string& svg, const std::string& text) {
    return svg.find(text) != std::string::npos;
}

std::vector<std::string> found(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    std::vector<std::string> all;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        all.push_back((*match)[1]);
    }
    return all;
}

TEST(Svg, HasALaneForEachInTheOrderOfTheTable) {
    const std::string svg = watch::toSvg(sample::run());
    EXPECT_THAT(found(svg, "<g id=\"([a-z0-9]+)\" class=\"lane\""),
                testing::ElementsAre("p105", "p101", "p104", "p102", "p103", "p106", "c130"));
    EXPECT_THAT(found(svg, "class=\"lane\"[^>]*translate\\(0 ([0-9.]+)\\)"),
                testing::ElementsAre("200", "216", "232", "248", "264", "280", "296", "312", "328"));
}

TEST(Svg, HasABandForEachPart) {
    const std::string svg = watch::toSvg(sample::run());
    EXPECT_THAT(found(svg, "<rect class=\"(?:odd|even)\"[^>]*><title>([^<]*)</title>"),
                testing::ElementsAre("gathering: 0.25 s", "table: 0.75 s", "kuror: 2.50 s", "sweep: 2.00 s",
                                     "wait: 29.0 s", "kill: 0.00 s", "wait after the kill: 29.0 s",
                                     "third parties: 1.00 s"));
    EXPECT_THAT(svg,
                HasSubstr("<rect class=\"odd\" x=\"334.6\" y=\"200\" width=\"340.4\" height=\"144\"><title>wait: "));
}

TEST(Svg, ExplainsItself) {
    watch::Run run = sample::run();
    run.notes = {"one", "two", "three", "four", "five"};
    const std::string svg = watch::toSvg(run);
    EXPECT_THAT(
        svg,
        HasSubstr("role=\"graphics-document document\" aria-labelledby=\"t\" aria-describedby=\"d\">\n<title id=\"t\">"
                  "client.example: 6 processes in 64.8 s, "));
    EXPECT_TRUE(holds(svg, ">cvstop -k -3, 2026-11-21 19:53:02 UTC</text>"));
    EXPECT_TRUE(holds(svg, ">Note: three</text>"));
    EXPECT_FALSE(holds(svg, "four"));
    EXPECT_TRUE(holds(svg, ">and 2 more notes</text>"));
    for (const char* entry : {"stop command", "signal", "SIGKILL", "a guess", "asked, until it ended", "still there",
                              "running, not asked", "zombie", "came back"}) {
        EXPECT_TRUE(holds(svg, ">" + std::string(entry) + "</text>"));
    }
    EXPECT_TRUE(holds(svg, "@media (prefers-color-scheme: dark)"));
}

TEST(Svg, PutsTheLabelsOfTheAxisAroundTheirLines) {
    EXPECT_TRUE(holds(watch::toSvg(sample::run()),
                      "<text x=\"372.8\" y=\"196\" class=\"less\" textLength=\"29.2\">10 s</text>"));
}

TEST(Svg, RepeatsItsAxis) {
    watch::Run run = sample::run();
    run.strangers.clear();
    run.cameBack.clear();
    const auto axes = [&](int count) {
        run.processes.clear();
        for (int pid = 1; pid <= count; ++pid) {
            run.processes.push_back(sample::ended(pid, "a", 1, 1, 2));
        }
        return found(watch::toSvg(run), ">(10 s)</text>").size();
    };
    EXPECT_EQ(axes(0), 2U);
    EXPECT_EQ(axes(50), 2U);
    EXPECT_EQ(axes(51), 3U);
    EXPECT_EQ(axes(101), 4U);
}

} // namespace
