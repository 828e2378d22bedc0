#include "CommandLine.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Words = std::vector<std::string>;

TEST(CommandLine, NothingRunsTheProgramWithoutArguments) {
    for (const Words& words : {Words{}, Words{"--"}}) {
        const CommandLine line = parseCommandLine(words);
        EXPECT_EQ(line.error, "");
        EXPECT_EQ(line.program, "");
        EXPECT_THAT(line.arguments, IsEmpty());
        EXPECT_TRUE(line.report && !line.help);
    }
}

TEST(CommandLine, ProgramAndItsArguments) {
    const CommandLine line = parseCommandLine({"cvstop", "-k", "--json", "x"});
    EXPECT_EQ(line.program, "cvstop");
    EXPECT_THAT(line.arguments, ElementsAre("-k", "--json", "x"));
    EXPECT_EQ(line.json, "");
}

TEST(CommandLine, ArgumentsAloneStandBehindTwoDashes) {
    const CommandLine line = parseCommandLine({"--no-report", "--", "-k", "-3"});
    EXPECT_EQ(line.program, "");
    EXPECT_THAT(line.arguments, ElementsAre("-k", "-3"));
    EXPECT_FALSE(line.report);
}

TEST(CommandLine, ProgramMayStandBehindTwoDashes) {
    const CommandLine line = parseCommandLine({"--", "/a/b", "--", "-k"});
    EXPECT_EQ(line.program, "/a/b");
    EXPECT_THAT(line.arguments, ElementsAre("--", "-k"));
}

TEST(CommandLine, Files) {
    const CommandLine line = parseCommandLine({"--json", "a", "--svg=b=c", "cvstop"});
    EXPECT_EQ(line.json, "a");
    EXPECT_EQ(line.svg, "b=c");
    EXPECT_EQ(parseCommandLine({"--json", "--svg", "--", "-l"}).json, "--svg");
}

TEST(CommandLine, Draw) {
    const CommandLine line = parseCommandLine({"--draw", "a", "--svg", "b"});
    EXPECT_EQ(line.error, "");
    EXPECT_EQ(line.draw, "a");
    EXPECT_EQ(line.svg, "b");
}

TEST(CommandLine, HelpWantsNothingElse) {
    EXPECT_TRUE(parseCommandLine({"--help", "--bad"}).help);
    EXPECT_FALSE(parseCommandLine({"--", "--help"}).help);
    for (const char* option : {"--json FILE", "--svg FILE", "--no-report", "--draw FILE", "--help"}) {
        EXPECT_THAT(usage(), HasSubstr(option));
    }
}

class BadLine : public testing::TestWithParam<std::pair<Words, const char*>> {};

TEST_P(BadLine, IsRefused) {
    const CommandLine line = parseCommandLine(GetParam().first);
    EXPECT_THAT(line.error, HasSubstr(GetParam().second));
    EXPECT_THAT(line.arguments, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, BadLine,
    testing::Values(std::pair(Words{"-k"}, "unknown option -k; put --"), std::pair(Words{"-"}, "unknown option -"),
                    std::pair(Words{"--js", "x"}, "unknown option --js"),
                    std::pair(Words{"--json"}, "--json needs a file"),
                    std::pair(Words{"--json="}, "--json needs a file"),
                    std::pair(Words{"--svg", ""}, "--svg needs a file"),
                    std::pair(Words{"--no-report=yes"}, "--no-report takes no value"),
                    std::pair(Words{"--json", "a", "--svg=a"}, "--json and --svg need a file each"),
                    std::pair(Words{"--json", "./a", "--svg=b/../a"}, "--json and --svg need a file each"),
                    std::pair(Words{"--json", "a", "--svg", std::filesystem::current_path() / "a"},
                              "--json and --svg need a file each"),
                    std::pair(Words{"--draw", std::filesystem::current_path() / "b/../a", "--svg", "a"},
                              "--draw and --svg need a file each"),
                    std::pair(Words{"--draw", "a", "--svg", "./a"}, "--draw and --svg need a file each"),
                    std::pair(Words{"--draw", "a"}, "--draw needs --svg"),
                    std::pair(Words{"--draw", "a", "--svg", "b", "cvstop"}, "--draw runs no program"),
                    std::pair(Words{"--draw", "a", "--svg", "b", "--json", "c"}, "--draw runs no program"),
                    std::pair(Words{"--", ""}, "the program's name is empty")));

} // namespace
} // namespace watch
