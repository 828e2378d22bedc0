// The lister's rules on processes that do not exist: folders made up of links and texts as /proc has them, so that each
// rule also meets what no process of this machine shows.

#include "ListerTest.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

namespace lister {
namespace {

class Rules : public Lister {
  protected:
    Rules() {
        m_proc = (m_folder / "proc").string();
        m_roots.proc = m_proc.c_str();
        make("self", fs::read_symlink("/proc/self/exe"));
        write("self", "mountinfo", contentOf("/proc/self/mountinfo"));
    }

    static std::string contentOf(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(const std::string& process, const std::string& name, const std::string& text) const {
        std::ofstream(fs::path(m_proc) / process / name) << text;
    }
    void link(const std::string& process, const std::string& name, const fs::path& target) const {
        const fs::path path = fs::path(m_proc) / process / name;
        fs::remove(path);
        fs::create_symlink(target, path);
    }

    /// A process that runs the executable in the caller's namespaces, and holds nothing.
    void make(const std::string& process, const fs::path& executable) const {
        const fs::path folder = fs::path(m_proc) / process;
        fs::create_directories(folder / "ns");
        fs::create_directories(folder / "fd");
        for (const char* space : {"ns/pid", "ns/user", "ns/mnt"}) {
            link(process, space, fs::read_symlink(fs::path("/proc/self") / space));
        }
        link(process, "exe", executable);
        link(process, "cwd", "/");
        link(process, "root", "/");
        write(process, "maps", "");
        write(process, "cmdline", "");
        write(process, "stat", "77 (name) S 1 77 77 0 -1\n");
        write(process, "status", "Name:\tname\nUid:\t0\t0\t0\t0\n");
    }
    /// The interpreter with a script of the product as its argument.
    fs::path makeScript(const std::string& process, const std::string& firstLine) {
        const fs::path script = writeScript("worker", firstLine + "\n");
        make(process, fs::canonical("/bin/sh"));
        write(process, "cmdline", std::string("sh\0", 3) + script.string() + '\0');
        return script;
    }

    template <class Judge> Verdict judge(const std::string& process, const Judge& rule, pid_t pid = 77) const {
        const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        return verdictOf([&] { return rule(Caller(m_roots), PinnedProcess(proc.get(), pid, process.c_str())); });
    }
    [[nodiscard]] Verdict judgeHolder(const std::string& process, pid_t pid = 77) const {
        return judge(
            process,
            [this](const Caller& caller, const PinnedProcess& pinned) {
                return judgeThirdParty(m_roots, caller, pinned);
            },
            pid);
    }
    void expectScanFailure(int error) const {
        try {
            const Caller caller(m_roots);
            ADD_FAILURE() << "the caller was known";
        } catch (const ScanFailure& failure) {
            EXPECT_EQ(failure.error, error);
        }
    }

    std::string m_proc;
};

// --- what an errno value means

TEST(Errors, OfTheCallersOwnEndTheScan) {
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        EXPECT_THROW(throwIfShort(error), ScanFailure);
        EXPECT_THROW(throwIfRefused(error), ScanFailure);
    }
    for (const int error : {EACCES, ENOENT, EIO}) {
        EXPECT_NO_THROW(throwIfShort(error));
    }
}

TEST(Errors, ThatRefuseAnAnswerLoseTheProcess) {
    for (const int error : {EACCES, EPERM, EIO, ENOSYS, ESTALE}) {
        EXPECT_THROW(throwIfRefused(error), ProcessLost) << error;
    }
    for (const int error : {ENOENT, ESRCH, ELOOP, ENOTDIR, ENAMETOOLONG, ENXIO}) {
        EXPECT_NO_THROW(throwIfRefused(error)) << error;
    }
}

TEST(Files, AreTheSameByDeviceAndInode) {
    const FileId file = {1, 2, 3};
    EXPECT_EQ(file, (FileId{1, 2, 3}));
    for (const FileId& other : {FileId{9, 2, 3}, FileId{1, 9, 3}, FileId{1, 2, 9}}) {
        EXPECT_NE(file, other);
    }
}

TEST(Errors, TellWhetherAProcessIsGone) {
    EXPECT_EQ(lostReason(ENOENT), Reason::Vanished);
    EXPECT_EQ(lostReason(ESRCH), Reason::Vanished);
    EXPECT_EQ(lostReason(EACCES), Reason::Unreadable);
}

/// Administrators search the log for them.
TEST(Reasons, HaveTheirTexts) {
    const std::pair<Reason, const char*> texts[] = {
        {Reason::ProductExecutable, "runs an executable of the product"},
        {Reason::ProductScript, "runs a script of the product"},
        {Reason::UnfitPath, "its path must not become part of a command line"},
        {Reason::MapsProduct, "runs code of the product inside"},
        {Reason::HoldsProduct, "works in the product's tree"},
        {Reason::DemotedPid1, "only listed: the host's first process"},
        {Reason::DemotedAncestor, "only listed: an ancestor of the caller"},
        {Reason::DemotedScope, "only listed: in namespaces of its own"},
        {Reason::DemotedHostService, "only listed: a service of the host"},
        {Reason::DemotedUnexcludable, "only listed: no exclude list could name it"},
        {Reason::OtherPidNamespace, "in another pid namespace"},
        {Reason::ForeignUserNamespace, "in a user namespace that root does not own"},
        {Reason::NotTheHostsFile, "not this host's file of that path"},
        {Reason::CallersExecutable, "runs the caller's own executable"},
        {Reason::NoRelation, "has nothing to do with the product"},
        {Reason::Vanished, "vanished"},
        {Reason::Unreadable, "passed over: it cannot be read"},
        {Reason::Unsettled, "passed over: it executes one program after another"},
        {Reason::OverBudget, "passed over: too many mappings or descriptors"},
    };
    EXPECT_EQ(std::size(texts), static_cast<std::size_t>(Reason::OverBudget) + 1);
    for (const auto& [reason, text] : texts) {
        EXPECT_STREQ(reasonText(reason), text);
    }
    EXPECT_STREQ(reasonText(static_cast<Reason>(99)), "unknown");
}

// --- the caller

TEST_F(Rules, CallerWhoIsNotThereIsAnError) {
    fs::remove_all(fs::path(m_proc) / "self");
    expectScanFailure(ENOENT);
}

TEST_F(Rules, CallerOfWhomAFactIsMissingIsAnError) {
    for (const char* fact : {"exe", "ns/pid", "ns/user", "ns/mnt", "mountinfo"}) {
        const fs::path path = fs::path(m_proc) / "self" / fact;
        fs::rename(path, m_folder / "kept");
        SCOPED_TRACE(fact);
        expectScanFailure(ENOENT);
        fs::rename(m_folder / "kept", path);
    }
    EXPECT_NO_THROW(const Caller caller(m_roots));
}

TEST_F(Rules, AncestorsAreFollowedToTheFirst) {
    const std::string parent = std::to_string(getppid());
    make(parent, "/bin/sh");
    make("4000001", "/bin/sh");
    write(parent, "stat", parent + " (a) b) S 4000001 1 1 0 -1\n");
    write("4000001", "stat", "4000001 (init) S 0 1 1 0 -1\n");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.isAncestor(getppid()));
    EXPECT_TRUE(caller.isAncestor(4000001));
    EXPECT_FALSE(caller.isAncestor(4000002));
    EXPECT_FALSE(caller.isAncestor(0));
}

/// Pids are used again while the chain is read.
TEST_F(Rules, AncestorsThatFormACircleEnd) {
    const std::string parent = std::to_string(getppid());
    make(parent, "/bin/sh");
    write(parent, "stat", parent + " (a) S " + parent + " 1 1 0 -1\n");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.isAncestor(getppid()));
}

