/// Where the lister looks, and what one process may cost it.
#pragma once

#include <cstddef>
#include <string>

#include "cvpaths.h"

namespace lister {

/// What one process may cost: twice what the largest databases have (vm.max_map_count is 65,530 unless raised).
struct Budget {
    int mappings = 200'000;
    int descriptors = 200'000;
    std::size_t mapsBytes = 64U << 20U;
};

struct Roots {
    const char* proc = "/proc";
    /// Everything but listProcesses takes it for canonical: no link on the way, or nothing there.
    std::string install = product::kInstallRoot;
    /// Ask the kernel for executable mappings (PROCMAP_QUERY, Linux 6.11) where it can answer; else read PID/maps.
    bool queryMappings = true;
    Budget budget = {};
};

} // namespace lister
