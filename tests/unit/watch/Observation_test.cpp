#include "Observation.h"

#include <csignal>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Clock.h"
#include "ProcFiles.h"
#include "ProcTexts.h"

namespace watch {
namespace {

/// A child of the test that does nothing until it is ended. It is reaped when that is asked for, or at the end.
class Sleeper {
  public:
    Sleeper() : m_pid(::fork()) {
        if (m_pid == 0) {
            for (;;) {
                ::pause();
            }
        }
    }
    ~Sleeper() {
        kill();
        reap();
    }
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;

    void kill() const { ::kill(m_pid, SIGKILL); }
    void reap() {
        if (!m_isReaped) {
            ::waitpid(m_pid, nullptr, 0);
        }
        m_isReaped = true;
    }
    /// Waits until it is a zombie.
    void awaitEnd() const {
        siginfo_t info;
        ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT);
    }
    [[nodiscard]] int pid() const { return m_pid; }

  private:
    pid_t m_pid;
    bool m_isReaped = false;
};

/// A child whose first thread has exited; another one goes on.
class Headless {
  public:
    Headless() : m_pid(::fork()) {
        if (m_pid == 0) {
            std::thread([] {
                for (;;) {
                    ::pause();
                }
            }).detach();
            ::syscall(SYS_exit, 0);
        }
        while (!isHeadless()) {
        }
    }
    ~Headless() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    Headless(const Headless&) = delete;
    Headless& operator=(const Headless&) = delete;

    [[nodiscard]] int pid() const { return m_pid; }

  private:
    [[nodiscard]] bool isHeadless() const {
        std::ifstream file("/proc/" + std::to_string(m_pid) + "/stat");
        const std::string text((std::istreambuf_iterator<char>(file)), {});
        const auto stat = parseProcStat(text);
        return stat && stat->state == 'Z';
    }

    pid_t m_pid;
};

std::vector<LifeEvent> pollOnce(Observation& observation) {
    std::vector<pollfd> waiting;
    observation.appendTo(waiting);
    ::poll(waiting.data(), waiting.size(), 10'000);
    return observation.polled(waiting.data(), waiting.data() + waiting.size());
}

Time farFuture() {
    return sinceBoot() + 100 * kSecond;
}

TEST(Observation, PidfdTellsOfAnEndAndALookOfItsParent) {
    Sleeper one;
    Sleeper two;
    Observation observation({one.pid(), two.pid()}, farFuture(), 10);
    EXPECT_FALSE(observation.isCoarse());
    EXPECT_FALSE(observation.lookDue());
    EXPECT_EQ(observation.parentOf(1), ::getpid());
    const Time before = timeNow();
    two.kill();
    const auto ended = pollOnce(observation);
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_EQ(ended[0].place, 1U);
    EXPECT_EQ(ended[0].kind, LifeEvent::Kind::ended);
    EXPECT_GE(ended[0].time, before);
    EXPECT_LE(ended[0].time, timeNow());
    // It is a zombie now: signal 0 still finds it.
    ASSERT_TRUE(observation.lookDue());
    EXPECT_TRUE(observation.look().empty());
    EXPECT_TRUE(observation.isThere(1));
    two.reap();
    const auto gone = observation.look();
    ASSERT_EQ(gone.size(), 1U);
    EXPECT_EQ(gone[0].kind, LifeEvent::Kind::gone);
    EXPECT_FALSE(observation.isThere(1));
    EXPECT_FALSE(observation.lookDue());
    EXPECT_TRUE(observation.isThere(0));
}

TEST(Observation, WithoutDescriptorsItLooks) {
    Sleeper one;
    Observation observation({one.pid()}, farFuture(), 0);
    EXPECT_TRUE(observation.isCoarse());
    ASSERT_TRUE(observation.lookDue());
    EXPECT_LE(*observation.lookDue(), timeOf(CLOCK_MONOTONIC) + kLookPeriod);
    EXPECT_TRUE(observation.look().empty());
    one.kill();
    one.awaitEnd();
    const auto ended = observation.look();
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_EQ(ended[0].kind, LifeEvent::Kind::ended);
    one.reap();
    ASSERT_EQ(observation.look().size(), 1U);
}

TEST(Observation, EndAndParentInOneLook) {
    Sleeper one;
    Observation observation({one.pid()}, farFuture(), 0);
    one.kill();
    one.reap();
    const auto events = observation.look();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].kind, LifeEvent::Kind::ended);
    EXPECT_EQ(events[1].kind, LifeEvent::Kind::gone);
}

