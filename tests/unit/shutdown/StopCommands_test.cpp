#include <csignal>
#include <string>

#include "Fixture.h"
#include "shutdown.h"

using ::testing::ElementsAre;

namespace {

class StopCommandsTest : public fakes::ProgramTest {
  protected:
    StopCommandsTest() { command = "what was there before"; }
};

TEST_F(StopCommandsTest, InitCommandTakesTheRecordsPath) {
    CV_Process_s record = {};
    std::snprintf(record.path, sizeof record.path, "/usr/quarn/corvane/bin/halvd");
    InitCommand(&record);
    EXPECT_EQ(command, "/usr/quarn/corvane/bin/halvd");
}

TEST_F(StopCommandsTest, BinCommand) {
    BinCommand("duzahi_start_stop stop");
    EXPECT_EQ(command, "/usr/quarn/corvane/bin/duzahi_start_stop stop");
}

TEST_F(StopCommandsTest, VmCommand) {
    VmCommand("nodakewe -h localhost -t");
    EXPECT_EQ(command, "/usr/quarn/volmgr/bin/nodakewe -h localhost -t");
}

TEST_F(StopCommandsTest, AdminCommand) {
    AdminCommand("vilohibo -all");
    EXPECT_EQ(command, "/usr/quarn/corvane/bin/admincmd/vilohibo -all");
}

TEST_F(StopCommandsTest, MoskCommand) {
    MoskCommand("mubd");
    EXPECT_EQ(command, "/usr/quarn/mosk/CorvaneDB/mubd");
}

TEST_F(StopCommandsTest, AnEmptyTailLeavesTheDirectoryAndOneSlash) {
    BinCommand("");
    EXPECT_EQ(command, "/usr/quarn/corvane/bin/");
    VmCommand("");
    EXPECT_EQ(command, "/usr/quarn/volmgr/bin/");
    AdminCommand("");
    EXPECT_EQ(command, "/usr/quarn/corvane/bin/admincmd/");
    MoskCommand("");
    EXPECT_EQ(command, "/usr/quarn/mosk/CorvaneDB/");
}

TEST_F(StopCommandsTest, ExecuteStopRunsInTheBackgroundAndLogsTheWholeCommand) {
    EXPECT_EQ(executeStop("x"), 0);
    EXPECT_THAT(host.of({"log", "system"}),
                ElementsAre("log 2 executeStop: Executing \"x > /dev/null 2>&1 &\"", "system x > /dev/null 2>&1 &"));
}

TEST_F(StopCommandsTest, ExecuteStopReturnsTheRawStatusOfTheShell) {
    host.systemResults = {0x7F00, -1};
    EXPECT_EQ(executeStop("x"), 0x7F00);
    EXPECT_EQ(executeStop("x"), -1);
}

TEST_F(StopCommandsTest, ExecuteStopLeavesTheCommandAlone) {
    command = "kept";
    executeStop("other");
    EXPECT_EQ(command, "kept");
    executeStop(command);
    EXPECT_EQ(command, "kept");
}

TEST_F(StopCommandsTest, ACommandWithConversionsIsLoggedLiterally) {
    executeStop("/opt/100%s");
    EXPECT_EQ(host.count("log 2 executeStop: Executing \"/opt/100%s > /dev/null 2>&1 &\""), 1U);
}

TEST_F(StopCommandsTest, ExecuteStopDoesNotDisturbTheCallersDispositions) {
    const auto previousPipe = std::signal(SIGPIPE, SIG_IGN);
    const auto previousHangup = std::signal(SIGHUP, SIG_IGN);
    executeStop("x");
    ASSERT_EQ(host.atCommands.size(), 1U);
    EXPECT_TRUE(host.atCommands[0].pipeIsDefault);
    EXPECT_TRUE(host.atCommands[0].hangupIsDefault);
    EXPECT_EQ(std::signal(SIGPIPE, previousPipe), SIG_IGN);
    EXPECT_EQ(std::signal(SIGHUP, previousHangup), SIG_IGN);
}

} // namespace
