#include "LogEvent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

using Kind = LogEvent::Kind;

LogEvent eventOf(std::string_view function, std::string_view text) {
    LogRecord record;
    record.time = 17;
    record.function = function;
    record.text = text;
    const LogEvent event = readEvent(record);
    EXPECT_EQ(event.time, 17);
    return event;
}

TEST(LogEvent, Signal) {
    constexpr const char* kNames[] = {"SIGHUP", "SIGTERM", "SIGINT", "SIGQUIT", "SIGKILL"};
    for (int kind = 0; kind < 5; ++kind) {
        const LogEvent event =
            eventOf("Processes::KillProcess", "Signaling process /a/b (" + std::to_string(kind) + ")");
        EXPECT_EQ(event.kind, Kind::signal);
        EXPECT_EQ(event.path, "/a/b");
        EXPECT_EQ(event.what, kNames[kind]);
    }
}

TEST(LogEvent, PathOfASignalMayLookLikeItsEnd) {
    EXPECT_EQ(eventOf("Processes::KillProcess", "Signaling process /opt/a (1) (4)").path, "/opt/a (1)");
}

TEST(LogEvent, Command) {
    const LogEvent starts = eventOf("executeStop", "Executing \"/a/halvd -terminate > /dev/null 2>&1 &\"");
    EXPECT_EQ(starts.kind, Kind::commandStarts);
    EXPECT_EQ(starts.what, "/a/halvd -terminate");
    const LogEvent meant = eventOf("terminateAllProcesses",
                                   " Requesting termination of /a/halvd. Return status=0. Command=/a/halvd -terminate");
    EXPECT_EQ(meant.kind, Kind::commandFor);
    EXPECT_EQ(meant.path, "/a/halvd");
}

TEST(LogEvent, PassedOver) {
    const LogEvent row =
        eventOf("terminateAllProcesses", "Ignoring process because it is on exclude list, Name = gowid(StopRow:207)");
    EXPECT_EQ(row.kind, Kind::excluded);
    EXPECT_EQ(row.name, "gowid");
    EXPECT_TRUE(row.ofRow && !row.ofSweep);
    const LogEvent sweep =
        eventOf("OrderlyShutdown", "Ignoring process because it is on exclude list, Name = a(b)(OrderlyShutdown:55)");
    EXPECT_EQ(sweep.kind, Kind::excluded);
    EXPECT_EQ(sweep.name, "a(b)");
    EXPECT_TRUE(sweep.ofSweep && !sweep.ofRow);
    EXPECT_EQ(
        eventOf("Processes::KillProcess", "Ignoring process because it is only listed, Name = vi(CV_Processes:105)")
            .kind,
        Kind::notTouched);
    EXPECT_EQ(eventOf("terminateAllProcesses",
                      "Ignoring process because no command is run for a third party, Name = halvd(StopRow:207)")
                  .kind,
              Kind::notTouched);
}

TEST(LogEvent, NamesWithPids) {
    const LogEvent swept = eventOf("OrderlyShutdown", "Name=a Pid=3 Pid=15");
    EXPECT_EQ(swept.kind, Kind::sweepOf);
    EXPECT_EQ(swept.name, "a Pid=3");
    EXPECT_EQ(swept.pid, 15);
    const LogEvent third = eventOf("Processes::terminate3rdParty", "KILLING sh (x) ACTION=0 PID=99");
    EXPECT_EQ(third.kind, Kind::thirdParty);
    EXPECT_EQ(third.name, "sh (x)");
    EXPECT_EQ(third.pid, 99);
    const LogEvent left = eventOf("Processes::WaitForAllDone", "a(b)(15) has not terminated");
    EXPECT_EQ(left.kind, Kind::notTerminated);
    EXPECT_EQ(left.name, "a(b)");
    EXPECT_EQ(left.pid, 15);
}

TEST(LogEvent, Stages) {
    EXPECT_EQ(eventOf("Processes::getProcesses", "Calling find_processes_CV with verbose = 0").kind, Kind::listing);
    EXPECT_EQ(eventOf("OrderlyShutdown", "Looking for remaining processes to shut down").kind, Kind::sweepBegins);
    EXPECT_EQ(eventOf("OrderlyShutdown", "All Corvane processes terminated normally.").kind, Kind::allTerminated);
    EXPECT_EQ(eventOf("Main", "All processes terminated normally.").kind, Kind::allTerminated);
    EXPECT_EQ(eventOf("Main", "Attempting to kill remaining 3 process(es) ").kind, Kind::killBegins);
    const LogEvent done = eventOf("OrderlyShutdown", "Terminate request for momuhe");
    EXPECT_EQ(done.kind, Kind::rowDone);
    EXPECT_EQ(done.name, "momuhe");
}

class OtherEvent : public testing::TestWithParam<std::pair<const char*, const char*>> {};

TEST_P(OtherEvent, IsNothingButATime) {
    const LogEvent event = eventOf(GetParam().first, GetParam().second);
    EXPECT_EQ(event.kind, Kind::other);
    EXPECT_EQ(event.path + event.name + event.what, "");
    EXPECT_EQ(event.pid, 0);
}

INSTANTIATE_TEST_SUITE_P(
    LogEvent, OtherEvent,
    testing::Values(std::pair("Main", "********************cvstop initiated********************"),
                    std::pair("Processes::KillProcess", "Signaling process /a/b (7)"),
                    std::pair("Processes::KillProcess", "Signaling process /a/b (-1)"),
                    std::pair("Processes::KillProcess", "Signaling process /a/b (x)"),
                    std::pair("Processes::KillProcess", "Signaling process /a/b"),
                    std::pair("executeStop", "Signaling process /a/b (1)"), std::pair("executeStop", "Executing \"x"),
                    std::pair("terminateAllProcesses", " Requesting termination of /a"),
                    std::pair("terminateAllProcesses", "Unimplemented Definition 8"),
                    std::pair("OrderlyShutdown", "Name=a Pid="), std::pair("OrderlyShutdown", "Name=a"),
                    std::pair("Processes::WaitForAllDone", " has not terminated"),
                    std::pair("Processes::terminate3rdParty", "KILLING a"),
                    std::pair("terminateAllProcesses", "Ignoring process because it is on exclude list, Name = a")));

} // namespace
} // namespace watch
