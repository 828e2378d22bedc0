#include "Text.h"

#include <gtest/gtest.h>

namespace {

using watch::columns;
using watch::fitted;
using watch::harmless;
using watch::padded;

TEST(Harmless, LeavesWhatIsSeenAlone) {
    EXPECT_EQ(harmless(""), "");
    EXPECT_EQ(harmless("a ~é\xC2\xA0バックアップ€😀"), "a ~é\xC2\xA0バックアップ€😀");
}

TEST(Harmless, PutsAQuestionMarkForWhatSteersOrDeceives) {
    const struct {
        const char* text;
        const char* shown;
    } rows[] = {
        {"a\x1b[31mb", "a?[31mb"},      // a terminal would change its colour
        {"a\nb\rc\td\x7f", "a?b?c?d?"}, // lines that are none
        {"a\xC2\x9B"
         "31m",
         "a?31m"},            // the same as ESC [
        {"a\xff\xC3", "a??"}, // no UTF-8
        {"a\xE2\x80\xAE"
         "b\xE2\x80\x8B"
         "c",
         "a?b?c"}, // turns the direction; is not seen
        {"\xEF\xBB\xBF"
         "a\xC2\xAD",
         "?a?"},
        {"\xEF\xBF\xBE\xEF\xBF\xBF", "??"}, // no XML may hold U+FFFE and U+FFFF
        {"\xEF\xBF\xBC\xEF\xBF\xBD", "\xEF\xBF\xBC\xEF\xBF\xBD"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(harmless(row.text), row.shown);
    }
}

TEST(Columns, AreThoseOfATerminal) {
    EXPECT_EQ(columns(""), 0U);
    EXPECT_EQ(columns("halvd"), 5U);
    EXPECT_EQ(columns("é€ñ"), 3U);
    EXPECT_EQ(columns("バックアップ"), 12U);
    EXPECT_EQ(columns("𠀀😀"), 4U);
    EXPECT_EQ(columns("ぁ㏿"), 4U);      // the ends of a range
    EXPECT_EQ(columns("e\xCC\x81"), 1U); // an accent of its own
    EXPECT_EQ(columns("한국어"), 6U);
    EXPECT_EQ(columns("\u2705\u23F3"), 4U);
    EXPECT_EQ(columns("\u2764"), 1U);
    EXPECT_EQ(columns("\u2764\uFE0F!"), 3U); // shown as a picture
    EXPECT_EQ(columns("\u2705\uFE0F"), 2U);  // is one already
    EXPECT_EQ(columns("\u2764\uFE0F\uFE0F"), 2U);
    EXPECT_EQ(columns("\uFE0F"), 0U);
}

TEST(Fitted, CutsWholeCharactersAndSaysSo) {
    EXPECT_EQ(fitted("halvd", 5), "halvd");
    EXPECT_EQ(fitted("halvd", 4), "hal…");
    EXPECT_EQ(fitted("halvd", 1), "…");
    EXPECT_EQ(fitted("halvd", 0), "");
    EXPECT_EQ(fitted("", 0), "");
    EXPECT_EQ(fitted("バックアップ", 6), "バッ…"); // five columns: half a character does not fit
    EXPECT_EQ(fitted("e\xCC\x81t\xC3\xA9s", 2), "e\xCC\x81…");
    EXPECT_EQ(fitted("a\nbc", 3), "a?…");
    EXPECT_EQ(fitted("\u2764\uFE0Fbc", 3), "\u2764\uFE0F…");
    EXPECT_EQ(columns(fitted("\u2764\uFE0Fbc", 2)), 2U);
}

TEST(Fitted, KeepsItsWidthWhateverTheText) {
    const std::string mixed = "aバ\xff\x1b€😀\xCC\x81z";
    for (std::size_t length = 0; length <= mixed.size(); ++length) {
        for (std::size_t width = 0; width <= 12; ++width) {
            EXPECT_LE(columns(fitted(mixed.substr(0, length), width)), width);
            EXPECT_EQ(columns(padded(mixed.substr(0, length), width)), width);
        }
    }
}

TEST(Padded, FillsUpOrCuts) {
    EXPECT_EQ(padded("ab", 4), "ab  ");
    EXPECT_EQ(padded("abcdef", 4), "abc…");
    EXPECT_EQ(padded("バ", 3), "バ ");
}

} // namespace
