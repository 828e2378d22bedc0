#include <csignal>
#include <string>
#include <vector>

#include "MainTest.h"

using fakes::binPath;
using fakes::ChildResult;
using fakes::initiating;
using fakes::kAllSpecified;
using fakes::kGathering;
using fakes::kNothing;
using fakes::requesting;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// --- modes -----------------------------------------------------------------------------------------------------------

TEST_F(MainTest, ListModePrintsTheListAndEndsWithZero) {
    host.add("halvd", 10);
    host.add("holder", 11, 2);
    const ChildResult result = run({"-l"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "Name  Path                         Pid Category   \n"
                             "----- ---------------------------- --- -----------\n"
                             "halvd /usr/quarn/corvane/bin/halvd 10  Corvane    \n");
    EXPECT_EQ(result.count("list 1 0"), 1U);
    EXPECT_EQ(result.count("records 0"), 1U) << "the snapshot is destroyed before the exit";
    EXPECT_THAT(result.of({"kill", "system"}), IsEmpty());
}

TEST_F(MainTest, ListModeWithThirdPartiesIncludesThem) {
    host.add("halvd", 10);
    host.add("holder", 11, 2);
    host.add("editor", 12, 4);
    const ChildResult result = run({"-l", "-3"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "Name   Path                          Pid Category   \n"
                             "------ ----------------------------- --- -----------\n"
                             "halvd  /usr/quarn/corvane/bin/halvd  10  Corvane    \n"
                             "holder /usr/quarn/corvane/bin/holder 11  Third Party\n"
                             "editor /usr/quarn/corvane/bin/editor 12  Third Party\n");
    EXPECT_EQ(result.count("list 7 0"), 1U);
}

TEST_F(MainTest, ListWinsOverKill) {
    host.add("halvd", 10);
    const ChildResult result = run({"-k", "-l"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.rfind("Name ", 0), 0U) << "no message of shutdown mode";
    EXPECT_THAT(result.of({"kill", "system", "probe"}), IsEmpty());
}

TEST_F(MainTest, ListModeWithNothingRunningPrintsNothing) {
    const ChildResult result = run({"-l"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
}

TEST_F(MainTest, WithoutTheOptionThirdPartiesAreNeitherLookedForNorTouched) {
    host.add("holder", 11, CAT_THIRD_PARTY);
    host.add("editor", 12, CAT_OTHER_THIRD_PARTY);
    for (const std::vector<std::string>& words : {std::vector<std::string>{"-k"}, {}}) {
        const ChildResult result = run(words, "y\n");
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.output.ends_with(kGathering + kNothing)) << result.output;
        EXPECT_THAT(result.of({"list", "kill", "probe", "system"}), ElementsAre("list 1 0"));
    }
}

TEST_F(MainTest, WithTheOptionThirdPartiesAreLookedForAndTerminated) {
    host.add("holder", 11, CAT_THIRD_PARTY).diesOf = {SIGHUP};
    host.add("editor", 12, CAT_OTHER_THIRD_PARTY);
    const ChildResult result = run({"-k", "-3"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.count("list 7 0"), 1U);
    EXPECT_EQ(result.count("kill 11 SIGHUP"), 1U);
    for (const std::string& entry : result.of({"kill"})) {
        EXPECT_EQ(entry.find("kill 11 "), 0U) << entry;
    }
}

TEST_F(MainTest, AShutdownThatFoundSomethingEndsWithOneAndFreesTheSnapshot) {
    host.add("pazukiko", 10).stopsOn = "pazukiko -terminate";
    const ChildResult result = run({"-k"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.count("records 0"), 1U);
    EXPECT_EQ(result.output, kGathering + initiating(1) + requesting(binPath("pazukiko")) + kAllSpecified);
}

TEST_F(MainTest, TheTraceOfMainStaysOpenUntilTheSnapshotIsGone) {
    host.add("pazukiko", 10).stopsOn = "pazukiko -terminate";
    const ChildResult result = run({"-k"});
    EXPECT_LT(at(result, "enter Main "), at(result, "list 1 0"));
    EXPECT_LT(at(result, "system "), at(result, "leave Main"));
}

TEST_F(MainTest, QuietKillPrintsNothingAtAll) {
    host.add("zeld", 10).diesOf = {SIGKILL};
    const ChildResult result = run({"-k", "-q"});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.count("log 2 Main: Attempting to kill remaining 1 process(es) "), 1U);
}

// --- failures --------------------------------------------------------------------------------------------------------

class BadExcludeList : public MainTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BadExcludeList, EndsWith130BeforeAnythingIsListedOrStopped) {
    host.add("halvd", 10);
    const ChildResult result = run({GetParam(), "-b", "/nonexistent/list"});
    EXPECT_EQ(result.status, 130);
    const std::string gathering = GetParam() == std::string("-k") ? kGathering : "";
    EXPECT_EQ(result.output, gathering + "Failed to load user-specified exclude list: /nonexistent/list\n");
    EXPECT_THAT(result.of({"list", "kill", "system"}), IsEmpty());
    EXPECT_EQ(result.count("log 16 Main: Exception-Failed to load user specified exclude list."), 1U);
}

INSTANTIATE_TEST_SUITE_P(Main, BadExcludeList, ::testing::Values("-k", "-list"));

TEST_F(MainTest, ABadExcludeListIsReportedEvenWhenQuiet) {
    const ChildResult result = run({"-k", "-q", "-b", "/nonexistent/list"});
    EXPECT_EQ(result.output, "Failed to load user-specified exclude list: /nonexistent/list\n");
    EXPECT_EQ(result.status, 130);
}

TEST_F(MainTest, AnEmptyExcludeListIsANormalRun) {
    addDaemonsAndThirdParties();
    expectAFullShutdown(run({"-k", "-b", "/dev/null"}));
}

TEST_F(MainTest, AFailingListerEndsWith130InBothModes) {
    host.listerStatus = 12;
    const ChildResult list = run({"-l"});
    EXPECT_EQ(list.status, 130);
    EXPECT_EQ(list.output, "find_process_CV failed with status 12\n");
    const ChildResult kill = run({"-k", "-q"});
    EXPECT_EQ(kill.status, 130);
    EXPECT_EQ(kill.output, "find_process_CV failed with status 12\n");
    EXPECT_THAT(kill.of({"kill", "system"}), IsEmpty());
}

} // namespace
