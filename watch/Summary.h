/// A run in a line or two, for the head of report and picture.
#pragma once

#include <string>

#include "Run.h"

namespace watch {

/// "client.example: 70 processes in 62.3 s, 65 ended, 2 killed, 1 still there, 2 spared; status 1"
std::string headline(const Run& run);

/// The command line, and when it began: "cvstop -k -3, 2026-11-21 19:53:02 UTC"; with how exact the ends are, where
/// that is not to the instant.
std::string commandLine(const Run& run);

/// "ends are exact to 100 ms"; empty where they are exact to the instant.
std::string exactness(const Run& run);

} // namespace watch
