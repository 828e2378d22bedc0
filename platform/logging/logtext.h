/// The text of the debug log: how one record becomes one line. Pure; what writes the line is cvlog.cpp.
#pragma once

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace logtext {

/// A record's line, its newline included, is never longer, so that it goes out in one write.
inline constexpr std::size_t kMaxLine = 4000;

/// Ends the text of a record that was too long.
inline constexpr std::string_view kCutMark = " [cut]";

/// What stands in a record's line. The texts are borrowed.
struct Record {
    /// Local time, with its offset in tm_gmtoff.
    std::tm when;
    long nanoseconds;
    std::string_view host;
    std::string_view process;
    int pid;
    std::string_view label;
    std::string_view function;
    std::string_view text;
};

/// "2026-11-20T19:53:02.123456+01:00", the same in every locale.
std::string timestamp(const std::tm& when, long nanoseconds);

/// "TIMESTAMP HOST PROCESS[PID] LABEL FUNCTION: TEXT" and a newline, at most kMaxLine bytes in all.
///
/// One newline that ends the text is dropped. Every other control character, and every byte that is no valid UTF-8,
/// stands escaped, so that no text can end the line, forge a record or steer the terminal that shows the log.
std::string recordLine(const Record& record);

/// The word that stands for a level of logmsgf.
std::string levelLabel(int level);

} // namespace logtext
