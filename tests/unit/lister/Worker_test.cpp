#include "worker.h"

#include <atomic>
#include <ctime>
#include <functional>
#include <future>
#include <stdexcept>
#include <utility>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "verdict.h"

namespace lister {
namespace {

using std::chrono::milliseconds;

bool run(Worker& worker, std::function<void()> job, milliseconds patience) {
    worker.start(std::move(job));
    return worker.finish(patience);
}

TEST(Worker, DoesOneJobAfterTheOther) {
    Worker worker;
    std::vector<int> done;
    for (int job = 0; job < 100; ++job) {
        ASSERT_TRUE(run(
            worker, [&done, job] { done.push_back(job); }, milliseconds(1000)));
        EXPECT_EQ(done.back(), job);
    }
    EXPECT_EQ(done.size(), 100U);
}

TEST(Worker, ThrowsWhatTheJobThrewAndTakesAnother) {
    Worker worker;
    EXPECT_THROW(static_cast<void>(run(
                     worker, [] { throw ScanFailure{5}; }, milliseconds(1000))),
                 ScanFailure);
    EXPECT_THROW(static_cast<void>(run(
                     worker, [] { throw std::bad_alloc(); }, milliseconds(1000))),
                 std::bad_alloc);
    bool isDone = false;
    EXPECT_TRUE(run(
        worker, [&isDone] { isDone = true; }, milliseconds(1000)));
    EXPECT_TRUE(isDone);
}

/// It goes on for itself when it is let go: what it owns must still be there.
TEST(Worker, StuckJobIsLeftBehind) {
    std::promise<void> release;
    const auto end = std::make_shared<std::promise<int>>();
    std::future<int> left = end->get_future();
    {
        Worker worker;
        EXPECT_FALSE(run(
            worker,
            [gate = release.get_future().share(), end] {
                gate.wait();
                end->set_value(42);
            },
            milliseconds(20)));
    }
    release.set_value();
    EXPECT_EQ(left.get(), 42);
}

/// A file server may answer a little at a time, and never come to an end.
TEST(Worker, JobThatIsFedInDripsIsLeftBehind) {
    const auto isOver = std::make_shared<std::atomic<bool>>(false);
    {
        Worker worker;
        EXPECT_FALSE(run(
            worker,
            [isOver] {
                while (!*isOver) {
                    usleep(1000);
                }
            },
            milliseconds(100)));
    }
    *isOver = true;
}

double processorSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A database with many mappings takes its time.
TEST(Worker, BusyJobIsWaitedFor) {
    Worker worker;
    std::atomic<bool> isDone = false;
    EXPECT_TRUE(run(
        worker,
        [&isDone] {
            for (const double begin = processorSeconds(); processorSeconds() < begin + 0.5;) {
            }
            isDone = true;
        },
        milliseconds(400)));
    EXPECT_TRUE(isDone);
}

} // namespace
} // namespace lister
