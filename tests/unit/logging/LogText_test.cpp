#include "logtext.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "utf8.h"

namespace {

std::tm aMoment(long offset) {
    std::tm when{};
    when.tm_year = 126;
    when.tm_mon = 10;
    when.tm_mday = 20;
    when.tm_hour = 19;
    when.tm_min = 53;
    when.tm_sec = 2;
    when.tm_gmtoff = offset;
    return when;
}

std::string lineOf(std::string_view text) {
    return logtext::recordLine({aMoment(3600), 123456789, "db7", "cvstop", 4711, "info", "Main", text});
}

const std::string kHead = "2026-11-20T19:53:02.123456+01:00 db7 cvstop[4711] info Main: ";

TEST(LogText, TimestampHasMicrosecondsAndZone) {
    EXPECT_EQ(logtext::timestamp(aMoment(3600), 123456789), "2026-11-20T19:53:02.123456+01:00");
    EXPECT_EQ(logtext::timestamp(aMoment(0), 0), "2026-11-20T19:53:02.000000+00:00");
    EXPECT_EQ(logtext::timestamp(aMoment(-12600), 999999999), "2026-11-20T19:53:02.999999-03:30");
    EXPECT_EQ(logtext::timestamp(aMoment(20700), 1000), "2026-11-20T19:53:02.000001+05:45");
}

TEST(LogText, LineIsOnePicture) {
    EXPECT_EQ(lineOf("Gathering process information."), kHead + "Gathering process information.\n");
    EXPECT_EQ(lineOf(""), kHead + "\n");
}

TEST(LogText, MissingHostKeepsItsColumn) {
    EXPECT_EQ(logtext::recordLine({aMoment(0), 0, "", "cvstop", 1, "error", "Main", "x"}),
              "2026-11-20T19:53:02.000000+00:00 - cvstop[1] error Main: x\n");
}

TEST(LogText, DropsOneFinalNewlineOnly) {
    EXPECT_EQ(lineOf("done\n"), kHead + "done\n");
    EXPECT_EQ(lineOf("done\n\n"), kHead + "done\\n\n");
    EXPECT_EQ(lineOf("\ndone"), kHead + "\\ndone\n");
}

TEST(LogText, EscapesControlsAndInvalidBytes) {
    const struct {
        std::string_view text;
        const char* shown;
    } rows[] = {
        {"\x1b[2Jhi", "\\x1b[2Jhi"},
        {"a\rb\tc", "a\\rb\\tc"},
        {std::string_view("a\0b", 3), "a\\x00b"},
        {"\x7f", "\\x7f"},
        // U+009B is the one-character form of ESC [.
        {"\xc2\x9b", "\\xc2\\x9b"},
        {"\xc2\xa0", "\xc2\xa0"},
        {"K\xc3\xb6ln", "K\xc3\xb6ln"},
        {"K\xf6ln", "K\\xf6ln"},
        {"\xe2\x82", "\\xe2\\x82"},
        {"\xc0\xaf", "\\xc0\\xaf"},
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
        {"back\\slash", "back\\slash"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(lineOf(row.text), kHead + row.shown + "\n");
    }
}

TEST(LogText, NoPartOfARecordCanForgeAnother) {
    const std::string forged = "x\n2026-11-20T19:53:02.123456+01:00 db7 cvstop[1] info Main: forged\n";
    const std::string line = logtext::recordLine({aMoment(0), 0, forged, forged, 1, forged, forged, forged});
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
    EXPECT_TRUE(line.ends_with('\n'));
}

TEST(LogText, CutsWhatDoesNotFitAndMarksIt) {
    const std::size_t room = logtext::kMaxLine - 1 - kHead.size();
    EXPECT_EQ(lineOf(std::string(room, 'a')), kHead + std::string(room, 'a') + "\n");
    EXPECT_EQ(lineOf(std::string(room + 1, 'a')), kHead + std::string(room - 6, 'a') + " [cut]\n");
    EXPECT_EQ(lineOf(std::string(1000000, 'a')), lineOf(std::string(room + 1, 'a')));
}

TEST(LogText, CutsBetweenCharactersWhateverTheyAre) {
    for (const std::string character : {"a", "\xc3\xb6", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\x01", "\xff"}) {
        std::string text;
        for (std::size_t shift = 0; shift < 8; ++shift) {
            text.assign(shift, '.');
            while (text.size() < 2 * logtext::kMaxLine) {
                text += character;
            }
            const std::string line = lineOf(text);
            EXPECT_LE(line.size(), logtext::kMaxLine);
            EXPECT_GT(line.size(), logtext::kMaxLine - 16);
            EXPECT_TRUE(line.ends_with(" [cut]\n"));
            EXPECT_TRUE(utf8::isValid(line));
            if (character == "\x01") {
                EXPECT_TRUE(line.ends_with("\\x01 [cut]\n"));
            }
        }
    }
}

TEST(LogText, LevelsHaveWords) {
    EXPECT_EQ(logtext::levelLabel(2), "info");
    EXPECT_EQ(logtext::levelLabel(8), "warning");
    EXPECT_EQ(logtext::levelLabel(16), "error");
    EXPECT_EQ(logtext::levelLabel(4), "level4");
}

} // namespace
