#include "cvbase.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "TempFolder.h"
#include "utf8.h"

namespace {

TEST(Mkdirpath, CreatesMissingParentsWithTheMode) {
    const TempFolder folder;
    const UmaskGuard guard(077);
    std::int32_t status = -5;
    EXPECT_EQ(mkdirpath(folder.at("a//b/c/").c_str(), 0755, &status), 0);
    EXPECT_EQ(status, 0);
    for (const char* name : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(modeOf(folder.at(name)), 0755) << name;
    }
}

TEST(Mkdirpath, LeavesWhatExistsAlone) {
    const TempFolder folder;
    ASSERT_EQ(::mkdir(folder.at("there").c_str(), 0700), 0);
    std::filesystem::create_directory_symlink("there", folder.at("link"));
    std::int32_t status = -5;
    EXPECT_EQ(mkdirpath(folder.at("there").c_str(), 0755, &status), 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(mkdirpath(folder.at("link/below").c_str(), 0755, nullptr), 0);
    EXPECT_EQ(modeOf(folder.at("there")), 0700);
    EXPECT_EQ(modeOf(folder.at("there/below")), 0755);
    EXPECT_EQ(mkdirpath("/", 0755, &status), 0);
}

TEST(Mkdirpath, FailureTellsItsErrno) {
    const TempFolder folder;
    const std::string file = folder.write("file", "x");
    std::filesystem::create_symlink("nowhere", folder.at("dangling"));
    const struct {
        std::string path;
        std::int32_t status;
    } rows[] = {{file, EEXIST},
                {file + "/below/it", ENOTDIR},
                {folder.at("dangling"), EEXIST},
                {folder.at(std::string(300, 'x')), ENAMETOOLONG},
                {"/proc/none/below", ENOENT},
                {"", ENOENT}};
    for (const auto& row : rows) {
        std::int32_t status = 0;
        EXPECT_EQ(mkdirpath(row.path.c_str(), 0755, &status), -1) << row.path;
        EXPECT_EQ(status, row.status) << row.path;
    }
    std::int32_t status = 0;
    EXPECT_EQ(mkdirpath(nullptr, 0755, &status), -1);
    EXPECT_EQ(status, EINVAL);
    EXPECT_EQ(mkdirpath("", 0755, nullptr), -1);
}

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

/// The Unicode rules once more, from the code point's side.
std::string encoded(char32_t point) {
    const auto byte = [](char32_t value) { return static_cast<char>(value); };
    if (point < 0x80) {
        return {byte(point)};
    }
    if (point < 0x800) {
        return {byte(0xC0 | point >> 6), byte(0x80 | (point & 0x3F))};
    }
    if (point < 0x10000) {
        return {byte(0xE0 | point >> 12), byte(0x80 | (point >> 6 & 0x3F)), byte(0x80 | (point & 0x3F))};
    }
    return {byte(0xF0 | point >> 18), byte(0x80 | (point >> 12 & 0x3F)), byte(0x80 | (point >> 6 & 0x3F)),
            byte(0x80 | (point & 0x3F))};
}

TEST(Utf8, EveryCodePointIsOneSequenceButSurrogates) {
    for (char32_t point = 0; point < 0x111000; ++point) {
        const std::string text = encoded(point);
        const bool isValid = point < 0xD800 || (point > 0xDFFF && point <= 0x10FFFF);
        ASSERT_EQ(utf8::sequenceLength(text), isValid ? text.size() : 0U) << static_cast<unsigned>(point);
    }
}

TEST(Utf8, SplitTailIsDropped) {
    EXPECT_EQ(utf8::withoutSplitTail(""), "");
    EXPECT_EQ(utf8::withoutSplitTail("abc"), "abc");
    EXPECT_EQ(utf8::withoutSplitTail("a\xc3"), "a");
    EXPECT_EQ(utf8::withoutSplitTail("a\xc3\xb6"), "a\xc3\xb6");
    EXPECT_EQ(utf8::withoutSplitTail("a\xf0\x9f\x98"), "a");
    EXPECT_EQ(utf8::withoutSplitTail("a\xff"), "a\xff");
    EXPECT_EQ(utf8::withoutSplitTail("\x80\x80\x80\x80"), "\x80\x80\x80\x80");
}

} // namespace
