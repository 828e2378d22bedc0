/// The watcher's own command line. Pure.
#pragma once

#include <string>
#include <vector>

namespace watch {

/// What a line asks for; without `draw` and `help` a program is run.
struct CommandLine {
    std::string json;
    std::string svg;
    /// The JSON file to draw again; no program is run.
    std::string draw;
    bool report = true;
    bool help = false;
    /// The program as it was named; empty for the product's own.
    std::string program;
    std::vector<std::string> arguments;
    /// Empty, or what is wrong with the line; all else is void then.
    std::string error;
};

/// `words` begin behind the watcher's own name. Its options end at "--" or at the first word that does not begin with
/// '-'; a word behind them that does not begin with '-' is the program.
CommandLine parseCommandLine(const std::vector<std::string>& words);

/// The text of --help.
std::string usage();

} // namespace watch
