/// A run in words, for whoever started it.
#pragma once

#include <string>

#include "Run.h"

namespace watch {

/// How long each stage took and for whom it waited; the ten processes that took longest; why each survivor is there;
/// who was left alone and why, the first twenty; what came back; what could not be seen. Plain lines, harmless to a
/// terminal, the first of them empty; sections without content are left out.
std::string reportOf(const Run& run);

} // namespace watch
