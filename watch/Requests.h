/// Who was meant by a request that names only a path. Pure.
///
/// The debug log names the path of a process that was asked to end. Where several processes run that file, what is
/// known of the program's way decides: within one row, and within one round of SIGKILL, it came to each process once,
/// in the order of the snapshot, asked it if it was there, and else passed it over. Often only one way of laying the
/// requests upon the processes agrees with when each was gone. What all ways that do have in common is certain.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Run.h"

namespace watch {

struct Request {
    std::string path;
    std::vector<Asked> asked;
    /// The record before it: the program was not at it yet.
    Time earliest = 0;
};

struct Candidate {
    /// Its place in the snapshot.
    std::size_t process = 0;
    /// The first moment at which it may have ended, and one at which signal 0 no longer found it; nothing while that
    /// has not been seen.
    std::optional<Time> ended;
    std::optional<Time> gone;
};

struct Assignment {
    /// The place in the snapshot; nothing where nobody of the snapshot can be meant.
    std::optional<std::size_t> process;
    bool certain = true;
};

struct Meant {
    /// For each of the requests, who was meant.
    std::vector<Assignment> requests;
    /// The processes, as places in the snapshot, of which it cannot be told whether they were asked, or by which
    /// request.
    std::vector<std::size_t> unsure;
};

/// The requests are of one path and in the order of the log. The candidates are the processes of that path that may be
/// asked there, in the order of the snapshot; with `firstOnly` the first one alone is. By `over` the program had come
/// to all of them; without it, it may not have come to the last ones yet.
Meant assignRequests(const std::vector<const Request*>& requests, std::vector<Candidate> candidates, bool firstOnly,
                     const std::optional<Time>& over);

} // namespace watch
