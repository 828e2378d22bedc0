/// A run as JSON, and back. The form is that of schema.json, version kJsonVersion.
#pragma once

#include <string>
#include <string_view>

#include "Run.h"
#include "Sink.h"

namespace watch {

/// Raised when a key goes or changes its meaning; keys may be added without that, so a reader passes over those that it
/// does not know.
inline constexpr int kJsonVersion = 1;

/// One JSON document, each stage and each process on a line of its own. Moments are seconds since the run began, to the
/// nanosecond; the beginning is a UTC date (RFC 3339). JSON is UTF-8, and names are bytes: a byte that is no UTF-8
/// stands as
/// "\xNN" (lower case), and so does a backslash ("\x5c"), so that each text can be made bytes again.
void writeJson(const Run& run, const Sink& sink);
std::string toJson(const Run& run);

struct ReadRun {
    Run run;
    /// Empty, or why the text is no such document and where ("processes[3].pid: must be a whole number from 1 to ...");
    /// the run is empty then.
    std::string error;
};

/// Reads what toJson wrote, whoever changed it in between: any bytes are a fair input.
ReadRun fromJson(std::string_view text);

} // namespace watch
