#include "MadeUpProcess.h"

namespace lister {
namespace {

class Executable : public MadeUpProcess {};
class LiveExecutable : public Lister {};

TEST_F(Executable, ExecutableOutsideTheTreeIsAStrangers) {
    make("77", "/bin/sh");
    const Verdict verdict = judge("77", judgeByLink);
    EXPECT_EQ(verdict.reason, Reason::NoRelation);
    EXPECT_EQ(verdict.category, 0);
    EXPECT_EQ(verdict.path, "");
}

TEST_F(Executable, ExecutableInTheTreeIsTheProducts) {
    make("77", install("halvd"));
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::ProductExecutable);
}

TEST_F(Executable, AnotherPidNamespaceIsOutOfScope) {
    make("77", install("halvd"));
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::OtherPidNamespace);
}

TEST_F(Executable, ProcessWhoseNamespacesAreGoneHasVanished) {
    for (const char* space : {"ns/pid", "ns/user"}) {
        fs::remove(m_root + "/bin/halvd");
        make("77", install("halvd"));
        fs::remove(fs::path(m_proc) / "77" / space);
        EXPECT_EQ(judge("77", judgeByLink).reason, Reason::Vanished) << space;
    }
}

/// The link leads to no namespace, which could be asked for its owner.
TEST_F(Executable, UserNamespaceThatCannotBeAskedForItsOwnerLosesTheProcess) {
    make("77", install("halvd"));
    link("77", "ns/user", "/bin/sh");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::Unreadable);
    link("77", "ns/user", "user:[1]");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::Vanished);
}

TEST_F(Executable, ExecutableThatIsGoneHasVanished) {
    make("77", m_root + "/bin/gone");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::Vanished);
    fs::remove(fs::path(m_proc) / "77/exe");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::Vanished);
}

TEST_F(Executable, RootThatCannotBeOpenedLosesTheProcess) {
    const fs::path path = m_root + "/bin/halvd (deleted)";
    copySleep(path);
    make("77", path);
    // A removed file has no links left; the descriptor keeps it.
    const UniqueFd kept(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    fs::remove(path);
    link("77", "exe", "/proc/self/fd/" + std::to_string(kept.get()));
    link("77", "ns/mnt", "mnt:[1]");
    fs::remove(fs::path(m_proc) / "77/root");
    const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 77, "77");
    const Caller caller(m_roots);
    EXPECT_THROW(isHostsExecutable(caller, process, FileStatus(), m_root + "/bin/halvd", true), ProcessLost);
    link("77", "root", "/");
    EXPECT_TRUE(isHostsExecutable(caller, process, FileStatus(), m_root + "/bin/halvd", true));
    link("77", "root", m_folder);
    EXPECT_FALSE(isHostsExecutable(caller, process, FileStatus(), m_root + "/bin/halvd", true));
}

/// The mount that the executable was reached by proves the path; only without it must the namespace be known.
TEST_F(Executable, MountNamespaceIsAskedForOnlyWhereTheMountIsNotTheCallers) {
    make("77", install("halvd"));
    fs::remove(fs::path(m_proc) / "77/ns/mnt");
    EXPECT_EQ(judge("77", judgeByLink).reason, Reason::ProductExecutable);
    const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 77, "77");
    EXPECT_THROW(isHostsExecutable(Caller(m_roots), process, FileStatus(), m_root + "/bin/halvd", false), ProcessLost);
}

/// A daemon may move into a mount namespace of its own after its start; what it executes stays where it was.
TEST_F(Executable, MountOfTheCallersProvesThePathInAnotherMountNamespace) {
    const fs::path daemon = install("halvd");
    make("77", daemon);
    link("77", "ns/mnt", "mnt:[1]");
    const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 77, "77");
    const Caller caller(m_roots);
    const std::optional<FileStatus> status = process.executable();
    ASSERT_TRUE(status);
    EXPECT_TRUE(isHostsExecutable(caller, process, *status, m_root + "/bin/removed", true));
    EXPECT_FALSE(isHostsExecutable(caller, process, FileStatus(), m_root + "/bin/removed", false));
}

/// A lazily unmounted file system is in no list of mounts.
TEST_F(Executable, MountThatIsNotTheCallersProvesNothingInItsMountNamespace) {
    make("77", install("halvd"));
    const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 77, "77");
    EXPECT_FALSE(isHostsExecutable(Caller(m_roots), process, FileStatus(), m_root + "/bin/halvd", false));
}

TEST_F(Executable, MissingTreeHasNoFiles) {
    make("77", "/bin/sh");
    link("77", "ns/mnt", "mnt:[1]");
    m_roots.install = "/nonexistent/quarn";
    const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 77, "77");
    EXPECT_FALSE(isHostsExecutable(Caller(m_roots), process, FileStatus(), "/nonexistent/quarn/x", true));
    EXPECT_FALSE(isHostsExecutable(Caller(m_roots), process, FileStatus(), "/nonexistent/quarn/x", false));
    fs::create_directories(m_folder / "nonexistent/quarn");
    link("77", "root", m_folder);
    EXPECT_FALSE(isHostsExecutable(Caller(m_roots), process, FileStatus(), "/nonexistent/quarn/x", true))
        << "a tree of its own";
}

