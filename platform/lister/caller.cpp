#include "caller.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <linux/nsfs.h>
#include <sys/ioctl.h>

#include "errors.h"
#include "names.h"

namespace lister {

namespace {

constexpr std::size_t kMountInfoSize = 16U << 20U;

/// The initial user namespace has this number on every host (PROC_USER_INIT_INO, include/linux/proc_ns.h; Linux 3.8).
constexpr std::string_view kInitialUserNamespace = "user:[4026531837]";

/// What must be known of the caller itself. A caller is refused the status of its own executable only where a filter of
/// system calls is older than statx, which is no better than a kernel that is.
FileStatus requireExecutable(const PinnedProcess& self) {
    const std::optional<FileStatus> status = self.executable();
    if (!status) {
        throw ScanFailure{errno == EPERM ? ENOSYS : errno};
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

/// Whether the way to the path leads over the mount.
bool isOnTheWay(const MountLine& mount, std::string_view path) {
    return mount.mountPoint == "/" || mount.mountPoint == path || isBelow(path, mount.mountPoint);
}

/// The owner of a user namespace, as the caller's user namespace numbers users (ioctl_ns(2)).
uid_t ownerOfUserNamespace(const PinnedProcess& process) {
    const UniqueFd space = process.open("ns/user", O_RDONLY);
    if (!space) {
        throwLost(errno);
    }
    uid_t owner = 0;
    if (ioctl(space.get(), NS_GET_OWNER_UID, &owner) != 0) {
        throw ProcessLost{Reason::Unreadable};
    }
    return owner;
}

} // namespace

Caller::Caller(const Roots& roots)
    : m_proc(::open(roots.proc, O_PATH | O_DIRECTORY | O_CLOEXEC)), m_installRoot(roots.install) {
    const PinnedProcess self(m_proc.get(), getpid(), "self");
    if (!self) {
        throw ScanFailure{errno};
    }
    m_executable = requireExecutable(self);
    // The tree may be gone while its processes still run.
    m_installFolder = lister::statusOf(AT_FDCWD, m_installRoot.c_str());
    if (!m_installFolder && isRefusal(errno)) {
        throw ScanFailure{errno};
    }
    m_executablePath = lookUpLinkText(requireLink(self, "exe"), m_executable).path;
    m_pidNamespace = requireLink(self, "ns/pid");
    m_userNamespace = requireLink(self, "ns/user");
    m_mountNamespace = requireLink(self, "ns/mnt");
    readAncestors();
    readMounts(self);
}

PinnedProcess Caller::pin(pid_t pid) const {
    return {m_proc.get(), pid, std::to_string(pid).c_str()};
}

void Caller::readAncestors() {
    for (pid_t pid = getppid(); pid > 0 && !isAncestor(pid);) {
        m_ancestors.push_back(pid);
        const PinnedProcess process = pin(pid);
        const std::optional<std::string> text = process ? process.read("stat", kSmallFileSize) : std::nullopt;
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

bool Caller::sharesPidNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/pid", m_pidNamespace);
}

bool Caller::sharesMountNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/mnt", m_mountNamespace);
}

/// In their own user namespace, ordinary users can mount anything anywhere, and name any file as their executable
/// (prctl(2), PR_SET_MM_MAP): what is read of such a process proves nothing.
bool Caller::trustsUserNamespace(const PinnedProcess& process) const {
    return isIn(process, "ns/user", m_userNamespace) || ownerOfUserNamespace(process) == 0;
}

std::optional<Reason> Caller::outOfScope(const PinnedProcess& process) const {
    if (!sharesPidNamespace(process)) {
        return Reason::OtherPidNamespace;
    }
    if (!trustsUserNamespace(process)) {
        return Reason::ForeignUserNamespace;
    }
    return std::nullopt;
}

bool Caller::isInInitialUserNamespace() const {
    return m_userNamespace == kInitialUserNamespace;
}

bool Caller::seesMount(std::uint64_t mountId, std::string_view path) const {
    return std::any_of(m_mounts.begin(), m_mounts.end(),
                       [&](const MountLine& mount) { return mount.id == mountId && isOnTheWay(mount, path); });
}

/// A mount that is not known was made since the caller's were read. The product's own tree is looked up all the same,
/// and with it whatever lies on the file systems that lead there: on a host without a disk, all of it.
bool Caller::mayLookInto(std::uint64_t mountId) const {
    return std::any_of(m_mounts.begin(), m_mounts.end(), [&](const MountLine& mount) {
        return mount.id == mountId && (!isServedType(mount.type) || isOnTheWay(mount, m_installRoot) ||
                                       isBelow(mount.mountPoint, m_installRoot));
    });
}

/// The install root is canonical, so a symbolic link on the way is not the host's; an absolute one would even lead from
/// the process's root into the caller's.
bool Caller::sharesInstallRoot(const PinnedProcess& process) const {
    const UniqueFd root = process.open("root", O_PATH | O_DIRECTORY);
    if (!root) {
        throwLost(errno);
    }
    // Without the leading slash: the path is walked from the process's own root.
    const UniqueFd folder = findFolderWithoutLinks(root.get(), m_installRoot.c_str() + 1);
    if (!folder) {
        throwIfRefused(errno);
        return false;
    }
    return sameFile(m_installFolder, required(statusOf(folder)));
}

} // namespace lister
