#include "LogRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

TEST(LogRecord, ReadsALineOfTheDebugLog) {
    const auto record =
        parseLogRecord("2026-11-21T20:53:02.123456+01:00 client cvstop[4711] info Processes::KillProcess: "
                       "Signaling process /usr/quarn/corvane/bin/momuhe (1)");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->time, 1'795'290'782'123'456'000);
    EXPECT_EQ(record->process, "cvstop");
    EXPECT_EQ(record->pid, 4711);
    EXPECT_EQ(record->level, "info");
    EXPECT_EQ(record->function, "Processes::KillProcess");
    EXPECT_EQ(record->text, "Signaling process /usr/quarn/corvane/bin/momuhe (1)");
}

TEST(LogRecord, TimeDoesNotDependOnTheZone) {
    const auto timeOf = [](const char* stamp) {
        return parseLogRecord(std::string(stamp) + " h p[1] info f: t")->time;
    };
    EXPECT_EQ(timeOf("2026-11-21T19:53:02.000001+00:00"), timeOf("2026-11-21T14:23:02.000001-05:30"));
    EXPECT_EQ(timeOf("2024-02-29T23:59:59.999999+00:00") + 1000, timeOf("2024-03-01T00:00:00.000000+00:00"));
}

TEST(LogRecord, TextMayHoldEverythingThatSeparatesTheRest) {
    const auto record = parseLogRecord("2026-11-21T19:53:02.123456+00:00 - cvstop[7] debug1 f: a: b] c[1] info g: h");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->function, "f");
    EXPECT_EQ(record->text, "a: b] c[1] info g: h");
}

TEST(LogRecord, TextMayBeEmpty) {
    const auto record = parseLogRecord("2026-11-21T19:53:02.123456+00:00 h cvstop[7] info f: ");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->text, "");
}

class NoLogRecord : public testing::TestWithParam<const char*> {};

TEST_P(NoLogRecord, IsRefused) {
    EXPECT_FALSE(parseLogRecord(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(LogRecord, NoLogRecord,
                         testing::Values("", "x", "2026-11-21T19:53:02.123456+00:00",
                                         "2026-11-21T19:53:02.123456+00:00 ",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[7] info f",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[7] info",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[] info f: t",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[7x] info f: t",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[-7] info f: t",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[0] info f: t",
                                         "2026-11-21T19:53:02.123456+00:00 h cvstop[99999999999] info f: t",
                                         "2026-11-21T19:53:02.123456+00:00 cvstop[7] info f: t",
                                         "2026-13-21T19:53:02.123456+00:00 h cvstop[7] info f: t",
                                         "2026-02-30T19:53:02.123456+00:00 h cvstop[7] info f: t",
                                         "1969-12-31T19:53:02.123456+00:00 h cvstop[7] info f: t",
                                         "2262-01-01T19:53:02.123456+00:00 h cvstop[7] info f: t",
                                         "2026-11-21 19:53:02.123456+00:00 h cvstop[7] info f: t",
                                         "2026-11-21T19:53:02.12345x+00:00 h cvstop[7] info f: t",
                                         "2026-11-21T19:53:02.123456 00:00 h cvstop[7] info f: t"));

} // namespace
} // namespace watch
