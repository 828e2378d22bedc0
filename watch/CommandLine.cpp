#include "CommandLine.h"

#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>

namespace watch {

namespace {

struct Option {
    std::string_view spelling;
    /// What stands for its value in the usage; empty for an option without one.
    std::string_view value;
    std::string_view help;
    void (*apply)(CommandLine&, const std::string&);
};

constexpr Option kOptions[] = {
    {"--json", "FILE", "write what was seen into FILE, as JSON",
     [](CommandLine& line, const std::string& value) { line.json = value; }},
    {"--svg", "FILE", "draw a time line of it into FILE",
     [](CommandLine& line, const std::string& value) { line.svg = value; }},
    {"--no-report", "", "no report on standard error",
     [](CommandLine& line, const std::string&) { line.report = false; }},
    {"--draw", "FILE", "run nothing, draw this JSON again with --svg",
     [](CommandLine& line, const std::string& value) { line.draw = value; }},
    {"--help", "", "print this text", [](CommandLine& line, const std::string&) { line.help = true; }},
};

const Option* findOption(std::string_view spelling) {
    for (const Option& option : kOptions) {
        if (option.spelling == spelling) {
            return &option;
        }
    }
    return nullptr;
}

using Words = std::vector<std::string>;

/// Reads one option, which may take the next word with it. Returns what is wrong with it, or an empty text.
std::string readOption(CommandLine& line, Words::const_iterator& word, const Words::const_iterator& end) {
    const std::size_t equals = word->find('=');
    const std::string spelling = word->substr(0, equals);
    const Option* option = findOption(spelling);
    if (option == nullptr) {
        return "unknown option " + *word + "; put -- before the program's own options";
    }
    if (option->value.empty()) {
        option->apply(line, "");
        return equals == std::string::npos ? "" : spelling + " takes no value";
    }
    if (equals == std::string::npos && ++word == end) {
        return spelling + " needs a file";
    }
    const std::string value = equals == std::string::npos ? *word : word->substr(equals + 1);
    option->apply(line, value);
    return value.empty() ? spelling + " needs a file" : "";
}

/// Whether both paths, which may be empty, name one file; links are refused where files are written.
bool isSame(const std::filesystem::path& left, const std::filesystem::path& right) {
    // Without a working folder a path stays what it is.
    std::error_code error;
    const auto whole = [&](const std::filesystem::path& path) {
        const std::filesystem::path absolute = std::filesystem::absolute(path, error);
        return (error ? path : absolute).lexically_normal();
    };
    return !left.empty() && !right.empty() && whole(left) == whole(right);
}

std::string findContradiction(const CommandLine& line, bool namesProgram) {
    if (isSame(line.json, line.svg)) {
        return "--json and --svg need a file each";
    }
    if (isSame(line.draw, line.svg)) {
        return "--draw and --svg need a file each";
    }
    if (line.draw.empty()) {
        return "";
    }
    if (line.svg.empty()) {
        return "--draw needs --svg";
    }
    return !line.json.empty() || namesProgram ? "--draw runs no program and writes no JSON" : "";
}

CommandLine wrong(const std::string& error) {
    CommandLine line;
    line.error = error;
    return line;
}

} // namespace

CommandLine parseCommandLine(const Words& words) {
    CommandLine line;
    auto word = words.begin();
    for (; word != words.end() && word->starts_with('-') && *word != "--"; ++word) {
        if (const std::string error = readOption(line, word, words.end()); !error.empty()) {
            return wrong(error);
        }
        if (line.help) {
            return line;
        }
    }
    if (word != words.end() && *word == "--") {
        ++word;
    }
    if (const std::string error = findContradiction(line, word != words.end()); !error.empty()) {
        return wrong(error);
    }
    if (word != words.end() && !word->starts_with('-')) {
        if (word->empty()) {
            return wrong("the program's name is empty");
        }
        line.program = *word++;
    }
    line.arguments.assign(word, words.end());
    return line;
}

std::string usage() {
    std::string text = "Usage: cvstop-watch [OPTION]... [--] [PROGRAM] [ARGUMENT]...\n"
                       "       cvstop-watch --draw FILE --svg FILE\n"
                       "Runs cvstop, or PROGRAM, and shows what its shutdown waits for.\n\n";
    for (const Option& option : kOptions) {
        std::string spelling(option.spelling);
        if (!option.value.empty()) {
            spelling.append(" ").append(option.value);
        }
        spelling.resize(14, ' ');
        text.append("  ").append(spelling).append(option.help).append("\n");
    }
    return text;
}

} // namespace watch
