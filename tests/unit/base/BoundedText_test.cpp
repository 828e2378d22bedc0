#include "cvbase.h"

#include <algorithm>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace {

TEST(VSnprintf, NeverWritesPastTheSize) {
    for (std::size_t size = 0; size <= 8; ++size) {
        char buffer[9];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(V_snprintf(buffer, size, "%s%d", "abc", 45), 5);
        for (std::size_t place = std::min<std::size_t>(size, 6); place < sizeof buffer; ++place) {
            ASSERT_EQ(buffer[place], '#') << size << ' ' << place;
        }
        if (size > 0) {
            EXPECT_EQ(std::string(buffer), std::string("abc45").substr(0, size - 1));
        }
    }
}

TEST(VCatSnprintf, AppendsAndCuts) {
    char buffer[10] = "abc";
    EXPECT_EQ(V_cat_snprintf(buffer, sizeof buffer, "%s (%d)", "x", 7), 8);
    EXPECT_STREQ(buffer, "abcx (7)");
    EXPECT_EQ(V_cat_snprintf(buffer, sizeof buffer, "%s", "123"), 11);
    EXPECT_STREQ(buffer, "abcx (7)1");
    EXPECT_EQ(V_cat_snprintf(buffer, sizeof buffer, "%s", "4"), 10);
    EXPECT_STREQ(buffer, "abcx (7)1");
}

TEST(VCatSnprintf, NothingToAppendIsNoFailure) {
    char buffer[10] = "abc";
    EXPECT_EQ(V_cat_snprintf(buffer, sizeof buffer, "%s", ""), 3);
    EXPECT_STREQ(buffer, "abc");
}

TEST(VCatSnprintf, LeavesABufferWithoutItsEndAlone) {
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_LT(V_cat_snprintf(buffer, sizeof buffer, "%s", "x"), 0);
    EXPECT_EQ(std::string(buffer, sizeof buffer), "abcd");
    EXPECT_LT(V_cat_snprintf(buffer, 0, "%s", "x"), 0);
}

TEST(VCatSnprintf, LongListEndsAt499Bytes) {
    char buffer[500] = "";
    for (int pid = 0; pid < 200; ++pid) {
        V_cat_snprintf(buffer, sizeof buffer, "%s (%d), ", "halvd", pid);
    }
    EXPECT_EQ(std::strlen(buffer), 499U);
}

TEST(Utf8Length, CountsCodePoints) {
    const struct {
        const char* text;
        std::size_t count;
    } rows[] = {
        {"", 0},
        {"halvd", 5},
        {"K\xc3\xb6ln", 4},
        {"\xe5\x90\x8d\xe5\x89\x8d", 2},
        {"\xf0\x9f\x98\x80", 1},
        {"\xff\xfe", 2},
        {"\xe2\x82", 2},
        {"\xc3(", 2},
        {"\xc0\xaf", 2},
        {"\xed\xa0\x80", 3},
        {"\xf4\x90\x80\x80", 4},
        {"\x80", 1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(_utf8_mbstowcs_len(row.text), row.count) << row.text;
    }
    EXPECT_EQ(_utf8_mbstowcs_len(nullptr), 0U);
}

} // namespace
