#include "worker.h"

#include <atomic>
#include <ctime>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <sched.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Threads.h"
#include "errors.h"

namespace lister {
namespace {

using std::chrono::milliseconds;

/// For a job that counts nothing.
const std::atomic<std::size_t> kNoProgress = 0;

bool run(Worker& worker, std::function<void()> job, milliseconds patience) {
    worker.start(std::move(job));
    return worker.finish(patience, kNoProgress).isDone;
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

/// What one of them throws is thrown where that one is waited for.
TEST(Worker, BeginsTheNextJobWithoutBeingAsked) {
    Worker worker;
    std::promise<void> last;
    worker.start([] {});
    worker.start([] { throw ScanFailure{5}; });
    worker.start([&last] { last.set_value(); });
    last.get_future().wait();
    EXPECT_TRUE(worker.finish(milliseconds(1000), kNoProgress).isDone);
    EXPECT_THROW(static_cast<void>(worker.finish(milliseconds(1000), kNoProgress)), ScanFailure);
    EXPECT_TRUE(worker.finish(milliseconds(1000), kNoProgress).isDone);
}

/// It goes on for itself when it is let go: what it owns must still be there, and what waits behind it is not begun.
TEST(Worker, StuckJobIsLeftBehind) {
    std::promise<void> release;
    const auto end = std::make_shared<std::promise<int>>();
    std::future<int> left = end->get_future();
    const auto behind = std::make_shared<std::promise<void>>();
    std::future<void> begun = behind->get_future();
    {
        Worker worker;
        worker.start([gate = release.get_future().share(), end] {
            gate.wait();
            end->set_value(42);
        });
        worker.start([behind] { behind->set_value(); });
        EXPECT_FALSE(worker.finish(milliseconds(20), kNoProgress).isDone);
    }
    release.set_value();
    EXPECT_EQ(left.get(), 42);
    // The thread ends, and the last owner with it.
    while (behind.use_count() > 1) {
    }
    EXPECT_EQ(begun.wait_for(milliseconds(0)), std::future_status::timeout);
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

/// Each of its steps is short of the patience, and all of them together are not.
TEST(Worker, PatienceBeginsAnewWithEachStep) {
    Worker worker;
    std::atomic<std::size_t> progress = 0;
    worker.start([&progress] {
        while (progress < 6) {
            usleep(130'000);
            ++progress;
        }
    });
    const Worker::Wait wait = worker.finish(milliseconds(400), progress);
    EXPECT_TRUE(wait.isDone);
    EXPECT_EQ(wait.progress, 6U);
    EXPECT_GT(wait.idle, milliseconds(100)) << "it used no processor meanwhile";
}

TEST(Worker, TellsHowFarAStuckJobHasCome) {
    std::promise<void> release;
    const auto progress = std::make_shared<std::atomic<std::size_t>>(0);
    const auto end = std::make_shared<std::promise<void>>();
    std::future<void> left = end->get_future();
    Worker worker;
    worker.start([gate = release.get_future().share(), progress, end] {
        *progress = 3;
        gate.wait();
        end->set_value();
    });
    const Worker::Wait wait = worker.finish(milliseconds(40), *progress);
    EXPECT_FALSE(wait.isDone);
    EXPECT_EQ(wait.progress, 3U);
    EXPECT_GE(wait.idle, milliseconds(40));
    release.set_value();
    left.wait();
}

/// The machine may be so busy that it begins only when the patience would be over.
TEST(Worker, ThreadThatBeginsLateIsWaitedFor) {
    threads::delay(milliseconds(300));
    Worker worker;
    threads::delay(milliseconds(0));
    const auto isDone = std::make_shared<std::atomic<bool>>(false);
    EXPECT_TRUE(run(
        worker, [isDone] { *isDone = true; }, milliseconds(20)));
    EXPECT_TRUE(*isDone);
}

/// Lets the calling thread run only on the processor that it runs on.
void stayHere() {
    cpu_set_t one = {};
    CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
}

/// Keeps the processor that it runs on busy: what is idle by its class (sched(7)) gets next to nothing of it.
class BusyProcessor {
  public:
    BusyProcessor() = default;
    ~BusyProcessor() { m_thread.join(); }
    BusyProcessor(const BusyProcessor&) = delete;
    BusyProcessor& operator=(const BusyProcessor&) = delete;
    [[nodiscard]] bool isOver() const { return m_isOver; }

  private:
    void keepBusy() {
        const auto end = std::chrono::steady_clock::now() + milliseconds(500);
        while (std::chrono::steady_clock::now() < end) {
        }
        m_isOver = true;
    }

    std::atomic<bool> m_isOver = false;
    // It is of the caller's processors, and of its class.
    std::thread m_thread{[this] { keepBusy(); }};
};

/// Its job does all that it can, and that is next to nothing.
TEST(Worker, JobThatWaitsForAProcessorIsWaitedFor) {
    Worker worker;
    const auto isDone = std::make_shared<std::atomic<bool>>(false);
    // The job does not wait for its end, which would be idle.
    const auto busy = std::make_shared<std::optional<BusyProcessor>>();
    EXPECT_TRUE(run(
        worker,
        [isDone, busy] {
            stayHere();
            busy->emplace();
            const sched_param none = {};
            ASSERT_EQ(sched_setscheduler(0, SCHED_IDLE, &none), 0);
            while (!(*busy)->isOver()) {
            }
            *isDone = true;
        },
        milliseconds(20)));
    EXPECT_TRUE(*isDone);
}

} // namespace
} // namespace lister
