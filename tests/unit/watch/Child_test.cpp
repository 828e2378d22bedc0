#include "Child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TempFolder.h"

namespace watch {
namespace {

/// What a test changes of its own process is as it was behind it.
class ChildTest : public testing::Test {
  protected:
    ~ChildTest() override {
        for (const int number : {SIGINT, SIGQUIT, SIGHUP}) {
            // One that still waits goes with this.
            std::signal(number, SIG_IGN);
        }
        m_before.restore();
    }

    [[nodiscard]] Started start(
        const std::vector<std::string>& words, const Streams& streams = {},
        const std::function<void()>& letGo = [] {}) const {
        return startProgram({words.front(), words}, streams, m_before, letGo);
    }
    static Ending ending(const Started& started) {
        siginfo_t info;
        ::waitid(P_PID, static_cast<id_t>(started.pid), &info, WEXITED | WNOWAIT);
        const std::optional<Ending> ended = endingOf(started.pid);
        EXPECT_TRUE(ended);
        return ended.value_or(Ending());
    }

    Inherited m_before;
    TempFolder m_folder;
};

TEST_F(ChildTest, EndsWithItsStatusOrByItsSignal) {
    const Started exits = start({"/bin/sh", "-c", "exit 7"});
    EXPECT_EQ(exits.error, 0);
    EXPECT_EQ(ending(exits).status, 7);
    EXPECT_EQ(whyItNeverRan(exits), 0);
    const Started dies = start({"/bin/sh", "-c", "kill -KILL $$"});
    const Ending ended = ending(dies);
    EXPECT_FALSE(ended.status);
    EXPECT_EQ(ended.signal, SIGKILL);
}

TEST(Inherited, ClosesWhatItWasStartedWithAndNothingElse) {
    // Not of the test itself, which needs what it was started with.
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int theirs = ::open("/dev/null", O_RDONLY);
        const Inherited inherited;
        const int own = ::open("/dev/null", O_RDONLY);
        inherited.closeOthers();
        ::_exit(::fcntl(theirs, F_GETFD) == -1 && ::fcntl(own, F_GETFD) != -1 && ::fcntl(2, F_GETFD) != -1 ? 0 : 1);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST_F(ChildTest, HasNotEndedWhileItStandsStill) {
    const Started started = start({"/bin/sh", "-c", "kill -STOP $$"});
    siginfo_t info;
    ::waitid(P_PID, static_cast<id_t>(started.pid), &info, WSTOPPED | WNOWAIT);
    EXPECT_FALSE(endingOf(started.pid));
    ::kill(started.pid, SIGCONT);
    EXPECT_EQ(ending(started).status, 0);
}

TEST_F(ChildTest, SaysWhyItNeverRan) {
    const Started missing = start({m_folder.at("none")});
    EXPECT_EQ(ending(missing).status, 127);
    EXPECT_EQ(whyItNeverRan(missing), ENOENT);
    const Started plain = start({m_folder.write("plain", "no program\n")});
    EXPECT_EQ(ending(plain).status, 126);
    EXPECT_EQ(whyItNeverRan(plain), EACCES);
}

TEST_F(ChildTest, WritesWhereItIsTold) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    const Started started = start({"/bin/sh", "-c", "echo one; echo two >&2"}, {writing.get(), true});
    EXPECT_EQ(ending(started).status, 0);
    std::array<char, 64> text{};
    EXPECT_EQ(::read(reading.get(), text.data(), text.size()), 8);
    EXPECT_STREQ(text.data(), "one\ntwo\n");
}

TEST_F(ChildTest, DoesNotStartBeforeTheStreamsAreLetGo) {
    const std::string ran = m_folder.at("ran");
    bool wasThere = true;
    const Started started =
        start({"/bin/sh", "-c", "echo >" + ran}, {}, [&] { wasThere = std::filesystem::exists(ran); });
    EXPECT_FALSE(wasThere);
    EXPECT_EQ(ending(started).status, 0);
    EXPECT_TRUE(std::filesystem::exists(ran));
}

TEST_F(ChildTest, InterruptThatComesFirstIsTheEnd) {
    for (const int number : {SIGINT, SIGQUIT, SIGHUP}) {
        const std::string ran = m_folder.at("ran");
        const Started started = start({"/bin/sh", "-c", "echo >" + ran}, {}, [&] { ::raise(number); });
        EXPECT_EQ(started.interrupt, number);
        EXPECT_EQ(started.pid, -1);
        EXPECT_FALSE(std::filesystem::exists(ran));
        std::signal(number, SIG_IGN);
        std::signal(number, SIG_DFL);
    }
}

TEST_F(ChildTest, InterruptThatTheStarterIgnoredOrHeldBackIsNone) {
    std::signal(SIGINT, SIG_IGN);
    sigset_t quit;
    ::sigemptyset(&quit);
    ::sigaddset(&quit, SIGQUIT);
    ::sigprocmask(SIG_BLOCK, &quit, nullptr);
    const Inherited inherited;
    const Started started = startProgram({"/bin/sh", {"sh", "-c", "exit 3"}}, {}, inherited, [] {
        ::raise(SIGINT);
        ::raise(SIGQUIT);
    });
    EXPECT_FALSE(started.interrupt);
    EXPECT_EQ(ending(started).status, 3);
}

TEST_F(ChildTest, InterruptsAreTheProgramsOnceItRuns) {
    const Started started = start({"/bin/sh", "-c", "kill -INT $$"});
    // The watcher heeds none; the program has those of the starter.
    ::raise(SIGINT);
    ::raise(SIGHUP);
    EXPECT_EQ(ending(started).signal, SIGINT);
}

TEST_F(ChildTest, DescriptorsAreRaisedForTheWatcherAlone) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit small{64, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &small), 0);
    const Inherited inherited;
    EXPECT_EQ(inherited.raiseDescriptorLimit(20), 20U);
    EXPECT_EQ(inherited.raiseDescriptorLimit(100), 100U);
    const Started started = startProgram({"/bin/sh", {"sh", "-c", "exit $(ulimit -n)"}}, {}, inherited, [] {});
    EXPECT_EQ(ending(started).status, 64);
    inherited.restore();
    rlimit after{};
    ::getrlimit(RLIMIT_NOFILE, &after);
    EXPECT_EQ(after.rlim_cur, 64U);
}

TEST_F(ChildTest, WatcherWaitsForItsChildWhateverTheStarterThought) {
    std::signal(SIGCHLD, SIG_IGN);
    const Inherited inherited;
    inherited.prepareWatcher();
    const Started started = startProgram({"/bin/sh", {"sh", "-c", "exit 5"}}, {}, inherited, [] {});
    EXPECT_EQ(ending(started).status, 5);
    EXPECT_EQ(endingOf(started.pid)->status, 126); // there is none any more
    std::signal(SIGCHLD, SIG_DFL);
}

TEST(EndLikeDeathTest, EndsAsTheProgramDid) {
    EXPECT_EXIT(endLike({7, std::nullopt}), testing::ExitedWithCode(7), "");
    EXPECT_EXIT(endLike({std::nullopt, SIGTERM}), testing::KilledBySignal(SIGTERM), "");
    EXPECT_EXIT(endLike({}), testing::ExitedWithCode(126), "");
}

} // namespace
} // namespace watch
