/// The host configuration's text and how it becomes a CV_master_config. parse is pure, readFile is thin.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cvbase.h"

namespace hostconf {

/// A larger file is no host configuration.
inline constexpr std::size_t kMaxFileSize = 65536;

struct Outcome {
    /// Empty when the configuration can be used; else the file, the line or key, and the value that is wrong.
    std::string error;
    CV_master_config config;
    /// "[section] key" of what was ignored, in the order of the file.
    std::vector<std::string> unknownKeys;
};

/// Reads INI text: lines that begin with `#` or `;` are comments, there are no inline comments, nothing may be given
/// twice. `systemName` is the host's name where the text gives none. The error names no file.
Outcome parse(std::string_view text, const std::string& systemName);

/// Reads and parses a file; the error begins with `path`.
Outcome readFile(const char* path);

/// Makes a usable outcome the configuration that get_master_config_ptr returns. Returns 0, or -1 for one with an error,
/// which changes nothing.
int adopt(const Outcome& outcome);

/// Reads a file and adopts it; CV_read_master_config does so with the product's. An error goes to syslog.
int load(const char* path);

} // namespace hostconf
