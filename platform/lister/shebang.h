/// The first line of a script. Pure over bytes: every input may be hostile.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace lister {

/// The kernel reads no more of a script's first line (BINPRM_BUF_SIZE, Linux 5.1).
constexpr std::size_t kShebangSize = 256;

/// The first line of a script, "#!interpreter argument". The argument is all that follows, blanks at both ends taken
/// off: the kernel hands it over as one. Both may be empty.
struct Shebang {
    std::string_view interpreter;
    std::string_view argument;
};

/// Reads it as the kernel does (load_script, fs/binfmt_script.c): a newline or a NUL ends the line, bytes behind the
/// first 256 do not exist. Nothing where "#!" is missing, or where the interpreter may have been cut there.
std::optional<Shebang> parseShebang(std::string_view firstBytes);

/// The program that runs the script: the interpreter, or what env(1) is told to start. The latter has no slash when it
/// is to be looked for in PATH. Nothing where the line names none, or where env would have to unquote or expand.
std::optional<std::string_view> shebangProgram(const Shebang& shebang);

} // namespace lister
