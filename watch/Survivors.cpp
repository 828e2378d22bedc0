#include "Survivors.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "Clock.h"
#include "ProcFiles.h"
#include "Snapshot.h"
#include "StopCommands.h"

namespace watch {

namespace {

constexpr std::pair<std::string_view, int> kSignals[] = {
    {"SIGHUP", SIGHUP}, {"SIGTERM", SIGTERM}, {"SIGINT", SIGINT}, {"SIGQUIT", SIGQUIT}};

/// Those of the set that the process was asked with, in the order of the requests, each once.
std::vector<std::string> askedOf(const Process& process, std::uint64_t set) {
    std::vector<std::string> found;
    for (const Asked& asked : process.asked) {
        const bool isOfSet = std::any_of(std::begin(kSignals), std::end(kSignals), [&](const auto& signal) {
            return asked.what == signal.first && holds(set, signal.second);
        });
        if (isOfSet && std::find(found.begin(), found.end(), asked.what) == found.end()) {
            found.push_back(asked.what);
        }
    }
    return found;
}

Reason reasonOf(const Process& process) {
    Reason reason;
    const std::optional<ProcState> state = readProcState(process.pid);
    if (!state) {
        return reason;
    }
    Activity activity = readActivity(process.pid);
    reason.state = activity.state;
    reason.function = std::move(activity.function);
    reason.tracer = readTracer(process.pid);
    reason.age = sinceBoot() - state->start;
    if (reason.state != State::zombie) {
        const SignalSets signals = readSignals(process.pid);
        reason.ignores = askedOf(process, signals.ignored);
        reason.blocks = askedOf(process, signals.blocked);
    }
    return reason;
}

CameBack cameBack(const Process& process, const ProcState& state) {
    CameBack back;
    back.pid = process.pid;
    back.name = process.name;
    back.path = process.path;
    back.category = process.category;
    back.parent = peerOf(state.parent);
    back.unit = readUnit(process.pid);
    back.start = timeNow() - sinceBoot() + state.start;
    return back;
}

/// Whether the run's snapshot has that very process: its pid, and its start to the tick.
bool wasThere(const Run& run, const Observation& observation, int pid, Time start) {
    const auto known = std::lower_bound(run.processes.begin(), run.processes.end(), pid,
                                        [](const Process& process, int wanted) { return process.pid < wanted; });
    return known != run.processes.end() && known->pid == pid &&
           observation.isThat(static_cast<std::size_t>(known - run.processes.begin()), start);
}

} // namespace

void explainSurvivors(Run& run) {
    for (Process& process : run.processes) {
        if (process.outcome == Outcome::survived) {
            process.reason = reasonOf(process);
            // A parent that ended has handed it on.
            if (const std::optional<ProcState> state = readProcState(process.pid)) {
                process.parent = peerOf(state->parent);
            }
        }
    }
}

void findCameBack(Run& run, const Observation& observation, const std::string& program,
                  const std::vector<std::string>& commands) {
    StopCommands stopCommands(commands, observation.taken());
    const Snapshot snapshot = takeSnapshot(false, program);
    if (snapshot.error != 0) {
        run.notes.push_back(std::string("who came back is not known: ") + std::strerror(snapshot.error));
    }
    for (const Process& process : snapshot.processes) {
        const std::optional<ProcState> state = readProcState(process.pid);
        if (state && !wasThere(run, observation, process.pid, state->start) && !stopCommands.include(process.pid)) {
            run.cameBack.push_back(cameBack(process, *state));
        }
    }
}

} // namespace watch
