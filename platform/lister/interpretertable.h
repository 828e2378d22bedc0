/// What each interpreter takes as options: a row an interpreter.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace lister {

enum class Long : std::uint8_t {
    Flag,   ///< no value, or one behind '='
    Value,  ///< its value is behind '=', or is the next argument
    Script, ///< as Value, and it is the script
};

struct LongOption {
    /// A '*' at its end stands for any rest.
    std::string_view name;
    Long kind = Long::Flag;
};

/// What an interpreter takes as options. A letter or a name that is not listed means that there is no script.
struct Options {
    // Letters, by what they take of their argument. What is left of it are letters again.

    /// Nothing.
    std::string_view flags{};
    /// Octal digits, if there are any: perl -l012w.
    std::string_view numbers{};
    /// One character: ruby -Kuw.
    std::string_view characters{};
    /// All up to a blank: perl "-i.bak -w".
    std::string_view words{};
    /// All, if there is anything: perl -Mstrict.
    std::string_view rests{};
    /// All, or else the next argument: python -Wignore, python -W ignore.
    std::string_view values{};
    /// The next argument: bash -oe pipefail.
    std::string_view nextArguments{};
    /// As `values`, and it is the script: awk -f FILE.
    std::string_view scripts{};
    /// As `values`, and it is long options with commas between them: mawk -W interactive,exec FILE.
    std::string_view longOptionLetters{};

    /// Of two that begin alike, the shorter one first.
    std::span<const LongOption> longOptions{};
    /// Those that may begin with one dash, but not after a letter, and take no value behind '='.
    std::span<const LongOption> longWithOneDash{};

    /// Flags after which a script without a slash is looked for in PATH.
    std::string_view searching{};
    /// "+x" is an option as "-x" is, a lone "-" ends the options, the value of 'o' names an option.
    bool isShell = false;
    /// Names of the shell's options are long options, too, or any long option is ignored.
    bool takesAnyLong = false;
    bool takesAbbreviations = false;
    /// Several letters may share an argument: -eu.
    bool takesClusters = true;
    /// A blank in an argument separates options, as the kernel hands over "#!/usr/bin/perl -w -T".
    bool takesBlanks = false;
    bool takesOneOptionOnly = false;
    /// The script may follow "--".
    bool endsWithDashes = true;
    /// False where the first argument that is no option is the program's text: awk '{ print }'.
    bool operandIsScript = true;
    /// An applet's options count. Its name is the process's own or that of its first argument.
    bool hasApplets = false;
};

struct InterpreterRow {
    std::string_view name;
    const Options& options;
};

/// All of them, by the names of the executables themselves, which links like rbash, nawk and python lead to.
std::span<const InterpreterRow> interpreterRows();

/// The applets that interpret scripts.
std::span<const InterpreterRow> appletRows();

/// Null where no interpreter has this name. A version at its end does not matter.
const Options* findInterpreter(std::string_view name);

/// Null where the applet interprets no scripts.
const Options* findApplet(std::string_view name);

} // namespace lister