TEST_F(Rules, AncestorsEndWhereATextIsNone) {
    const std::string parent = std::to_string(getppid());
    make(parent, "/bin/sh");
    write(parent, "stat", "no stat");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.isAncestor(getppid()));
}

TEST_F(Rules, LinesOfMountsThatAreNoneAreSkipped) {
    write(
        "self", "mountinfo",
        "nonsense\n\n36 1 0:1 / / rw - ext4 x rw\n37 36 0:2 / /usr rw - nfs4 x rw\n38 36 0:3 / /opt/x rw - tmpfs x rw");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.seesMount(36, "/anything/at/all"));
    EXPECT_TRUE(caller.seesMount(37, "/usr/bin/x"));
    EXPECT_TRUE(caller.seesMount(37, "/usr")) << "a file may itself be a mount point";
    EXPECT_FALSE(caller.seesMount(37, "/usrx"));
    EXPECT_FALSE(caller.seesMount(37, "/opt/x/y"));
    EXPECT_TRUE(caller.seesMount(38, "/opt/x/y"));
    EXPECT_FALSE(caller.seesMount(39, "/opt/x/y"));
    EXPECT_EQ(caller.mountType(37), "nfs4");
    EXPECT_EQ(caller.mountType(38), "tmpfs");
    EXPECT_EQ(caller.mountType(39), "");
}

