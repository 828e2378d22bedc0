#include "utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

/// The rules of UTF-8 once more, from the code point's side.
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

TEST(Utf8, EveryCodePointButSurrogatesIsOneSequence) {
    for (char32_t point = 0; point < 0x111000; ++point) {
        const std::string text = encoded(point);
        const bool isValid = point < 0xD800 || (point > 0xDFFF && point <= 0x10FFFF);
        ASSERT_EQ(utf8::sequenceLength(text), isValid ? text.size() : 0U) << static_cast<unsigned>(point);
    }
}

TEST(Utf8, OverlongFormsAndImpossibleLeadsAreNone) {
    for (const char* text : {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF",
                             "\xF5\x80\x80\x80", "\xFF\x80\x80\x80"}) {
        EXPECT_EQ(utf8::sequenceLength(text), 0U) << testing::PrintToString(text);
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
