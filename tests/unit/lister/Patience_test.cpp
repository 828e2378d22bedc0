#include "patience.h"

#include <gtest/gtest.h>

namespace lister {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(Patience, IsHalvedDownTo20Milliseconds) {
    Patience patience;
    for (const int left : {1000, 500, 250, 125, 62, 31, 20, 20}) {
        EXPECT_EQ(patience.withOne(), milliseconds(left));
        patience.halve();
    }
}

TEST(Patience, IsHalvedByEachFiveSecondsOfWaiting) {
    Patience patience;
    patience.spend(milliseconds(4999));
    EXPECT_EQ(patience.withOne(), seconds(1));
    patience.spend(milliseconds(1));
    EXPECT_EQ(patience.withOne(), milliseconds(500));
    patience.spend(milliseconds(14'999));
    EXPECT_EQ(patience.withOne(), milliseconds(125));
    patience.spend(milliseconds(1));
    EXPECT_EQ(patience.withOne(), milliseconds(62));
    patience.spend(seconds(3600));
    EXPECT_EQ(patience.withOne(), milliseconds(20));
}

} // namespace
} // namespace lister
