#include "procparse.h"

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lister {
namespace {

using namespace std::string_literals;

TEST(ParsePid, TakesWholeNumbersAlone) {
    EXPECT_EQ(parsePid("1"), 1);
    EXPECT_EQ(parsePid("4194304"), 4194304);
    for (const char* name : {"", "0", "01", "1x", "x1", "-1", "+1", " 1", "self", "99999999999999999999"}) {
        EXPECT_EQ(parsePid(name), std::nullopt) << name;
    }
}

struct StatRow {
    std::string text;
    std::string comm;
    char state;
    pid_t parent;
};

class Stat : public testing::TestWithParam<StatRow> {};

TEST_P(Stat, LastParenthesisEndsTheName) {
    const std::optional<StatLine> stat = parseStat(GetParam().text);
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->comm, GetParam().comm);
    EXPECT_EQ(stat->state, GetParam().state);
    EXPECT_EQ(stat->parent, GetParam().parent);
}

INSTANTIATE_TEST_SUITE_P(
    Captured, Stat,
    testing::Values(StatRow{"713 (dash) S 712 713 713 34816 713 4194304 114 0 0 0", "dash", 'S', 712},
                    StatRow{"9 () R 1 9", "", 'R', 1}, StatRow{"9 (a b) Z 7 9", "a b", 'Z', 7},
                    StatRow{"9 (x) S 1 (y) T 8 9", "x) S 1 (y", 'T', 8}, StatRow{"9 (a\nb) D 2 9\n", "a\nb", 'D', 2},
                    StatRow{"9 (\x1b[2J) S 3 9", "\x1b[2J", 'S', 3}));

TEST(Stat, HostileTextsGiveNothing) {
    for (const char* text : {"", "9", "9 (x", "9 x) S 1", ")(", "9 (x)", "9 (x) S", "9 (x) SS 1", "9 (x) S one"}) {
        EXPECT_FALSE(parseStat(text)) << text;
    }
}

TEST(ArgumentsEnd, IsTheFortyNinthField) {
    const std::string before = "77 (a) b 9) S 1 77 77 0 -1 4194304 110 0 0 0 0 0 0 0 20 0 1 0 5126 2764800 256 "
                               "18446744073709551615 94 95 96 0 0 0 0 0 0 0 0 0 17 1 0 0 0 0 0 97 98 99 140 ";
    EXPECT_EQ(parseArgumentsEnd(before + "141 142 143 0\n"), 141U);
    EXPECT_EQ(parseArgumentsEnd(before + "0 142 143 0\n"), 0U);
    EXPECT_EQ(parseArgumentsEnd(before + "18446744073709551615 1 1 0\n"), 18446744073709551615U);
    for (const std::string& text : {before, before + "x 1 1 0\n", before + "18446744073709551616 0",
                                    std::string("77 (a S 1"), std::string(), std::string(")")}) {
        EXPECT_FALSE(parseArgumentsEnd(text)) << text;
    }
}

TEST(Maps, CapturedLines) {
    const auto text = parseMapsLine("7f1216e67000-7f1216e8d000 r-xp 00026000 fe:00 131170    /usr/lib/libc.so.6");
    ASSERT_TRUE(text);
    EXPECT_EQ(text->begin, 0x7f1216e67000U);
    EXPECT_EQ(text->end, 0x7f1216e8d000U);
    EXPECT_TRUE(text->executable);
    EXPECT_EQ(text->deviceMajor, 0xfeU);
    EXPECT_EQ(text->deviceMinor, 0U);
    EXPECT_EQ(text->inode, 131170U);
    EXPECT_EQ(text->path, "/usr/lib/libc.so.6");
    const auto data = parseMapsLine("7ffd-7ffe rw-p 00000000 00:00 0 ");
    ASSERT_TRUE(data);
    EXPECT_FALSE(data->executable);
    EXPECT_EQ(data->path, "");
    EXPECT_EQ(parseMapsLine("7ffd-7ffe r-xp 00000000 00:00 0    [vdso]")->path, "[vdso]");
    EXPECT_EQ(parseMapsLine("1-2 r-xp 0 fe:00 5 /a b (deleted)")->path, "/a b (deleted)");
}

TEST(Maps, HostileLinesGiveNothing) {
    for (const char* line :
         {"", " ", "1-2", "1-2 r-xp", "1-2 r-xp 0 fe:00", "1-2 r-xp 0 fe:00 x /a", "1-2 rx 0 fe:00 5 /a",
          "12 r-xp 0 fe:00 5 /a", "-2 r-xp 0 fe:00 5 /a", "1-x r-xp 0 fe:00 5 /a", "1-2 r-xp 0 fe 5 /a",
          "1-2 r-xp 0 :00 5 /a", "1-2 r-xp 0 xx:00 5 /a"}) {
        EXPECT_FALSE(parseMapsLine(line)) << line;
    }
}

TEST(MountInfo, CapturedLines) {
    const auto mount = parseMountLine("36 35 98:0 /mnt1 /mnt/my\\040disk rw,noatime master:1 - ext3 /dev/root rw");
    ASSERT_TRUE(mount);
    EXPECT_EQ(mount->id, 36U);
    EXPECT_EQ(mount->mountPoint, "/mnt/my disk");
}

TEST(MountInfo, HostileLinesGiveNothing) {
    for (const char* line : {"", "x 35 98:0 / /", "36 35 98:0 /", "36 35 98:0 / relative", "36"}) {
        EXPECT_FALSE(parseMountLine(line)) << line;
    }
}

TEST(OctalEscapes, AreUndoneAndOthersKept) {
    EXPECT_EQ(unescapeOctal("a\\040b\\012c\\134d"), "a b\nc\\d");
    EXPECT_EQ(unescapeOctal("a\\04"), "a\\04");
    EXPECT_EQ(unescapeOctal("a\\9zz\\"), "a\\9zz\\");
    for (const char* text : {"a\\8zzz", "a\\/zzz", "a\\08zz", "a\\0/zz", "a\\048z", "a\\04/z", "a\\04z\\040"}) {
        const std::string_view whole = text;
        EXPECT_EQ(unescapeOctal(whole.substr(0, 6)), whole.substr(0, 6));
    }
}

TEST(EffectiveUid, IsTheSecondNumber) {
    EXPECT_EQ(parseEffectiveUid("Name:\tx\nUid:\t1000\t0\t0\t0\nGid:\t5\n"), 0U);
    EXPECT_EQ(parseEffectiveUid("Name:\tUid: 0 0\nUid:\t7\t8\t8\t8\n"), 8U);
    EXPECT_EQ(parseEffectiveUid("Uid:\t7\n"), std::nullopt);
    EXPECT_EQ(parseEffectiveUid("Name:\tx\nUid:\t7\nGid:\t5\t5\n"), std::nullopt) << "the next line is another's";
    EXPECT_EQ(parseEffectiveUid(""), std::nullopt);
}

/// As PID/fdinfo/FD has it since Linux 3.15.
TEST(MountOfADescriptor, IsTheNumberOfItsLine) {
    EXPECT_EQ(parseMountId("pos:\t0\nflags:\t012000000\nmnt_id:\t29\nino:\t1234\n"), 29U);
    EXPECT_EQ(parseMountId("pos:\t0\nflags:\t012000000\nmnt_id:\t29\n"), 29U);
    EXPECT_EQ(parseMountId("pos:\t0\nflags:\t012000000\n"), std::nullopt);
    EXPECT_EQ(parseMountId("pos:\t0\nmnt_id:\nino:\t1234\n"), std::nullopt);
    EXPECT_EQ(parseMountId("pos:\t0\nmnt_id:\t29x\n"), std::nullopt);
    EXPECT_EQ(parseMountId(""), std::nullopt);
}

TEST(DeletedSuffix, IsTakenOffTheEndAlone) {
    EXPECT_EQ(withoutDeleted("/a/b (deleted)"), "/a/b");
    EXPECT_EQ(withoutDeleted("/a (deleted)/b"), std::nullopt);
    EXPECT_EQ(withoutDeleted("/a/b(deleted)"), std::nullopt);
}

} // namespace
} // namespace lister
