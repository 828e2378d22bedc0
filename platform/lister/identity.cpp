#include "proc.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <linux/nsfs.h>
#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace lister {

namespace {

// Linux 5.8; older headers lack it.
#ifndef STATX_MNT_ID
constexpr unsigned int kStatxMountId = 0x00001000U;
#else
constexpr unsigned int kStatxMountId = STATX_MNT_ID;
#endif

constexpr std::size_t kStatSize = 4096;
constexpr std::size_t kMountInfoSize = 16U << 20U;

std::string canonical(const char* path) {
    char resolved[PATH_MAX];
    return realpath(path, resolved) != nullptr ? resolved : path;
}

/// A descriptor that only names its file (open(2), O_PATH), looked up as `resolve` demands (openat2(2), Linux 5.6).
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

/// Whether something is there and was not given, by errno.
bool isRefusal(int error) {
    return error == EACCES || error == EPERM || error == EIO || error == ENOSYS || error == ESTALE;
}

/// What must be known of the caller itself.
FileStatus requireStatus(const PinnedProcess& self, const char* name) {
    const std::optional<FileStatus> status = self.status(name);
    if (!status) {
        throw ScanFailure{errno};
    }
    return *status;
}

std::string requireLink(const PinnedProcess& self, const char* name) {
    std::optional<std::string> text = self.link(name);
    if (!text) {
        throw ScanFailure{errno};
    }
    return *text;
}

bool isIn(const PinnedProcess& process, const char* name, const std::string& space) {
    LinkBuffer buffer;
    return required(process.link(name, buffer)) == space;
}

bool sameFile(const std::optional<FileStatus>& left, const std::optional<FileStatus>& right) {
    return left && right && left->id == right->id;
}

/// Nothing where reading failed on the way: half a text would be taken for the whole.
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

/// The owner of a user namespace, as the caller's user namespace numbers users (ioctl_ns(2)).
uid_t ownerOfUserNamespace(const PinnedProcess& process) {
    const UniqueFd space = process.open("ns/user", O_RDONLY);
    if (!space) {
        throw ProcessLost{lostReason(errno)};
    }
    uid_t owner = 0;
    if (ioctl(space.get(), NS_GET_OWNER_UID, &owner) != 0) {
        throw ProcessLost{Reason::Unreadable};
    }
    return owner;
}

} // namespace

void throwIfShort(int error) {
    if (error == EMFILE || error == ENFILE || error == ENOMEM) {
        throw ScanFailure{error};
    }
}

