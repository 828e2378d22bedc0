#include "deferred.h"

#include <sys/stat.h>

#include "MadeUpProcess.h"

namespace lister {
namespace {

/// Arguments in a FIFO without a writer are never read to an end.
class DeferredJudgement : public MadeUpProcess {
  protected:
    ~DeferredJudgement() override {
        for (const fs::path& gate : m_gates) {
            // Lets the thread go that was left behind.
            const UniqueFd writer(open(gate.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        }
    }

    /// An interpreter that runs a script of the product.
    Deferred script(const std::string& pid) {
        makeScript(pid, "#!/bin/sh");
        return {pid, std::stoi(pid), fs::canonical("/bin/sh"), 0};
    }
    Deferred stuck(const std::string& pid) {
        Deferred process = script(pid);
        const fs::path gate = fs::path(m_proc) / pid / "cmdline";
        fs::remove(gate);
        EXPECT_EQ(mkfifo(gate.c_str(), 0600), 0);
        m_gates.push_back(gate);
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

/// A scan that fails meanwhile must not wait for it for ever, and nothing of it goes on afterwards.
TEST_F(DeferredJudgement, WhatIsBeingJudgedIsGivenUpAtTheEnd) {
    const auto judge = std::make_shared<const Judge>(m_roots, false);
    const auto processes = std::make_shared<const std::vector<Deferred>>(std::vector{script("76"), script("77")});
    {
        DeferredJudge deferred;
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
