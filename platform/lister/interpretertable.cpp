#include "interpretertable.h"

#include <algorithm>

namespace lister {

namespace {

// The tables: what the manual pages list, and what the programs of Debian 12 really take.

/// bash(1). It accepts these ahead of the first letter only, and ends at once otherwise.
constexpr LongOption kBashLong[] = {
    {"debug"}, {"debugger"},  {"init-file", Long::Value}, {"login"},      {"noediting"}, {"noprofile"}, {"norc"},
    {"posix"}, {"protected"}, {"rcfile", Long::Value},    {"restricted"}, {"verbose"},   {"wordexp"},
};
constexpr Options kBash = {.flags = "abefhiklmprtuvxBCEHPT",
                           .nextArguments = "oO",
                           .longOptions = kBashLong,
                           .longWithOneDash = kBashLong,
                           .isShell = true};

/// Whichever shell the file of this name is: the options of POSIX's sh, and bash's.
constexpr Options kSh = {.flags = "abefhiklmpruvxCE",
                         .nextArguments = "o",
                         .longOptions = kBashLong,
                         .longWithOneDash = kBashLong,
                         .isShell = true};

constexpr Options kDash = {.flags = "abefilmpuvxCEIV", .nextArguments = "o", .isShell = true};

/// ksh93u+m.
constexpr Options kKsh = {.flags = "abefhiklmprtuvxBCEGH", .values = "o", .isShell = true, .takesAnyLong = true};

/// Without -T, which goes on in the background or on another terminal.
constexpr Options kMksh = {.flags = "abefhiklmpruvxCUX", .values = "o", .isShell = true};

/// zshoptions(1), without -b, which ends the options.
constexpr LongOption kZshLong[] = {{"emulate", Long::Value}};
constexpr Options kZsh = {.flags = "0123456789adefghiklmprtuvwxyBCDEFGHIJKLMNOPQRSTUVWXYZ",
                          .values = "o",
                          .longOptions = kZshLong,
                          .isShell = true,
                          .takesAnyLong = true};

/// perlrun(1). 'd' may be followed by ":Module" or "=arguments", also after a 't'.
constexpr Options kPerl = {.flags = "adfgnpstTUwWX",
                           .numbers = "0l",
                           .words = "CDFi",
                           .rests = "mMx:=",
                           .values = "I",
                           .searching = "S",
                           .takesBlanks = true};

/// ruby(1) and `ruby --help`. 'W' may be followed by ":category"; -T[level] was known up to 2.7.
constexpr LongOption kRubyLong[] = {
    {"backtrace-limit", Long::Value},
    {"crash-report", Long::Value},
    {"debug"},
    {"debug-frozen-string-literal"},
    {"disable", Long::Value},
    {"disable-*"},
    {"enable", Long::Value},
    {"enable-*"},
    {"encoding", Long::Value},
    {"external-encoding", Long::Value},
    {"internal-encoding", Long::Value},
    {"jit*"},
    {"mjit*"},
    {"parser", Long::Value},
    {"rjit*"},
    {"verbose"},
    {"yjit*"},
};
constexpr Options kRuby = {.flags = "adlnpsUvw",
                           .numbers = "0TW",
                           .characters = "K",
                           .rests = "Fix:",
                           .values = "CEIXr",
                           .longOptions = kRubyLong,
                           .searching = "S"};

/// python3(1); -3, -Q, -t and -U are Python 2's.
constexpr LongOption kPythonLong[] = {{"check-hash-based-pycs", Long::Value}};
constexpr Options kPython = {.flags = "3bBdEiIOPqRsStuUvx", .values = "QWX", .longOptions = kPythonLong};

/// lua(1). What -e is given runs first, and the script after it.
constexpr Options kLua = {.flags = "EivW", .values = "el", .takesClusters = false};

/// php(1). Behind "--" are the arguments of a program that comes from standard input. -F runs its file for each line of
/// the input, as -R does its code.
constexpr LongOption kPhpLong[] = {
    {"define", Long::Value},
    {"docroot", Long::Value},
    {"file", Long::Script},
    {"hide-args"},
    {"no-chdir"},
    {"no-header"},
    {"no-php-ini"},
    {"php-ini", Long::Value},
    {"profile-info"},
    {"repeat", Long::Value},
    {"zend-extension", Long::Value},
};
constexpr Options kPhp = {
    .flags = "CeHnq", .values = "cdtz", .scripts = "f", .longOptions = kPhpLong, .endsWithDashes = false};

/// awk(1p). Of several -f the first counts: each is part of what runs.
constexpr Options kAwk = {.values = "Fv", .scripts = "f", .operandIsScript = false};

/// gawk(1). An abbreviation that is not unique, or that means an option which is not listed, matches none of these.
constexpr LongOption kGawkLong[] = {
    {"assign", Long::Value},
    {"bignum"},
    {"characters-as-bytes"},
    {"csv"},
    {"dump-variables"},
    {"exec", Long::Script},
    {"field-separator", Long::Value},
    {"file", Long::Script},
    {"include", Long::Value},
    {"lint"},
    {"lint-old"},
    {"load", Long::Value},
    {"no-optimize"},
    {"non-decimal-data"},
    {"optimize"},
    {"posix"},
    {"profile"},
    {"re-interval"},
    {"sandbox"},
    {"source", Long::Value},
    {"trace"},
    {"traditional"},
    {"use-lc-numeric"},
};
constexpr Options kGawk = {.flags = "bcIkMnNOPrsSt",
                           .rests = "dLp",
                           .values = "eFilv",
                           .scripts = "fE",
                           .longOptionLetters = "W",
                           .longOptions = kGawkLong,
                           .takesAbbreviations = true,
                           .operandIsScript = false};

/// mawk(1).
constexpr LongOption kMawkLong[] = {
    {"exec", Long::Script}, {"interactive"}, {"posix_space"}, {"random"}, {"sprintf"},
};
constexpr Options kMawk = {.values = "Fv",
                           .scripts = "f",
                           .longOptionLetters = "W",
                           .longOptions = kMawkLong,
                           .takesAbbreviations = true,
                           .operandIsScript = false};

constexpr LongOption kOriginalAwkLong[] = {{"csv"}};
constexpr LongOption kOriginalAwkOneDash[] = {{"safe"}};
constexpr Options kOriginalAwk = {.values = "Fv",
                                  .scripts = "f",
                                  .longOptions = kOriginalAwkLong,
                                  .longWithOneDash = kOriginalAwkOneDash,
                                  .operandIsScript = false};

/// busybox's applets. The shell ignores every long option.
constexpr Options kBusyboxSh = {.flags = "abefilmuvxCEI", .nextArguments = "o", .isShell = true, .takesAnyLong = true};
constexpr Options kBusyboxAwk = {.values = "eFvW", .scripts = "f", .operandIsScript = false};

/// tclsh(1): `tclsh -encoding NAME FILE`. With any other option it reads standard input.
constexpr LongOption kTclOneDash[] = {{"encoding", Long::Value}};
constexpr Options kTcl = {.longWithOneDash = kTclOneDash, .takesOneOptionOnly = true, .endsWithDashes = false};

constexpr Options kBusybox = {.hasApplets = true};

/// Red Hat and SUSE install Python and Ruby under other names, too.
constexpr InterpreterRow kInterpreters[] = {
    {"sh", kSh},
    {"bash", kBash},
    {"dash", kDash},
    {"ksh", kKsh},
    {"mksh", kMksh},
    {"lksh", kMksh},
    {"zsh", kZsh},
    {"perl", kPerl},
    {"ruby", kRuby},
    {"ruby-mri", kRuby},
    {"ruby.ruby", kRuby},
    {"python", kPython},
    {"platform-python", kPython},
    {"tclsh", kTcl},
    {"lua", kLua},
    {"php", kPhp},
    {"awk", kAwk},
    {"gawk", kGawk},
    {"mawk", kMawk},
    {"original-awk", kOriginalAwk},
    {"busybox", kBusybox},
};

constexpr InterpreterRow kApplets[] = {
    {"sh", kBusyboxSh}, {"ash", kBusyboxSh}, {"bash", kBusyboxSh}, {"awk", kBusyboxAwk}};

const Options* find(std::span<const InterpreterRow> rows, std::string_view name) {
    const auto row =
        std::find_if(rows.begin(), rows.end(), [name](const InterpreterRow& each) { return each.name == name; });
    return row == rows.end() ? nullptr : &row->options;
}

/// "python3.11" is python, "zsh-5.9" is zsh.
std::string_view withoutVersion(std::string_view name) {
    const std::size_t length = name.find_last_not_of("0123456789.") + 1;
    const bool isVersioned = length < name.size();
    name = name.substr(0, length);
    if (isVersioned && name.ends_with('-')) {
        name.remove_suffix(1);
    }
    return name;
}

} // namespace

std::span<const InterpreterRow> interpreterRows() {
    return kInterpreters;
}

std::span<const InterpreterRow> appletRows() {
    return kApplets;
}

const Options* findInterpreter(std::string_view name) {
    return find(kInterpreters, withoutVersion(name));
}

const Options* findApplet(std::string_view name) {
    return find(kApplets, name);
}

} // namespace lister
