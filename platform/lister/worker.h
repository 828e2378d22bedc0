/// Work that may never come to an end, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace lister {

/// A thread that does one job at a time. A job that is stuck is left behind together with the thread. Of the caller's
/// descriptors it finds those that were open when the worker was made.
class Worker {
  public:
    /// Throws ScanFailure where no thread can be had.
    Worker();
    /// Ends the thread; one that is still at work is left behind.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Begins a job, and the one before must be finished. It may go on after the worker's end: it must own whatever it
    /// uses.
    void start(std::function<void()> job);

    /// Waits until the job is done and throws what it threw. Returns false where it used next to no processor time for
    /// as long as `patience`, and did not wait for a processor either: then the worker takes no other job.
    [[nodiscard]] bool finish(std::chrono::milliseconds patience);

  private:
    struct Thread;
    std::shared_ptr<Thread> m_thread;
};

} // namespace lister
