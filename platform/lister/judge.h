/// From the link of an executable to a verdict.
#pragma once

#include <optional>
#include <string_view>

#include <sys/types.h>

#include "UniqueFd.h"
#include "caller.h"
#include "process.h"
#include "roots.h"
#include "verdict.h"

namespace lister {

/// Whether a judgement may ask what can be held up for ever: the kernel reads a process's arguments and mappings under
/// the lock of its memory, and a script may lie on a file system that no longer answers.
enum class MayBlock { No, Yes };

/// Applies the rules to one process after another. Keeps nothing of any of them, so that several threads may use it.
class Judge {
  public:
    /// Throws ScanFailure where it cannot be known who the caller is.
    Judge(const Roots& roots, bool wantsThirdParties);

    /// The verdict on the process whose folder in /proc is `folder` ("PID", or "PID/task/TID" where the first thread
    /// has exited), and whose executable `link` was. Nothing if judging would need a call that may block and
    /// MayBlock::No was given. Throws ScanFailure.
    [[nodiscard]] std::optional<Verdict> judge(const char* folder, pid_t pid, std::string_view link,
                                               MayBlock mayBlock) const;

    [[nodiscard]] const Caller& caller() const { return m_caller; }

  private:
    [[nodiscard]] std::optional<Verdict> judgeSettled(const PinnedProcess& process, std::string_view link,
                                                      MayBlock mayBlock) const;
    [[nodiscard]] std::optional<Verdict> judgeOnce(const PinnedProcess& process, std::string_view link,
                                                   MayBlock mayBlock) const;
    [[nodiscard]] std::optional<Verdict> judgePinned(const PinnedProcess& process, std::string_view link,
                                                     MayBlock mayBlock) const;
    [[nodiscard]] Verdict judgeStranger(const PinnedProcess& process, std::string_view link) const;

    Roots m_roots;
    bool m_wantsThirdParties;
    UniqueFd m_proc;
    Caller m_caller;
};

} // namespace lister
