#include "ProcTexts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/syscall.h>

namespace watch {
namespace {

constexpr char kStat[] = "4711 (mo) m (uhe) S 77 4711 4711 0 -1 4194560 107 0 0 0 1 2 0 0 20 0 1 0 345678 2412544 207";

TEST(ProcTexts, Stat) {
    const auto stat = parseProcStat(kStat);
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->name, "mo) m (uhe");
    EXPECT_EQ(stat->state, 'S');
    EXPECT_EQ(stat->parent, 77);
    EXPECT_EQ(stat->threads, 1);
    EXPECT_EQ(stat->start, 345678U);
}

TEST(ProcTexts, ZombieHasNoThreadButItsFirst) {
    const auto stateIn = [](const std::string& state, const std::string& threads) {
        const std::string text = "1 (a) " + state + " 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 " + threads + " 0 1";
        const auto stat = parseProcStat(text);
        return stat ? stateOf(*stat) : State::unknown;
    };
    EXPECT_EQ(stateIn("Z", "1"), State::zombie);
    EXPECT_EQ(stateIn("Z", "0"), State::zombie);
    EXPECT_EQ(stateIn("Z", "2"), State::sleeping);
    EXPECT_EQ(stateIn("D", "2"), State::uninterruptible);
    EXPECT_EQ(stateIn("Z", "x"), State::unknown);
}

TEST(ProcTexts, StatThatIsNone) {
    for (const char* text :
         {"", "4711", "4711 (a", ")(", "1 (a) S", "1 (a) SS 1", "1 (a) S x 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1",
          "1 (a) S 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 x"}) {
        EXPECT_FALSE(parseProcStat(text)) << text;
    }
}

TEST(ProcTexts, States) {
    EXPECT_EQ(stateOf('R'), State::running);
    EXPECT_EQ(stateOf('S'), State::sleeping);
    EXPECT_EQ(stateOf('I'), State::sleeping);
    EXPECT_EQ(stateOf('D'), State::uninterruptible);
    EXPECT_EQ(stateOf('T'), State::stopped);
    EXPECT_EQ(stateOf('t'), State::traced);
    EXPECT_EQ(stateOf('Z'), State::zombie);
    EXPECT_EQ(stateOf('X'), State::zombie);
    EXPECT_EQ(stateOf('?'), State::unknown);
}

TEST(ProcTexts, Tracer) {
    EXPECT_EQ(tracerIn("Name:\tx\nPPid:\t3\nTracerPid:\t77\nUid:\t0"), 77);
    EXPECT_EQ(tracerIn("Name:\tTracerPid:\t9\nTracerPid:\t0\n"), 0);
    EXPECT_EQ(tracerIn(""), 0);
    EXPECT_EQ(tracerIn("Name:\tx\nTracerPid:\t"), 0);
}

TEST(ProcTexts, Signals) {
    const SignalSets sets =
        signalsIn("Name:\tx\nSigQ:\t0/1\nSigPnd:\t0000000000000000\nShdPnd:\t0000000000004000\n"
                  "SigBlk:\t8000000000000004\nSigIgn:\t0000000000004001\nSigCgt:\tffffffffffffffff\n");
    EXPECT_TRUE(holds(sets.ignored, 15) && holds(sets.ignored, 1) && !holds(sets.ignored, 3));
    EXPECT_TRUE(holds(sets.blocked, 3) && holds(sets.blocked, 64) && !holds(sets.blocked, 15));
    EXPECT_EQ(signalsIn("").ignored, 0U);
    EXPECT_EQ(signalsIn("Name:\tx\nSigIgn:\t00x1\nSigBlk:\t").ignored, 0U);
}

TEST(ProcTexts, Unit) {
    EXPECT_EQ(unitIn("0::/system.slice/corvane-halvd.service\n"), "corvane-halvd.service");
    EXPECT_EQ(unitIn("0::/system.slice/halvd.service/worker\n"), "halvd.service");
    EXPECT_EQ(unitIn("0::/user.slice/user-0.slice/user@0.service/app.slice/x.service\n"), "x.service");
    EXPECT_EQ(unitIn("0::/user.slice/user-0.slice/session-3.scope\n"), "session-3.scope");
    EXPECT_EQ(unitIn("12:pids:/x\n1:name=systemd:/system.slice/halvd.service\n0::/\n"), "halvd.service");
    EXPECT_EQ(unitIn("11:memory:/system.slice/no.service\n"), "");
    EXPECT_EQ(unitIn("0::/\n"), "");
    EXPECT_EQ(unitIn("0::/.service"), "");
    EXPECT_EQ(unitIn(""), "");
}

TEST(ProcTexts, SleepForATime) {
    const std::string sleeping = std::to_string(SYS_clock_nanosleep) + " 0x0 0x0 0x7ffe 0x0 0x0 0x0 0x7ffe 0x7f\n";
    EXPECT_TRUE(sleepsForATime(sleeping, ""));
    EXPECT_FALSE(sleepsForATime(std::to_string(SYS_read) + " 0x0", "hrtimer_nanosleep"));
    EXPECT_FALSE(sleepsForATime("running\n", ""));
    EXPECT_FALSE(sleepsForATime("-1 0x7ffe 0x7f\n", ""));
    EXPECT_TRUE(sleepsForATime("", "hrtimer_nanosleep"));
    EXPECT_TRUE(sleepsForATime("", "do_nanosleep"));
    EXPECT_FALSE(sleepsForATime("", "pipe_read"));
    EXPECT_FALSE(sleepsForATime("", ""));
}

TEST(ProcTexts, CommandLine) {
    using namespace std::string_view_literals;
    EXPECT_EQ(commandLineIn("/a/halvd\0-terminate\0"sv), "/a/halvd -terminate");
    EXPECT_EQ(commandLineIn(""), "");
}

} // namespace
} // namespace watch
