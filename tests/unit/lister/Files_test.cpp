#include "files.h"

#include <atomic>
#include <cerrno>

#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "ListerTest.h"

namespace {

/// How a look-up in the kernel's cache alone (RESOLVE_CACHED) is answered.
enum class Answer { Real, FromTheCache, NotInTheCache };

std::atomic<Answer> g_answer = Answer::Real;
/// Calls of statx, which may ask a disk or a server.
std::atomic<int> g_statusCalls = 0;

long answerLookUp(long folder, long path, long how) {
    const bool isCachedOnly = (reinterpret_cast<const open_how*>(how)->resolve & RESOLVE_CACHED) != 0;
    if (g_answer == Answer::NotInTheCache && isCachedOnly) {
        errno = EAGAIN; // openat2(2)
        return -1;
    }
    return openat(static_cast<int>(folder), reinterpret_cast<const char*>(path), O_PATH | O_CLOEXEC);
}

} // namespace

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
long __real_syscall(long number, long a, long b, long c, long d);
long __wrap_syscall(long number, long a, long b, long c, long d);
int __real_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);
int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);

long __wrap_syscall(long number, long a, long b, long c, long d) {
    return number == SYS_openat2 && g_answer != Answer::Real ? answerLookUp(a, b, c)
                                                             : __real_syscall(number, a, b, c, d);
}

int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to) {
    g_statusCalls += *path != '\0' ? 1 : 0; // what is open already is asked with an empty path
    return __real_statx(folder, path, flags, mask, to);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace lister {
namespace {

class LinkText : public Lister {};

TEST(Files, AreTheSameByDeviceAndInode) {
    const FileId file = {1, 2, 3};
    EXPECT_EQ(file, (FileId{1, 2, 3}));
    for (const FileId& other : {FileId{9, 2, 3}, FileId{1, 9, 3}, FileId{1, 2, 9}}) {
        EXPECT_NE(file, other);
    }
}

TEST_F(LinkText, EndsInDeletedOnlyWhereTheFileIsCalledSo) {
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

/// Look-ups of an existing file that the kernel's cache has, or not.
class LookUp : public testing::TestWithParam<const char*> {
  protected:
    LookUp() {
        g_answer = Answer::FromTheCache;
        g_statusCalls = 0;
    }
    ~LookUp() override { g_answer = Answer::Real; }
};

class ServedLookUp : public LookUp {};
class DiskLookUp : public LookUp {};

TEST_P(ServedLookUp, TakesWhatTheCacheHas) {
    EXPECT_TRUE(lookUpWithoutWaiting("/bin/sh", GetParam()));
}

/// Its server may never answer.
TEST_P(ServedLookUp, AsksTheServerForNothing) {
    g_answer = Answer::NotInTheCache;
    EXPECT_FALSE(lookUpWithoutWaiting("/bin/sh", GetParam()));
    EXPECT_EQ(g_statusCalls, 0);
}

TEST_P(DiskLookUp, TakesWhatTheCacheHas) {
    EXPECT_TRUE(lookUpWithoutWaiting("/bin/sh", GetParam()));
}

TEST_P(DiskLookUp, AsksTheDiskForTheRest) {
    g_answer = Answer::NotInTheCache;
    EXPECT_TRUE(lookUpWithoutWaiting("/bin/sh", GetParam()));
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", GetParam()));
    EXPECT_EQ(g_statusCalls, 2);
}

// "" stands for a mount that the caller does not see.
INSTANTIATE_TEST_SUITE_P(Types, ServedLookUp, testing::Values("", "nfs4", "fuse.sshfs"));
INSTANTIATE_TEST_SUITE_P(Types, DiskLookUp, testing::Values("ext4", "overlay"));

} // namespace
} // namespace lister
