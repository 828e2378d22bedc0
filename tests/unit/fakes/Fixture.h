/// The fixture of every test of the program.
#pragma once

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Arguments.h"
#include "Messages.h"
#include "World.h"
#include "cvlog.h"
#include "front.h"

namespace fakes {

constexpr auto kEverything = static_cast<Proc_categories>(CAT_CORVANE | CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY);

// Lines of a shutdown that many tests expect.
inline const std::string kGathering = "Gathering process information.\n";
inline const std::string kNothing = "Nothing to terminate.\n";
inline const std::string kAllSpecified = "All Corvane specified processes terminated normally.\n";

inline std::string initiating(int processes) {
    return "Initiating Orderly shutdown, " + std::to_string(processes) + " processes active\n";
}
inline std::string requesting(const std::string& path) {
    return "Requesting termination of " + path + ".\n";
}

/// An empty host, and the program's globals as they are before main.
class ProgramTest : public ::testing::Test {
  protected:
    ProgramTest() { clear(); }

    static void clear() {
        world().reset();
        Args = Arguments();
        world().journal.clear();
        CVLogger::s_default = &g_logger;
        CVLogger::s_defaultLib = &g_logger;
        g_logger.setVerbosity(0);
        g_logger.setTracing(false);
        outline[0] = '\0';
        lc_messages[0] = '\0';
    }

    void TearDown() override { EXPECT_EQ(liveRecords(), 0U) << "records of the process lister were not freed"; }

    World& host = world();
};

} // namespace fakes
