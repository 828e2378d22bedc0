/// A read that may never come back, for as long as one is willing to wait.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace watch {

/// What `read` returns, or nothing where it takes longer, or where it could not be begun. It runs in a thread of its
/// own, which is left behind then: whatever it uses must be its own.
std::optional<std::string> withinTime(std::chrono::milliseconds patience, std::function<std::string()> read);

} // namespace watch
