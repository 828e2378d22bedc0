#include "shebang.h"

#include <algorithm>
#include <array>

#include "names.h"
#include "words.h"

namespace lister {

namespace {

constexpr std::string_view kLineEnds("\n\0", 2);

std::string_view withoutTrailingBlanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

/// Without a line end, the kernel trusts an interpreter only if a blank is seen behind it; the last byte that it reads
/// is no part of the line.
std::optional<std::string_view> lineWithoutEnd(std::string_view buffer) {
    std::string_view rest = buffer;
    takeWord(rest);
    return rest.empty() ? std::nullopt : std::optional(buffer.substr(0, buffer.size() - 1));
}

// env(1). The options that take no value, or one behind '='; and those whose value is behind '=' or the next word.
constexpr std::array<std::string_view, 7> kEnvFlags = {
    "ignore-environment", "null", "debug", "block-signal", "default-signal", "ignore-signal", "list-signal-handling"};
constexpr std::array<std::string_view, 3> kEnvValues = {"unset", "chdir", "argv0"};
/// -S unquotes and expands: "${NAME}", "\\_".
constexpr std::string_view kQuotes = "\"'\\$";
constexpr std::string_view kEnvFlagLetters = "i0v";
constexpr std::string_view kEnvValueLetters = "uCa";

template <std::size_t Size> bool contains(const std::array<std::string_view, Size>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Takes "--name", "--name=value" or "--name value" off the text; false where env does not know it. What --split-string
/// is given is words like those behind it.
bool takeLongOption(std::string_view& text) {
    constexpr std::string_view kSplit = "--split-string";
    const std::string_view word = firstWord(text);
    const std::size_t length = std::min(word.find('='), word.size());
    if (word.substr(0, length) == kSplit) {
        text.remove_prefix(std::min(length + 1, text.size()));
        return true;
    }
    text.remove_prefix(word.size());
    const std::string_view name = word.substr(2, length - 2);
    if (contains(kEnvValues, name)) {
        return length < word.size() || !takeWord(text).empty();
    }
    return contains(kEnvFlags, name);
}

/// Takes "-ivu NAME" and the like off the text; false where env does not know a letter. What follows -S, be it in the
/// same word, is words like those behind it.
bool takeLetters(std::string_view& text) {
    const std::string_view word = firstWord(text);
    const std::size_t flags = std::min(word.find_first_not_of(kEnvFlagLetters, 1), word.size());
    text.remove_prefix(std::min(flags + 1, word.size()));
    if (flags == word.size() || word[flags] == 'S') {
        return true;
    }
    return kEnvValueLetters.find(word[flags]) != std::string_view::npos && !takeWord(text).empty();
}

/// Takes env's options off the text: a "-" alone means -i, a "--" ends them.
bool takeOptions(std::string_view& text) {
    for (skipBlanks(text); text.starts_with('-'); skipBlanks(text)) {
        if (firstWord(text) == "--") {
            text.remove_prefix(2);
            return true;
        }
        if (!(text.starts_with("--") ? takeLongOption(text) : takeLetters(text))) {
            return false;
        }
    }
    return true;
}

/// What env is told to start, behind its options and NAME=VALUE.
std::optional<std::string_view> envProgram(std::string_view argument) {
    std::string_view text = argument;
    if (!takeOptions(text)) {
        return std::nullopt;
    }
    std::string_view word = takeWord(text);
    while (word.find('=') != std::string_view::npos) {
        word = takeWord(text);
    }
    const std::string_view read = argument.substr(0, argument.size() - text.size());
    const bool isPlain = read.find_first_of(kQuotes) == std::string_view::npos;
    return word.empty() || !isPlain ? std::nullopt : std::optional(word);
}

} // namespace

std::optional<Shebang> parseShebang(std::string_view firstBytes) {
    if (!firstBytes.starts_with("#!")) {
        return std::nullopt;
    }
    const std::string_view buffer = firstBytes.substr(2, kShebangSize - 2);
    const std::size_t end = buffer.find_first_of(kLineEnds);
    std::optional<std::string_view> line = buffer.substr(0, end);
    if (end == std::string_view::npos && firstBytes.size() >= kShebangSize) {
        line = lineWithoutEnd(buffer);
    }
    if (!line) {
        return std::nullopt;
    }
    const std::string_view interpreter = takeWord(*line);
    skipBlanks(*line);
    return Shebang{interpreter, withoutTrailingBlanks(*line)};
}

std::optional<std::string_view> shebangProgram(const Shebang& shebang) {
    if (lastComponent(shebang.interpreter) == "env") {
        return envProgram(shebang.argument);
    }
    return shebang.interpreter.empty() ? std::nullopt : std::optional(shebang.interpreter);
}

} // namespace lister
