/// One line of the program's debug log. Pure: the file is read by LogFile.
#pragma once

#include <optional>
#include <string_view>

#include "Run.h"

namespace watch {

/// The texts are borrowed from the line.
struct LogRecord {
    Time time = 0;
    std::string_view process;
    int pid = 0;
    /// "info", "warning", "error", "debug1" and so on.
    std::string_view level;
    std::string_view function;
    std::string_view text;
};

/// Reads "2026-11-20T19:53:02.123456+01:00 HOST PROCESS[PID] LEVEL FUNCTION: TEXT" without its newline; nothing for any
/// other line. HOST may hold blanks (an administrator names it), FUNCTION may hold "::".
std::optional<LogRecord> parseLogRecord(std::string_view line);

} // namespace watch
