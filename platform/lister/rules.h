/// The rules: what makes a process one of the product, or one that works with it. Each rule is one predicate; the
/// judges throw ProcessLost and ScanFailure.
#pragma once

#include <string_view>

#include "caller.h"
#include "process.h"
#include "roots.h"
#include "verdict.h"

namespace lister {

/// Whether what the process has at `path` (reached through its own link `status`) is this host's file of that path.
bool isHostsExecutable(const Caller& caller, const PinnedProcess& process, const FileStatus& status,
                       std::string_view path, bool isDeleted);

/// The verdict on a process whose executable lies below the install root by name. `link` is what its exe link said;
/// whoever asks makes sure that it says the same afterwards.
Verdict judgeExecutable(const Caller& caller, const PinnedProcess& process, std::string_view link);

/// The verdict on a process whose executable has an interpreter's name, by the same link.
Verdict judgeScript(const Caller& caller, const PinnedProcess& process, std::string_view link);

/// The verdict on a process that is not the product's own.
Verdict judgeThirdParty(const Roots& roots, const Caller& caller, const PinnedProcess& process);

} // namespace lister
