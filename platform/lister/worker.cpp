#include "worker.h"

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include "UniqueFd.h"
#include "cvlog.h"
#include "errors.h"
#include "procparse.h"

namespace lister {

namespace {

/// How often a job is looked at while the patience lasts.
constexpr int kLooksPerPatience = 4;
/// A job that uses less of the processor than a twentieth of the time is fed in drips.
constexpr int kLeastShare = 20;
/// A judgement's deepest frames hold a few buffers of a page each, and one of four. Debug builds and sanitizers need
/// more.
constexpr std::size_t kStackSize = 1U << 20U;

/// The time, and how much of a processor's time a thread has had until then.
struct Clocks {
    std::chrono::steady_clock::time_point now;
    std::chrono::nanoseconds used;
};

} // namespace

/// What the caller and the thread share; a thread that is left behind keeps it alive.
struct Worker::Thread {
    std::mutex mutex;
    std::condition_variable changed;
    /// Those that are to begin.
    std::deque<std::function<void()>> jobs;
    /// What each job threw that has ended and was not waited for.
    std::deque<std::exception_ptr> ended;
    bool isWorking = false;
    bool isEnding = false;
    bool isLeftBehind = false;
    pthread_t id = {};
    std::atomic<pid_t> tid = 0;

    void work();
    std::function<void()> nextJob();
    void leaveBehind();
    [[nodiscard]] std::chrono::nanoseconds processorTime() const;
    [[nodiscard]] bool isRunnable() const;
    /// How long it was idle since `before`, which becomes now.
    [[nodiscard]] std::chrono::nanoseconds idleSince(Clocks& before) const;
    [[nodiscard]] Clocks clocks() const { return {std::chrono::steady_clock::now(), processorTime()}; }
    [[nodiscard]] Wait awaitEnd(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience,
                                const std::atomic<std::size_t>& progress);
    static void* start(void* shared);
};

void* Worker::Thread::start(void* shared) {
    const std::unique_ptr<std::shared_ptr<Thread>> own(static_cast<std::shared_ptr<Thread>*>(shared));
    // With a table of its own neither thread has to count its use of a descriptor (fdget, fs/file.c): 1 % of a listing.
    static_cast<void>(unshare(CLONE_FILES));
    (*own)->tid = gettid();
    (*own)->work();
    return nullptr;
}

std::function<void()> Worker::Thread::nextJob() {
    std::function<void()> job = std::move(jobs.front());
    jobs.pop_front();
    isWorking = true;
    return job;
}

void Worker::Thread::work() {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return !jobs.empty() || isEnding; });
        if (isEnding) {
            return;
        }
        std::function<void()> job = nextJob();
        std::exception_ptr failure;
        lock.unlock();
        try {
            job();
        } catch (...) {
            failure = std::current_exception();
        }
        job = nullptr;
        lock.lock();
        if (isLeftBehind) {
            return;
        }
        isWorking = false;
        ended.push_back(failure);
        changed.notify_all();
    }
}

void Worker::Thread::leaveBehind() {
    isLeftBehind = true;
    pthread_detach(id);
}

std::chrono::nanoseconds Worker::Thread::processorTime() const {
    clockid_t clock = {};
    timespec time = {};
    if (pthread_getcpuclockid(id, &clock) == 0) {
        clock_gettime(clock, &time);
    }
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// On a busy machine the thread may have to wait for a processor, which is not the job's fault (proc_pid_stat(5)). It
/// has no number before it has had one for the first time.
bool Worker::Thread::isRunnable() const {
    if (tid == 0) {
        return true;
    }
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/stat";
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char text[256];
    const ssize_t size = file ? read(file.get(), text, sizeof text) : 0;
    const std::optional<StatLine> stat =
        size > 0 ? parseStat(std::string_view(text, static_cast<std::size_t>(size))) : std::nullopt;
    return stat && stat->state == 'R';
}

/// A thread that waits in the kernel uses no processor time; one that has much to read does.
std::chrono::nanoseconds Worker::Thread::idleSince(Clocks& before) const {
    const Clocks then = std::exchange(before, clocks());
    const std::chrono::nanoseconds time = before.now - then.now;
    const bool isIdle = before.used - then.used < time / kLeastShare && (!ended.empty() || !isRunnable());
    return isIdle ? time : std::chrono::nanoseconds(0);
}

Worker::Wait Worker::Thread::awaitEnd(std::unique_lock<std::mutex>& lock, std::chrono::milliseconds patience,
                                      const std::atomic<std::size_t>& progress) {
    const std::chrono::nanoseconds look = std::chrono::nanoseconds(patience) / kLooksPerPatience;
    Wait wait = {!ended.empty(), progress, {}};
    Clocks before = clocks();
    for (int looks = 0; !wait.isDone && looks < kLooksPerPatience;) {
        wait.isDone = changed.wait_for(lock, look, [this] { return !ended.empty(); });
        const std::chrono::nanoseconds idle = idleSince(before);
        const std::size_t last = std::exchange(wait.progress, progress.load());
        looks = idle.count() > 0 && wait.progress == last ? looks + 1 : 0;
        wait.idle += idle;
    }
    return wait;
}

Worker::Worker() : m_thread(std::make_shared<Thread>()) {
    // Neither thread allocates much: an arena of its own would cost the second one memory for nothing (mallopt(3)).
    mallopt(M_ARENA_MAX, 1);
    auto shared = std::make_unique<std::shared_ptr<Thread>>(m_thread);
    pthread_attr_t attributes = {};
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackSize);
    const int error = pthread_create(&m_thread->id, &attributes, Thread::start, shared.get());
    pthread_attr_destroy(&attributes);
    if (error != 0) {
        logmsgf(kLogError, "find_processes_CV", "No thread can be started to look at other processes: %s",
                std::strerror(error));
        throw ScanFailure{error};
    }
    static_cast<void>(shared.release()); // the thread's now
}

Worker::~Worker() {
    const bool wasLeftBehind = [this] {
        const std::lock_guard<std::mutex> lock(m_thread->mutex);
        if (m_thread->isWorking && !m_thread->isLeftBehind) {
            m_thread->leaveBehind();
        }
        m_thread->isEnding = true;
        m_thread->changed.notify_all();
        return m_thread->isLeftBehind;
    }();
    if (!wasLeftBehind) {
        pthread_join(m_thread->id, nullptr);
    }
}

void Worker::start(std::function<void()> job) {
    const std::lock_guard<std::mutex> lock(m_thread->mutex);
    m_thread->jobs.push_back(std::move(job));
    m_thread->changed.notify_all();
}

Worker::Wait Worker::finish(std::chrono::milliseconds patience, const std::atomic<std::size_t>& progress) {
    std::unique_lock<std::mutex> lock(m_thread->mutex);
    const Wait wait = m_thread->awaitEnd(lock, patience, progress);
    if (!wait.isDone) {
        m_thread->leaveBehind();
        return wait;
    }
    const std::exception_ptr failure = std::exchange(m_thread->ended.front(), nullptr);
    m_thread->ended.pop_front();
    if (failure) {
        std::rethrow_exception(failure);
    }
    return wait;
}

} // namespace lister
