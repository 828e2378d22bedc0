#include "hostconf.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <syslog.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TempFolder.h"
#include "cvlog.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

/// What went to the system log, as "IDENT PRIORITY TEXT".
std::vector<std::string> systemLog;

std::string systemLogIdent;

void rememberRecord(int priority, const char* format, std::va_list arguments) {
    std::array<char, 1024> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    systemLog.push_back(systemLogIdent + ' ' + std::to_string(priority) + ' ' + text.data());
}

} // namespace

extern "C" {
void __wrap_openlog(const char* ident, int options, int facility);
void __wrap_syslog(int priority, const char* format, ...);
void __wrap___syslog_chk(int priority, int flag, const char* format, ...);

void __wrap_openlog(const char* ident, int, int) {
    systemLogIdent = ident;
}

void __wrap_syslog(int priority, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    rememberRecord(priority, format, arguments);
    va_end(arguments);
}

/// The name that syslog has in fortified builds.
void __wrap___syslog_chk(int priority, int, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    rememberRecord(priority, format, arguments);
    va_end(arguments);
}
}

namespace {

TEST(HostConf, ReadsEveryKey) {
    const hostconf::Outcome outcome = hostconf::parse("# the client\n"
                                                      "  ; another comment\n"
                                                      "[host]\n"
                                                      "role = server\n"
                                                      "name=db7.example.com\n"
                                                      "\n"
                                                      "[logging]\r\n"
                                                      "verbosity = 99\r\n"
                                                      "[ telemetry ]\n"
                                                      "\tstatsd = [2001:db8::1]:8125",
                                                      "system");
    EXPECT_EQ(outcome.error, "");
    EXPECT_TRUE(outcome.config.isServer);
    EXPECT_EQ(outcome.config.name, "db7.example.com");
    EXPECT_EQ(outcome.config.verbosity, 99);
    EXPECT_EQ(outcome.config.statsd, "[2001:db8::1]:8125");
    EXPECT_THAT(outcome.unknownKeys, IsEmpty());
}

TEST(HostConf, RoleIsEnough) {
    const hostconf::Outcome outcome = hostconf::parse("[host]\nrole=client\n", "system");
    EXPECT_EQ(outcome.error, "");
    EXPECT_FALSE(outcome.config.isServer);
    EXPECT_EQ(outcome.config.name, "system");
    EXPECT_EQ(outcome.config.verbosity, 0);
    EXPECT_EQ(outcome.config.statsd, "");
}

TEST(HostConf, TheLeastVerbosityCanBeGiven) {
    const hostconf::Outcome outcome = hostconf::parse("[host]\nrole=client\n[logging]\nverbosity=0\n", "system");
    EXPECT_EQ(outcome.error, "");
    EXPECT_EQ(outcome.config.verbosity, 0);
}

TEST(HostConf, BadTextIsRefusedWithItsPlace) {
    const std::string good = "[host]\nrole=client\n";
    const struct {
        std::string text;
        const char* error;
    } rows[] = {
        {"", "[host] role: missing"},
        {"# nothing\n", "[host] role: missing"},
        {"role=client\n", "[host] role: missing"},
        {"[host]\n", "[host] role: missing"},
        {"[Host]\nrole=client\n", "[host] role: missing"},
        {"[host]\nRole=client\n", "[host] role: missing"},
        {"[host]\nrole=\n", "[host] role: bad value ''"},
        {"[host]\nrole=Client\n", "[host] role: bad value 'Client'"},
        {"[host]\nrole=client # comment\n", "[host] role: bad value 'client # comment'"},
        {"[host]\nrole=\"client\"\n", "[host] role: bad value '\"client\"'"},
        {"[host]\nrole=client\nname=\n", "[host] name: bad value ''"},
        {"[host]\nrole=client\nname=a b\n", "[host] name: bad value 'a b'"},
        {"[host]\nrole=client\nname=a\x1b[2J\n", "[host] name: bad value 'a\x1b[2J'"},
        {"[host]\nrole=client\nname=" + std::string(254, 'x') + "\n", "[host] name: bad value 'xxxx"},
        {good + "[logging]\nverbosity=\n", "[logging] verbosity: bad value ''"},
        {good + "[logging]\nverbosity=5x\n", "[logging] verbosity: bad value '5x'"},
        {good + "[logging]\nverbosity=0x5\n", "[logging] verbosity: bad value '0x5'"},
        {good + "[logging]\nverbosity=+5\n", "[logging] verbosity: bad value '+5'"},
        {good + "[logging]\nverbosity=-1\n", "[logging] verbosity: bad value '-1'"},
        {good + "[logging]\nverbosity=100\n", "[logging] verbosity: bad value '100'"},
        {good + "[logging]\nverbosity=99999999999\n", "[logging] verbosity: bad value '99999999999'"},
        {good + "[logging]\nverbosity=5.0\n", "[logging] verbosity: bad value '5.0'"},
        {good + "[telemetry]\nstatsd=\n", "[telemetry] statsd: bad value ''"},
        {good + "[telemetry]\nstatsd=stats.example.com:8125\n",
         "[telemetry] statsd: bad value 'stats.example.com:8125'"},
        {good + "[telemetry]\nstatsd=::1:8125\n", "[telemetry] statsd: bad value '::1:8125'"},
        {good + "garbage\n", "line 3: '=' character not found in line"},
        {good + "=value\n", "line 3: key expected"},
        {good + "[telemetry\n", "line 3: a section is a name in brackets and nothing else"},
        {good + "[telemetry] # comment\n", "line 3: a section is a name in brackets and nothing else"},
        {good + "role=client\n", "line 3: duplicate key name"},
        {good + "[host]\nname=a\n", "line 3: duplicate section name"},
        {"[host]\n[ host ]\nrole=client\n", "line 2: duplicate section name"},
        {good + std::string("name=a\0b\n", 9), "line 3: NUL byte"},
        {good + std::string("# a\0b\n", 6), "line 3: NUL byte"},
        {"\xef\xbb\xbf[host]\nrole=client\n", "line 1: "},
    };
    for (const auto& row : rows) {
        const hostconf::Outcome outcome = hostconf::parse(row.text, "system");
        EXPECT_THAT(outcome.error, testing::StartsWith(row.error)) << row.text;
        EXPECT_LT(outcome.error.size(), 120U);
    }
}

TEST(HostConf, EveryTruncationAndBitFlipIsReadOrRefused) {
    const std::string text = "[host]\nrole=client\nname=a\n[logging]\nverbosity=5\n[telemetry]\nstatsd=127.0.0.1:1\n";
    for (std::size_t bit = 0; bit < text.size() * 8; ++bit) {
        std::string damaged = text;
        damaged[bit / 8] = static_cast<char>(static_cast<unsigned char>(damaged[bit / 8]) ^ (1U << bit % 8));
        for (const std::string& input : {damaged, text.substr(0, bit / 8)}) {
            const hostconf::Outcome outcome = hostconf::parse(input, "system");
            if (outcome.error.empty()) {
                EXPECT_THAT(outcome.config.verbosity, testing::AllOf(testing::Ge(0), testing::Le(99))) << input;
                EXPECT_NE(outcome.config.name, "") << input;
            }
        }
    }
}

TEST(HostConf, UnknownKeysAreRemembered) {
    const hostconf::Outcome outcome =
        hostconf::parse("early=1\n[host]\nrole=client\ncolour=blue\n[a.b]\nc.d=\n[empty]\n", "system");
    EXPECT_EQ(outcome.error, "");
    EXPECT_THAT(outcome.unknownKeys, ElementsAre("early", "[host] colour", "[a.b] c.d"));
}

TEST(HostConfFile, IsReadWithItsPathInTheError) {
    const TempFolder folder;
    EXPECT_EQ(hostconf::readFile(folder.write("good", "[host]\nrole=client\nname=a\n").c_str()).error, "");

    const std::string bad = folder.write("bad", "[host]\nrole=x\n");
    EXPECT_EQ(hostconf::readFile(bad.c_str()).error, bad + ": [host] role: bad value 'x'");
    const std::string empty = folder.write("empty", "");
    EXPECT_EQ(hostconf::readFile(empty.c_str()).error, empty + ": [host] role: missing");
    const std::string missing = folder.at("missing");
    EXPECT_EQ(hostconf::readFile(missing.c_str()).error, missing + ": No such file or directory");
    const std::string directory = folder.at("");
    EXPECT_EQ(hostconf::readFile(directory.c_str()).error, directory + ": Is a directory");
    const std::string fifo = folder.at("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(hostconf::readFile(fifo.c_str()).error, fifo + ": Invalid argument");
    const std::string good = "[host]\nrole=client\n";
    const std::string large = folder.write("large", good + std::string(65'537 - good.size(), '\n'));
    EXPECT_EQ(hostconf::readFile(large.c_str()).error, large + ": File too large");
    const std::string largest = folder.write("largest", good + std::string(65'536 - good.size(), '\n'));
    EXPECT_EQ(hostconf::readFile(largest.c_str()).error, "");
}

TEST(HostConfFile, NameDefaultsToTheSystems) {
    const TempFolder folder;
    std::array<char, 256> name{};
    ASSERT_EQ(::gethostname(name.data(), name.size() - 1), 0);
    EXPECT_EQ(hostconf::readFile(folder.write("good", "[host]\nrole=client\n").c_str()).config.name, name.data());
}

TEST(HostConfAdopt, FailureChangesNothing) {
    ASSERT_EQ(hostconf::adopt(hostconf::parse("[host]\nrole=server\nname=db7\n", "")), 0);
    EXPECT_NE(hostconf::adopt(hostconf::parse("[host]\nrole=wrong\nname=other\n", "")), 0);
    EXPECT_EQ(get_master_config_ptr()->name, "db7");
    EXPECT_TRUE(get_master_config_ptr()->isServer);
}

TEST(HostConfLoad, ReasonGoesToTheSystemLogOnly) {
    const TempFolder folder;
    systemLog.clear();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const std::string bad = folder.write("bad", "[host]\nrole=100%s\n");
    EXPECT_NE(hostconf::load(bad.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(systemLog,
                ElementsAre("cvstop " + std::to_string(LOG_ERR) + ' ' + bad + ": [host] role: bad value '100%s'"));
}

TEST(HostConfLoad, SuccessIsSilentAndAdopted) {
    const TempFolder folder;
    systemLog.clear();
    EXPECT_EQ(hostconf::load(folder.write("good", "[host]\nrole=client\nname=db9\n").c_str()), 0);
    EXPECT_EQ(get_master_config_ptr()->name, "db9");
    EXPECT_THAT(systemLog, IsEmpty());
}

TEST(HaskIsServer, AnswersForThisHostOnly) {
    std::array<char, 256> systemName{};
    ASSERT_EQ(::gethostname(systemName.data(), systemName.size() - 1), 0);
    ASSERT_EQ(hostconf::adopt(hostconf::parse("[host]\nrole=server\nname=db7\n", "")), 0);
    for (const char* host : {"localhost", "LOCALHOST", "db7", "DB7", static_cast<const char*>(systemName.data())}) {
        EXPECT_NE(hask_is_server(host), 0) << host;
    }
    for (const char* host : {"", "db8", "db7.example.com", "127.0.0.1"}) {
        EXPECT_EQ(hask_is_server(host), 0) << host;
    }
    EXPECT_EQ(hask_is_server(nullptr), 0);
    ASSERT_EQ(hostconf::adopt(hostconf::parse("[host]\nrole=client\nname=db7\n", "")), 0);
    EXPECT_EQ(hask_is_server("localhost"), 0);
    EXPECT_EQ(hask_is_server("db7"), 0);
}

TEST(HaskIsServer, LogsUnknownKeysOnce) {
    const TempFolder folder;
    CVLogger logger;
    ASSERT_EQ(logger.openFile(folder.at("log").c_str(), "db7", "cvstop", nullptr), 0);
    ASSERT_EQ(hostconf::adopt(hostconf::parse("[host]\nrole=client\ncolor=\n[x]\ny=\n", "db7")), 0);
    EXPECT_EQ(hask_is_server("localhost"), 0);
    EXPECT_EQ(hask_is_server("localhost"), 0);
    EXPECT_THAT(linesOf(folder.at("log")),
                ElementsAre(testing::AllOf(HasSubstr(" warning CV_read_master_config: "), EndsWith(": [host] color")),
                            EndsWith(": [x] y")));
}

} // namespace
