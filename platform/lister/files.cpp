#include "files.h"

#include <algorithm>

#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "names.h"
#include "procparse.h"
#include "verdict.h"

namespace lister {

namespace {

// Linux 5.8; older headers lack it.
#ifndef STATX_MNT_ID
constexpr unsigned int kStatxMountId = 0x00001000U;
#else
constexpr unsigned int kStatxMountId = STATX_MNT_ID;
#endif

} // namespace

std::optional<std::string_view> readLink(int directory, const char* name, LinkBuffer& buffer) {
    const ssize_t length = readlinkat(directory, name, buffer, sizeof buffer);
    if (length == sizeof buffer) {
        errno = ENAMETOOLONG;
    }
    return length < 0 || length == sizeof buffer
               ? std::nullopt
               : std::optional(std::string_view(buffer, static_cast<std::size_t>(length)));
}

UniqueFd findFile(int directory, const char* path, std::uint64_t resolve) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = resolve;
    UniqueFd file(static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof how)));
    if (!file) {
        throwIfShort(errno);
    }
    return file;
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
    if (statx(directory, path, flags | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | kStatxMountId, &raw) !=
        0) {
        throwIfShort(errno);
        return std::nullopt;
    }
    const bool knowsMount = (raw.stx_mask & kStatxMountId) != 0;
    return FileStatus{{raw.stx_dev_major, raw.stx_dev_minor, raw.stx_ino},
                      raw.stx_nlink,
                      raw.stx_mode,
                      raw.stx_uid,
                      knowsMount ? raw.stx_mnt_id : 0};
}

/// A running executable is in the kernel's look-up cache, where RESOLVE_CACHED (Linux 5.12) finds it without asking its
/// server; what replaced it may not be, but a disk answers.
std::optional<FileStatus> lookUpWithoutWaiting(const std::string& path, std::string_view mountType) {
    if (const UniqueFd file = findFile(AT_FDCWD, path.c_str(), RESOLVE_CACHED)) {
        return statusOf(file);
    }
    return mountType.empty() || isServedType(mountType) ? std::nullopt : lister::statusOf(AT_FDCWD, path.c_str());
}

/// A file may really have a name that ends in " (deleted)": it has links then, and is found under that name.
LinkedFile readLinkText(const std::string& link, const FileStatus& status, const std::optional<FileStatus>& found) {
    const std::optional<std::string_view> stripped = withoutDeleted(link);
    if (!stripped || (status.links > 0 && sameFile(status, found))) {
        return {link, false};
    }
    return {std::string(*stripped), true};
}

LinkedFile readLinkText(const std::string& link, const FileStatus& status) {
    return readLinkText(link, status, withoutDeleted(link) ? statusOf(AT_FDCWD, link.c_str()) : std::nullopt);
}

} // namespace lister
