/// The processes that a program is about to find: the same listing, taken just before it starts.
#pragma once

#include <string>
#include <vector>

#include "Run.h"

namespace watch {

struct Snapshot {
    /// 0, or an errno value: the listing failed, or cannot be whole.
    int error = 0;
    /// By pid. Of each only pid, name, path and category are known.
    std::vector<Process> processes;
    /// When the listing was over, since the machine's start.
    Time taken = 0;
};

/// Lists the product's processes, and the others as well if `thirdParty` says so, without those of `program`: it does
/// not list itself, nor others of its kind.
Snapshot takeSnapshot(bool thirdParty, const std::string& program);

} // namespace watch
