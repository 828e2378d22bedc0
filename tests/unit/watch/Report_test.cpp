#include "Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Summary.h"
#include "sample.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST(Report, TellsTheWholeRun) {
    EXPECT_EQ(watch::reportOf(sample::run()), R"(
cvstop-watch: client.example: 6 processes in 64.8 s, 2 ended, 1 ended before it was asked, 1 killed, 1 still there, 1 spared; status 1

  stage                  took  waited for
  gathering            0.25 s
  table                0.75 s
  kuror                2.50 s  kuror (102)
  sweep                2.00 s
  wait                 29.0 s  stray (103), mamegok (104)
  kill                 0.00 s
  wait after the kill  29.0 s  mamegok (104)
  third parties        1.00 s

  longest            took  asked at     ended at  how
  mamegok (104)   63.9 s?    0.90 s  still there  SIGTERM, SIGKILL (a guess)
  stray (103)      31.0 s    3.50 s       34.5 s  SIGINT, SIGTERM, SIGQUIT, SIGKILL
  kuror (102)      2.24 s    1.01 s       3.25 s  kuror -terminate
  nuwezato (101)   0.24 s    0.26 s       0.50 s  nuwezato -terminate

  still there    why
  mamegok (104)  sleeping uninterruptibly in nfs_wait_bit_killable, ignores SIGTERM, blocks SIGHUP, traced by gdb (77), started 1 h 1 min ago, parent systemd (1), unit corvane-mamegok.service

  left alone
  a\b?"<&>?バ (106)  excluded, parent systemd (1)

  came back
  kuror (130)  at 4.25 s, parent systemd (1), unit kuror.service

  only in the log
  /usr/quarn/corvane/bin/late  SIGHUP
  later (120)

  Note: the debug log names only a path: what was asked of mamegok (104) is a guess
  Note: the debug log was rotated
)");
}

TEST(Report, LeavesOutWhatThereIsNot) {
    watch::Run run;
    run.host = "client";
    run.status = 0;
    run.end = 40'000'000;
    EXPECT_EQ(watch::reportOf(run), "\ncvstop-watch: client: 0 processes in 0.04 s; status 0\n");
}

TEST(Report, SaysThatNothingWasSeenAndHowTheProgramEnded) {
    watch::Run run;
    run.host = "client";
    run.signal = 9;
    run.observed = false;
    run.notes = {"/proc cannot be read: Permission denied"};
    EXPECT_EQ(watch::reportOf(run), "\ncvstop-watch: client: processes not seen in 0.00 s; ended by signal 9\n\n"
                                    "  Note: /proc cannot be read: Permission denied\n");
}

TEST(Report, NamesTheTenThatTookLongest) {
    watch::Run run = sample::run();
    run.processes.clear();
    for (int pid = 1; pid <= 12; ++pid) {
        run.processes.push_back(sample::ended(pid, "d" + std::to_string(pid), pid, 1, 1 + 0.5 * ((pid * 5) % 12)));
    }
    const std::string text = watch::reportOf(run);
    EXPECT_THAT(text, HasSubstr("\n  d7 (7)    5.50 s    1.00 s    6.50 s  d7 -terminate\n  d2 (2)    5.00 s"));
    EXPECT_THAT(text, HasSubstr("\n  d10 (10)  1.00 s"));
    EXPECT_THAT(text, Not(HasSubstr("d5 (5)")));
    EXPECT_THAT(text, Not(HasSubstr("d12 (12)")));
}

TEST(Report, NamesUnitAndParentOfWhoWasLeftAlone) {
    watch::Run run = sample::run();
    run.processes.clear();
    for (int pid = 1; pid <= 22; ++pid) {
        run.processes.push_back(sample::process(pid, "d", 1, watch::Outcome::spared));
    }
    run.processes[0].excluded = true;
    run.processes[0].unit = "d.service";
    run.processes[1].category = 4;
    const std::string text = watch::reportOf(run);
    EXPECT_THAT(text, HasSubstr("\n  left alone\n  d (1)       excluded, parent systemd (1), unit d.service\n"
                                "  d (2)       only listed, parent systemd (1)\n"
                                "  d (3)       not asked, parent systemd (1)\n"));
    EXPECT_THAT(text, HasSubstr("\n  d (20)      not asked, parent systemd (1)\n  and 2 more\n"));
}

