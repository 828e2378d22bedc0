/// The one answer to "may this process be touched?".
#pragma once

#include "DebugLine.h"
#include "cvbase.h"

/// Why a process is left alone, strongest reason first.
enum class Sparing {
    None,
    /// The user's exclude list names its executable.
    Excluded,
    /// A third party that is listed and never signalled.
    OnlyListed,
    /// A third party may be signalled, but its path becomes no command that root runs.
    NoCommand,
};

/// What is about to be done to a process.
enum class Touch { Signal, RunCommand };

Sparing sparingOf(const CV_Process_s* proc, Touch touch);

/// Writes the debug line that tells why the process is left alone, in the name of `site`.
void logSparing(Sparing sparing, const DebugSite& site, const CV_Process_s* proc);
