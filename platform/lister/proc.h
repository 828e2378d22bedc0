/// The door of the process lister: what its rules see of a process, and the verdict that they reach.
///
/// A road of one pass: link of PID/exe -> pinned process -> verdict (category and reason) -> record. Each rule is one
/// predicate; the reason is what log and tests read.
#pragma once

#include <cerrno>
#include <climits>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dirent.h>
#include <sys/types.h>

#include "UniqueFd.h"
#include "cvbase.h"
#include "cvpaths.h"
#include "procparse.h"

namespace lister {

/// What one process may cost: twice what the largest databases have (vm.max_map_count is 65,530 unless raised).
struct Budget {
    int mappings = 200'000;
    int descriptors = 200'000;
    std::size_t mapsBytes = 64U << 20U;
};

/// Where the lister looks, and how.
struct Roots {
    const char* proc = "/proc";
    const char* install = product::kInstallRoot;
    /// Ask the kernel for executable mappings (PROCMAP_QUERY, Linux 6.11) where it can answer; else read PID/maps.
    bool queryMappings = true;
    Budget budget = {};
};

/// Why a process got its category, or none.
enum class Reason {
    ProductExecutable,
    ProductScript,
    UnfitPath,
    MapsProduct,
    HoldsProduct,
    DemotedPid1,
    DemotedAncestor,
    DemotedScope,
    DemotedHostService,
    DemotedUnexcludable,
    OtherPidNamespace,
    ForeignUserNamespace,
    NotTheHostsFile,
    CallersExecutable,
    NoRelation,
    Vanished,
    Unreadable,
    Unsettled,
    OverBudget,
};

const char* reasonText(Reason reason);

/// `category` 0: no record.
struct Verdict {
    int category = 0;
    Reason reason = Reason::NoRelation;
    std::string path;
};

/// Ends the whole scan with an errno value: what the caller itself is short of, or cannot know of itself, must never
/// make a process of the product look like a stranger.
struct ScanFailure {
    int error;
};

/// Ends the judgement of one process, of which something that a rule needs cannot be read.
struct ProcessLost {
    Reason reason;
};

/// Throws ScanFailure where the caller has no descriptor or no memory left.
void throwIfShort(int error);

/// What became of something that could not be read, by errno: it is gone, or nothing is known of it.
Reason lostReason(int error);

/// Throws ProcessLost where what was asked for is there and was not given: a rule that took that for an answer would
/// let a daemon of the product go unseen.
void throwIfRefused(int error);

/// What a rule cannot do without; throws ProcessLost where it is missing, with errno set.
template <class Value> Value required(std::optional<Value> value) {
    if (!value) {
        throw ProcessLost{lostReason(errno)};
    }
    return *std::move(value);
}

/// A file, wherever it is known from.
struct FileId {
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileId&) const = default;
};

/// What one statx gives without asking a file server.
struct FileStatus {
    FileId id;
    std::uint32_t links = 0;
    std::uint32_t mode = 0;
    uid_t owner = 0;
    /// The mount that the file was reached by (Linux 5.8), 0 where it is not known.
    std::uint64_t mountId = 0;
};

/// statx that never waits for a file server (AT_STATX_DONT_SYNC); nothing when it fails, with errno set. As all that
/// read here, throws ScanFailure when the caller has no descriptor or no memory left.
std::optional<FileStatus> statusOf(int directory, const char* path, int flags = 0);

/// Calls visit(name) for each entry of an open folder until it returns false. The buffer is small on purpose: names
/// must be fresh when they are used. A process that changes its pid every 2 ms was seen by 94 of 100 passes over /proc
/// with 1 KiB, by none with 32 KiB. Returns 0 or an errno value.
template <class Visit> int forEachName(int folder, const Visit& visit) {
    alignas(dirent64) char buffer[1024];
    ssize_t size = 0;
    while ((size = getdents64(folder, buffer, sizeof buffer)) > 0) {
        for (ssize_t at = 0; at < size;) {
            // The kernel aligns each record (fs/readdir.c).
            const auto* entry = static_cast<const dirent64*>(static_cast<const void*>(buffer + at));
            at += entry->d_reclen;
            if (!visit(static_cast<const char*>(entry->d_name))) {
                return 0;
            }
        }
    }
    return size < 0 ? errno : 0;
}

/// The text of a link of at most a page (proc(5): a longer one cannot be read).
using LinkBuffer = char[PATH_MAX + 1];

