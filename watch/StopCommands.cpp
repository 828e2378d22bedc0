#include "StopCommands.h"

#include <algorithm>
#include <optional>

#include "Clock.h"
#include "ProcFiles.h"
#include "WithinTime.h"

namespace watch {

namespace {

/// The kernel reads arguments under the process's memory lock, which may never be free.
constexpr std::chrono::milliseconds kPatience(500);
constexpr int kMostSilent = 4;

} // namespace

/// A script's interpreter stands before it.
bool StopCommands::isOne(int pid) {
    const auto [known, isNew] = m_known.try_emplace(pid, false);
    if (!isNew || m_silent == kMostSilent) {
        return known->second;
    }
    const std::optional<std::string> read = withinTime(kPatience, [pid] { return ' ' + readCommandLine(pid); });
    m_silent += read ? 0 : 1;
    known->second = read && std::any_of(m_lines.begin(), m_lines.end(),
                                        [&](const std::string& command) { return read->ends_with(' ' + command); });
    return known->second;
}

bool StopCommands::include(int pid) {
    while (!m_lines.empty() && pid > 1) {
        const std::optional<ProcState> state = readProcState(pid);
        if (!state || state->start + kTick <= m_since) {
            return false;
        }
        if (isOne(pid)) {
            return true;
        }
        pid = state->parent;
    }
    return false;
}

} // namespace watch