TEST(Report, MarksEachOfThoseThatTheLogDoesNotTellApart) {
    watch::Run run = sample::run();
    run.notes.clear();
    run.processes = {sample::ended(1, "d", 1, 1, 2),
                     sample::ended(2, "e", 1, 1, 2),
                     sample::process(3, "d", 1, watch::Outcome::spared),
                     sample::process(4, "d", 1, watch::Outcome::endedUnasked),
                     sample::process(5, "d", 1, watch::Outcome::endedUnasked),
                     sample::ended(6, "f", 1, 1, 2)};
    EXPECT_THAT(watch::reportOf(run), Not(HasSubstr("a guess")));
    for (const std::size_t place : {0U, 2U, 3U, 4U, 5U}) {
        run.processes[place].certain = false;
    }
    const std::string text = watch::reportOf(run);
    EXPECT_THAT(text, HasSubstr("\n  d (1)    1.00 s?    1.00 s    2.00 s  d -terminate (a guess)\n"));
    EXPECT_THAT(text, HasSubstr("\n  e (2)     1.00 s    1.00 s    2.00 s  e -terminate\n"));
    EXPECT_THAT(text, HasSubstr("\n  d (3)       not asked (a guess), parent systemd (1)\n"));
    EXPECT_THAT(text,
                EndsWith("\n\n  Note: the debug log names only a path: what was asked of d (1), d (3), d (4) and 1 "
                         "more is a guess\n"
                         "  Note: the debug log names only a path: what was asked of f (6) is a guess\n"));
}

TEST(Report, ClaimsNothingOfWhomMissingRecordsMayName) {
    watch::Run run = sample::run();
    run.notes = {"the debug log has no record of the program: what was asked of whom is not known"};
    run.logComplete = false;
    run.processes = {sample::process(1, "d", 1, watch::Outcome::endedUnasked),
                     sample::process(2, "e", 1, watch::Outcome::endedUnasked),
                     sample::process(3, "f", 1, watch::Outcome::spared), sample::thirdParty(4, "vi")};
    run.processes[0].certain = run.processes[1].certain = run.processes[2].certain = false;
    const std::string text = watch::reportOf(run);
    EXPECT_THAT(text,
                HasSubstr(": 4 processes in 64.8 s, 2 ended, 1 still there, 1 spared; who was asked is not known; "
                          "status 1\n"));
    EXPECT_THAT(text, HasSubstr("\n  not ended\n  f (3)      asked or not is not known, parent systemd (1)\n"
                                "  vi (4)     only listed, parent systemd (1)\n"));
    EXPECT_THAT(text, Not(HasSubstr("names only a path")));
    run.processes.push_back(sample::ended(5, "g", 1, 1, 2));
    EXPECT_THAT(watch::headline(run), HasSubstr(", 3 ended, 1 still there, 1 spared; who was asked is known only in "
                                                "part; status 1"));
}

TEST(Report, KeepsTheOrderOfEqualOnes) {
    watch::Run run = sample::run();
    run.processes = {sample::ended(8, "b", 1, 1, 2), sample::ended(9, "a", 1, 1, 2)};
    const std::string text = watch::reportOf(run);
    EXPECT_LT(text.find("b (8)"), text.find("a (9)"));
}

TEST(Report, CutsLongListsOfNames) {
    watch::Run run = sample::run();
    run.stages = {sample::stage(watch::Stage::Kind::wait, 0, 1, {103, 104, 101, 102, 999})};
    EXPECT_THAT(watch::reportOf(run), HasSubstr("stray (103), mamegok (104), nuwezato (101) and 2 more\n"));
    run.stages[0].waitedFor = {999, 103, 104};
    EXPECT_THAT(watch::reportOf(run), HasSubstr("? (999), stray (103), mamegok (104)\n"));
}

TEST(Report, ExplainsEachKindOfSurvivor) {
    watch::Run run = sample::run();
    watch::Process& process = run.processes[3];
    const struct {
        watch::Reason reason;
        const char* why;
    } rows[] = {
        {{watch::State::stopped, "do_signal_stop", {}, 0, {}, {}},
         "stopped in do_signal_stop, started 0 s ago, parent systemd (1)"},
        {{watch::State::traced, "", watch::Peer{9, ""}, 0, {}, {}}, "stopped by its tracer, traced by ? (9), started"},
        {{watch::State::zombie, "", {}, 0, {}, {}}, "zombie: ended, but its parent does not take its status, started"},
        {{watch::State::sleeping, "", {}, 0, {}, {}}, "  sleeping, started"},
        {{watch::State::unknown, "", {}, 0, {}, {}}, "  unknown, started"},
    };
    for (const auto& row : rows) {
        process.reason = row.reason;
        EXPECT_THAT(watch::reportOf(run), HasSubstr(row.why));
    }
    process.parent = {};
    process.unit.clear();
    process.asked.pop_back();
    EXPECT_THAT(watch::reportOf(run), HasSubstr("unknown, started 0 s ago, asked: a guess\n"));
    process.asked[0].certain = process.certain = true;
    EXPECT_THAT(watch::reportOf(run), HasSubstr("unknown, started 0 s ago\n"));
    process.ended = sample::at(1);
    EXPECT_THAT(watch::reportOf(run), HasSubstr("63.9 s    0.90 s  still there"));
}

