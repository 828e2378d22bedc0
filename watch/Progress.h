/// What a run is at, at one moment: all that the live line shows. Plain values.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Run.h"

namespace watch {

struct Progress {
    enum class Doing {
        /// Its question is on the screen and nothing else should be; or it may be no shutdown yet, but a bad command
        /// line.
        silent,
        /// There is no log to tell.
        unknown,
        gathering,
        /// Goes through the table, without a wait.
        table,
        /// Waits for `name`, and `more` others.
        waiting,
        /// Sends `name`, which no row handled, one signal after the other.
        sweeping,
        thirdParties,
        over,
    };

    Doing doing = Doing::gathering;
    /// Whether the processes could be listed; nobody counted them otherwise.
    bool observed = true;
    /// Of the processes that the program has to end.
    std::size_t ended = 0;
    std::size_t total = 0;
    Time elapsed = 0;
    std::string name;
    int pid = 0;
    /// How long ago it was first asked; nothing if it was not, or if the log cannot tell it from others.
    std::optional<Time> askedAgo;
    /// How long the program will wait at most until it goes on.
    std::optional<Time> upTo;
    /// Whether it has ended, and its parent has not taken note.
    bool zombie = false;
    /// Whether it is on the exclude list.
    bool excluded = false;
    std::size_t more = 0;
};

} // namespace watch