TEST(Observation, OnlySoManyDescriptors) {
    Sleeper one;
    Sleeper two;
    Sleeper three;
    const Observation observation({one.pid(), two.pid(), three.pid()}, farFuture(), 2);
    std::vector<pollfd> waiting;
    observation.appendTo(waiting);
    EXPECT_EQ(waiting.size(), 2U);
    EXPECT_TRUE(observation.isCoarse());
}

TEST(Observation, AYoungerProcessOfThatPidIsNotTheOneThatWasListed) {
    Sleeper one;
    const Time start = readProcState(one.pid())->start;
    const Observation same({one.pid()}, start, 10);
    EXPECT_TRUE(same.isThere(0));
    EXPECT_EQ(same.startOf(0), start);
    const Observation other({one.pid()}, start - 1, 10);
    EXPECT_FALSE(other.isThere(0));
    EXPECT_FALSE(other.startOf(0));
    EXPECT_EQ(other.parentOf(0), 0);
    EXPECT_FALSE(other.isThat(0, start));
    std::vector<pollfd> waiting;
    other.appendTo(waiting);
    EXPECT_TRUE(waiting.empty());
    EXPECT_FALSE(other.isCoarse());
}

TEST(Observation, SameProcessHasTheSamePidAndStart) {
    Sleeper one;
    const Time start = readProcState(one.pid())->start;
    Observation observation({one.pid()}, farFuture(), 10);
    EXPECT_TRUE(observation.isThat(0, start));
    EXPECT_FALSE(observation.isThat(0, start + kTick));
    one.kill();
    one.awaitEnd();
    pollOnce(observation);
    EXPECT_TRUE(observation.isThat(0, start));
    one.reap();
    observation.look();
    EXPECT_FALSE(observation.isThat(0, start));
}

TEST(Observation, ClosesItsDescriptors) {
    Sleeper one;
    Observation observation({one.pid()}, farFuture(), 10);
    std::vector<pollfd> waiting;
    observation.appendTo(waiting);
    ASSERT_EQ(waiting.size(), 1U);
    observation.close();
    EXPECT_EQ(::fcntl(waiting[0].fd, F_GETFD), -1);
    EXPECT_TRUE(observation.isThere(0));
}

TEST(Observation, ProcessWhoseFirstThreadHasExitedIsThere) {
    Headless one;
    for (const std::size_t descriptors : {0U, 10U}) {
        Observation observation({one.pid()}, farFuture(), descriptors);
        EXPECT_TRUE(observation.look().empty());
        EXPECT_TRUE(observation.isThere(0));
    }
    Activity activity = readActivity(one.pid());
    while (activity.state == State::running) {
        activity = readActivity(one.pid());
    }
    EXPECT_EQ(activity.state, State::sleeping);
}

/// Nothing can be opened for as long as it lives.
class NoDescriptors {
  public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none{0, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit m_before{};
};

TEST(Observation, ProcessThatCannotBeReadHasNotEnded) {
    Sleeper one;
    std::optional<Observation> unread;
    Observation read({one.pid()}, farFuture(), 0);
    {
        const NoDescriptors none;
        unread.emplace(std::vector<int>{one.pid()}, farFuture(), 10);
        EXPECT_TRUE(unread->look().empty());
        EXPECT_TRUE(read.look().empty());
    }
    EXPECT_TRUE(unread->isCoarse());
    EXPECT_TRUE(unread->isThere(0) && read.isThere(0));
    // Without its start it is known by its pid alone.
    EXPECT_FALSE(unread->startOf(0));
    EXPECT_TRUE(unread->isThat(0, 17));
    one.kill();
    one.reap();
    EXPECT_EQ(unread->look().size(), 2U);
    EXPECT_EQ(read.look().size(), 2U);
}

TEST(Observation, WhoIsGoneAlreadyIsNotThere) {
    Sleeper one;
    one.kill();
    one.reap();
    const Observation observation({one.pid()}, farFuture(), 10);
    EXPECT_FALSE(observation.isThere(0));
    EXPECT_FALSE(observation.lookDue());
}

} // namespace
} // namespace watch
