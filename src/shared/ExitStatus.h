/// How the program ends. Manual and README name each status; a test compares them with this list.
#pragma once

#include <cstdlib>

enum class ExitStatus : int {
    /// List or help printed, question declined, or nothing to stop.
    Success = 0,
    /// A shutdown found processes; they count even when all of them have ended.
    FoundProcesses = 1,
    /// A row of the shutdown table has an undefined action.
    UndefinedAction = 16,
    BadCommandLine = 20,
    ServerHost = 55,
    /// The host configuration is missing, unreadable or wrong.
    NoConfiguration = 110,
    /// The process table cannot be read whole, or the user's exclude list cannot be opened.
    NoSnapshot = 130,
    NotRoot = 132,
};

/// Ends the program through exit: what is in the buffers of the standard streams is written.
[[noreturn]] inline void endProgram(ExitStatus status) {
    std::exit(static_cast<int>(status));
}
