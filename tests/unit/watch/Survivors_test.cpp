#include "Survivors.h"

#include <atomic>
#include <csignal>
#include <thread>

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Clock.h"
#include "ProcFiles.h"
#include "StopCommands.h"

namespace watch {
namespace {

/// A child of the test that does what it is given, and then nothing until it is ended.
class Doer {
  public:
    template <typename Deed> explicit Doer(Deed deed) : m_pid(::fork()) {
        if (m_pid == 0) {
            deed();
            for (;;) {
                ::pause();
            }
        }
    }
    ~Doer() {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    Doer(const Doer&) = delete;
    Doer& operator=(const Doer&) = delete;

    [[nodiscard]] int pid() const { return m_pid; }
    void awaitStop() const {
        siginfo_t info;
        ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WSTOPPED | WNOWAIT);
    }

  private:
    pid_t m_pid;
};

Process survivor(int pid, Outcome outcome = Outcome::survived) {
    Process process;
    process.pid = pid;
    process.outcome = outcome;
    return process;
}

TEST(Survivors, AreExplainedAndTheOthersAreNot) {
    Doer stopped([] { ::raise(SIGSTOP); });
    stopped.awaitStop();
    watch::Run run;
    run.processes = {survivor(stopped.pid()), survivor(stopped.pid(), Outcome::spared)};
    explainSurvivors(run);
    ASSERT_TRUE(run.processes[0].reason);
    EXPECT_EQ(run.processes[0].reason->state, State::stopped);
    EXPECT_FALSE(run.processes[0].reason->tracer);
    EXPECT_GE(run.processes[0].reason->age, 0);
    EXPECT_EQ(run.processes[0].parent.pid, ::getpid());
    EXPECT_EQ(run.processes[0].parent.name, readProcState(::getpid())->name);
    EXPECT_FALSE(run.processes[1].reason);
}

TEST(Survivors, OneThatIsGoneMeanwhileHasAReasonThatIsNotKnown) {
    int pid = 0;
    {
        const Doer gone([] {});
        pid = gone.pid();
    }
    watch::Run run;
    run.processes = {survivor(pid)};
    explainSurvivors(run);
    ASSERT_TRUE(run.processes[0].reason);
    EXPECT_EQ(run.processes[0].reason->state, State::unknown);
    EXPECT_EQ(run.processes[0].parent.pid, 0);
}

TEST(Survivors, TracerIsNamed) {
    Doer traced([] {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::raise(SIGSTOP);
    });
    traced.awaitStop();
    watch::Run run;
    run.processes = {survivor(traced.pid())};
    explainSurvivors(run);
    EXPECT_EQ(run.processes[0].reason->state, State::traced);
    EXPECT_EQ(run.processes[0].reason->tracer, (Peer{::getpid(), readProcState(::getpid())->name}));
}

std::vector<Asked> askedBy(std::initializer_list<const char*> signals) {
    std::vector<Asked> asked;
    for (const char* signal : signals) {
        asked.push_back({0, Asked::Kind::signal, signal, true});
    }
    return asked;
}

void block(int signal) {
    sigset_t set;
    ::sigemptyset(&set);
    ::sigaddset(&set, signal);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

/// It has done what it was to do when it stands still.
Reason reasonOfStopped(const Doer& doer) {
    doer.awaitStop();
    watch::Run run;
    run.processes = {survivor(doer.pid())};
    run.processes[0].asked = askedBy({"SIGINT", "SIGTERM", "SIGQUIT", "SIGTERM", "SIGKILL"});
    explainSurvivors(run);
    return run.processes[0].reason.value_or(Reason());
}

TEST(Survivors, SignalsThatTheyDoNotHeedAreNamed) {
    Doer deaf([] {
        std::signal(SIGTERM, SIG_IGN);
        std::signal(SIGINT, SIG_IGN);
        std::signal(SIGHUP, SIG_IGN);
        block(SIGQUIT);
        ::raise(SIGSTOP);
    });
    const Reason reason = reasonOfStopped(deaf);
    EXPECT_EQ(reason.ignores, (std::vector<std::string>{"SIGINT", "SIGTERM"}));
    EXPECT_EQ(reason.blocks, (std::vector<std::string>{"SIGQUIT"}));
    Doer heeding([] { ::raise(SIGSTOP); });
    const Reason none = reasonOfStopped(heeding);
    EXPECT_TRUE(none.ignores.empty() && none.blocks.empty());
}

TEST(Survivors, SignalThatOneThreadBlocksGoesToAnother) {
    Doer two([] {
        static std::atomic<bool> isMade = false;
        block(SIGQUIT);
        // It begins with the mask of the first one, which blocks all signals while it makes it (pthread_create, glibc).
        std::thread([] {
            block(SIGTERM);
            while (!isMade) {
            }
            ::raise(SIGSTOP);
            ::pause();
        }).detach();
        isMade = true;
    });
    EXPECT_EQ(reasonOfStopped(two).blocks, (std::vector<std::string>{"SIGQUIT"}));
}

TEST(Survivors, ThreadThatHeedsNothingIsTheReason) {
    // Who waits for what a vfork has made sleeps uninterruptibly.
    Doer two([] {
        std::thread([parent = ::getpid()] {
            if (::vfork() == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                // The parent may have been killed before that.
                while (::getppid() == parent) {
                    ::pause();
                }
                ::_exit(0);
            }
        }).detach();
    });
    Activity activity;
    while (activity.state != State::uninterruptible) {
        activity = readActivity(two.pid());
        ASSERT_NE(activity.state, State::zombie);
    }
    EXPECT_EQ(readProcState(two.pid())->state, State::sleeping);
}

TEST(StopCommands, AreKnownByTheirLine) {
    const Time before = readProcState(::getpid())->start;
    Doer command([] { ::execl("/bin/sleep", "/bin/sleep", "1000", nullptr); });
    while (readCommandLine(command.pid()) != "/bin/sleep 1000") {
    }
    EXPECT_TRUE(StopCommands({"other", "/bin/sleep 1000"}, before).include(command.pid()));
    // A script's interpreter stands before it.
    EXPECT_TRUE(StopCommands({"1000"}, before).include(command.pid()));
    EXPECT_FALSE(StopCommands({"/bin/sleep"}, before).include(command.pid()));
    EXPECT_FALSE(StopCommands({}, before).include(command.pid()));
    // The test itself had started before, and so had whatever has started it.
    EXPECT_FALSE(StopCommands({"/bin/sleep 1000"}, before + kTick).include(::getpid()));
    // None of those that it descends from is one.
    EXPECT_FALSE(StopCommands({"no such line"}, -kSecond).include(command.pid()));
    Doer child([] {});
    EXPECT_FALSE(StopCommands({"/bin/sleep 1000"}, before).include(child.pid()));
}

} // namespace
} // namespace watch
