#include "DebugLine.h"

#include <ostream>
#include <string>

#include "Fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class DebugLineTest : public fakes::ProgramTest {};

/// A piece that counts how often it is joined.
struct Counted {
    int* joined;
};

std::ostream& operator<<(std::ostream& out, const Counted& piece) {
    ++*piece.joined;
    return out << "counted";
}

TEST_F(DebugLineTest, PiecesAreJoinedAndFollowedByTheSite) {
    debugLine(DebugGate::LoggerExists, 1, {"Unit", "Some::function"}, "Name = ", std::string("halvd"), ' ', 7);
    EXPECT_THAT(host.journal, ElementsAre("debug 1 Some::function: Name = halvd 7(Unit:#)"));
}

TEST_F(DebugLineTest, TheLineIsThatOfTheCall) {
    const int before = __builtin_LINE();
    const DebugSite site("Unit", "fn");
    EXPECT_EQ(site.line, before + 1);
}

TEST_F(DebugLineTest, NothingIsJoinedWithoutALogger) {
    CVLogger::s_default = nullptr;
    int joined = 0;
    debugLine(DebugGate::LoggerExists, 1, {"Unit", "fn"}, Counted{&joined});
    debugLine(DebugGate::VerbosityAbove4, 5, {"Unit", "fn"}, Counted{&joined});
    EXPECT_EQ(joined, 0);
    EXPECT_THAT(host.journal, IsEmpty());
}

TEST_F(DebugLineTest, GatesOpenAboveTheirVerbosityOnly) {
    struct Case {
        int verbosity;
        bool above0;
        bool above4;
    };
    for (const Case& one : {Case{0, false, false}, Case{1, true, false}, Case{4, true, false}, Case{5, true, true}}) {
        g_logger.setVerbosity(one.verbosity);
        EXPECT_TRUE(isOpen(DebugGate::LoggerExists));
        EXPECT_EQ(isOpen(DebugGate::VerbosityAbove0), one.above0) << one.verbosity;
        EXPECT_EQ(isOpen(DebugGate::VerbosityAbove4), one.above4) << one.verbosity;
    }
}

TEST_F(DebugLineTest, TheLoggerGateIsOpenAtANegativeVerbosityToo) {
    g_logger.setVerbosity(-5);
    int joined = 0;
    debugLine(DebugGate::LoggerExists, 1, {"Unit", "fn"}, Counted{&joined});
    EXPECT_EQ(joined, 1);
}

TEST_F(DebugLineTest, AClosedGateJoinsNothing) {
    g_logger.setVerbosity(4);
    int joined = 0;
    debugLine(DebugGate::VerbosityAbove4, 5, {"Unit", "fn"}, Counted{&joined});
    EXPECT_EQ(joined, 0);
}

} // namespace