TEST_F(Rules, InstallRootThatIsGoneKeepsItsName) {
    m_roots.install = "/nonexistent/quarn";
    EXPECT_EQ(Caller(m_roots).installRoot(), "/nonexistent/quarn");
}

// --- executables

TEST_F(Rules, ExecutableOutsideTheTreeIsNoRelation) {
    make("77", "/bin/sh");
    const Verdict verdict = judge("77", judgeExecutable);
    EXPECT_EQ(verdict.reason, Reason::NoRelation);
    EXPECT_EQ(verdict.category, 0);
    EXPECT_EQ(verdict.path, "");
}

TEST_F(Rules, ExecutableInTheTreeIsTheProducts) {
    make("77", install("halvd"));
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::ProductExecutable);
}

TEST_F(Rules, AnotherPidNamespaceIsOutOfScope) {
    make("77", install("halvd"));
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::OtherPidNamespace);
}

TEST_F(Rules, ProcessWhoseNamespacesAreGoneHasVanished) {
    for (const char* space : {"ns/pid", "ns/user", "ns/mnt"}) {
        fs::remove(m_root + "/bin/halvd");
        make("77", install("halvd"));
        fs::remove(fs::path(m_proc) / "77" / space);
        EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::Vanished) << space;
    }
}

/// No file of a namespace stands behind the link: there is nobody to ask for its owner.
TEST_F(Rules, UserNamespaceThatCannotBeAskedForItsOwnerLosesTheProcess) {
    make("77", install("halvd"));
    link("77", "ns/user", "/bin/sh");
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::Unreadable);
    link("77", "ns/user", "user:[1]");
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::Vanished);
}

TEST_F(Rules, ExecutableThatIsGoneHasVanished) {
    make("77", m_root + "/bin/gone");
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::Vanished);
    fs::remove(fs::path(m_proc) / "77/exe");
    EXPECT_EQ(judge("77", judgeExecutable).reason, Reason::Vanished);
}

TEST_F(Rules, RootThatCannotBeOpenedLosesTheProcess) {
    const fs::path path = m_root + "/bin/halvd (deleted)";
    copySleep(path);
    make("77", path);
    // With its links gone, as those of a removed file are, while the descriptor of the test keeps it.
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

TEST_F(Rules, NothingIsTheHostsFileWhereTheTreeIsGone) {
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

TEST_F(Rules, DeletedIsPartOfANameOnlyForTheVeryFileOfThatName) {
    const fs::path path = m_root + "/bin/x (deleted)";
    copySleep(path);
    const std::optional<FileStatus> status = statusOf(AT_FDCWD, path.c_str());
    ASSERT_TRUE(status);
    EXPECT_FALSE(readLinkText(path, *status).isDeleted);
    FileStatus other = *status;
    ++other.id.inode;
    EXPECT_TRUE(readLinkText(path, other).isDeleted) << "another file of that name";
    FileStatus removed = *status;
    removed.links = 0;
    EXPECT_TRUE(readLinkText(path, removed).isDeleted);
    EXPECT_EQ(readLinkText(path, removed).path, m_root + "/bin/x");
    EXPECT_FALSE(readLinkText("/bin/sh", removed).isDeleted);
    fs::remove(path);
    EXPECT_TRUE(readLinkText(path, *status).isDeleted);
}

TEST(LookUp, AsksNoServer) {
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", ""));
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", "nfs4"));
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", "ext4"));
    EXPECT_TRUE(lookUpWithoutWaiting("/bin/sh", "ext4"));
}

// --- scripts

TEST_F(Rules, ScriptOfTheProduct) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    const Verdict verdict = judge("77", judgeScript);
    EXPECT_EQ(verdict.reason, Reason::ProductScript);
    EXPECT_EQ(verdict.path, script.string());
}

TEST_F(Rules, ArgumentsBeyondWhatIsReadDoNotMatter) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    write("77", "cmdline", std::string("sh\0", 3) + script.string() + '\0' + std::string(100'000, 'x'));
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::ProductScript);
}

TEST_F(Rules, InterpreterThatRunsNothingOfTheProductIsNoRelation) {
    make("77", fs::canonical("/bin/sh"));
    for (const std::string& arguments : {std::string(), std::string("sh\0", 3), std::string("sh\0-c\0true\0", 11),
                                         std::string("sh\0/nonexistent\0", 16), std::string("sh\0/bin/sh\0", 11)}) {
        write("77", "cmdline", arguments);
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation) << arguments;
    }
}

