#include "lookup.h"

#include <cerrno>

#include <linux/openat2.h>

#include "Kernel.h"
#include "MadeUpProcess.h"

namespace lister {
namespace {

/// What the kernel answers where it does not find a file without asking: that the cache does not have it, or that it
/// knows no such look-up (before Linux 5.12), or not even the call (before 5.6, or behind an old filter).
constexpr int kUnfound[] = {EAGAIN, EINVAL, ENOSYS, EPERM};

/// Look-ups of files that the kernel's cache has, or not, and that a server may have, or not.
class LookUp : public MadeUpProcess {
  protected:
    LookUp() { kernel::answerCachedLookUps(EAGAIN); }
    ~LookUp() override { kernel::answerCachedLookUps(kernel::kByItself); }

    /// Where the path leads; the errno value where it leads nowhere.
    [[nodiscard]] std::string find(const std::string& path) const {
        errno = 0;
        const UniqueFd file = findWithoutWaiting(Caller(m_roots), path);
        return file ? pathOf(file).value_or("") : strerrorname_np(errno);
    }
};

TEST_F(LookUp, TakesWhatTheCacheHas) {
    serveProc("fuse");
    kernel::answerCachedLookUps(kernel::kFromAll);
    if (kernel::knowsOpenat2()) {
        EXPECT_EQ(find("/proc/version"), "/proc/version");
    }
}

TEST_F(LookUp, TakesTheCachesWordForWhatIsNotThere) {
    kernel::answerCachedLookUps(ENOENT);
    EXPECT_EQ(find("/proc/version"), "ENOENT");
}

/// It may never answer.
TEST_F(LookUp, AsksNoServer) {
    fs::create_symlink("/proc", m_folder / "link");
    for (const int error : kUnfound) {
        kernel::answerCachedLookUps(error);
        for (const std::string type : {"fuse.sshfs", "nfs4", "autofs"}) {
            serveProc(type);
            for (const std::string& path :
                 {std::string("/proc/version"), (m_folder / "link/version").string(),
                  std::string("/usr/../proc/version"), std::string("/proc/nonesuch"), std::string("/proc")}) {
                EXPECT_EQ(find(path), "EREMOTE") << path << ' ' << type << ' ' << error;
            }
        }
    }
}

TEST_F(LookUp, AsksTheDiskForTheRest) {
    const Caller caller(m_roots);
    for (const int error : kUnfound) {
        kernel::answerCachedLookUps(error);
        EXPECT_EQ(find("/proc/version"), "/proc/version") << error;
        EXPECT_EQ(find("/nonexistent/x"), "ENOENT") << error;
        EXPECT_TRUE(sameFile(lookUpWithoutWaiting(caller, "/bin/sh"), statusOf(AT_FDCWD, "/bin/sh"))) << error;
        EXPECT_FALSE(lookUpWithoutWaiting(caller, "/nonexistent/x")) << error;
    }
}

TEST_F(LookUp, FollowsLinksAsTheKernelDoes) {
    const fs::path file = install("halvd");
    fs::create_symlink("halvd", m_root + "/bin/sibling");
    fs::create_symlink("../bin//sibling", m_root + "/bin/roundabout");
    fs::create_symlink(m_root + "/bin", m_folder / "folder");
    fs::create_symlink("/proc/self/root", m_folder / "root");
    for (const std::string& path :
         {file.string(), m_root + "/bin/sibling", m_root + "/bin/roundabout", (m_folder / "folder/./halvd").string(),
          (m_folder / "folder/../bin/roundabout").string(), "/../.." + file.string(),
          "/" + (m_folder / "root").string() + file.string()}) {
        EXPECT_EQ(find(path), file.string()) << path;
    }
}

TEST_F(LookUp, FindsNothingWhereTheKernelDoesNot) {
    install("halvd");
    fs::create_symlink("there", m_root + "/bin/here");
    fs::create_symlink("here", m_root + "/bin/there");
    fs::create_symlink("nothing", m_root + "/bin/dangling");
    EXPECT_EQ(find(m_root + "/bin/here"), "ELOOP");
    EXPECT_EQ(find(m_root + "/bin/dangling"), "ENOENT");
    EXPECT_EQ(find(m_root + "/bin/halvd/x"), "ENOTDIR");
    EXPECT_EQ(find(m_root + "/" + std::string(300, 'x')), "ENAMETOOLONG");
    for (const int answer : {kernel::kFromAll, EAGAIN}) {
        kernel::answerCachedLookUps(answer);
        EXPECT_EQ(find("."), "ENOENT") << "it is none of the caller's folder";
    }
}

TEST_F(LookUp, KnowsAPathThatIsTheFilesOwn) {
    kernel::answerCachedLookUps(kernel::kByItself);
    if (!findAt(AT_FDCWD, "/", 0, RESOLVE_CACHED)) {
        GTEST_SKIP() << "neither this kernel nor an emulator of a processor has to know such a look-up";
    }
    const std::string file = install("halvd").string();
    const std::string folder = fs::path(file).parent_path().string();
    fs::create_symlink("halvd", folder + "/link");
    fs::create_symlink(folder, m_folder / "folder");
    // What has been found once is in the cache from then on.
    for (const char* name : {"/halvd", "/link", "/nonesuch"}) {
        static_cast<void>(statusOf(AT_FDCWD, (folder + name).c_str()));
    }
    for (const std::string& path : {file, folder, folder + "/nonesuch"}) {
        EXPECT_TRUE(isOwnPath(path)) << path;
    }
    for (const std::string& path :
         {folder + "/link", (m_folder / "folder/halvd").string(), folder + "//halvd", folder + "/./halvd",
          folder + "/../bin/halvd", std::string("/proc/self/exe"), std::string("halvd"), std::string()}) {
        EXPECT_FALSE(isOwnPath(path)) << path;
    }
}

TEST_F(LookUp, IsNotSureOfAPathThatTheCacheDoesNotKnow) {
    for (const int error : kUnfound) {
        kernel::answerCachedLookUps(error);
        EXPECT_FALSE(isOwnPath("/proc/version")) << error;
    }
    kernel::answerCachedLookUps(ENOENT);
    EXPECT_TRUE(isOwnPath("/proc/version"));
}

/// The kernel follows 40.
TEST_F(LookUp, FollowsSoManyLinks) {
    const fs::path file = install("0");
    for (int link = 1; link <= 41; ++link) {
        fs::create_symlink(std::to_string(link - 1), m_root + "/bin/" + std::to_string(link));
    }
    EXPECT_EQ(find(m_root + "/bin/40"), file.string());
    EXPECT_EQ(find(m_root + "/bin/41"), "ELOOP");
}

} // namespace
} // namespace lister
