#include "interpreters.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "interpretertable.h"
#include "names.h"

namespace lister {

namespace {

/// The arguments of a command line, without one that no NUL ends.
class Arguments {
  public:
    explicit Arguments(std::string_view text) : m_text(text) {}

    std::optional<std::string_view> next() {
        const std::size_t length = m_text.find('\0');
        if (length == std::string_view::npos) {
            return std::nullopt;
        }
        const std::string_view argument = m_text.substr(0, length);
        m_text.remove_prefix(length + 1);
        return argument;
    }

  private:
    std::string_view m_text;
};

bool has(std::string_view letters, char letter) {
    return letters.find(letter) != std::string_view::npos;
}

/// Cuts off and returns what stands before the first of `delimiters`, and the delimiter.
std::string_view takeUpTo(std::string_view& text, std::string_view delimiters) {
    const std::size_t length = std::min(text.find_first_of(delimiters), text.size());
    const std::string_view part = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    return part;
}

/// Whether a shell that has this option set or unset may still run its script. zsh takes capitals and '_' for nothing.
bool leavesTheScript(std::string_view shellOption) {
    std::string name;
    for (const char c : shellOption) {
        if (c != '_' && c != '-') {
            name += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        }
    }
    return name != "noexec" && name != "exec" && name != "stdin" && name != "shinstdin";
}

/// Goes through the options of one command line until it meets the script.
class OptionReader {
  public:
    OptionReader(const Options& options, Arguments arguments) : m_options(options), m_arguments(arguments) {}

    std::optional<std::string_view> findScript() {
        for (Step step = Step::GoOn; step == Step::GoOn;) {
            const std::optional<std::string_view> argument = m_arguments.next();
            step = argument ? read(*argument) : Step::Nothing;
        }
        return isName(m_script) ? std::optional(m_script) : std::nullopt;
    }

  private:
    enum class Step : std::uint8_t { GoOn, Found, Nothing };

    /// "-" is standard input to most, and a bad name to the others.
    bool isName(std::string_view script) const {
        return !script.empty() && script != "-" && (!m_isSearched || has(script, '/'));
    }

    Step found(std::optional<std::string_view> script) {
        m_script = script.value_or("");
        return Step::Found;
    }

    Step read(std::string_view argument) {
        if (argument == "--" || (argument == "-" && m_options.isShell)) {
            return m_options.endsWithDashes ? readOperand(m_arguments.next()) : Step::Nothing;
        }
        const bool isOption = argument.starts_with('-') || (argument.starts_with('+') && m_options.isShell);
        if (!isOption || argument == "-") {
            return readOperand(argument);
        }
        return m_optionCount++ > 0 && m_options.takesOneOptionOnly ? Step::Nothing : readOption(argument);
    }

    Step readOperand(std::optional<std::string_view> operand) {
        return m_options.operandIsScript ? found(operand) : Step::Nothing;
    }

    Step readOption(std::string_view argument) {
        const std::string_view text = argument.substr(1);
        if (argument.starts_with("--")) {
            return readLong(text.substr(1));
        }
        if (const LongOption* option =
                argument[0] == '-' && !m_hasLetters ? findLong(m_options.longWithOneDash, text) : nullptr) {
            return readLongValue(*option, std::nullopt);
        }
        m_hasLetters = true;
        return readLetters(text);
    }

    const LongOption* findLong(std::span<const LongOption> options, std::string_view name) const {
        const bool mayBeShort = m_options.takesAbbreviations && !name.empty();
        const auto isMeant = [name, mayBeShort](const LongOption& option) {
            return option.name == name || (mayBeShort && option.name.starts_with(name)) ||
                   (option.name.ends_with('*') && name.starts_with(option.name.substr(0, option.name.size() - 1)));
        };
        const auto option = std::find_if(options.begin(), options.end(), isMeant);
        return option == options.end() ? nullptr : &*option;
    }

    /// "name" or "name=value".
    Step readLong(std::string_view text) {
        const std::size_t length = std::min(text.find('='), text.size());
        if (const LongOption* option = findLong(m_options.longOptions, text.substr(0, length))) {
            return readLongValue(*option, length < text.size() ? std::optional(text.substr(length + 1)) : std::nullopt);
        }
        return m_options.takesAnyLong && leavesTheScript(text) ? Step::GoOn : Step::Nothing;
    }

    Step readLongValue(const LongOption& option, std::optional<std::string_view> attached) {
        if (option.kind == Long::Flag) {
            return Step::GoOn;
        }
        const std::optional<std::string_view> value = attached ? attached : m_arguments.next();
        return option.kind == Long::Script ? found(value) : goOnAfter(value);
    }

