#include "caller.h"

#include "MadeUpProcess.h"

namespace lister {
namespace {

class CallerFacts : public MadeUpProcess {};

TEST_F(CallerFacts, MissingCallerIsAnError) {
    fs::remove_all(fs::path(m_proc) / "self");
    expectScanFailure(ENOENT);
}

TEST_F(CallerFacts, MissingFactOfTheCallerIsAnError) {
    for (const char* fact : {"exe", "ns/pid", "ns/user", "ns/mnt", "mountinfo"}) {
        const fs::path path = fs::path(m_proc) / "self" / fact;
        fs::rename(path, m_folder / "kept");
        SCOPED_TRACE(fact);
        expectScanFailure(ENOENT);
        fs::rename(m_folder / "kept", path);
    }
    EXPECT_NO_THROW(const Caller caller(m_roots));
}

TEST_F(CallerFacts, InitialUserNamespaceIsKnownByItsNumber) {
    link("self", "ns/user", "user:[4026531837]");
    EXPECT_TRUE(Caller(m_roots).isInInitialUserNamespace());
    link("self", "ns/user", "user:[4026532837]");
    EXPECT_FALSE(Caller(m_roots).isInInitialUserNamespace());
}

TEST_F(CallerFacts, AncestorsAreFollowedToTheFirst) {
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

/// Pids may be reused while the chain is read.
TEST_F(CallerFacts, AncestorsInACircleAreFollowedOnce) {
    const std::string parent = std::to_string(getppid());
    make(parent, "/bin/sh");
    write(parent, "stat", parent + " (a) S " + parent + " 1 1 0 -1\n");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.isAncestor(getppid()));
}

TEST_F(CallerFacts, AncestorsEndAtAMalformedStat) {
    const std::string parent = std::to_string(getppid());
    make(parent, "/bin/sh");
    write(parent, "stat", "no stat");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.isAncestor(getppid()));
}

TEST_F(CallerFacts, MalformedMountLinesAreSkipped) {
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
}

TEST_F(CallerFacts, LooksIntoNoServersMountButTheProductsOwn) {
    m_roots.install = "/srv/product/quarn";
    write("self", "mountinfo",
          "36 1 0:1 / / rw - nfs4 x rw\n37 36 0:2 / /mnt/far rw - nfs4 x rw\n38 37 0:3 / /mnt/far/near rw - ext4 x rw\n"
          "39 36 0:4 / /srv/product rw - fuse.sshfs x rw\n40 39 0:5 / /srv/product/quarn/jobs rw - cifs x rw\n"
          "41 36 0:6 / /srv/prod rw - autofs x rw\n");
    const Caller caller(m_roots);
    EXPECT_TRUE(caller.mayLookInto(36)) << "the host has nothing else";
    EXPECT_FALSE(caller.mayLookInto(37));
    EXPECT_TRUE(caller.mayLookInto(38)) << "a disk answers";
    EXPECT_TRUE(caller.mayLookInto(39)) << "the tree lies on it";
    EXPECT_TRUE(caller.mayLookInto(40)) << "it lies in the tree";
    EXPECT_FALSE(caller.mayLookInto(41));
    EXPECT_FALSE(caller.mayLookInto(42)) << "made since";
}

TEST_F(CallerFacts, InstallRootThatIsGoneKeepsItsName) {
    m_roots.install = "/nonexistent/quarn";
    EXPECT_EQ(Caller(m_roots).installRoot(), "/nonexistent/quarn");
}

/// A program that was upgraded while it runs has another inode under the same path.
TEST_F(CallerFacts, AnotherReleaseOfTheCallersExecutableIsTheCallers) {
    const fs::path own = fs::read_symlink("/proc/self/exe");
    const Caller caller(m_roots);
    const FileStatus other = {{1, 2, 3}, 1, 0100755, 0, 1};
    EXPECT_TRUE(caller.isOwnExecutable(other, own.string()));
    EXPECT_FALSE(caller.isOwnExecutable(other, own.string() + "d"));
    EXPECT_FALSE(caller.isOwnExecutable(other, (m_root + "/bin/halvd")));
}

} // namespace
} // namespace lister
