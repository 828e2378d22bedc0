#include "Survivors.h"

#include <algorithm>
#include <cstdlib>

#include "Clock.h"
#include "ProcFiles.h"
#include "Snapshot.h"

namespace watch {

namespace {

Reason reasonOf(const Process& process) {
    Reason reason;
    const std::optional<ProcState> state = readProcState(process.pid);
    if (!state) {
        return reason;
    }
    reason.state = state->state;
    reason.function = readKernelFunction(process.pid);
    reason.tracer = readTracer(process.pid);
    reason.age = sinceBoot() - state->start;
    return reason;
}

/// A script's interpreter stands before it.
bool isStopCommand(int pid, const std::vector<std::string>& commands) {
    const std::string line = ' ' + readCommandLine(pid);
    return std::any_of(commands.begin(), commands.end(),
                       [&](const std::string& command) { return line.ends_with(' ' + command); });
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

/// Whether the run's snapshot has that very process: its pid, and its start to a tick.
bool wasThere(const Run& run, int pid, Time start) {
    return std::any_of(run.processes.begin(), run.processes.end(), [&](const Process& process) {
        return process.pid == pid && (process.start == 0 || std::abs(process.start - start) < kSecond / 10);
    });
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

std::vector<CameBack> findCameBack(const Run& run, const std::string& program,
                                   const std::vector<std::string>& commands) {
    std::vector<CameBack> found;
    for (const Process& process : takeSnapshot(false, program).processes) {
        const std::optional<ProcState> state = readProcState(process.pid);
        if (!state || isStopCommand(process.pid, commands)) {
            continue;
        }
        const CameBack back = cameBack(process, *state);
        if (!wasThere(run, back.pid, back.start)) {
            found.push_back(back);
        }
    }
    return found;
}

} // namespace watch
