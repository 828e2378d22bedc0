#include "deferred.h"

#include <chrono>
#include <thread>

#include <sys/stat.h>

#include "MadeUpProcess.h"

namespace lister {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// No process of this machine, and so none of the caller's ancestors, has one of these.
constexpr int kBeyondAllPids = 5'000'000;

/// Arguments in a FIFO without a writer are never read to an end.
class DeferredJudgement : public MadeUpProcess {
  protected:
    ~DeferredJudgement() override {
        for (const fs::path& gate : m_gates) {
            // Lets the thread go that was left behind.
            const UniqueFd writer(open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        }
        for (auto& [gate, server] : m_servers) {
            // Lets a server go that was never asked.
            const UniqueFd reader(open(gate.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
            server.join();
        }
    }

    /// An interpreter that runs a script of the product.
    Deferred script(const std::string& pid) {
        makeScript(pid, "#!/bin/sh");
        return {pid, std::stoi(pid), fs::canonical("/bin/sh"), 0};
    }
    /// In place of the arguments of a process.
    fs::path makeGate(const std::string& pid) {
        fs::path gate = fs::path(m_proc) / pid / "cmdline";
        fs::remove(gate);
        EXPECT_EQ(mkfifo(gate.c_str(), 0600), 0);
        return gate;
    }
    Deferred stuck(const std::string& pid) {
        Deferred process = script(pid);
        m_gates.push_back(makeGate(pid));
        return process;
    }
    /// It answers a while after it was asked, as if its arguments had to come from a slow disk.
    Deferred slow(const std::string& pid) {
        Deferred process = script(pid);
        const std::string arguments = textOf(fs::path(m_proc) / pid / "cmdline");
        const fs::path gate = makeGate(pid);
        m_servers.emplace_back(gate, [gate, arguments] {
            const UniqueFd writer(open(gate.c_str(), O_WRONLY | O_CLOEXEC));
            usleep(100'000);
            EXPECT_EQ(::write(writer.get(), arguments.data(), arguments.size()),
                      static_cast<ssize_t>(arguments.size()));
        });
        return process;
    }
    std::vector<Reason> reasons(std::vector<Deferred> processes) {
        DeferredJudge deferred;
        std::vector<Reason> found;
        deferred.start(std::make_shared<const Judge>(m_roots, false),
                       std::make_shared<const std::vector<Deferred>>(std::move(processes)));
        for (const Verdict& verdict : deferred.finish()) {
            found.push_back(verdict.reason);
        }
        return found;
    }

    std::vector<fs::path> m_gates;
    std::vector<std::pair<fs::path, std::thread>> m_servers;
};

TEST_F(DeferredJudgement, VerdictsComeInTheOrderOfTheProcesses) {
    const Deferred gone = {"76", 76, "/bin/sh", 0};
    make("78", fs::canonical("/bin/sh"));
    const Deferred idle = {"78", 78, fs::canonical("/bin/sh"), 0};
    EXPECT_EQ(reasons({gone, script("77"), idle}),
              (std::vector{Reason::Vanished, Reason::ProductScript, Reason::NoRelation}));
}

TEST_F(DeferredJudgement, NothingIsJudgedWhereNothingWaits) {
    EXPECT_TRUE(reasons({}).empty());
}

TEST_F(DeferredJudgement, StuckProcessesAreReportedAndTheOthersJudged) {
    EXPECT_EQ(reasons({script("75"), stuck("76"), stuck("77"), script("78"), stuck("79")}),
              (std::vector{Reason::ProductScript, Reason::Stuck, Reason::Stuck, Reason::ProductScript, Reason::Stuck}));
}

/// All of them together take longer than one of them may.
TEST_F(DeferredJudgement, SlowProcessesAreWaitedForOneByOne) {
    std::vector<Deferred> processes;
    for (int count = 0; count < 12; ++count) {
        processes.push_back(slow(std::to_string(kBeyondAllPids + count)));
    }
    EXPECT_EQ(reasons(std::move(processes)), std::vector(12, Reason::ProductScript));
}

/// At a second each they would take 20 s.
TEST_F(DeferredJudgement, ManyStuckProcessesCostLessAndLess) {
    std::vector<Deferred> processes;
    for (int count = 0; count < 20; ++count) {
        processes.push_back(stuck(std::to_string(kBeyondAllPids + count)));
    }
    const auto begin = steady_clock::now();
    EXPECT_EQ(reasons(std::move(processes)), std::vector(20, Reason::Stuck));
    EXPECT_LT(steady_clock::now() - begin, std::chrono::seconds(12)) << "beside all else that this machine does";
}

TEST_F(DeferredJudgement, SlowProcessesUseUpThePatience) {
    const auto judge = std::make_shared<const Judge>(m_roots, false);
    const auto waitForStuckOneBehindSlowOne = [&](int pid) {
        DeferredJudge deferred(Patience(milliseconds(20)));
        deferred.start(judge, std::make_shared<const std::vector<Deferred>>(std::vector{slow(std::to_string(pid))}));
        EXPECT_EQ(deferred.finish().at(0).reason, Reason::ProductScript);
        deferred.start(judge,
                       std::make_shared<const std::vector<Deferred>>(std::vector{stuck(std::to_string(pid + 1))}));
        const auto begin = steady_clock::now();
        EXPECT_EQ(deferred.finish().at(0).reason, Reason::Stuck);
        return steady_clock::now() - begin;
    };
    // On a busy machine the slow one may have answered before it is waited for.
    bool isShortened = false;
    for (int count = 0; count < 10 && !isShortened; count += 2) {
        isShortened = waitForStuckOneBehindSlowOne(kBeyondAllPids + count) < milliseconds(900);
    }
    EXPECT_TRUE(isShortened) << "not the second that the first one had";
}

/// A scan that fails meanwhile must not wait for it for ever, and nothing of it goes on afterwards.
TEST_F(DeferredJudgement, WhatIsBeingJudgedIsGivenUpAtTheEnd) {
    const auto judge = std::make_shared<const Judge>(m_roots, false);
    const auto processes = std::make_shared<const std::vector<Deferred>>(std::vector{script("76"), script("77")});
    {
        DeferredJudge deferred;
        deferred.start(judge, processes);
        deferred.start(judge, processes);
    }
    EXPECT_EQ(judge.use_count(), 1);
    DeferredJudge deferred;
    deferred.start(judge, std::make_shared<const std::vector<Deferred>>(std::vector{stuck("78")}));
}

TEST_F(DeferredJudgement, BatchesAreJudgedOneAfterTheOther) {
    DeferredJudge deferred;
    const auto judge = std::make_shared<const Judge>(m_roots, false);
    EXPECT_TRUE(deferred.finish().empty());
    for (const char* pid : {"76", "77", "78"}) {
        deferred.start(judge, std::make_shared<const std::vector<Deferred>>(std::vector{script(pid)}));
        const std::vector<Verdict> verdicts = deferred.finish();
        ASSERT_EQ(verdicts.size(), 1U);
        EXPECT_EQ(verdicts[0].reason, Reason::ProductScript);
    }
}

/// The thread that was to judge it is left behind with the process that does not answer.
TEST_F(DeferredJudgement, BatchBehindAStuckProcessIsJudged) {
    DeferredJudge deferred;
    const auto judge = std::make_shared<const Judge>(m_roots, false);
    for (const auto& batch :
         {std::vector{stuck("76"), script("77")}, std::vector{script("78"), stuck("79")}, std::vector{script("80")}}) {
        deferred.start(judge, std::make_shared<const std::vector<Deferred>>(batch));
    }
    std::vector<Reason> found;
    for (std::vector<Verdict> verdicts; !(verdicts = deferred.finish()).empty();) {
        for (const Verdict& verdict : verdicts) {
            found.push_back(verdict.reason);
        }
    }
    EXPECT_EQ(found, (std::vector{Reason::Stuck, Reason::ProductScript, Reason::ProductScript, Reason::Stuck,
                                  Reason::ProductScript}));
}

TEST_F(DeferredJudgement, StuckProcessIsPassedOverByAWholeListing) {
    make("1", "/bin/true");
    stuck("76");
    script("77");
    CV_Process_s* list = nullptr;
    const int status = listProcesses(m_roots, &list, CAT_CORVANE, 0);
    // Root learns of it from the log; for others the view is not whole.
    EXPECT_EQ(status, geteuid() == 0 ? 0 : EACCES);
    if (status == 0) {
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(list->pid, 77);
        EXPECT_EQ(list->next, nullptr);
    }
    std::free(list);
}

} // namespace
} // namespace lister
