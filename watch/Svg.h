/// A run as a picture: a time line with a lane for each process.
#pragma once

#include <string>

#include "Run.h"

namespace watch {

/// An SVG document. Lanes are in the order of the shutdown table, each from when its process was asked to end until it
/// ended, with a mark for each request; bands behind them are the stages. Each lane can be reached by keyboard and has
/// a title and a description; no colour alone carries meaning. At most 1 KB for each process, and some 6 KB besides.
std::string toSvg(const Run& run);

} // namespace watch
