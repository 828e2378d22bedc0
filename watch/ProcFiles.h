/// Reads what /proc says about one process. Nothing here holds anything open.
#pragma once

#include <optional>
#include <string>

#include "ProcTexts.h"
#include "Run.h"

namespace watch {

struct ProcState {
    std::string name;
    State state = State::unknown;
    int parent = 0;
    /// Since the machine's start.
    Time start = 0;
};

/// Nothing where the process is gone, or /proc is not there.
std::optional<ProcState> readProcState(int pid);

struct Activity {
    State state = State::unknown;
    /// The kernel's function that it sleeps in, or empty.
    std::string function;
};

/// What keeps the process: where it sleeps, what that of its threads does which heeds the least.
Activity readActivity(int pid);

/// The signals that it ignores, and those that each of its threads blocks: one for the process as a whole goes to any
/// thread that does not.
SignalSets readSignals(int pid);

/// The process that traces it, if one does.
std::optional<Peer> readTracer(int pid);

/// Its systemd unit, or empty.
std::string readUnit(int pid);

/// Its arguments with blanks between them.
std::string readCommandLine(int pid);

/// Whether the process sleeps for a time at the moment.
bool sleepsForATime(int pid);

/// A process with its name, which is empty where it is gone.
Peer peerOf(int pid);

} // namespace watch
