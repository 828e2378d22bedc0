/// The stages as report and picture tell them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Run.h"

namespace watch {

/// Neighbouring rows of the table that waited for nobody are one part: each takes a moment.
struct Part {
    Time begin;
    Time end;
    /// "table", the row's name (as the log gave it), or the stage's word.
    std::string label;
    std::vector<int> waitedFor;
};

/// In the order of their beginnings, which a clock that was set back may have mixed up.
std::vector<Part> partsOf(const Run& run);

} // namespace watch
