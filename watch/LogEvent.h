/// What a record of the debug log says about a shutdown. Pure.
#pragma once

#include <optional>
#include <string>

#include "LogRecord.h"

namespace watch {

struct LogEvent {
    enum class Kind {
        /// The program begins to list the processes; a question, if there was one, has been answered.
        listing,
        /// A stop command is about to be run: `what` is its text.
        commandStarts,
        /// The stop command that started last was for `path`.
        commandFor,
        /// A signal, `what`, was sent to a process of `path`.
        signal,
        /// The exclude list names the file of `path`.
        excluded,
        /// A process of this `name` was passed over: it is excluded, or none that this may be done to.
        passedOver,
        /// The row `name` has handled a process.
        rowDone,
        /// The table is through.
        sweepBegins,
        /// The sweep comes to `name`, `pid`; its signals follow.
        sweepOf,
        /// The wait for all has seen `name`, `pid` to the end of its patience.
        notTerminated,
        /// The wait for all is over: nothing is left.
        allTerminated,
        /// SIGKILL goes to what is left.
        killBegins,
        /// Third party `name`, `pid`; its signals follow.
        thirdParty,
        /// A record of one that tells something, but too long: what it told is lost.
        cut,
        /// Any other record: it only says when.
        other,
    };

    Kind kind = Kind::other;
    Time time = 0;
    /// Whether a row of the table wrote it.
    bool ofRow = false;
    std::string path;
    std::string name;
    int pid = 0;
    std::string what;
};

/// Never fails: what is not understood is `other`.
LogEvent readEvent(const LogRecord& record);

} // namespace watch
