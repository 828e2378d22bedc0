/// Debug lines: text joined from pieces only when its gate is open, ending in the place that wrote it.
#pragma once

#include <sstream>

#include "cvlog.h"

/// A place in the source. `unit` is the name that the unit has in the log, which is not always its file's name.
struct DebugSite {
    // NOLINTNEXTLINE(google-explicit-constructor): made to be written in braces at the call
    DebugSite(const char* siteUnit, const char* siteFunction, int siteLine = __builtin_LINE())
        : unit(siteUnit), function(siteFunction), line(siteLine) {}

    const char* unit;
    const char* function;
    int line;
};

/// When a line is built at all. Whether it is written is then the logger's decision, by its level.
enum class DebugGate : int {
    LoggerExists = -1,
    VerbosityAbove0 = 0,
    VerbosityAbove4 = 4,
};

inline bool isOpen(DebugGate gate) {
    const CVLogger* logger = CVLogger::s_default;
    return logger != nullptr && (gate == DebugGate::LoggerExists || logger->verbosity() > static_cast<int>(gate));
}

/// Hands the pieces, joined and followed by "(unit:line)", to the default logger at `level` if `gate` is open.
template <class... Pieces> void debugLine(DebugGate gate, int level, const DebugSite& site, const Pieces&... pieces) {
    if (!isOpen(gate)) {
        return;
    }
    std::ostringstream text;
    (text << ... << pieces);
    text << '(' << site.unit << ':' << site.line << ')';
    CVLogger::s_default->logDebug(site.function, level, text.str());
}