TEST_F(Rules, ScriptOfAnotherInterpreterIsNoRelation) {
    for (const char* line :
         {"#!/nonexistent/sh", "#!/usr/bin/env", "#!/usr/bin/env nonesuch", "#!/bin/cat", "text", ""}) {
        makeScript("77", line);
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation) << line;
    }
    makeScript("77", "#!/usr/bin/env sh");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::ProductScript);
}

TEST_F(Rules, KernelsNameOfTheProcessMakesItAScript) {
    makeScript("77", "no line of an interpreter");
    write("77", "stat", "77 (worker) S 1 77 77 0 -1\n");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::ProductScript);
    write("77", "stat", "77 (worke) S 1 77 77 0 -1\n");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
    write("77", "stat", "no stat");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
}

TEST_F(Rules, OnlyRootOrTheOwnerRunsAScriptOfTheProduct) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    const std::string owner = std::to_string(statusOf(AT_FDCWD, script.c_str())->owner);
    for (const auto& [status, reason] : {std::pair("Name:\tx\nUid:\t1\t0\t1\t1\n", Reason::ProductScript),
                                         std::pair("Name:\tx\nUid:\t0\t4242\t0\t0\n", Reason::NoRelation),
                                         std::pair("Name:\tno user\n", Reason::NoRelation)}) {
        write("77", "status", status);
        EXPECT_EQ(judge("77", judgeScript).reason, reason) << status;
    }
    write("77", "status", "Name:\tx\nUid:\t0\t" + owner + "\t0\t0\n");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::ProductScript);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(script.c_str(), 4242, 0), 0);
        write("77", "status", "Name:\tx\nUid:\t0\t4242\t0\t0\n");
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::ProductScript);
        write("77", "status", "Name:\tx\nUid:\t0\t4243\t0\t0\n");
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
    }
}

TEST_F(Rules, InterpreterThatAnybodyCouldHaveMadeIsNotTrusted) {
    makeScript("77", "#!/bin/sh");
    const fs::path copy = m_folder / "sh";
    fs::copy_file(fs::canonical("/bin/sh"), copy);
    write("77", "stat", "77 (worker) S 1 77 77 0 -1\n");
    link("77", "exe", copy);
    const Reason asRoot = geteuid() == 0 ? Reason::ProductScript : Reason::NoRelation;
    EXPECT_EQ(judge("77", judgeScript).reason, asRoot);
    for (const fs::perms writable : {fs::perms::group_write, fs::perms::others_write}) {
        fs::permissions(copy, fs::perms::owner_all | writable);
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
    }
    fs::permissions(copy, fs::perms::owner_all);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(copy.c_str(), 4242, 0), 0);
        EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
        ASSERT_EQ(chown(copy.c_str(), 0, 0), 0);
    }
    fs::rename(copy, m_root + "/bin/sh");
    link("77", "exe", m_root + "/bin/sh");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation)
        << "the product's own shell is a program of the product";
    link("77", "exe", "/bin/sleep");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
}

TEST_F(Rules, AncestorIsNoScriptOfTheProduct) {
    makeScript("77", "#!/bin/sh");
    EXPECT_EQ(judge("77", judgeScript, getppid()).reason, Reason::NoRelation);
}

TEST_F(Rules, ScriptOfAnotherPidNamespaceIsOutOfScope) {
    makeScript("77", "#!/bin/sh");
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::OtherPidNamespace);
}

