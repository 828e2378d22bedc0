#include "ProgramArguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

struct Row {
    std::vector<std::string> words;
    bool thirdParty, quiet, shutsDown, asks;
};

TEST(ProgramArguments, AsTheProgramReadsThem) {
    const std::vector<Row> table = {
        {{}, false, false, true, true},
        {{"-k"}, false, false, true, false},
        {{"-k", "-3"}, true, false, true, false},
        {{"-KILL", "-Third_Party", "-QUIET"}, true, true, true, false},
        {{"-l"}, false, false, false, false},
        {{"-List", "-3"}, true, false, false, false},
        {{"-h"}, false, false, false, false},
        {{"-k", "-b", "-3"}, false, false, true, false},
        {{"-k", "-E", "-q"}, false, false, true, false},
        {{"-k", "-excludelist"}, false, false, true, false},
        {{"-k", "-Q"}, false, false, true, false},
        {{"-b", "-l"}, false, false, true, false},
        {{"", "-l"}, false, false, false, false},
    };
    for (const Row& row : table) {
        const ProgramArguments read = readProgramArguments(row.words);
        const std::string all = testing::PrintToString(row.words);
        EXPECT_EQ(read.thirdParty, row.thirdParty) << all;
        EXPECT_EQ(read.quiet, row.quiet) << all;
        EXPECT_EQ(read.shutsDown, row.shutsDown) << all;
        EXPECT_EQ(read.asks, row.asks) << all;
    }
}

} // namespace
} // namespace watch
