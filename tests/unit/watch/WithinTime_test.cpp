#include "WithinTime.h"

#include <future>
#include <memory>

#include <gtest/gtest.h>

namespace watch {
namespace {

using std::chrono::milliseconds;

TEST(WithinTime, GivesWhatWasRead) {
    EXPECT_EQ(withinTime(std::chrono::minutes(1), [] { return std::string("read"); }), "read");
}

TEST(WithinTime, LeavesBehindWhatDoesNotComeBack) {
    // Until the end of the test the read waits for what nobody writes.
    const auto never = std::make_shared<std::promise<std::string>>();
    std::shared_future<std::string> text = never->get_future().share();
    const auto finished = std::make_shared<std::promise<void>>();
    EXPECT_FALSE(withinTime(milliseconds(10), [text, finished] {
        std::string read = text.get();
        finished->set_value();
        return read;
    }));
    never->set_value("late");
    finished->get_future().wait();
}

} // namespace
} // namespace watch
