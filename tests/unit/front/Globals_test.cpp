#include <string>

#include "Fixture.h"

using fakes::Journal;

namespace {

class GlobalsTest : public fakes::ProgramTest {};

TEST_F(GlobalsTest, TheGlobalsAreThereBeforeMain) {
    const Journal traces = fakes::ofKinds(host.startup, {"enter", "leave"});
    ASSERT_EQ(traces.size(), 2U);
    EXPECT_EQ(traces[0].rfind("enter Arguments::Arguments ", 0), 0U);
    EXPECT_EQ(traces[0].find("INCOMPLETE"), std::string::npos) << "the logger is made before the arguments";
    EXPECT_EQ(traces[1], "leave Arguments::Arguments");
    EXPECT_EQ(host.startup.size(), 2U) << "static initialisation does nothing else";
}

} // namespace
