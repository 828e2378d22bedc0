#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "front.h"

namespace {

bool confirmed(const std::string& answer) {
    std::istringstream in(answer);
    std::ostringstream out;
    return confirmAction("Sure? ", out, in);
}

class YesAnswer : public ::testing::TestWithParam<const char*> {};

TEST_P(YesAnswer, CountsAsYes) {
    EXPECT_TRUE(confirmed(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(ConfirmAction, YesAnswer,
                         ::testing::Values("Y\n", "y\n", "yes\n", "Yes\n", "Yup\n", "y", "yellow submarine\n", "y\r\n",
                                           "y\nno\n"));

class NoAnswer : public ::testing::TestWithParam<const char*> {};

TEST_P(NoAnswer, CountsAsNo) {
    EXPECT_FALSE(confirmed(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(ConfirmAction, NoAnswer,
                         ::testing::Values("n\n", "N\n", "no\n", "\n", " y\n", "ok\n", "", "\ty\n", "\ny\n", "\r\n"));

TEST(ConfirmAction, WritesThePromptAsItStandsAndAsksOnce) {
    std::istringstream in("maybe\ny\n");
    std::ostringstream out;
    EXPECT_FALSE(confirmAction("Sure? (y/n) ", out, in));
    EXPECT_EQ(out.str(), "Sure? (y/n) ");
    std::string rest;
    std::getline(in, rest);
    EXPECT_EQ(rest, "y") << "exactly one line is read";
}

TEST(ConfirmAction, OnAStreamInErrorIsNo) {
    std::istringstream in("y\n");
    in.setstate(std::ios::badbit);
    std::ostringstream out;
    EXPECT_FALSE(confirmAction("Sure? ", out, in));
}

/// Counts flushes.
class FlushCounter : public std::stringbuf {
  public:
    int flushes = 0;

  protected:
    int sync() override {
        ++flushes;
        return std::stringbuf::sync();
    }
};

TEST(ConfirmAction, FlushesThePromptBeforeItReads) {
    FlushCounter buffer;
    std::ostream out(&buffer);
    std::istringstream in("n\n");
    EXPECT_FALSE(confirmAction("Sure? ", out, in));
    EXPECT_GE(buffer.flushes, 1);
}

} // namespace
