#include "verdict.h"

#include <iterator>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace lister {
namespace {

/// Administrators search the log for them.
TEST(Reasons, HaveATextEachThatSaysWhetherTheProcessIsPassedOver) {
    std::set<std::string> texts;
    for (const ReasonRow& row : kReasons) {
        const std::string text = row.text;
        texts.insert(text);
        EXPECT_GE(text.size(), 8U) << text;
        const bool isPassedOver = text.starts_with("passed over: ");
        EXPECT_EQ(row.isWarning, isPassedOver || row.reason == Reason::UnfitPath) << text;
    }
    EXPECT_EQ(texts.size(), std::size(kReasons)) << "two reasons have one text";
}

} // namespace
} // namespace lister
