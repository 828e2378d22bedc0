/// The clocks of a watch: the debug log's, and the kernel's count of ticks since the machine started.
#pragma once

#include <cstdint>
#include <ctime>

#include "Run.h"

namespace watch {

inline Time timeOf(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

/// The clock of the debug log.
inline Time timeNow() {
    return timeOf(CLOCK_REALTIME);
}

/// The clock that the start of a process is told by.
inline Time sinceBoot() {
    return timeOf(CLOCK_BOOTTIME);
}

/// The kernel tells them to user space in hundredths of a second on every architecture (USER_HZ).
inline constexpr Time kTick = kSecond / 100;

inline Time ofTicks(std::uint64_t ticks) {
    return static_cast<Time>(ticks) * kTick;
}

} // namespace watch
