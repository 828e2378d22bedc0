#include "Times.h"

#include <gtest/gtest.h>

namespace {

using watch::kSecond;

TEST(Date, IsUtcToTheNanosecond) {
    EXPECT_EQ(watch::date(0), "1970-01-01T00:00:00.000000000Z");
    EXPECT_EQ(watch::date(1'795'290'782'123'456'789), "2026-11-21T19:53:02.123456789Z");
    EXPECT_EQ(watch::date(1'709'251'199 * kSecond + 999'999'999), "2024-02-29T23:59:59.999999999Z");
    EXPECT_EQ(watch::date(-1), "1969-12-31T23:59:59.999999999Z");
}

TEST(Decimal, HasItsDigits) {
    EXPECT_EQ(watch::decimal(1.25, 1), "1.2");
    EXPECT_EQ(watch::decimal(-0.5, 3), "-0.500");
    EXPECT_EQ(watch::decimal(4e9, 0), "4000000000");
}

TEST(InSeconds, ShowsTwoDigitsBelowTen) {
    EXPECT_EQ(watch::inSeconds(0), "0.00 s");
    EXPECT_EQ(watch::inSeconds(-4'999'999), "0.00 s");
    EXPECT_EQ(watch::inSeconds(-20'000'000), "-0.02 s");
    EXPECT_EQ(watch::inSeconds(240'000'000), "0.24 s");
    EXPECT_EQ(watch::inSeconds(9'994'000'000), "9.99 s");
    EXPECT_EQ(watch::inSeconds(9'996'000'000), "10.0 s");
    EXPECT_EQ(watch::inSeconds(119 * kSecond + 960'000'000), "120.0 s");
}

TEST(Roughly, ShowsTheTwoLargestUnits) {
    const struct {
        watch::Time seconds;
        const char* text;
    } rows[] = {
        {0, "0 s"},      {59, "59 s"},    {60, "1 min"},       {65, "1 min 5 s"},
        {3600, "1 h"},   {3659, "1 h"},   {3664, "1 h 1 min"}, {86'399, "23 h 59 min"},
        {86'400, "1 d"}, {86'459, "1 d"}, {90'000, "1 d 1 h"}, {1'000'000, "11 d 13 h"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(watch::roughly(row.seconds * kSecond), row.text);
    }
    EXPECT_EQ(watch::roughly(kSecond - 1), "0 s");
}

} // namespace
