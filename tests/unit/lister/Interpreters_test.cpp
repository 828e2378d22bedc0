#include "interpreters.h"

#include <ctime>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "InterpreterLines.h"
#include "interpretertable.h"

namespace lister {
namespace {

using namespace std::string_literals;

constexpr std::string_view kScript = "/opt/script";

TEST(InterpreterNames, WithOrWithoutVersion) {
    for (const char* name :
         {"sh",      "bash",     "dash",         "ksh",        "ksh93",     "ksh2020",      "mksh",
          "lksh",    "zsh",      "zsh5",         "zsh-5.9",    "perl",      "perl5.36.0",   "ruby",
          "ruby3.1", "ruby-mri", "ruby.ruby2.5", "python",     "python2.7", "python3.11",   "platform-python3.6",
          "tclsh",   "tclsh8.6", "lua",          "lua5.4",     "lua-5.4",   "php",          "php8.2",
          "php7",    "awk",      "gawk",         "gawk-5.1.0", "mawk",      "original-awk", "busybox"}) {
        EXPECT_TRUE(isInterpreterName(name)) << name;
    }
    for (const char* name : {"", "3", "-3", "...", "vi", "less", "halvd", "pythonic", "bashful", "bash-", "sh-x", "xsh",
                             "python3-dbg", "python3.11-config", "/bin/sh", "pyth3on", "ash", "nawk"}) {
        EXPECT_FALSE(isInterpreterName(name)) << name;
    }
}

/// The letters, of all printable characters, that an interpreter takes before the script.
struct Letters {
    std::string_view interpreter;
    /// As "-x /opt/script".
    std::string_view alone;
    /// With the rest of their argument, as "-x% /opt/script"; '%' is no option of any interpreter.
    std::string_view withRest;
    /// With the next argument, as "-x % /opt/script".
    std::string_view withNext;
    /// The script is behind a -f.
    bool isAwk = false;
};

constexpr Letters kLetters[] = {
    {"sh", "CEabefhiklmpruvx", "", "o"},
    {"bash", "BCEHPTabefhiklmprtuvx", "", "Oo"},
    {"dash", "CEIVabefilmpuvx", "", "o"},
    {"ksh", "BCEGHabefhiklmprtuvx", "o", "o"},
    {"mksh", "CUXabefhiklmpruvx", "o", "o"},
    {"lksh", "CUXabefhiklmpruvx", "o", "o"},
    {"zsh", "0123456789BCDEFGHIJKLMNOPQRSTUVWXYZadefghiklmprtuvwxy", "o", "o"},
    {"perl", " 0:=CDFMSTUWXadfgilmnpstwx", ":=CDFIMimx", "I"},
    {"ruby", "0:FKSTUWadilnpsvwx", ":CEFIKXirx", "CEIXr"},
    {"python", "3BEIOPRSUbdiqstuvx", "QWX", "QWX"},
    {"tclsh", "", "", ""},
    {"lua", "EWiv", "el", "el"},
    {"php", "CHefnq", "cdtz", "cdtz"},
    {"awk", "", "Fv", "Fv", true},
    {"gawk", "ILMNOPSbcdknprst", "FLdeilpv", "Feilv", true},
    {"mawk", "", "Fv", "Fv", true},
    {"original-awk", "", "Fv", "Fv", true},
    {"busybox sh", "CEIabefilmuvx", "", "o"},
    {"busybox awk", "", "FWev", "FWev", true},
};

/// The letters after which the script is found.
std::string lettersBefore(const Letters& row, std::string_view rest, const Words& next) {
    std::string found;
    for (char letter = ' '; letter <= '~'; ++letter) {
        Words words = wordsOf(row.interpreter, kScript);
        const std::string interpreter = words[0];
        words.push_back(std::string("-") + letter + std::string(rest));
        words.insert(words.end(), next.begin(), next.end());
        if (row.isAwk) {
            words.emplace_back("-f");
        }
        words.emplace_back(kScript);
        if (letter != '-' && scriptArgument(interpreter, commandLineOf(words)) == kScript) {
            found += letter;
        }
    }
    return found;
}

TEST(InterpreterOptions, Letters) {
    for (const Letters& row : kLetters) {
        EXPECT_EQ(lettersBefore(row, "", {}), row.alone) << row.interpreter;
        EXPECT_EQ(lettersBefore(row, "%", {}), row.withRest) << row.interpreter;
        EXPECT_EQ(lettersBefore(row, "", {"%"}), row.withNext) << row.interpreter;
    }
}

void expectOfAll(std::string_view interpreter, std::string_view lines, std::optional<std::string_view> expected) {
    ASSERT_FALSE(lines.empty()) << interpreter;
    for (const CommandLine& line : commandLinesIn(lines)) {
        Words words = wordsOf(line.text, kScript);
        words.insert(words.begin(), std::string(interpreter));
        EXPECT_EQ(scriptArgument(interpreter, commandLineOf(words)), expected) << interpreter << ' ' << line.text;
    }
}

TEST(InterpreterOptions, LeadToTheScriptOrSayThatThereIsNone) {
    for (const InterpreterLines& row : kInterpreterLines) {
        expectOfAll(row.interpreter, row.withScript, kScript);
        expectOfAll(row.interpreter, row.withoutScript, std::nullopt);
    }
}

/// The options that a row's lines are read by; of busybox, those of the applets that its lines begin with.
std::set<const Options*> testedOptions() {
    std::set<const Options*> tested;
    for (const InterpreterLines& row : kInterpreterLines) {
        tested.insert(findInterpreter(row.interpreter));
        for (const CommandLine& line : commandLinesIn(row.interpreter == "busybox" ? row.withScript : "")) {
            tested.insert(findApplet(line.text.substr(0, line.text.find(' '))));
        }
    }
    return tested;
}

TEST(InterpreterOptions, OfEachRowAreTested) {
    const std::set<const Options*> tested = testedOptions();
    for (const InterpreterRow& row : interpreterRows()) {
        EXPECT_TRUE(tested.contains(&row.options))
            << "no command line of " << row.name << " is tested: add a row to kInterpreterLines (InterpreterLines.h)";
    }
    for (const InterpreterRow& row : appletRows()) {
        EXPECT_TRUE(tested.contains(&row.options)) << "no command line of the applet " << row.name
                                                   << " is tested: add one to busybox's row of kInterpreterLines";
    }
}

TEST(ScriptArgument, BusyboxIsWhatItIsCalled) {
    EXPECT_EQ(scriptArgument("busybox", "sh\0-e\0/opt/x\0"s), "/opt/x");
    EXPECT_EQ(scriptArgument("busybox", "-ash\0/opt/x\0"s), "/opt/x");
    EXPECT_EQ(scriptArgument("busybox", "/usr/bin/awk\0-f\0/opt/x\0"s), "/opt/x");
    EXPECT_EQ(scriptArgument("busybox", "vi\0/opt/x\0"s), std::nullopt);
    EXPECT_EQ(scriptArgument("busybox", "-\0sh\0/opt/x\0"s), std::nullopt);
}

TEST(ScriptFile, IsKeptOpenByShells) {
    EXPECT_TRUE(keepsScriptOpen("bash", "bash\0x\0"s));
    EXPECT_TRUE(keepsScriptOpen("busybox", "busybox\0sh\0x\0"s));
    EXPECT_FALSE(keepsScriptOpen("busybox", "awk\0-f\0x\0"s));
    EXPECT_FALSE(keepsScriptOpen("python3.11", "python3\0x\0"s));
    EXPECT_FALSE(keepsScriptOpen("vi", "vi\0x\0"s));
}

TEST(ScriptArgument, MayBeRelative) {
    EXPECT_EQ(scriptArgument("sh", "sh\0bin/x\0"s), "bin/x");
    EXPECT_EQ(scriptArgument("sh", "sh\0x\0/opt/y\0"s), "x");
    EXPECT_EQ(scriptArgument("sh", "sh\0--\0-x\0"s), "-x");
    EXPECT_EQ(scriptArgument("perl", "perl\0-S\0bin/x\0"s), "bin/x");
    EXPECT_EQ(scriptArgument("perl", "perl\0-wS\0x\0"s), std::nullopt);
}

TEST(ScriptArgument, LiesInTheCommandLine) {
    const std::string line = "sh\0-e\0/opt/x\0/opt/y\0"s;
    EXPECT_EQ(scriptArgument("dash", line)->data(), line.data() + 6);
}

TEST(ScriptArgument, MayHaveBeenCutWhereNoNulEndsIt) {
    EXPECT_EQ(scriptArgument("sh", "sh\0/opt/x"s), std::nullopt);
    EXPECT_EQ(scriptArgument("sh", "sh\0/opt/x\0/opt/y"s), "/opt/x");
    EXPECT_EQ(scriptArgument("sh", "sh\0-o\0pipefa"s), std::nullopt);
    EXPECT_EQ(scriptArgument("awk", "awk\0-f/opt/x"s), std::nullopt);
    EXPECT_EQ(scriptArgument("php", "php\0--file=/opt/x"s), std::nullopt);
    EXPECT_EQ(scriptArgument("busybox", "busybox\0sh"s), std::nullopt);
    EXPECT_EQ(scriptArgument("sh", "sh"), std::nullopt);
}

TEST(ScriptArgument, OfEmptyArgumentsIsNone) {
    for (const Letters& row : kLetters) {
        const std::string name = wordsOf(row.interpreter, "").at(0);
        EXPECT_EQ(scriptArgument(name, ""), std::nullopt) << name;
        EXPECT_EQ(scriptArgument(name, "\0"s), std::nullopt) << name;
        EXPECT_EQ(scriptArgument(name, std::string(1000, '\0')), std::nullopt) << name;
        EXPECT_EQ(scriptArgument(name, name + "\0\0/opt/x\0"s), std::nullopt) << name;
        EXPECT_EQ(scriptArgument(name, name + "\0--\0\0/opt/x\0"s), std::nullopt) << name;
    }
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

constexpr std::size_t kTwoMegabytes = 2U << 20U;

/// Each of them would take hours, were the time not proportional to the size.
TEST(ScriptArgument, OfTwoMegabytesIsFoundInLinearTime) {
    // What the test itself uses, however busy the machine is.
    const std::clock_t start = std::clock();
    const std::string tail = "/opt/x\0"s;
    EXPECT_EQ(scriptArgument("sh", "sh\0"s + repeated("-e\0"s, kTwoMegabytes / 3) + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("bash", "bash\0"s + repeated("--norc\0"s, kTwoMegabytes / 7) + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("sh", "sh\0-"s + std::string(kTwoMegabytes, 'e') + '\0' + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("perl", "perl\0-w"s + repeated(" -w", kTwoMegabytes / 3) + '\0' + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("zsh", "zsh\0-o\0"s + std::string(kTwoMegabytes, '_') + '\0' + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("mawk", "mawk\0-W"s + repeated("i,", kTwoMegabytes / 2) + "exec\0"s + tail), "/opt/x");
    EXPECT_EQ(scriptArgument("bash", "bash\0-"s + std::string(kTwoMegabytes, 'o') + '\0' +
                                         repeated("\0"s, kTwoMegabytes) + tail),
              "/opt/x");
    EXPECT_EQ(scriptArgument("sh", std::string(kTwoMegabytes, 'x')), std::nullopt);
    EXPECT_EQ(scriptArgument(std::string(kTwoMegabytes, '3'), "sh\0/opt/x\0"s), std::nullopt);
    EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 10);
}

} // namespace
} // namespace lister