TEST_F(Rules, ScriptOfAnUnfitPathIsOnlyListed) {
    const fs::path script = writeScript("wor ker", "#!/bin/sh\n");
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0", 3) + script.string() + '\0');
    const Verdict verdict = judge("77", judgeScript);
    EXPECT_EQ(verdict.reason, Reason::UnfitPath);
    EXPECT_EQ(verdict.category, CAT_OTHER_THIRD_PARTY);
}

TEST_F(Rules, InterpreterThatIsGoneHasVanished) {
    make("77", "/nonexistent/sh");
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::Vanished);
}

TEST_F(Rules, FolderOrSocketInAScriptsPlaceIsNone) {
    fs::create_directories(m_root + "/bin/folder");
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0", 3) + m_root + "/bin/folder" + '\0');
    EXPECT_EQ(judge("77", judgeScript).reason, Reason::NoRelation);
}

// --- third parties

class MadeUpHolder : public Rules {
  protected:
    MadeUpHolder() {
        m_library = m_root + "/bin/library.so";
        std::ofstream(m_library) << "code";
        make("77", copySleep(m_folder / "mapper"));
    }
    void map(const std::string& lines) const { write("77", "maps", lines); }
    /// A line of maps for the product's library, or for another file of its path.
    [[nodiscard]] std::string line(const std::string& permissions = "r-xp", unsigned otherInode = 0) const {
        const std::optional<FileStatus> file = statusOf(AT_FDCWD, m_library.c_str());
        char numbers[128];
        std::snprintf(numbers, sizeof numbers, "55c0-55d0 %s 00001000 %02x:%02x %llu   ", permissions.c_str(),
                      file->id.deviceMajor, file->id.deviceMinor,
                      static_cast<unsigned long long>(file->id.inode + otherInode));
        return numbers + m_library + "\n";
    }
    std::string m_library;
};

TEST_F(MadeUpHolder, ExecutableMappingOfTheTreeIsTheReason) {
    map("1000-2000 r-xp 00000000 fe:00 5 /usr/lib/x.so\n" + line());
    EXPECT_EQ(judgeHolder("77").reason, Reason::MapsProduct);
    EXPECT_EQ(judgeHolder("77").category, CAT_THIRD_PARTY);
}

TEST_F(MadeUpHolder, OtherMappingsAreNone) {
    for (const std::string& text :
         {line("r--p"), std::string("55c0-55d0 r-xp 00001000 00:00 0\n"), std::string("nonsense\n"),
          std::string("55c0-55d0 r-xp 00001000 00:00 0 [vdso]\n"),
          std::string("55c0-55d0 r-xp 00001000 fe:00 9 /usr/lib/x.so\n"), line().substr(0, line().size() - 1)}) {
        map(text);
        EXPECT_EQ(judgeHolder("77").reason, Reason::NoRelation) << text;
    }
}

TEST_F(MadeUpHolder, MappingsOverTheBudgetArePassedOver) {
    map(std::string(100, 'x') + "\n" + line());
    m_roots.budget.mapsBytes = 50;
    EXPECT_EQ(judgeHolder("77").reason, Reason::MapsProduct) << "what was read is looked at";
    map(std::string(20000, 'x') + "\n" + line());
    EXPECT_EQ(judgeHolder("77").reason, Reason::OverBudget);
}

/// The folder's own two entries count, too.
TEST_F(MadeUpHolder, DescriptorsWithinTheBudgetAreSearchedToTheEnd) {
    for (const char* name : {"fd/0", "fd/1", "fd/2"}) {
        link("77", name, "/dev/null");
    }
    m_roots.budget.descriptors = 5;
    EXPECT_EQ(judgeHolder("77").reason, Reason::NoRelation);
    m_roots.budget.descriptors = 4;
    EXPECT_EQ(judgeHolder("77").reason, Reason::OverBudget);
}

/// In another mount namespace the name proves nothing: it must be the host's very file.
TEST_F(MadeUpHolder, OtherMountNamespaceNeedsTheHostsVeryFile) {
    link("77", "ns/mnt", "mnt:[1]");
    map(line());
    EXPECT_EQ(judgeHolder("77").reason, Reason::MapsProduct);
    const std::string other = line("r-xp", 1);
    map(other);
    EXPECT_EQ(judgeHolder("77").reason, Reason::NoRelation);
    fs::remove(m_library);
    map(other);
    EXPECT_EQ(judgeHolder("77").reason, Reason::NoRelation);
}

