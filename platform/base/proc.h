/// The door of the process lister: what its rules see of a process, and the verdict that they reach.
///
/// A road of one pass: link of PID/exe -> pinned process -> verdict (category and reason) -> record. Each rule is one
/// predicate; the reason is what log and tests read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "UniqueFd.h"
#include "cvbase.h"
#include "cvpaths.h"
#include "procparse.h"

namespace lister {

/// Where the lister looks, and how.
struct Roots {
    const char* proc = "/proc";
    const char* install = product::kInstallRoot;
    /// Ask the kernel for executable mappings (PROCMAP_QUERY, Linux 6.11) where it can answer; else read PID/maps.
    bool queryMappings = true;
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
    OverBudget,
};

const char* reasonText(Reason reason);

/// `category` 0: no record.
struct Verdict {
    int category = 0;
    Reason reason = Reason::NoRelation;
    std::string path;
};

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

/// statx that never waits for a file server (AT_STATX_DONT_SYNC); nothing when it fails, with errno set.
std::optional<FileStatus> statusOf(int directory, const char* path, int flags = 0);

/// A process whose /proc folder is open: everything that is read through it is the same process's, or fails.
class PinnedProcess {
  public:
    /// `folder` is "PID", or "PID/task/TID" where the leader has exited. May be empty afterwards: the process is gone.
    PinnedProcess(int proc, pid_t pid, const char* folder);

    explicit operator bool() const { return static_cast<bool>(m_folder); }
    [[nodiscard]] pid_t pid() const { return m_pid; }
    [[nodiscard]] int folder() const { return m_folder.get(); }

    /// The text of a link; nothing when it cannot be read, with errno set.
    [[nodiscard]] std::optional<std::string> link(const char* name) const;
    [[nodiscard]] std::optional<FileStatus> status(const char* name) const { return statusOf(folder(), name); }
    /// At most `limit` bytes of a file.
    [[nodiscard]] std::optional<std::string> read(const char* name, std::size_t limit) const;
    [[nodiscard]] UniqueFd open(const char* name, int flags) const;

  private:
    pid_t m_pid;
    UniqueFd m_folder;
};

/// What the rules need to know of the caller and of the host; read once, when the first process comes close.
class Caller {
  public:
    explicit Caller(const Roots& roots);

    [[nodiscard]] const std::string& installRoot() const { return m_installRoot; }
    [[nodiscard]] bool isAncestor(pid_t pid) const;
    [[nodiscard]] bool isOwnExecutable(const FileStatus& executable) const;
    [[nodiscard]] bool hasPidNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool trustsUserNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool hasMountNamespace(const PinnedProcess& process) const;
    /// Whether the caller sees this mount at a place that `path` begins with.
    [[nodiscard]] bool seesMount(std::uint64_t mountId, std::string_view path) const;
    /// Whether the process finds the host's own folder at the install root.
    [[nodiscard]] bool sharesInstallRoot(const PinnedProcess& process) const;

  private:
    void readAncestors(int proc);
    void readMounts(int proc);

    std::string m_installRoot;
    std::optional<FileStatus> m_installFolder;
    std::optional<FileStatus> m_executable;
    std::optional<FileStatus> m_pidNamespace;
    std::optional<FileStatus> m_userNamespace;
    std::optional<FileStatus> m_mountNamespace;
    std::vector<pid_t> m_ancestors;
    std::vector<MountLine> m_mounts;
};

// --- identity: whose process is it

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
