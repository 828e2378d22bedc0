/// Moments and lengths of time, as texts.
#pragma once

#include <string>

#include "Run.h"

namespace watch {

/// The moment as a UTC date (RFC 3339), to the nanosecond: "2026-11-21T19:53:02.123456789Z".
std::string date(Time moment);

/// A number with that many digits behind its point, in every locale.
std::string decimal(double number, int digits);

/// "0.24 s", "12.3 s": two digits below ten seconds, one above.
std::string inSeconds(Time length);

/// The two largest units: "59 s", "1 min 5 s", "3 h", "12 d 4 h".
std::string roughly(Time length);

} // namespace watch