TEST_F(MadeUpHolder, FolderAndRootOfTheTreeAreListed) {
    for (const char* name : {"cwd", "root"}) {
        make("77", m_folder / "mapper");
        link("77", name, m_root);
        EXPECT_EQ(judgeHolder("77").reason, Reason::HoldsProduct) << name;
        EXPECT_EQ(judgeHolder("77").category, CAT_OTHER_THIRD_PARTY);
    }
}

TEST_F(MadeUpHolder, RemovedFolderOfAnotherTreeIsNone) {
    link("77", "ns/mnt", "mnt:[1]");
    fs::create_directories(m_root + "/gone");
    link("77", "cwd", m_root + "/gone (deleted)"); // the link leads nowhere
    EXPECT_EQ(judgeHolder("77").reason, Reason::NoRelation);
    link("77", "cwd", m_root + "/gone");
    EXPECT_EQ(judgeHolder("77").reason, Reason::HoldsProduct);
}

TEST_F(MadeUpHolder, WhatIsGoneHasVanished) {
    for (const char* name : {"maps", "fd"}) {
        make("77", m_folder / "mapper");
        fs::remove_all(fs::path(m_proc) / "77" / name);
        EXPECT_EQ(judgeHolder("77").reason, Reason::Vanished) << name;
    }
    make("77", m_folder / "mapper");
    map(line());
    fs::remove(fs::path(m_proc) / "77/exe");
    EXPECT_EQ(judgeHolder("77").reason, Reason::Vanished);
}

TEST_F(MadeUpHolder, WhoIsNeverEndedIsOnlyListed) {
    map(line());
    EXPECT_EQ(judgeHolder("77", 1).reason, Reason::DemotedPid1);
    EXPECT_EQ(judgeHolder("77", getppid()).reason, Reason::DemotedAncestor);
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judgeHolder("77").reason, Reason::DemotedScope);
    make("77", copySleep(m_folder / "sshd"));
    map(line());
    EXPECT_EQ(judgeHolder("77").reason, Reason::DemotedHostService);
    for (const Verdict& verdict : {judgeHolder("77"), judgeHolder("77", 1)}) {
        EXPECT_EQ(verdict.category, CAT_OTHER_THIRD_PARTY);
    }
}

TEST_F(MadeUpHolder, ExecutableThatIsAnothersOrNowhereIsUnexcludable) {
    map(line());
    link("77", "exe", "/proc/self/exe"); // its text is no path of the file
    EXPECT_NE(judgeHolder("77").category, CAT_THIRD_PARTY);
    link("77", "exe", m_folder / "gone");
    EXPECT_EQ(judgeHolder("77").reason, Reason::DemotedUnexcludable);
}

TEST_F(MadeUpHolder, PathThatNoRecordHoldsIsUnexcludable) {
    fs::path folder = m_folder;
    while (folder.string().size() < sizeof CV_Process_s::path) {
        folder /= std::string(200, 'd');
    }
    fs::create_directories(folder);
    make("77", copySleep(folder / "mapper"));
    map(line());
    EXPECT_EQ(judgeHolder("77").reason, Reason::DemotedUnexcludable);
}

TEST_F(MadeUpHolder, ReplacedExecutableCountsOnlyWhereTheCallerSeesTheSame) {
    map(line());
    copySleep(m_folder / "mapper (deleted)");
    const UniqueFd removed(open((m_folder / "mapper (deleted)").c_str(), O_RDONLY | O_CLOEXEC));
    link("77", "exe", (m_folder / "mapper (deleted)").string());
    EXPECT_EQ(judgeHolder("77").reason, Reason::MapsProduct) << "a live file may be called so";
    link("77", "ns/mnt", "mnt:[1]");
    EXPECT_EQ(judgeHolder("77").reason, Reason::MapsProduct);
}

TEST_F(MadeUpHolder, CallersOwnExecutableIsLeftOut) {
    map(line());
    link("77", "exe", fs::read_symlink("/proc/self/exe"));
    EXPECT_EQ(judgeHolder("77").reason, Reason::CallersExecutable);
}

} // namespace
} // namespace lister
