/// A process whose folder in /proc is pinned.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "UniqueFd.h"
#include "files.h"

namespace lister {

/// PID/stat is never longer, and what the rules read of PID/status stands well before.
inline constexpr std::size_t kSmallFileSize = 8192;

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
    /// The status of what it executes, and its mount.
    [[nodiscard]] std::optional<FileStatus> executable() const { return statusAndMountOf(folder(), "exe"); }
    /// At most `limit` bytes of a file; nothing when it cannot be read, with errno set.
    [[nodiscard]] std::optional<std::string> read(const char* name, std::size_t limit) const;
    [[nodiscard]] UniqueFd open(const char* name, int flags) const;

  private:
    pid_t m_pid;
    UniqueFd m_folder;
};

} // namespace lister
