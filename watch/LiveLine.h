/// The line that is rewritten while a shutdown runs. Pure.
#pragma once

#include <cstddef>
#include <string>

#include "Progress.h"

namespace watch {

/// "[#######-----] 47 of 70 ended  12 s  waiting for kuror (67): asked 10 s ago, up to 50 s more  +2", in at most
/// `width` columns: what matters least goes first. Empty where nothing should be shown.
std::string liveLine(const Progress& progress, std::size_t width);

/// The same as a whole line for a file: no bar, as long as it needs to be.
std::string plainLine(const Progress& progress);

} // namespace watch