void throwIfRefused(int error) {
    throwIfShort(error);
    if (isRefusal(error)) {
        throw ProcessLost{Reason::Unreadable};
    }
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

PinnedProcess::PinnedProcess(int proc, pid_t pid, const char* folder)
    : m_pid(pid), m_folder(openat(proc, folder, O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!m_folder) {
        throwIfShort(errno);
    }
}

std::optional<std::string_view> PinnedProcess::link(const char* name, LinkBuffer& buffer) const {
    const ssize_t length = readlinkat(folder(), name, buffer, sizeof buffer);
    if (length < 0) {
        throwIfShort(errno);
        return std::nullopt;
    }
    return std::string_view(buffer, static_cast<std::size_t>(length));
}

std::optional<std::string> PinnedProcess::link(const char* name) const {
    LinkBuffer buffer;
    const std::optional<std::string_view> text = link(name, buffer);
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

UniqueFd PinnedProcess::open(const char* name, int flags) const {
    UniqueFd file(openat(folder(), name, flags | O_CLOEXEC));
    if (!file) {
        throwIfShort(errno);
    }
    return file;
}

std::optional<std::string> PinnedProcess::read(const char* name, std::size_t limit) const {
    const UniqueFd file = open(name, O_RDONLY);
    if (!file) {
        return std::nullopt;
    }
    return readAll(file.get(), limit);
}

Caller::Caller(const Roots& roots) : m_installRoot(canonical(roots.install)) {
    const UniqueFd proc(::open(roots.proc, O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess self(proc.get(), getpid(), "self");
    if (!self) {
        throw ScanFailure{errno};
    }
    // The tree may be gone while its processes still run.
    m_installFolder = lister::statusOf(AT_FDCWD, m_installRoot.c_str());
    if (!m_installFolder && isRefusal(errno)) {
        throw ScanFailure{errno};
    }
    m_executable = requireStatus(self, "exe");
    if (m_executable.mountId == 0) {
        throw ScanFailure{ENOSYS};
    }
    m_executablePath = readLinkText(requireLink(self, "exe"), m_executable).path;
    m_pidNamespace = requireLink(self, "ns/pid");
    m_userNamespace = requireLink(self, "ns/user");
    m_mountNamespace = requireLink(self, "ns/mnt");
    readAncestors(proc.get());
    readMounts(self);
}

void Caller::readAncestors(int proc) {
    for (pid_t pid = getppid(); pid > 0 && !isAncestor(pid);) {
        m_ancestors.push_back(pid);
        const PinnedProcess process(proc, pid, std::to_string(pid).c_str());
        const std::optional<std::string> text = process ? process.read("stat", kStatSize) : std::nullopt;
        // With a part of the ancestors unknown one of them could be stopped.
        if (!text && lostReason(errno) == Reason::Unreadable) {
            throw ScanFailure{errno};
        }
        const std::optional<StatLine> stat = text ? parseStat(*text) : std::nullopt;
        pid = stat ? stat->parent : 0;
    }
}

void Caller::readMounts(const PinnedProcess& self) {
    const std::optional<std::string> text = self.read("mountinfo", kMountInfoSize);
    if (!text) {
        throw ScanFailure{errno};
    }
    for (std::string_view rest = *text; !rest.empty();) {
        const std::size_t length = std::min(rest.find('\n'), rest.size());
        if (const std::optional<MountLine> mount = parseMountLine(rest.substr(0, length))) {
            m_mounts.push_back(*mount);
        }
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
}

bool Caller::isAncestor(pid_t pid) const {
    return std::find(m_ancestors.begin(), m_ancestors.end(), pid) != m_ancestors.end();
}

bool Caller::isOwnExecutable(const FileStatus& executable, std::string_view path) const {
    return m_executable.id == executable.id || path == m_executablePath;
}

bool Caller::hasPidNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/pid", m_pidNamespace);
}

bool Caller::hasMountNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/mnt", m_mountNamespace);
}

/// In a user namespace of his own an ordinary user can mount what he likes where he likes, and with PR_SET_MM_MAP name
/// any file as his executable (prctl(2)): what is read of such a process proves nothing.
bool Caller::trustsUserNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/user", m_userNamespace) || ownerOfUserNamespace(process) == 0;
}

bool Caller::seesMount(std::uint64_t mountId, std::string_view path) const {
    return std::any_of(m_mounts.begin(), m_mounts.end(), [&](const MountLine& mount) {
        return mount.id == mountId &&
               (mount.mountPoint == "/" || mount.mountPoint == path || isBelow(path, mount.mountPoint));
    });
}

std::string_view Caller::mountType(std::uint64_t mountId) const {
    const auto mount =
        std::find_if(m_mounts.begin(), m_mounts.end(), [&](const MountLine& m) { return m.id == mountId; });
    return mount != m_mounts.end() ? std::string_view(mount->type) : "";
}

/// The install root is canonical, so a symbolic link on the way is not the host's; an absolute one would even lead from
/// the process's root into the caller's.
bool Caller::sharesInstallRoot(const PinnedProcess& process) const {
    const UniqueFd root = process.open("root", O_PATH | O_DIRECTORY);
    if (!root) {
        throw ProcessLost{lostReason(errno)};
    }
    // Without the leading slash: the path is walked from the process's own root.
    const UniqueFd folder = findFile(root.get(), m_installRoot.c_str() + 1, RESOLVE_NO_SYMLINKS);
    if (!folder) {
        throwIfRefused(errno);
        return false;
    }
    return sameFile(m_installFolder, required(statusOf(folder)));
}

/// What somebody runs is in the kernel's look-up cache, where RESOLVE_CACHED (Linux 5.12) finds it without asking
/// anybody; what replaced it may not be, but a disk answers.
std::optional<FileStatus> lookUpWithoutWaiting(const std::string& path, std::string_view mountType) {
    if (const UniqueFd file = findFile(AT_FDCWD, path.c_str(), RESOLVE_CACHED)) {
        return statusOf(file);
    }
    return mountType.empty() || isServedType(mountType) ? std::nullopt : lister::statusOf(AT_FDCWD, path.c_str());
}

Reason lostReason(int error) {
    return error == ENOENT || error == ESRCH ? Reason::Vanished : Reason::Unreadable;
}

std::optional<Reason> outOfScope(const Caller& caller, const PinnedProcess& process) {
    if (!caller.hasPidNamespace(process)) {
        return Reason::OtherPidNamespace;
    }
    if (!caller.trustsUserNamespace(process)) {
        return Reason::ForeignUserNamespace;
    }
    return std::nullopt;
}

/// In the caller's mount namespace the mount proves the path, for a running, a replaced and a removed file alike; a
/// mount that was lazily detached is in nobody's list. In another one (hardened services have their own) it must be the
/// host's very file of that path, or, when that is gone, a process that looks at the host's very folder.
bool isTheHostsFile(const Caller& caller, const PinnedProcess& process, const FileStatus& status, std::string_view path,
                    bool isDeleted) {
    if (caller.hasMountNamespace(process)) {
        return caller.seesMount(status.mountId, path);
    }
    if (!isDeleted) {
        const std::optional<FileStatus> hosts = lister::statusOf(AT_FDCWD, std::string(path).c_str());
        if (!hosts) {
            throwIfRefused(errno);
        }
        return sameFile(status, hosts);
    }
    return caller.sharesInstallRoot(process);
}

/// A file may really have a name that ends in " (deleted)": it has links then, and is found under that name.
LinkedFile readLinkText(const std::string& link, const FileStatus& status) {
    const std::optional<std::string_view> stripped = withoutDeleted(link);
    if (!stripped || (status.links > 0 && sameFile(status, lister::statusOf(AT_FDCWD, link.c_str())))) {
        return {link, false};
    }
    return {std::string(*stripped), true};
}

Verdict judgeExecutable(const Caller& caller, const PinnedProcess& process) {
    const std::optional<std::string> link = process.link("exe");
    const std::optional<FileStatus> status = link ? process.status("exe") : std::nullopt;
    if (!status) {
        return {0, lostReason(errno), link.value_or("")};
    }
    LinkedFile file = readLinkText(*link, *status);
    if (!isBelow(file.path, caller.installRoot())) {
        return {0, Reason::NoRelation, ""};
    }
    if (caller.isOwnExecutable(*status, file.path)) {
        return {0, Reason::CallersExecutable, file.path};
    }
    if (const std::optional<Reason> reason = outOfScope(caller, process)) {
        return {0, *reason, file.path};
    }
    if (!isTheHostsFile(caller, process, *status, file.path, file.isDeleted)) {
        return {0, Reason::NotTheHostsFile, file.path};
    }
    if (!isFitPath(file.path)) {
        return {CAT_OTHER_THIRD_PARTY, Reason::UnfitPath, file.path};
    }
    return {CAT_CORVANE, Reason::ProductExecutable, file.path};
}

} // namespace lister