    /// The letters behind a '-' or '+'.
    Step readLetters(std::string_view letters) {
        Step step = letters.empty() || (letters.size() > 1 && isLoneFlag(letters[0])) ? Step::Nothing : Step::GoOn;
        while (step == Step::GoOn && !letters.empty()) {
            const char letter = letters[0];
            letters.remove_prefix(1);
            step = readLetter(letter, letters);
        }
        return step;
    }

    bool isLoneFlag(char letter) const { return !m_options.takesClusters && has(m_options.flags, letter); }

    /// Takes off `rest` what belongs to the letter.
    Step readLetter(char letter, std::string_view& rest) {
        if (has(m_options.flags, letter)) {
            return Step::GoOn;
        }
        if (has(m_options.searching, letter)) {
            m_isSearched = true;
        } else if (has(m_options.numbers, letter)) {
            rest.remove_prefix(std::min(rest.find_first_not_of("01234567"), rest.size()));
        } else if (has(m_options.characters, letter)) {
            rest.remove_prefix(std::min<std::size_t>(1, rest.size()));
        } else if (has(m_options.words, letter)) {
            rest.remove_prefix(std::min(rest.find(' '), rest.size()));
        } else if (letter == ' ' && m_options.takesBlanks) {
            skipBlanks(rest);
        } else if (has(m_options.nextArguments, letter)) {
            return readValue(letter, m_arguments.next());
        } else if (has(m_options.rests, letter)) {
            rest = "";
        } else {
            return readLetterWithValue(letter, std::exchange(rest, ""));
        }
        return Step::GoOn;
    }

    /// A '-' may stand again before the letters behind a blank.
    static void skipBlanks(std::string_view& text) {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        if (text.starts_with('-')) {
            text.remove_prefix(1);
        }
    }

    Step readLetterWithValue(char letter, std::string_view rest) {
        const bool isScript = has(m_options.scripts, letter);
        const bool isLong = has(m_options.longOptionLetters, letter);
        if (!isScript && !isLong && !has(m_options.values, letter)) {
            return Step::Nothing;
        }
        const std::optional<std::string_view> value = rest.empty() ? m_arguments.next() : rest;
        if (isScript) {
            return found(value);
        }
        return isLong ? readLongOptions(value.value_or("")) : readValue(letter, value);
    }

    Step readLongOptions(std::string_view text) {
        Step step = Step::GoOn;
        while (step == Step::GoOn && !text.empty()) {
            step = readLong(takeUpTo(text, ","));
        }
        return step;
    }

    static Step goOnAfter(std::optional<std::string_view> value) { return value ? Step::GoOn : Step::Nothing; }

    Step readValue(char letter, std::optional<std::string_view> value) const {
        const bool isShellOption = m_options.isShell && letter == 'o';
        // ksh and mksh take "-o -e" for two options, other shells for an error.
        if (isShellOption && value && (value->starts_with('-') || !leavesTheScript(*value))) {
            return Step::Nothing;
        }
        return goOnAfter(value);
    }

    const Options& m_options;
    Arguments m_arguments;
    std::string_view m_script;
    std::size_t m_optionCount = 0;
    bool m_hasLetters = false;
    bool m_isSearched = false;
};

/// busybox runs the applet that it is called as, "-sh" at a login, or that its first argument names.
std::string_view appletName(std::string_view ownName, Arguments& arguments) {
    std::string_view name = lastComponent(ownName);
    name.remove_prefix(name.starts_with('-') ? 1 : 0);
    return name.starts_with("busybox") ? lastComponent(arguments.next().value_or("")) : name;
}

/// The options of what follows; null where nothing is known of them.
const Options* takeOwnName(std::string_view interpreter, Arguments& arguments) {
    const std::optional<std::string_view> ownName = arguments.next();
    const Options* options = findInterpreter(interpreter);
    return options != nullptr && options->hasApplets && ownName ? findApplet(appletName(*ownName, arguments)) : options;
}

} // namespace

bool isInterpreterName(std::string_view name) {
    return findInterpreter(name) != nullptr;
}

std::optional<std::string_view> scriptArgument(std::string_view interpreter, std::string_view commandLine) {
    Arguments arguments(commandLine);
    const Options* options = takeOwnName(interpreter, arguments);
    return options == nullptr ? std::nullopt : OptionReader(*options, arguments).findScript();
}

bool keepsScriptOpen(std::string_view interpreter, std::string_view commandLine) {
    Arguments arguments(commandLine);
    const Options* options = takeOwnName(interpreter, arguments);
    return options != nullptr && options->isShell;
}

} // namespace lister
