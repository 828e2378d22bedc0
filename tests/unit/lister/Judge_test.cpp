#include "judge.h"

#include <cerrno>
#include <optional>
#include <string>

#include "Kernel.h"
#include "MadeUpProcess.h"

namespace lister {
namespace {

class JudgeOfAll : public MadeUpMapper {
  protected:
    [[nodiscard]] std::optional<Verdict> judgeNow(const std::string& link, MayBlock mayBlock,
                                                  bool wantsThirdParties = true) const {
        return Judge(m_roots, wantsThirdParties).judge("77", 77, link, mayBlock);
    }
    [[nodiscard]] Reason reason(const std::string& link, bool wantsThirdParties = true) const {
        return judgeNow(link, MayBlock::Yes, wantsThirdParties)->reason;
    }
};

TEST_F(JudgeOfAll, DaemonIsJudgedWithoutBlocking) {
    const std::string daemon = install("halvd");
    make("77", daemon);
    for (const MayBlock mayBlock : {MayBlock::No, MayBlock::Yes}) {
        const std::optional<Verdict> verdict = judgeNow(daemon, mayBlock);
        ASSERT_TRUE(verdict);
        EXPECT_EQ(verdict->category, CAT_CORVANE);
        EXPECT_EQ(verdict->path, daemon);
    }
}

TEST_F(JudgeOfAll, EverythingElseIsLeftForLaterWhereItMustNotBlock) {
    EXPECT_FALSE(judgeNow((m_folder / "mapper").string(), MayBlock::No));
    makeScript("77", "#!/bin/sh");
    EXPECT_FALSE(judgeNow(fs::canonical("/bin/sh"), MayBlock::No, false));
}

TEST_F(JudgeOfAll, ThirdPartyIsOneOnlyWhereTheseAreWanted) {
    map(line());
    EXPECT_EQ(reason((m_folder / "mapper").string()), Reason::MapsProduct);
    EXPECT_EQ(reason((m_folder / "mapper").string(), false), Reason::NoRelation);
}

TEST_F(JudgeOfAll, ScriptOfTheProductIsNoThirdParty) {
    makeScript("77", "#!/bin/sh");
    map(line());
    EXPECT_EQ(reason(fs::canonical("/bin/sh")), Reason::ProductScript);
    write("77", "cmdline", "");
    EXPECT_EQ(reason(fs::canonical("/bin/sh")), Reason::MapsProduct) << "without a script it may be one";
}

/// Nobody hides what he has mapped behind a server that does not answer.
TEST_F(JudgeOfAll, ThirdPartyWhoseScriptOnlyAServerCouldFindIsOne) {
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0/proc/version\0", 17));
    serveProc("fuse");
    kernel::answerCachedLookUps(EAGAIN);
    EXPECT_EQ(reason(fs::canonical("/bin/sh")), Reason::AsksServer);
    EXPECT_EQ(reason(fs::canonical("/bin/sh"), false), Reason::AsksServer);
    map(line());
    EXPECT_EQ(reason(fs::canonical("/bin/sh")), Reason::MapsProduct);
    kernel::answerCachedLookUps(kernel::kByItself);
}

/// It executed the daemon after its link was read.
TEST_F(JudgeOfAll, ProcessWithAnotherExecutableThanBeforeIsJudgedAgain) {
    make("77", install("halvd"));
    EXPECT_EQ(reason("/usr/bin/before"), Reason::ProductExecutable);
}

TEST_F(JudgeOfAll, RuleThatCannotBeAnsweredGivesItsReason) {
    fs::remove(fs::path(m_proc) / "77/maps");
    const std::optional<Verdict> verdict = judgeNow((m_folder / "mapper").string(), MayBlock::Yes);
    ASSERT_TRUE(verdict);
    EXPECT_EQ(verdict->reason, Reason::Vanished);
    EXPECT_EQ(verdict->path, (m_folder / "mapper").string());
}

TEST_F(JudgeOfAll, ProcessThatIsGoneHasVanished) {
    fs::remove_all(fs::path(m_proc) / "77");
    EXPECT_EQ(reason("/usr/bin/before"), Reason::Vanished);
}

TEST_F(JudgeOfAll, MissingProcessTableIsAnError) {
    m_roots.proc = "/nonexistent";
    EXPECT_THROW(Judge(m_roots, true), ScanFailure);
}

} // namespace
} // namespace lister
