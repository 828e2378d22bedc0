/// Work that may never come to an end, on a thread of its own.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace lister {

/// A thread that does one job after the other. A job that is stuck is left behind together with the thread. Of the
/// caller's descriptors it finds those that were open when the worker was made.
class Worker {
  public:
    /// Throws ScanFailure where no thread can be had.
    Worker();
    /// Ends the thread, which begins no other job; one that is still at work is left behind.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Begins a job as soon as those before it have ended. It may go on after the worker's end: it must own whatever it
    /// uses.
    void start(std::function<void()> job);

    struct Wait {
        bool isDone = false;
        /// How far the job had counted when the wait ended.
        std::size_t progress = 0;
        /// For how much of the wait the job was idle: it used next to no processor time, and did not wait for a
        /// processor either.
        std::chrono::nanoseconds idle{0};
    };
    /// Waits until the oldest job that was not waited for is done and throws what it threw. Gives up where the job was
    /// idle for as long as `patience` without counting `progress` up: then the worker begins no other job.
    [[nodiscard]] Wait finish(std::chrono::milliseconds patience, const std::atomic<std::size_t>& progress);

  private:
    struct Thread;
    std::shared_ptr<Thread> m_thread;
};

} // namespace lister
