/// System calls that fail on demand. The linker replaces the C library's functions by those of Faults.cpp, which pass
/// on every call but the one that is due.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace faults {

/// From now on the `occurrence`th call of that name (from 1) fails with errno set to `error`; a
/// readlinkat with error 0 gives a text that fills its buffer. The names of one call
/// with 64-bit offsets or checked sizes count as one: "open", "openat", "read", "fstat", "stat", "poll".
void arm(const std::string& call, int error, int occurrence);

/// From now on `act` happens in front of the `occurrence`th call of any name (from 1); its own calls are not counted.
void interrupt(int occurrence, std::function<void()> act);

/// Lets all calls pass again. Returns whether the call was reached, and failed or was held up.
bool disarm();

/// From now on every call of that name fails with errno set to `error`, and disarm() ends it.
void refuse(const std::string& call, int error);

/// From now on no file whose path begins so can be opened by it; an empty beginning ends that.
void hide(const std::string& beginning);

/// What went to the system's log; none of it reaches the real one.
std::vector<std::string>& systemLog();

} // namespace faults
