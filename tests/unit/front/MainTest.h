/// The fixture of the tests of main: the whole program in a child process.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "Fixture.h"

// The program's main, renamed by the build of this test.
int cvstop_main(int argc, char** argv);

class MainTest : public fakes::ProgramTest {
  protected:
    /// Runs the program with these words after its name. The journal ends with the number of records not freed.
    static fakes::ChildResult run(const std::vector<std::string>& words, std::string_view input = "") {
        return fakes::inChild(
            [&] {
                std::vector<std::string> all = words;
                all.insert(all.begin(), "cvstop");
                std::vector<char*> argv;
                for (std::string& word : all) {
                    argv.push_back(word.data());
                }
                argv.push_back(nullptr);
                std::atexit([] { fakes::world().record("records " + std::to_string(fakes::liveRecords())); });
                std::exit(cvstop_main(static_cast<int>(all.size()), argv.data()));
            },
            input);
    }

    /// A daemon that its stop command ends, another one that only SIGKILL ends, and one third party of each kind.
    void addDaemonsAndThirdParties() {
        host.add("pazukiko", 10).stopsOn = "pazukiko -terminate";
        host.add("zeld", 11).diesOf = {SIGKILL};
        host.add("holder", 20, CAT_THIRD_PARTY);
        host.add("editor", 30, CAT_OTHER_THIRD_PARTY);
    }

    /// Expects that the daemons were stopped, each in its way, and nothing else was touched.
    static void expectAFullShutdown(const fakes::ChildResult& result) {
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.of({"kill", "system"}),
                    ::testing::ElementsAre("system " + fakes::binPath("pazukiko") + " -terminate > /dev/null 2>&1 &",
                                           "kill 11 SIGKILL"));
        const std::string end = "All processes terminated normally.\n";
        EXPECT_TRUE(result.output.ends_with(end)) << result.output;
        EXPECT_EQ(result.count("records 0"), 1U) << "the snapshot is destroyed before the exit";
    }

    /// The index of the first entry of the journal that begins like this; its length if there is none.
    static std::ptrdiff_t at(const fakes::ChildResult& result, const std::string& beginning) {
        const auto found = std::find_if(result.journal.begin(), result.journal.end(),
                                        [&](const std::string& entry) { return entry.rfind(beginning, 0) == 0; });
        return found - result.journal.begin();
    }
};
