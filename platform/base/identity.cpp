#include "proc.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include <fcntl.h>
#include <linux/nsfs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "cvshutdown.h"

namespace lister {

namespace {

// Linux 5.8; older headers lack it.
#ifndef STATX_MNT_ID
constexpr unsigned int kStatxMountId = 0x00001000U;
#else
constexpr unsigned int kStatxMountId = STATX_MNT_ID;
#endif

/// One more than a path can have (proc(5): a link text is cut at a page).
constexpr std::size_t kLinkSize = PATH_MAX + 1;
constexpr std::size_t kStatSize = 4096;
constexpr std::size_t kMountInfoSize = 16U << 20U;

std::string canonical(const char* path) {
    char resolved[PATH_MAX];
    return realpath(path, resolved) != nullptr ? resolved : path;
}

bool sameFile(const std::optional<FileStatus>& left, const std::optional<FileStatus>& right) {
    return left && right && left->id == right->id;
}

std::string readAll(int fd, std::size_t limit) {
    std::string text;
    char buffer[4096];
    while (text.size() < limit) {
        const ssize_t count = ::read(fd, buffer, std::min(sizeof buffer, limit - text.size()));
        if (count <= 0) {
            break;
        }
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

/// The owner of a user namespace, as the caller's user namespace numbers users (ioctl_ns(2)).
std::optional<uid_t> ownerOfUserNamespace(const PinnedProcess& process) {
    const UniqueFd space = process.open("ns/user", O_RDONLY);
    uid_t owner = 0;
    if (!space || ioctl(space.get(), NS_GET_OWNER_UID, &owner) != 0) {
        return std::nullopt;
    }
    return owner;
}

} // namespace

std::optional<FileStatus> statusOf(int directory, const char* path, int flags) {
    struct statx raw = {};
    if (statx(directory, path, flags | AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | kStatxMountId, &raw) !=
        0) {
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
    : m_pid(pid), m_folder(openat(proc, folder, O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

std::optional<std::string> PinnedProcess::link(const char* name) const {
    char text[kLinkSize];
    const ssize_t length = readlinkat(folder(), name, text, sizeof text);
    if (length < 0) {
        return std::nullopt;
    }
    return std::string(text, static_cast<std::size_t>(length));
}

UniqueFd PinnedProcess::open(const char* name, int flags) const {
    return UniqueFd(openat(folder(), name, flags | O_CLOEXEC));
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
    m_installFolder = statusOf(AT_FDCWD, m_installRoot.c_str());
    m_executable = self.status("exe");
    m_pidNamespace = self.status("ns/pid");
    m_userNamespace = self.status("ns/user");
    m_mountNamespace = self.status("ns/mnt");
    readAncestors(proc.get());
    readMounts(self.folder());
}

void Caller::readAncestors(int proc) {
    for (pid_t pid = getppid(); pid > 0 && !isAncestor(pid);) {
        m_ancestors.push_back(pid);
        const PinnedProcess process(proc, pid, std::to_string(pid).c_str());
        const std::optional<std::string> text = process ? process.read("stat", kStatSize) : std::nullopt;
        const std::optional<StatLine> stat = text ? parseStat(*text) : std::nullopt;
        pid = stat ? stat->parent : 0;
    }
}

void Caller::readMounts(int self) {
    const UniqueFd file(openat(self, "mountinfo", O_RDONLY | O_CLOEXEC));
    const std::string text = file ? readAll(file.get(), kMountInfoSize) : "";
    for (std::string_view rest = text; !rest.empty();) {
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

bool Caller::isOwnExecutable(const FileStatus& executable) const {
    return m_executable && m_executable->id == executable.id;
}

bool Caller::hasPidNamespace(const PinnedProcess& process) const {
    return sameFile(m_pidNamespace, process.status("ns/pid"));
}

bool Caller::hasMountNamespace(const PinnedProcess& process) const {
    return sameFile(m_mountNamespace, process.status("ns/mnt"));
}

/// In a user namespace of his own an ordinary user can mount what he likes where he likes, and with PR_SET_MM_MAP name
/// any file as his executable (prctl(2)): what is read of such a process proves nothing.
bool Caller::trustsUserNamespace(const PinnedProcess& process) const {
    return sameFile(m_userNamespace, process.status("ns/user")) || ownerOfUserNamespace(process) == uid_t{0};
}

bool Caller::seesMount(std::uint64_t mountId, std::string_view path) const {
    return std::any_of(m_mounts.begin(), m_mounts.end(), [&](const MountLine& mount) {
        return mount.id == mountId &&
               (mount.mountPoint == "/" || mount.mountPoint == path || isBelow(path, mount.mountPoint));
    });
}

bool Caller::sharesInstallRoot(const PinnedProcess& process) const {
    const UniqueFd root = process.open("root", O_PATH | O_DIRECTORY);
    // Without the leading slash: the path is walked from the process's own root.
    return root && sameFile(m_installFolder, statusOf(root.get(), m_installRoot.c_str() + 1));
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
        return sameFile(status, statusOf(AT_FDCWD, std::string(path).c_str()));
    }
    return caller.sharesInstallRoot(process);
}

/// A file may really have a name that ends in " (deleted)": it has links then, and is found under that name.
LinkedFile readLinkText(const std::string& link, const FileStatus& status) {
    const std::optional<std::string_view> stripped = withoutDeleted(link);
    if (!stripped || (status.links > 0 && sameFile(status, statusOf(AT_FDCWD, link.c_str())))) {
        return {link, false};
    }
    return {std::string(*stripped), true};
}

Verdict judgeExecutable(const Caller& caller, const PinnedProcess& process) {
    const std::optional<std::string> link = process.link("exe");
    const std::optional<FileStatus> status = process.status("exe");
    if (!link || !status) {
        return {0, Reason::Vanished, ""};
    }
    LinkedFile file = readLinkText(*link, *status);
    if (!isBelow(file.path, caller.installRoot())) {
        return {0, Reason::NoRelation, ""};
    }
    if (caller.isOwnExecutable(*status)) {
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