/// A process that ended is passed over in silence; one that cannot be read may be a daemon, and is reported.
TEST_F(LiveExecutable, UnreadableProcessIsToldFromOneThatEnded) {
    const std::string daemon = install("halvd");
    fs::create_directories(m_folder / "proc/7");
    fs::create_directories(m_folder / "proc/8");
    fs::create_symlink(daemon + "/in-a-file", m_folder / "proc/7/exe");
    fs::create_symlink(daemon + "-that-is-gone", m_folder / "proc/8/exe");
    const UniqueFd proc(open((m_folder / "proc").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Caller caller(m_roots);
    const auto executable = [&](pid_t pid) {
        return verdictOf(
                   [&] { return judgeByLink(caller, PinnedProcess(proc.get(), pid, std::to_string(pid).c_str())); })
            .reason;
    };
    EXPECT_EQ(executable(7), Reason::Unreadable);
    EXPECT_EQ(executable(8), Reason::Vanished);
    EXPECT_EQ(verdictOf([&] { return judgeThirdParty(m_roots, caller, PinnedProcess(proc.get(), 8, "8")); }).reason,
              Reason::Vanished);
}

/// A daemon whose namespaces cannot be read is no stranger in namespaces of its own.
TEST_F(LiveExecutable, ProcessWithUnreadableNamespacesIsReported) {
    const std::string daemon = install("halvd");
    fs::create_directories(m_folder / "proc/7/ns");
    fs::create_symlink(daemon, m_folder / "proc/7/exe");
    std::ofstream(m_folder / "proc/7/ns/pid") << "no link";
    const UniqueFd proc(open((m_folder / "proc").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 7, "7");
    try {
        judgeByLink(Caller(m_roots), process);
        FAIL() << "it was judged";
    } catch (const ProcessLost& lost) {
        EXPECT_EQ(lost.reason, Reason::Unreadable);
    }
}

TEST_F(LiveExecutable, ForgedArgumentsAndProcessNameDoNotMatter) {
    const fs::path outside = copySleep(m_folder / "sleep");
    const std::string forged = m_root + "/bin/halvd";
    const Child liar(outside, {forged, "60"});
    EXPECT_FALSE(find(liar.pid()));
    const Child shy(install("halvd"), {"/usr/sbin/other", "60"});
    ASSERT_TRUE(find(shy.pid()));
    EXPECT_STREQ(find(shy.pid())->name, "halvd");
}

TEST_F(LiveExecutable, NeighbourOfTheRootIsNotBelowIt) {
    fs::create_directories(m_root + "2");
    const auto child = run(copySleep(m_root + "2/halvd"));
    EXPECT_FALSE(find(child->pid()));
}

TEST_F(LiveExecutable, HostWithoutTheProductHasNoneOfItsProcesses) {
    const auto child = run(install("halvd"));
    m_roots.install = "/nonexistent/quarn";
    EXPECT_FALSE(find(child->pid()));
}

TEST_F(LiveExecutable, InstallRootMayBeASymbolicLink) {
    const auto child = run(install("halvd"));
    fs::create_directory_symlink(m_root, m_folder / "link");
    const std::string link = m_folder / "link";
    m_roots.install = link;
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, m_root + "/bin/halvd");
}

TEST_F(LiveExecutable, RemovedAndReplacedExecutablesKeepTheirPath) {
    const fs::path path = install("halvd");
    const auto child = run(path);
    fs::remove(path);
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, path.string());
    install("halvd");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, path.string());
}

TEST_F(LiveExecutable, LiveFileWhoseNameEndsInDeletedKeepsIt) {
    const fs::path path = install("halvd (deleted)");
    const auto child = run(path);
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, path.string());
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY) << "a blank makes the path unfit for a command line";
}

TEST_F(LiveExecutable, UnfitPathIsOnlyListedWithItsControlsHidden) {
    const auto semicolon = run(install("halvd;reboot"));
    ASSERT_TRUE(find(semicolon->pid()));
    EXPECT_EQ(find(semicolon->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_FALSE(find(semicolon->pid(), CAT_CORVANE));
    const auto newline = run(install("a\nb\x1b[2J"));
    ASSERT_TRUE(find(newline->pid()));
    EXPECT_STREQ(find(newline->pid())->name, "a?b?[2J");
}

TEST_F(LiveExecutable, CallersOwnExecutableIsLeftOut) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pause();
        _exit(0);
    }
    m_root = fs::read_symlink("/proc/self/exe").parent_path().string();
    m_roots.install = m_root;
    EXPECT_FALSE(find(pid));
    EXPECT_FALSE(find(getpid()));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

} // namespace
} // namespace lister
