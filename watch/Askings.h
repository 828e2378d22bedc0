/// Who was asked what: the log's story laid upon the processes of the snapshot. Pure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "LogStory.h"
#include "Run.h"

namespace watch {

/// The snapshot's processes, and when signal 0 no longer found each of them; nothing while it does.
struct Lives {
    std::vector<Process> processes;
    std::vector<std::optional<Time>> gone;
    /// An end was seen so much later at most.
    Time resolution = 0;
};

/// One request, and the moment before which nothing can have come of it: a record is written behind what it tells.
struct Dated {
    Asked asked;
    Time earliest = 0;
    /// Whether a row of the table asked, which marks the process as handled.
    bool byRow = false;
};

struct Askings {
    /// For each process of the snapshot, in the order of time.
    std::vector<std::vector<Dated>> of;
    /// For each process of the snapshot, whether the log does not tell it apart from others of its path.
    std::vector<bool> unsure;
    /// For each process of the snapshot, whether the program passes it over because of the exclude list.
    std::vector<bool> excluded;
    /// What was asked of processes that the snapshot has not.
    std::vector<Stranger> strangers;
};

Askings settleAskings(const Lives& lives, const LogStory& story);

/// Whether a wait for all is for that process: the program has handled it, by a request or by a mark alone.
bool isHandled(const Process& process, bool excluded, const std::vector<Dated>& asked);

/// Whether the row of that place, from 1, waits.
bool rowWaits(int row);

/// The processes that a stage waits for, as places in the snapshot: a row for those that it asked and for the first of
/// its name, asked or not; the waits for all for each one that was handled; any other stage for none.
std::vector<std::size_t> waitedFor(const Stage& stage, const Lives& lives, const Askings& askings);

} // namespace watch
