/// The calling process, against which every rule measures.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "UniqueFd.h"
#include "files.h"
#include "process.h"
#include "procparse.h"
#include "roots.h"
#include "verdict.h"

namespace lister {

/// What the rules need to know of the caller and of the host; read once, when the first candidate is pinned.
class Caller {
  public:
    /// Throws ScanFailure where it cannot be known who the caller is: ENOSYS where the mount of a file cannot be told.
    explicit Caller(const Roots& roots);

    [[nodiscard]] const std::string& installRoot() const { return m_installRoot; }
    [[nodiscard]] bool isAncestor(pid_t pid) const;
    /// Another process, by its pid; empty where there is none.
    [[nodiscard]] PinnedProcess pin(pid_t pid) const;
    /// Also another release of it: an upgrade in place must not make a running one a process of the product.
    [[nodiscard]] bool isOwnExecutable(const FileStatus& executable, std::string_view path) const;
    // A namespace is known by the text of its link, "pid:[4026531836]" (namespaces(7)): cheaper than its status. Where
    // the link cannot be read these throw ProcessLost.
    [[nodiscard]] bool sharesPidNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool trustsUserNamespace(const PinnedProcess& process) const;
    [[nodiscard]] bool sharesMountNamespace(const PinnedProcess& process) const;
    /// Why signals of the caller would not mean this process, or why its user could fake what is read of it; nothing
    /// where neither holds.
    [[nodiscard]] std::optional<Reason> outOfScope(const PinnedProcess& process) const;
    /// Whether the caller's capabilities count for every process of the host: those of root in a user namespace of its
    /// own do not.
    [[nodiscard]] bool isInInitialUserNamespace() const;
    /// Whether the caller sees this mount at a place that `path` begins with.
    [[nodiscard]] bool seesMount(std::uint64_t mountId, std::string_view path) const;
    /// Whether what is looked up in this mount asks no server, but for one that the product's own tree lies on.
    [[nodiscard]] bool mayLookInto(std::uint64_t mountId) const;
    /// Whether the process finds the host's own folder at the install root.
    [[nodiscard]] bool sharesInstallRoot(const PinnedProcess& process) const;

  private:
    void readAncestors();
    void readMounts(const PinnedProcess& self);

    UniqueFd m_proc;
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

} // namespace lister
