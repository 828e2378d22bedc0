/// One lane of the picture: what is drawn and told of one process.
#pragma once

#include <string>

#include "Run.h"
#include "Timeline.h"

namespace watch {

inline constexpr double kLaneHeight = 16;

/// The lane of a process of the snapshot, `y` pixels from the top; its id is "p" and its pid.
std::string laneOf(const Process& process, const Run& run, const Axis& axis, double y);

/// The lane of one that came back; its id is "c" and its pid.
std::string laneOf(const CameBack& process, const Run& run, const Axis& axis, double y);

/// The lane of one that only the log names.
std::string laneOf(const Stranger& stranger, const Run& run, const Axis& axis, double y);

/// "ended 0.24 s", the time since it was first asked; what stands behind its lane, at most 21 columns. A
/// question mark ends what follows from a guess.
std::string outcomeText(const Process& process);

} // namespace watch
