/// Draws a run from its JSON, and from nothing else.
#pragma once

#include <string>

#include "WholeFile.h"

namespace watch {

/// Writes the picture of the run that the JSON text tells. Returns an empty text, or why there is none.
std::string draw(const std::string& json, const WholeFile& picture);

/// Reads `json` and writes its picture to `svg`, whole or not at all. Returns an empty text, or what is wrong with
/// which file.
std::string redraw(const std::string& json, const std::string& svg);

} // namespace watch
