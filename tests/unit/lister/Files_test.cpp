#include "files.h"

#include <cerrno>
#include <sstream>
#include <thread>

#include <sys/stat.h>

#include "Kernel.h"
#include "ListerTest.h"

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
long __wrap_syscall(long number, long a, long b, long c, long d);
int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);
int __wrap_ioctl(int fd, unsigned long request, void* argument);

long __wrap_syscall(long number, long a, long b, long c, long d) {
    return kernel::syscall(number, a, b, c, d);
}

int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to) {
    return kernel::statx(folder, path, flags, mask, to);
}

int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    return kernel::ioctl(fd, request, argument);
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
    EXPECT_FALSE(lookUpLinkText(path, *status).isDeleted);
    FileStatus other = *status;
    ++other.id.inode;
    EXPECT_TRUE(lookUpLinkText(path, other).isDeleted) << "another file of that name";
    FileStatus removed = *status;
    removed.links = 0;
    EXPECT_TRUE(lookUpLinkText(path, removed).isDeleted);
    EXPECT_EQ(lookUpLinkText(path, removed).path, m_root + "/bin/x");
    EXPECT_FALSE(lookUpLinkText("/bin/sh", removed).isDeleted);
    fs::remove(path);
    EXPECT_TRUE(lookUpLinkText(path, *status).isDeleted);
}

/// As mountinfo numbers it, however the kernel tells it.
TEST_F(LinkText, MountOfAFileIsTheOneThatMountinfoHas) {
    // "36 35 98:0 / /proc rw - proc proc rw": the last mount there hides those before it.
    std::istringstream mounts(textOf("/proc/self/mountinfo"));
    std::uint64_t expected = 0;
    for (std::string line; std::getline(mounts, line);) {
        const std::optional<MountLine> mount = parseMountLine(line);
        expected = mount && mount->mountPoint == "/proc" ? mount->id : expected;
    }
    ASSERT_NE(expected, 0U);
    for (const char* version : {"5.4", static_cast<const char*>(nullptr)}) {
        kernel::pretend(version);
        const std::optional<FileStatus> status = statusAndMountOf(AT_FDCWD, "/proc/version");
        const std::optional<FileStatus> plain = statusOf(AT_FDCWD, "/proc/version");
        kernel::pretend(nullptr);
        ASSERT_TRUE(status && plain);
        EXPECT_EQ(status->mountId, expected);
        EXPECT_EQ(status->id, plain->id);
        EXPECT_EQ(status->links, plain->links);
    }
}

/// The judging thread has a table of descriptors of its own.
TEST_F(LinkText, MountOfAFileIsToldToAThreadWithDescriptorsOfItsOwn) {
    kernel::pretend("5.4");
    std::thread([] {
        EXPECT_EQ(unshare(CLONE_FILES), 0);
        const UniqueFd inTheWay(open("/", O_PATH | O_CLOEXEC));
        EXPECT_TRUE(statusAndMountOf(AT_FDCWD, "/proc/version"));
    }).join();
    kernel::pretend(nullptr);
}

TEST_F(LinkText, MountOfNoFileIsNothing) {
    kernel::pretend("5.4");
    errno = 0;
    EXPECT_FALSE(statusAndMountOf(AT_FDCWD, "/nonexistent/x"));
    EXPECT_EQ(errno, ENOENT);
    kernel::pretend(nullptr);
}

/// Both ways to find a folder.
class FolderWithoutLinks : public Lister, public testing::WithParamInterface<const char*> {
  protected:
    FolderWithoutLinks() : m_start(open(m_folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        kernel::pretend(GetParam());
    }
    ~FolderWithoutLinks() override { kernel::pretend(nullptr); }

    UniqueFd m_start;
};

TEST_P(FolderWithoutLinks, IsFound) {
    const UniqueFd folder = findFolderWithoutLinks(m_start.get(), "quarn/bin");
    ASSERT_TRUE(folder);
    EXPECT_TRUE(sameFile(statusOf(folder), statusOf(AT_FDCWD, (m_root + "/bin").c_str())));
}

TEST_P(FolderWithoutLinks, IsNotFoundBehindALink) {
    fs::create_directory_symlink(m_root, m_folder / "link");
    for (const char* path : {"link", "link/bin", "quarn/../link"}) {
        errno = 0;
        EXPECT_FALSE(findFolderWithoutLinks(m_start.get(), path)) << path;
        EXPECT_FALSE(isRefusal(errno)) << path << ": " << errno;
    }
}

TEST_P(FolderWithoutLinks, IsNotFoundWhereThereIsNone) {
    install("file");
    for (const char* path : {"nothing", "quarn/nothing/bin", "quarn/bin/file"}) {
        errno = 0;
        EXPECT_FALSE(findFolderWithoutLinks(m_start.get(), path)) << path;
        EXPECT_FALSE(isRefusal(errno)) << path << ": " << errno;
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, FolderWithoutLinks, testing::Values(nullptr, "5.4"),
                         [](const auto& parameter) { return parameter.param == nullptr ? "Todays" : "Linux5_4"; });

} // namespace
} // namespace lister
