/// Where a text goes that need not stand in memory as a whole.
#pragma once

#include <functional>
#include <string_view>

namespace watch {

/// Takes the text piece by piece.
using Sink = std::function<void(std::string_view)>;

} // namespace watch
