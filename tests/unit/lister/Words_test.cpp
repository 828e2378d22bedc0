#include "words.h"

#include <gtest/gtest.h>

namespace lister {
namespace {

TEST(Words, AreTakenOneByOneWithTheBlanksBeforeThem) {
    std::string_view text = " \tone  two\t";
    EXPECT_EQ(takeWord(text), "one");
    EXPECT_EQ(text, "  two\t");
    EXPECT_EQ(takeWord(text), "two");
    EXPECT_EQ(takeWord(text), "");
    EXPECT_EQ(text, "");
    EXPECT_EQ(takeWord(text), "");
}

TEST(Words, FirstOneIsEmptyWhereABlankIsInFront) {
    EXPECT_EQ(firstWord("one two"), "one");
    EXPECT_EQ(firstWord(" one"), "");
}

} // namespace
} // namespace lister
