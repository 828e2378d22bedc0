#include "controls.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(Controls, AreC0DelAndC1) {
    for (int code = 0; code < 0x80; ++code) {
        const std::string text(1, static_cast<char>(code));
        EXPECT_EQ(controls::isControl(text), code < 0x20 || code == 0x7F) << code;
        EXPECT_FALSE(controls::isC1(text)) << code;
    }
    for (int code = 0x80; code < 0xC0; ++code) {
        const std::string text = {'\xC2', static_cast<char>(code)};
        EXPECT_EQ(controls::isC1(text), code < 0xA0) << code;
        EXPECT_EQ(controls::isControl(text), code < 0xA0) << code;
    }
}

TEST(Controls, LettersOfSeveralBytesAreNot) {
    for (const char* letter : {"\xC3\x80", "\xC3\x9F", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        EXPECT_FALSE(controls::isC1(letter)) << letter;
        EXPECT_FALSE(controls::isControl(letter)) << letter;
    }
}

} // namespace
