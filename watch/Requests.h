/// Who was meant by a request that names only a path. Pure.
///
/// The debug log names the path of a process that was asked to end. Where several processes run that file, what is
/// known of the program's way decides: within one row, and within one round of SIGKILL, each process that was there was
/// asked once, in the order of the snapshot.
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
    /// When signal 0 no longer found it; nothing while it does.
    std::optional<Time> gone;
};

struct Assignment {
    /// The place in the snapshot; nothing where nobody of the snapshot can be meant.
    std::optional<std::size_t> process;
    bool certain = true;
};

/// For each of the requests, which are of one path and in the order of the log, who was meant. The candidates are the
/// processes of that path that may be asked there, in the order of the snapshot; with `firstOnly` the first one alone
/// is.
std::vector<Assignment> assignRequests(const std::vector<const Request*>& requests, std::vector<Candidate> candidates,
                                       bool firstOnly);

} // namespace watch
