#include "RunModel.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "cvcategories.h"

namespace watch {

namespace {

/// How long it may take at most until the record of a request is written. The record before it may be much older: the
/// program writes none while it waits.
constexpr Time kUntilWritten = kSecond;

/// Whether what was asked can have been before the process ended.
bool cameBefore(const Dated& dated, const Process& process) {
    return !process.ended || std::max(dated.earliest, dated.asked.time - kUntilWritten) <= *process.ended;
}

bool isKill(const Dated& dated) {
    return dated.asked.what == "SIGKILL";
}

Outcome outcomeOf(const Process& process, bool isGone, const std::vector<Dated>& asked) {
    const bool wasAsked =
        std::any_of(asked.begin(), asked.end(), [&](const Dated& dated) { return cameBefore(dated, process); });
    if (!isGone && !asked.empty()) {
        return Outcome::survived;
    }
    if (!process.ended) {
        return Outcome::spared;
    }
    if (!wasAsked) {
        return Outcome::endedUnasked;
    }
    const bool wasKilled = std::any_of(asked.begin(), asked.end(),
                                       [&](const Dated& dated) { return isKill(dated) && cameBefore(dated, process); });
    return wasKilled ? Outcome::killed : Outcome::ended;
}

/// A parent that takes note within this time did so at once: that is how often is looked.
constexpr Time kAtOnce = kSecond / 5;

Time goneAt(const Lives& lives, std::size_t place) {
    const Time gone = lives.gone[place].value_or(std::numeric_limits<Time>::max());
    const Time ended = lives.processes[place].ended.value_or(gone);
    return gone - ended < kAtOnce ? ended : gone;
}

void fillWaitedFor(Stage& stage, const Lives& lives, const Askings& askings) {
    std::vector<std::size_t> places = waitedFor(stage, lives, askings);
    std::erase_if(places, [&](std::size_t place) { return goneAt(lives, place) <= stage.begin; });
    std::stable_sort(places.begin(), places.end(),
                     [&](std::size_t left, std::size_t right) { return goneAt(lives, left) > goneAt(lives, right); });
    for (const std::size_t place : places) {
        stage.waitedFor.push_back(lives.processes[place].pid);
    }
}

/// Whether the program asks it for nothing, whatever else its log tells.
bool isLeftAlone(const Process& process) {
    return process.excluded || process.category == CAT_OTHER_THIRD_PARTY;
}

void settleProcesses(Lives& lives, const Askings& askings, bool logComplete) {
    for (std::size_t place = 0; place < lives.processes.size(); ++place) {
        Process& process = lives.processes[place];
        process.excluded = askings.excluded[place];
        process.outcome = outcomeOf(process, lives.gone[place].has_value(), askings.of[place]);
        process.certain = !askings.unsure[place] && (logComplete || !askings.of[place].empty() || isLeftAlone(process));
        if (process.ended && goneAt(lives, place) != *process.ended) {
            process.gone = lives.gone[place];
        }
        process.asked.reserve(askings.of[place].size());
        for (const Dated& dated : askings.of[place]) {
            process.asked.push_back(dated.asked);
        }
    }
}

} // namespace

RunModel::RunModel(Run run, bool asks) : m_run(std::move(run)), m_story(m_run.begin, asks), m_asks(asks) {
    m_lives.processes = std::exchange(m_run.processes, {});
    m_lives.gone.resize(m_lives.processes.size());
    m_lives.resolution = m_run.resolution;
    for (Process& process : m_lives.processes) {
        process.row = rowNamed(process.name);
    }
}

void RunModel::describe(std::size_t place, const Peer& parent, const std::string& unit) {
    m_lives.processes[place].parent = parent;
    m_lives.processes[place].unit = unit;
}

std::vector<std::string> RunModel::commands() const {
    std::vector<std::string> found;
    for (const Batch& batch : m_story.batches()) {
        for (const Request& request : batch.requests) {
            for (const Asked& asked : request.asked) {
                if (asked.kind == Asked::Kind::command) {
                    found.push_back(asked.what);
                }
            }
        }
    }
    return found;
}

const Askings& RunModel::settled() const {
    if (!m_settled) {
        m_settled = settleAskings(m_lives, m_story);
    }
    return *m_settled;
}

std::vector<bool> RunModel::killed() const {
    std::vector<bool> killed;
    for (const std::vector<Dated>& asked : settled().of) {
        killed.push_back(std::any_of(asked.begin(), asked.end(), isKill));
    }
    return killed;
}

bool RunModel::breaksOff(int status) const {
    // With another status it never came to a shutdown.
    if (status > 1 || m_story.hasEnded()) {
        return false;
    }
    if (!m_story.hasListed()) {
        // Who does not want the shutdown says so, and that is all.
        return !m_asks || status != 0;
    }
    // Where nothing of the product is left, nothing is shut down.
    for (std::size_t place = 0; place < m_lives.processes.size(); ++place) {
        const std::optional<Time>& gone = m_lives.gone[place];
        if (m_lives.processes[place].category == CAT_CORVANE && (!gone || *gone > m_story.lastRecord())) {
            return true;
        }
    }
    return false;
}

Run RunModel::finish(Time end, bool logIsWhole) {
    const bool logComplete = logIsWhole && m_hasRead && !m_story.hasCut();
    // What goes on where the records end is not known to have gone on.
    m_story.finish(logComplete ? end : m_story.lastRecord());
    const Askings askings = settleAskings(m_lives, m_story);
    Run run = std::move(m_run);
    run.end = end;
    run.stages = m_story.stages();
    for (Stage& stage : run.stages) {
        fillWaitedFor(stage, m_lives, askings);
    }
    run.logComplete = logComplete;
    settleProcesses(m_lives, askings, logComplete);
    run.processes = std::move(m_lives.processes);
    run.strangers = askings.strangers;
    if (m_story.hasCut()) {
        run.notes.emplace_back("a record of the debug log was too long and was cut, requests may be missing");
    }
    return run;
}

} // namespace watch
