/// The search through the executable mappings of a process.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "roots.h"

namespace lister {

/// One executable mapping of a file: where it begins and ends, the kernel's name of the file, " (deleted)" included,
/// and which file it is by the numbers of PID/maps.
struct FileMapping {
    std::uint64_t begin;
    std::uint64_t end;
    std::string_view name;
    std::uint32_t deviceMajor;
    std::uint32_t deviceMinor;
    std::uint64_t inode;
};

/// Whether `matches` holds for an executable mapping of a file whose name begins so, given an open PID/maps. Asks the
/// kernel mapping by mapping where the roots want that and it can answer, else reads the text. Throws ProcessLost where
/// the mappings cannot be read, or when the budget is spent before one matched.
bool anyExecutableMapping(int maps, const Roots& roots, std::string_view beginning,
                          const std::function<bool(const FileMapping&)>& matches);

} // namespace lister