TEST(Report, NamesEverySignalThatIsNotHeeded) {
    watch::Run run = sample::run();
    run.processes[3].reason = {watch::State::sleeping, "", {}, 0, {"SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT"}, {}};
    EXPECT_THAT(watch::reportOf(run),
                HasSubstr("  sleeping, ignores SIGINT, SIGTERM, SIGHUP, SIGQUIT, started 0 s ago, parent"));
}

TEST(Report, CountsAZombieUntilItIsGone) {
    watch::Run run = sample::run();
    run.processes = {sample::ended(1, "slow", 1, 1, 6), sample::ended(2, "zombie", 1, 1, 1.5),
                     sample::ended(3, "unasked", 1, 20, 5)};
    run.processes[1].gone = sample::at(31);
    run.processes[2].outcome = watch::Outcome::endedUnasked;
    EXPECT_THAT(watch::reportOf(run),
                HasSubstr("\n  zombie (2)   30.0 s    1.00 s    1.50 s  zombie -terminate, zombie until 31.0 s\n"
                          "  slow (1)     5.00 s    1.00 s    6.00 s  slow -terminate\n"
                          "  unasked (3)  0.00 s    20.0 s    5.00 s  unasked -terminate\n"));
}

TEST(Report, ShortensCommandsToTheirTools) {
    watch::Run run = sample::run();
    run.processes = {sample::ended(1, "dobd", 3, 0, 1)};
    run.processes[0].asked = {sample::command(0, "/usr/quarn/corvane/bin/admincmd/humowow -M localhost -d /tmp/x"),
                              sample::command(0, "stop")};
    EXPECT_THAT(watch::reportOf(run), HasSubstr("  humowow -M localhost -d /tmp/x, stop\n"));
    run.processes[0].asked = {sample::command(0, std::string(100, 'x'))};
    EXPECT_THAT(watch::reportOf(run), HasSubstr("  " + std::string(47, 'x') + "…\n"));
}

TEST(Report, ShowsEveryNameHarmless) {
    const std::string evil = "\x1b[31m\n\xff\xE2\x80\xAE";
    watch::Run run = sample::run();
    run.host = evil;
    run.notes = {evil};
    run.stages.push_back(sample::row(1, evil, 1, 2, {103}));
    for (watch::Process& process : run.processes) {
        process.name = process.path = process.unit = process.parent.name = evil;
        process.asked.push_back(sample::command(1, evil));
    }
    run.processes[3].reason->ignores = {evil};
    run.processes[3].reason->function = run.processes[3].reason->tracer->name = evil;
    run.strangers[0].name = evil;
    run.cameBack[0].name = run.cameBack[0].unit = run.cameBack[0].parent.name = evil;
    const std::string text = watch::reportOf(run);
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
    EXPECT_THAT(text, Not(HasSubstr("\xff")));
    EXPECT_THAT(text, Not(HasSubstr("\xE2\x80\xAE")));
    const auto lines = [](const std::string& report) { return std::count(report.begin(), report.end(), '\n'); };
    EXPECT_EQ(lines(text), lines(watch::reportOf(sample::run())) + 3); // a stage more, and two more that were asked
}

TEST(Report, AlignsWideNames) {
    watch::Run run = sample::run();
    run.stages = {sample::row(1, "バックアップ", 0, 1, {103}), sample::stage(watch::Stage::Kind::wait, 1, 2)};
    EXPECT_THAT(watch::reportOf(run),
                HasSubstr("\n  stage           took  waited for\n  バックアップ  1.00 s  stray (103)\n"
                          "  wait          1.00 s\n"));
}

TEST(Summary, SaysTheCommandAndHowExactItIs) {
    watch::Run run = sample::run();
    EXPECT_EQ(watch::commandLine(run), "cvstop -k -3, 2026-11-21 19:53:02 UTC");
    run.arguments = {"cvstop"};
    run.resolution = watch::kSecond / 10;
    EXPECT_EQ(watch::commandLine(run), "cvstop, 2026-11-21 19:53:02 UTC; ends are exact to 100 ms");
    run.processes.resize(1);
    EXPECT_THAT(watch::headline(run), HasSubstr(": 1 process in "));
    run.processes[0].outcome = watch::Outcome::endedUnasked;
    EXPECT_THAT(watch::headline(run), HasSubstr(", 1 ended before it was asked;"));
    run.processes.push_back(run.processes[0]);
    EXPECT_THAT(watch::headline(run), HasSubstr(", 2 ended before they were asked;"));
}

TEST(Report, SaysHowExactTheEndsAre) {
    watch::Run run = sample::run();
    EXPECT_THAT(watch::reportOf(run), Not(HasSubstr("exact")));
    run.notes.clear();
    run.processes.clear();
    run.resolution = watch::kSecond / 10;
    EXPECT_THAT(watch::reportOf(run), EndsWith("\n\n  Note: ends are exact to 100 ms\n"));
}

} // namespace
