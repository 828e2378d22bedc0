#include "LogEvent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logtext.h"

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
    EXPECT_EQ(row.kind, Kind::passedOver);
    EXPECT_EQ(row.name, "gowid");
    EXPECT_TRUE(row.ofRow);
    const LogEvent sweep =
        eventOf("OrderlyShutdown", "Ignoring process because it is on exclude list, Name = a(b)(OrderlyShutdown:55)");
    EXPECT_EQ(sweep.kind, Kind::passedOver);
    EXPECT_EQ(sweep.name, "a(b)");
    EXPECT_FALSE(sweep.ofRow);
    EXPECT_EQ(
        eventOf("Processes::KillProcess", "Ignoring process because it is only listed, Name = vi(CV_Processes:105)")
            .kind,
        Kind::passedOver);
    EXPECT_EQ(eventOf("terminateAllProcesses",
                      "Ignoring process because no command is run for a third party, Name = halvd(StopRow:207)")
                  .kind,
              Kind::passedOver);
}

constexpr char kMatch[] = "UserList::processMatchesExcludelistEntry";

TEST(LogEvent, Excluded) {
    const LogEvent event = eventOf(kMatch, "Process path /a/b c matches exclude list entry ../b c(UserList:105)");
    EXPECT_EQ(event.kind, Kind::excluded);
    EXPECT_EQ(event.path, "/a/b c");
    EXPECT_EQ(eventOf(kMatch, "Process path /a/b matches exclude list entry /" + std::string(90, 'x') + " [cut]").path,
              "/a/b");
    EXPECT_EQ(eventOf(kMatch, "Process path /a/b does not match exclude list entry /c(UserList:100)").kind,
              Kind::other);
}

TEST(LogEvent, ExcludedOneThatWasCutIsMissedAndWhatIsOnlyComparedIsNot) {
    EXPECT_EQ(eventOf(kMatch, "Process path /aaa [cut]").kind, Kind::cut);
    EXPECT_EQ(eventOf(kMatch, "Process path /aaa does not match exclude list entry /b [cut]").kind, Kind::other);
    EXPECT_EQ(eventOf(kMatch, "Comparing exclude list paths: /aaa [cut]").kind, Kind::other);
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

/// A record as the program's log writes it, on the host with the longest name, read again.
LogEvent written(const std::string& function, const std::string& text) {
    const std::string host(253, 'h');
    const std::string line =
        logtext::recordLine({{}, 0, host, "cvstop", 4'194'304, "warning", function, text}).substr(32);
    const std::string dated = "2026-11-21T19:53:02.123456+00:00" + line.substr(0, line.size() - 1);
    const std::optional<LogRecord> record = parseLogRecord(dated);
    EXPECT_TRUE(record) << dated;
    return record ? readEvent(*record) : LogEvent();
}

TEST(LogEvent, RecordsOfTheLongestPathsAreWhole) {
    const std::string path = "/usr/quarn/" + std::string(1'012, 'p');
    ASSERT_EQ(path.size(), 1'023U);
    EXPECT_EQ(written("Processes::KillProcess", "Signaling process " + path + " (4)").path, path);
    const std::string command = path + " -terminate_local";
    EXPECT_EQ(written("executeStop", "Executing \"" + command + " > /dev/null 2>&1 &\"").what, command);
    EXPECT_EQ(written("terminateAllProcesses",
                      " Requesting termination of " + path + ". Return status=-1. Command=" + command)
                  .path,
              path);
    // A name's bytes stand as four each where they are no UTF-8.
    const std::string name(255, '\xff');
    EXPECT_EQ(written("Processes::terminate3rdParty", "KILLING " + name + " ACTION=0 PID=4194304").pid, 4'194'304);
    EXPECT_EQ(written("OrderlyShutdown", "Name=" + name + " Pid=4194304").pid, 4'194'304);
    EXPECT_EQ(written("Processes::WaitForAllDone", name + "(4194304) has not terminated").pid, 4'194'304);
    EXPECT_EQ(
        written("OrderlyShutdown", "Ignoring process because it is on exclude list, Name = " + name + "(a:1)").kind,
        Kind::passedOver);
    EXPECT_EQ(written(kMatch, "Process path " + path + " matches exclude list entry " + path + "(UserList:105)").path,
              path);
}

TEST(LogEvent, RecordThatWasCutSaysThatItTellsNothing) {
    const std::string path = "/usr/quarn/" + std::string(4'000, 'p');
    for (const auto& [function, text] :
         {std::pair("Processes::KillProcess", "Signaling process " + path + " (4)"),
          std::pair("executeStop", "Executing \"" + path + " -terminate > /dev/null 2>&1 &\""),
          std::pair("terminateAllProcesses", " Requesting termination of " + path + ". Return status=0. Command=x"),
          std::pair("OrderlyShutdown", "Name=" + path + " Pid=7")}) {
        const LogEvent event = written(function, text);
        EXPECT_EQ(event.kind, Kind::cut) << function;
        EXPECT_EQ(event.path + event.name + event.what, "");
        EXPECT_EQ(event.pid, 0);
    }
    // Where the path is whole, what follows may be cut.
    EXPECT_EQ(written("terminateAllProcesses",
                      " Requesting termination of /a/halvd. Return status=0. Command=" + std::string(4'000, 'c'))
                  .path,
              "/a/halvd");
    // What tells nothing does so whole or cut.
    EXPECT_EQ(written("logparams", "Arguments (900):" + std::string(4'000, 'a')).kind, Kind::other);
    EXPECT_EQ(eventOf("terminateAllProcesses", "Unimplemented Definition 8").kind, Kind::other);
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
