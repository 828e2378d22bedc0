/// Draws a run from its JSON, and from nothing else.
#pragma once

#include <string>

namespace watch {

/// Reads `json` and writes its picture to `svg`, whole or not at all. Returns an empty text, or what is wrong with
/// which file.
std::string redraw(const std::string& json, const std::string& svg);

} // namespace watch
