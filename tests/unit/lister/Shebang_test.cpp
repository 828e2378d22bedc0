#include "shebang.h"

#include <optional>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace lister {

static bool operator==(const Shebang& left, const Shebang& right) {
    return left.interpreter == right.interpreter && left.argument == right.argument;
}

static void PrintTo(const Shebang& shebang, std::ostream* out) {
    *out << '[' << shebang.interpreter << "] [" << shebang.argument << ']';
}

namespace {

using namespace std::string_literals;

TEST(ParseShebang, TakesInterpreterAndArgument) {
    EXPECT_EQ(parseShebang("#!/bin/sh\necho"), (Shebang{"/bin/sh", ""}));
    EXPECT_EQ(parseShebang("#!/bin/sh -e\n"), (Shebang{"/bin/sh", "-e"}));
    EXPECT_EQ(parseShebang("#! /usr/bin/env python3\n"), (Shebang{"/usr/bin/env", "python3"}));
    EXPECT_EQ(parseShebang("#!/usr/bin/perl -w -T\n"), (Shebang{"/usr/bin/perl", "-w -T"}));
    EXPECT_EQ(parseShebang("#!\t /bin/sh \t -e \t \n"), (Shebang{"/bin/sh", "-e"}));
    EXPECT_EQ(parseShebang("#!/bin/sh\r\n"), (Shebang{"/bin/sh\r", ""}));
}

TEST(ParseShebang, NeedsNoNewline) {
    EXPECT_EQ(parseShebang("#!/bin/sh"), (Shebang{"/bin/sh", ""}));
    EXPECT_EQ(parseShebang("#!/bin/sh -e"), (Shebang{"/bin/sh", "-e"}));
}

TEST(ParseShebang, MayNameNobody) {
    EXPECT_EQ(parseShebang("#!"), (Shebang{"", ""}));
    EXPECT_EQ(parseShebang("#!\n/bin/sh"), (Shebang{"", ""}));
    EXPECT_EQ(parseShebang("#! \t "), (Shebang{"", ""}));
    EXPECT_EQ(parseShebang("#!\0/bin/sh"s), (Shebang{"", ""}));
}

TEST(ParseShebang, NeedsItsMark) {
    EXPECT_EQ(parseShebang(""), std::nullopt);
    EXPECT_EQ(parseShebang("#"), std::nullopt);
    EXPECT_EQ(parseShebang(" #!/bin/sh\n"), std::nullopt);
    EXPECT_EQ(parseShebang("\x7f"
                           "ELF#!/bin/sh\n"),
              std::nullopt);
}

TEST(ParseShebang, EndsAtANul) {
    EXPECT_EQ(parseShebang("#!/bin/sh\0 -e\n"s), (Shebang{"/bin/sh", ""}));
    EXPECT_EQ(parseShebang("#!/bin/sh -e\0u\n"s), (Shebang{"/bin/sh", "-e"}));
}

/// "#!", `bytes` and blanks up to `size` bytes, then more than the kernel reads.
std::string longLine(std::string_view bytes, std::size_t size, char filler) {
    std::string line = "#!" + std::string(bytes);
    line.resize(size, filler);
    return line + std::string(4096, filler);
}

TEST(ParseShebang, ReadsWhatTheKernelReads) {
    const std::string argument(255 - 10, 'x'); // the last of the 256 bytes is no part of the line
    EXPECT_EQ(parseShebang(longLine("/bin/sh ", 256, 'x')), (Shebang{"/bin/sh", argument}));
    EXPECT_EQ(parseShebang(longLine("/bin/sh ", 256, ' ')), (Shebang{"/bin/sh", ""}));
    EXPECT_EQ(parseShebang(longLine("/bin/sh -e\n", 256, 'x')), (Shebang{"/bin/sh", "-e"}));
}

TEST(ParseShebang, HasNoInterpreterThatMayBeCut) {
    EXPECT_EQ(parseShebang(longLine("/bin/", 256, 'x')), std::nullopt);
    EXPECT_EQ(parseShebang("#!/" + std::string(253, 'x')), std::nullopt);
    EXPECT_EQ(parseShebang(longLine("", 256, ' ')), std::nullopt);
    const std::string longest = "/" + std::string(252, 'x');
    EXPECT_EQ(parseShebang("#!" + longest), (Shebang{longest, ""}));
    EXPECT_EQ(parseShebang("#!" + longest + "\n"), (Shebang{longest, ""}));
    EXPECT_EQ(parseShebang("#!" + longest + " -e\n"), (Shebang{longest, ""}));
    EXPECT_EQ(parseShebang("#!" + longest + "\0x"s), (Shebang{longest, ""}));
    EXPECT_EQ(parseShebang("#!" + longest + "x\n"), std::nullopt);
}

std::optional<std::string> programOf(std::string_view line) {
    const std::optional<Shebang> shebang = parseShebang(line);
    const std::optional<std::string_view> program = shebang ? shebangProgram(*shebang) : std::nullopt;
    return program ? std::optional(std::string(*program)) : std::nullopt;
}

TEST(ShebangProgram, IsTheInterpreter) {
    EXPECT_EQ(programOf("#!/bin/sh -e\n"), "/bin/sh");
    EXPECT_EQ(programOf("#!/usr/bin/environment x\n"), "/usr/bin/environment");
    EXPECT_EQ(programOf("#!sh\n"), "sh");
    EXPECT_EQ(programOf("#!\n"), std::nullopt);
}

struct EnvLine {
    std::string_view argument;
    std::optional<std::string> program;
};

const EnvLine kEnvLines[] = {
    {"bash", "bash"},
    {"/bin/bash", "/bin/bash"},
    {"python3 -u", "python3"},
    {"-i bash", "bash"},
    {"- bash", "bash"},
    {"-S bash -o pipefail", "bash"},
    {"-Sbash -e", "bash"},
    {"-S  \t bash", "bash"},
    {"-S VAR=1 -u X bash", "-u"}, // as env does: options end at the first NAME=VALUE
    {"-S -u X VAR=1 bash", "bash"},
    {"-S A=1 B= bash -e C=2", "bash"},
    {"-vS bash", "bash"},
    {"-ivSbash", "bash"},
    {"-i0v bash", "bash"},
    {"-u NAME bash", "bash"},
    {"-uNAME bash", "bash"},
    {"-iu NAME bash", "bash"},
    {"-C DIR bash", "bash"},
    {"-CDIR bash", "bash"},
    {"-a NAME bash", "bash"},
    {"-S -- bash", "bash"},
    {"-S -- -x", "-x"},
    {"-S -i -S bash", "bash"},
    {"--split-string=bash -e", "bash"},
    {"--split-string bash -e", "bash"},
    {"--split-string= bash", "bash"},
    {"--split-string=-i bash", "bash"},
    {"--ignore-environment bash", "bash"},
    {"--null --debug bash", "bash"},
    {"--unset=NAME bash", "bash"},
    {"--unset NAME bash", "bash"},
    {"--chdir=DIR --argv0 NAME bash", "bash"},
    {"--block-signal --default-signal=PIPE --ignore-signal=INT --list-signal-handling bash", "bash"},
    {"-S bash -c \"$X\"", "bash"},
    {"", std::nullopt},
    {"-", std::nullopt},
    {"--", std::nullopt},
    {"-S", std::nullopt},
    {"-i", std::nullopt},
    {"-u", std::nullopt},
    {"-u NAME", std::nullopt},
    {"--unset", std::nullopt},
    {"--split-string", std::nullopt},
    {"--split-string=", std::nullopt},
    {"A=1", std::nullopt},
    {"-x bash", std::nullopt},
    {"-ix bash", std::nullopt},
    {"--help bash", std::nullopt},
    {"--version bash", std::nullopt},
    {"--foo=1 bash", std::nullopt},
    {"-S \"bash\" -e", std::nullopt},
    {"-S A='1 2' bash", std::nullopt},
    {"-S ba\\_sh", std::nullopt},
    {"-S ${SHELL} -e", std::nullopt},
    {"-S -u \"A B\" bash", std::nullopt},
};

TEST(ShebangProgram, IsWhatEnvIsToldToStart) {
    for (const EnvLine& line : kEnvLines) {
        EXPECT_EQ(shebangProgram({"/usr/bin/env", line.argument}), line.program) << line.argument;
        EXPECT_EQ(shebangProgram({"env", line.argument}), line.program) << line.argument;
    }
}

TEST(ShebangProgram, LiesInTheArgument) {
    const std::string argument = "-S bash -e";
    EXPECT_EQ(shebangProgram({"/usr/bin/env", argument})->data(), argument.data() + 3);
}

} // namespace
} // namespace lister
