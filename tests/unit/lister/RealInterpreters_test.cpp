// What scriptArgument says of a command line, compared with what the interpreter itself does with it.

#include "interpreters.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "ChildOutput.h"
#include "InterpreterLines.h"
#include "TempFolder.h"
#include "interpretertable.h"

namespace lister {
namespace {

struct Program {
    /// The row of the table.
    std::string_view interpreter;
    std::string_view path;
    /// Prints "ran".
    std::string_view script;
    /// Does nothing.
    std::string_view code = "";
    /// Letters of the row that the manual of Debian 12's version does not have.
    std::string_view otherVersions = "";

    friend void PrintTo(const Program& program, std::ostream* out) { *out << program.path; }
};

/// Ruby's gems and PHP's extensions would take most of the time.
const Words kEnvironment = {"RUBYOPT=--disable-gems", "PHP_INI_SCAN_DIR="};

constexpr std::string_view kShellScript = "echo ran\n";
constexpr std::string_view kAwkScript = "BEGIN { print \"ran\" }\n";

constexpr Program kPrograms[] = {
    {"sh", "/bin/bash", kShellScript},
    {"bash", "/bin/bash", kShellScript},
    {"dash", "/bin/dash", kShellScript},
    {"ksh", "/bin/ksh93", kShellScript},
    {"mksh", "/bin/mksh", kShellScript},
    {"lksh", "/bin/lksh", kShellScript},
    {"zsh", "/bin/zsh", kShellScript},
    {"perl", "/usr/bin/perl", "#!/usr/bin/perl\nprint \"ran\\n\";\n", "1"},
    {"ruby", "/usr/bin/ruby", "#!/usr/bin/ruby\nputs \"ran\"\n", "1"},
    {"python", "/usr/bin/python3", "#!/usr/bin/python3\nprint(\"ran\")\n", "", "3QU"},
    {"tclsh", "/usr/bin/tclsh", "puts ran\n"},
    {"lua", "/usr/bin/lua5.4", "print(\"ran\")\n"},
    {"php", "/usr/bin/php", "<?php echo \"ran\\n\";\n", "1;"},
    {"awk", "/usr/bin/awk", kAwkScript, "BEGIN{}"},
    {"gawk", "/usr/bin/gawk", kAwkScript, "BEGIN{}", "kM"},
    {"mawk", "/usr/bin/mawk", kAwkScript, "BEGIN{}"},
    {"original-awk", "/usr/bin/original-awk", kAwkScript, "BEGIN{}"},
    {"busybox", "/bin/busybox", kShellScript, "BEGIN{}"},
};

bool hasLine(const std::string& text, const std::string& line) {
    return ("\n" + text + "\n").find("\n" + line + "\n") != std::string::npos;
}

void replaceAll(std::string& text, std::string_view what, std::string_view with) {
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
}

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

const InterpreterLines& linesOf(std::string_view interpreter) {
    return *std::find_if(std::begin(kInterpreterLines), std::end(kInterpreterLines),
                         [interpreter](const InterpreterLines& row) { return row.interpreter == interpreter; });
}

class RealInterpreter : public testing::TestWithParam<Program> {
  protected:
    void SetUp() override {
        if (access(path().c_str(), X_OK) != 0) {
            GTEST_SKIP() << path() << " is not installed";
        }
        std::filesystem::create_directory(m_folder.at("dir"));
        m_folder.write("file", "#\n");
        m_folder.write("script", std::string(GetParam().script));
        m_folder.write("awk", std::string(kAwkScript));
    }

    static std::string path() { return std::string(GetParam().path); }

    Words argumentsOf(std::string_view line) const {
        Words words = wordsOf(line, scriptOf(line));
        for (std::string& word : words) {
            replaceAll(word, "CODE", GetParam().code);
            replaceAll(word, "DIR", m_folder.at("dir"));
            replaceAll(word, "FILE", m_folder.at("file"));
            replaceAll(word, "COPY", m_folder.at("copy"));
        }
        words.insert(words.begin(), std::string(GetParam().interpreter));
        return words;
    }

    /// Of busybox, the script of the applet.
    std::string scriptOf(std::string_view line) const {
        return m_folder.at(GetParam().interpreter == "busybox" && line.starts_with("awk") ? "awk" : "script");
    }

    /// The executable's own name, as the kernel tells it; that of sh is its row's.
    static std::string name() {
        const bool isLink = GetParam().interpreter == "sh";
        return isLink ? "sh" : lastComponent(std::filesystem::canonical(path()).string());
    }

    void expectOf(std::string_view line, bool isScript) {
        m_folder.write("copy", "#\n");
        const Words arguments = argumentsOf(line);
        const std::string commandLine = commandLineOf(arguments);
        const bool isFound = scriptArgument(name(), commandLine) == scriptOf(line);
        const bool ran = hasLine(outputOf(path(), arguments, m_folder.at(""), kEnvironment), "ran");
        EXPECT_EQ(isFound, isScript) << name() << ' ' << line;
        EXPECT_EQ(ran, isScript) << path() << ' ' << line;
    }

    TempFolder m_folder;
};

TEST_P(RealInterpreter, RunsTheScriptOfTheseLines) {
    for (const CommandLine& line : commandLinesIn(linesOf(GetParam().interpreter).withScript)) {
        if (line.isRun) {
            expectOf(line.text, true);
        }
    }
}

TEST_P(RealInterpreter, RunsNoScriptForThese) {
    for (const CommandLine& line : commandLinesIn(linesOf(GetParam().interpreter).withoutScript)) {
        if (line.isRun) {
            expectOf(line.text, false);
        }
    }
}

class FlagsOfRealInterpreter : public RealInterpreter {
  protected:
    static bool isBusybox() { return GetParam().interpreter == "busybox"; }

    static const Options& options() {
        return *(isBusybox() ? findApplet("sh") : findInterpreter(GetParam().interpreter));
    }
};

TEST_P(FlagsOfRealInterpreter, ComeBeforeTheScript) {
    ASSERT_FALSE(options().flags.empty());
    for (const char letter : options().flags) {
        if (GetParam().otherVersions.find(letter) == std::string_view::npos) {
            const std::string before = std::string(isBusybox() ? "sh -" : "-") + letter;
            expectOf(before + (options().operandIsScript ? " @ FILE" : " -f @ FILE"), true);
        }
    }
}

std::string nameOf(const testing::TestParamInfo<Program>& each) {
    std::string name(each.param.interpreter);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

bool hasFlags(const Program& program) {
    constexpr std::array<std::string_view, 4> kWithout = {"tclsh", "awk", "mawk", "original-awk"};
    return std::find(kWithout.begin(), kWithout.end(), program.interpreter) == kWithout.end();
}

std::vector<Program> programsWithFlags() {
    std::vector<Program> programs;
    std::copy_if(std::begin(kPrograms), std::end(kPrograms), std::back_inserter(programs), hasFlags);
    return programs;
}

INSTANTIATE_TEST_SUITE_P(Each, RealInterpreter, testing::ValuesIn(kPrograms), nameOf);
INSTANTIATE_TEST_SUITE_P(Each, FlagsOfRealInterpreter, testing::ValuesIn(programsWithFlags()), nameOf);

} // namespace
} // namespace lister
