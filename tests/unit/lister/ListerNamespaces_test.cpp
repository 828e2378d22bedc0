// Processes in mount namespaces of their own: a hardened service sees the host's files, a container has its own at the
// same paths. Only root can make such namespaces.

#include "LiveMapper.h"

#include <sched.h>
#include <sys/mount.h>

namespace lister {
namespace {

class MountNamespace : public LiveMapper {
  protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "only root can make a mount namespace";
        }
        m_copy = m_folder / "copy";
        fs::create_directories(m_copy / "bin");
    }

    /// What a child does to see the host's files.
    static void harden() {
        EXPECT_EQ(unshare(CLONE_NEWNS), 0);
        EXPECT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    }
    /// What a child does to see a tree of its own at the install root.
    void contain() const {
        harden();
        EXPECT_EQ(mount(m_copy.c_str(), m_root.c_str(), nullptr, MS_BIND, nullptr), 0);
    }

    std::unique_ptr<Child> runHostsMapper(const std::function<void()>& prepare) const {
        return runMapper("mapper", m_root + "/bin/library.so", prepare);
    }

    fs::path m_copy;
};

constexpr char kStopsItself[] = "#!/bin/sh\nkill -STOP $$\n";

TEST_F(MountNamespace, HardenedDaemonIsTheProducts) {
    const auto daemon = run(install("halvd"), harden);
    EXPECT_EQ(judge(daemon->pid(), judgeByLink).reason, Reason::ProductExecutable);
}

TEST_F(MountNamespace, DaemonOfAnotherTreeIsNotTheProducts) {
    const fs::path path = install("halvd");
    copySleep(m_copy / "bin/halvd");
    const auto daemon = run(path, [this] { contain(); });
    const Verdict verdict = judge(daemon->pid(), judgeByLink);
    EXPECT_EQ(verdict.reason, Reason::NotTheHostsFile);
    EXPECT_EQ(verdict.category, 0);
    EXPECT_FALSE(find(daemon->pid()));
}

TEST_F(MountNamespace, ReplacedDaemonIsTheProductsWhereTheTreeIsTheHosts) {
    const fs::path path = install("halvd");
    const auto hardened = run(path, harden);
    fs::remove(path);
    const Verdict verdict = judge(hardened->pid(), judgeByLink);
    EXPECT_EQ(verdict.reason, Reason::ProductExecutable);
    EXPECT_EQ(verdict.path, path.string());
}

TEST_F(MountNamespace, ReplacedDaemonOfAnotherTreeIsNotTheProducts) {
    const fs::path path = install("halvd");
    copySleep(m_copy / "bin/halvd");
    const auto daemon = run(path, [this] { contain(); });
    fs::remove(m_copy / "bin/halvd");
    EXPECT_EQ(judge(daemon->pid(), judgeByLink).reason, Reason::NotTheHostsFile);
}

TEST_F(MountNamespace, HardenedScriptIsTheProducts) {
    const Child script(writeScript("worker", kStopsItself), {"worker"}, harden);
    awaitStop(script.pid());
    EXPECT_EQ(judge(script.pid(), judgeScriptByLink).reason, Reason::ProductScript);
}

TEST_F(MountNamespace, ScriptOfAnotherTreeIsNotTheProducts) {
    const fs::path path = writeScript("worker", kStopsItself);
    fs::copy_file(path, m_copy / "bin/worker");
    const Child script(path, {"worker"}, [this] { contain(); });
    awaitStop(script.pid());
    const Verdict verdict = judge(script.pid(), judgeScriptByLink);
    EXPECT_EQ(verdict.reason, Reason::NotTheHostsFile);
    EXPECT_EQ(verdict.category, 0);
}

TEST_F(MountNamespace, LibraryOfTheHostIsTheProducts) {
    installLibrary(m_root);
    const auto mapper = runHostsMapper(harden);
    for (const bool queryMappings : {true, false}) {
        m_roots.queryMappings = queryMappings;
        EXPECT_EQ(judgeAsThirdParty(mapper->pid()).reason, Reason::MapsProduct);
    }
}

TEST_F(MountNamespace, LibraryOfAnotherTreeIsNotTheProducts) {
    installLibrary(m_root);
    installLibrary(m_copy);
    const auto mapper = runHostsMapper([this] { contain(); });
    for (const bool queryMappings : {true, false}) {
        m_roots.queryMappings = queryMappings;
        EXPECT_EQ(judgeAsThirdParty(mapper->pid()).reason, Reason::NoRelation);
    }
}

TEST_F(MountNamespace, LibraryThatTheHostDoesNotHaveIsNotTheProducts) {
    installLibrary(m_copy);
    const auto mapper = runHostsMapper([this] { contain(); });
    EXPECT_EQ(judgeAsThirdParty(mapper->pid()).reason, Reason::NoRelation);
}

/// An exclude list would find another file by that path.
TEST_F(MountNamespace, MapperThatTheCallerFindsAnotherFileForIsOnlyListed) {
    installLibrary(m_root);
    fs::create_directories(m_folder / "own");
    copySleep(m_folder / "own/other");
    const auto mapper = runHostsMapper([this] {
        harden();
        EXPECT_EQ(mount((m_folder / "own/other").c_str(), (m_folder / "mapper").c_str(), nullptr, MS_BIND, nullptr), 0);
    });
    EXPECT_EQ(judgeAsThirdParty(mapper->pid()).reason, Reason::DemotedUnexcludable);
}

TEST_F(MountNamespace, MapperWhoseExecutableWasReplacedIsOnlyListed) {
    installLibrary(m_root);
    const auto mapper = runHostsMapper(harden);
    fs::remove(m_folder / "mapper");
    copySleep(m_folder / "mapper");
    EXPECT_EQ(judgeAsThirdParty(mapper->pid()).reason, Reason::DemotedUnexcludable);
}

TEST_F(MountNamespace, ProcessThatWorksInAnotherTreeIsNotListed) {
    const auto editor = run(copySleep(m_folder / "editor"), [this] {
        contain();
        fs::current_path(m_root + "/bin");
    });
    EXPECT_FALSE(find(editor->pid()));
    const auto hardened = run(m_folder / "editor", [this] {
        harden();
        fs::current_path(m_root + "/bin");
    });
    ASSERT_TRUE(find(hardened->pid()));
    EXPECT_EQ(find(hardened->pid())->category, CAT_OTHER_THIRD_PARTY);
}

} // namespace
} // namespace lister