/// A process whose /proc folder is open: everything that is read through it is the same process's, or fails.
class PinnedProcess {
  public:
    /// `folder` is "PID", or "PID/task/TID" where the leader has exited. May be empty afterwards: the process is gone.
    PinnedProcess(int proc, pid_t pid, const char* folder);

    explicit operator bool() const { return static_cast<bool>(m_folder); }
    [[nodiscard]] pid_t pid() const { return m_pid; }
    [[nodiscard]] int folder() const { return m_folder.get(); }

    /// The text of a link, in the buffer; nothing when it cannot be read, with errno set.
    std::optional<std::string_view> link(const char* name, LinkBuffer& buffer) const;
    [[nodiscard]] std::optional<std::string> link(const char* name) const;
    [[nodiscard]] std::optional<FileStatus> status(const char* name) const { return statusOf(folder(), name); }
    /// At most `limit` bytes of a file; nothing when it cannot be read, with errno set.
    [[nodiscard]] std::optional<std::string> read(const char* name, std::size_t limit) const;
    [[nodiscard]] UniqueFd open(const char* name, int flags) const;

  private:
    pid_t m_pid;
    UniqueFd m_folder;
};

/// What the rules need to know of the caller and of the host; read once, when the first process comes close.
class Caller {
  public:
    /// Throws ScanFailure where it cannot be known who the caller is: ENOSYS where the kernel does not tell the mount
    /// of a file (before Linux 5.8).
    explicit Caller(const Roots& roots);

    [[nodiscard]] const std::string& installRoot() const { return m_installRoot; }
    [[nodiscard]] bool isAncestor(pid_t pid) const;
    /// Also another release of it: an upgrade in place must not make a running one a process of the product.
    [[nodiscard]] bool isOwnExecutable(const FileStatus& executable, std::string_view path) const;
    // A namespace is known by the text of its link, "pid:[4026531836]" (namespaces(7)): cheaper than its status. Where
    // the link cannot be read these throw ProcessLost.
    [[nodiscard]] bool hasPidNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool trustsUserNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool hasMountNamespace(const PinnedProcess& process) const;
    /// Whether the caller sees this mount at a place that `path` begins with.
    [[nodiscard]] bool seesMount(std::uint64_t mountId, std::string_view path) const;
    /// The type of the file system of a mount, empty where the caller does not see it.
    [[nodiscard]] std::string_view mountType(std::uint64_t mountId) const;
    /// Whether the process finds the host's own folder at the install root.
    [[nodiscard]] bool sharesInstallRoot(const PinnedProcess& process) const;

  private:
    void readAncestors(int proc);
    void readMounts(const PinnedProcess& self);

    std::string m_installRoot;
    std::optional<FileStatus> m_installFolder;
    FileStatus m_executable;
    std::string m_executablePath;
    std::string m_pidNamespace;
    std::string m_userNamespace;
    std::string m_mountNamespace;
    std::vector<pid_t> m_ancestors;
    std::vector<MountLine> m_mounts;
};

// --- identity: whose process is it. The judges throw ProcessLost and ScanFailure.

/// Whether signals of the caller mean the same process, and its user could not fake what is read of it.
std::optional<Reason> outOfScope(const Caller& caller, const PinnedProcess& process);

/// Whether what the process has at `path` (reached through its own link `status`) is this host's file of that path.
bool isTheHostsFile(const Caller& caller, const PinnedProcess& process, const FileStatus& status, std::string_view path,
                    bool isDeleted);

/// The path that a link of a process stands for, and whether its file was removed or replaced.
struct LinkedFile {
    std::string path;
    bool isDeleted = false;
};
LinkedFile readLinkText(const std::string& link, const FileStatus& status);

/// The status of a file that somebody runs, looked up by its path and never waiting for a file server: nothing where
/// only a server could tell. `mountType` is the type of the file system that it stands on, empty where it is not known.
std::optional<FileStatus> lookUpWithoutWaiting(const std::string& path, std::string_view mountType);

/// The verdict on a process whose executable lies below the install root by name.
Verdict judgeExecutable(const Caller& caller, const PinnedProcess& process);

/// The verdict on a process whose executable has an interpreter's name.
Verdict judgeScript(const Caller& caller, const PinnedProcess& process);

// --- holders: who else works with the product

/// The verdict on a process that is not the product's own.
Verdict judgeThirdParty(const Roots& roots, const Caller& caller, const PinnedProcess& process);

/// find_processes_CV with its roots as a parameter.
int listProcesses(const Roots& roots, CV_Process_s** list, Proc_categories categories, int verbosity);

} // namespace lister
