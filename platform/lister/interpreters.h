/// Which programs interpret scripts, and which of its arguments is the script that one runs. Pure over bytes: whoever
/// starts a process chooses its arguments, so every input may be hostile. Linear in the length of the input.
#pragma once

#include <optional>
#include <string_view>

namespace lister {

/// Whether a program of this name interprets scripts. A version at its end does not matter: "python3.11", "zsh-5.9".
bool isInterpreterName(std::string_view name);

/// The script that a process of the interpreter of this name runs, a part of `commandLine`: its arguments, each ended
/// by a NUL, as /proc/PID/cmdline has them. It may be relative to the process's working directory.
///
/// When it is not certain, there is no script: for an option that the interpreter's manual does not list; for one that
/// gives it a program from elsewhere (`sh -c`, `python -m`), or has it do something else (`sh -n`, `perl -v`); for a
/// name that is looked for in PATH first (`perl -S x`); for an argument without a NUL behind it, which may have been
/// cut. What makes the interpreter end at once with a complaint may be taken for a script: there is no process to
/// judge.
std::optional<std::string_view> scriptArgument(std::string_view interpreter, std::string_view commandLine);

/// Whether such a process has its script open for as long as it runs it. Shells read it line by line; others read all
/// of it before they begin.
bool keepsScriptOpen(std::string_view interpreter, std::string_view commandLine);

} // namespace lister
