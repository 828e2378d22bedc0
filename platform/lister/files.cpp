#include "files.h"

#include <algorithm>
#include <utility>

#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "errors.h"
#include "names.h"
#include "procparse.h"

namespace lister {

namespace {

constexpr std::size_t kFdInfoSize = 4096;

/// An older kernel does not know the call, and neither do filters of system calls that are older than it.
bool lacksOpenat2(int error) {
    return error == ENOSYS || error == EPERM;
}

/// In place of openat2: each folder on the way, itself and never what a link leads to.
UniqueFd walkWithoutLinks(int directory, std::string_view path) {
    UniqueFd folder = openByName(directory, ".", O_DIRECTORY);
    while (folder && !path.empty()) {
        const std::size_t length = std::min(path.find('/'), path.size());
        folder = openByName(folder.get(), std::string(path.substr(0, length)).c_str(), O_DIRECTORY | O_NOFOLLOW);
        path.remove_prefix(std::min(length + 1, path.size()));
    }
    return folder;
}

/// In place of a statx that tells the mount: status and mount of one descriptor, so that they are of the same file
/// whatever the process executes meanwhile.
std::optional<FileStatus> statusAndMountByDescriptor(int directory, const char* path) {
    const UniqueFd file = openByName(directory, path);
    std::optional<FileStatus> status = file ? statusOf(file) : std::nullopt;
    if (!status) {
        return std::nullopt;
    }
    status->mountId = mountOf(file);
    if (status->mountId == 0) {
        errno = ENOSYS;
        return std::nullopt;
    }
    return status;
}

} // namespace

UniqueFd openByName(int directory, const char* path, int flags) {
    UniqueFd file(openat(directory, path, O_PATH | O_CLOEXEC | flags));
    if (!file) {
        throwIfShort(errno);
    }
    return file;
}

UniqueFd findAt(int directory, const char* path, std::uint64_t flags, std::uint64_t resolve) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC | flags;
    how.resolve = resolve;
    UniqueFd file(static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof how)));
    if (!file) {
        throwIfShort(errno);
    }
    return file;
}

/// From what the kernel says of the descriptor (Linux 3.15). The thread's own folder: it may have a table of
/// descriptors of its own.
std::uint64_t mountOf(const UniqueFd& file) {
    const std::string path = "/proc/thread-self/fdinfo/" + std::to_string(file.get());
    const UniqueFd info(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!info) {
        throwIfShort(errno);
        return 0;
    }
    const std::optional<std::string> text = readAll(info.get(), kFdInfoSize);
    return text ? parseMountId(*text).value_or(0) : 0;
}

std::optional<std::string_view> readLink(int directory, const char* name, LinkBuffer& buffer) {
    const ssize_t length = readlinkat(directory, name, buffer, sizeof buffer);
    if (length == sizeof buffer) {
        errno = ENAMETOOLONG;
    }
    return length < 0 || length == sizeof buffer
               ? std::nullopt
               : std::optional(std::string_view(buffer, static_cast<std::size_t>(length)));
}

UniqueFd findFolderWithoutLinks(int directory, const char* path) {
    UniqueFd folder = findAt(directory, path, O_DIRECTORY, RESOLVE_NO_SYMLINKS);
    return !folder && lacksOpenat2(errno) ? walkWithoutLinks(directory, path) : std::move(folder);
}

std::optional<FileStatus> statusAndMountOf(int directory, const char* path) {
    const std::optional<FileStatus> status = lister::statusOf(directory, path);
    return status && status->mountId == 0 ? statusAndMountByDescriptor(directory, path) : status;
}

std::optional<FileStatus> statusOf(const UniqueFd& file) {
    return lister::statusOf(file.get(), "", AT_EMPTY_PATH);
}

bool sameFile(const std::optional<FileStatus>& left, const std::optional<FileStatus>& right) {
    return left && right && left->id == right->id;
}

std::optional<std::string> readAll(int fd, std::size_t limit) {
    std::string text;
    char buffer[4096];
    while (text.size() < limit) {
        const ssize_t count = ::read(fd, buffer, std::min(sizeof buffer, limit - text.size()));
        if (count < 0) {
            throwIfShort(errno);
            return std::nullopt;
        }
        if (count == 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

std::optional<FileStatus> statusOf(int directory, const char* path, int flags) {
    struct statx raw = {};
    if (statx(directory, path, flags | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_MNT_ID, &raw) !=
        0) {
        throwIfShort(errno);
        // Where the kernel has no statx, libc's own refuses AT_STATX_DONT_SYNC.
        errno = errno == EINVAL ? ENOSYS : errno;
        return std::nullopt;
    }
    const bool knowsMount = (raw.stx_mask & STATX_MNT_ID) != 0;
    return FileStatus{{raw.stx_dev_major, raw.stx_dev_minor, raw.stx_ino},
                      raw.stx_nlink,
                      raw.stx_mode,
                      raw.stx_uid,
                      knowsMount ? raw.stx_mnt_id : 0};
}

/// A file may really have a name that ends in " (deleted)": it has links then, and is found under that name.
LinkedFile readLinkText(const std::string& link, const FileStatus& status, const std::optional<FileStatus>& found) {
    const std::optional<std::string_view> stripped = withoutDeleted(link);
    if (!stripped || (status.links > 0 && sameFile(status, found))) {
        return {link, false};
    }
    return {std::string(*stripped), true};
}

LinkedFile lookUpLinkText(const std::string& link, const FileStatus& status) {
    return readLinkText(link, status, withoutDeleted(link) ? statusOf(AT_FDCWD, link.c_str()) : std::nullopt);
}

} // namespace lister
