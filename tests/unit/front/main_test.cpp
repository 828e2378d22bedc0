#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "MainTest.h"

using fakes::binPath;
using fakes::ChildResult;
using fakes::initiating;
using fakes::kAllSpecified;
using fakes::kGathering;
using fakes::requesting;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kPrompt =
    "Corvane software will be shut down.  This may cause backups to fail.\nDo you wish to proceed? (y/n) ";
const std::string kUsage = "Usage:\n cvstop [ -k | -kill [ -3 | -third_party ] [ -q | -quiet ] ]\n"
                           " cvstop -l | -list [ -3 | -third_party ]\n"
                           " cvstop -h | -help\n";
const std::string kInitiated = "log 2 Main: ********************cvstop initiated********************";
const std::string kFoundBoth = kGathering + initiating(2);

// --- confirmation ----------------------------------------------------------------------------------------------------

class Confirmed : public MainTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(Confirmed, RunsAFullShutdown) {
    addDaemonsAndThirdParties();
    const ChildResult result = run({}, GetParam());
    expectAFullShutdown(result);
    EXPECT_TRUE(result.output.starts_with(kPrompt + kFoundBoth)) << result.output;
    EXPECT_EQ(result.count("gauge cvstop.default 1"), 1U);
}

INSTANTIATE_TEST_SUITE_P(Main, Confirmed, ::testing::Values("y\n", "Yes\n", "Y"));

class Refused : public MainTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(Refused, PrintsThatTheShutdownIsAbortedAndTouchesNothing) {
    host.add("halvd", 10);
    const ChildResult result = run({}, GetParam());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kPrompt + "Shutdown aborted.\n");
    EXPECT_THAT(result.of({"list", "kill", "probe", "system", "telemetry"}), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Main, Refused, ::testing::Values("n\n", "\n", "", "ok\n", " y\n"));

TEST_F(MainTest, NoFileTakesThePlaceOfAClosedStandardStream) {
    const ChildResult result = fakes::inChild([] {
        close(STDIN_FILENO);
        std::atexit([] { fakes::world().record(fcntl(STDIN_FILENO, F_GETFD) == -1 ? "closed" : "open"); });
        char name[] = "cvstop";
        char option[] = "-h";
        char* argv[] = {name, option, nullptr};
        std::exit(cvstop_main(2, argv));
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.count("open"), 1U);
}

TEST_F(MainTest, ClosedStandardInputIsARefusal) {
    const ChildResult result = fakes::inChild([] {
        fclose(stdin);
        char name[] = "cvstop";
        char* argv[] = {name, nullptr};
        std::exit(cvstop_main(1, argv));
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kPrompt + "Shutdown aborted.\n");
}

TEST_F(MainTest, TheConfirmationComesAfterTheChecksAndBeforeParsing) {
    const ChildResult result = run({}, "y\n");
    EXPECT_LT(at(result, "hask_is_server"), at(result, "msg MsgCvs0003N"));
    EXPECT_LT(at(result, "logparams 0"), at(result, "msg MsgCvs0003N"));
    EXPECT_LT(at(result, "msg MsgCvs0003N"), at(result, "telemetry init"));
}

TEST_F(MainTest, WithArgumentsNoConfirmationIsAsked) {
    addDaemonsAndThirdParties();
    const ChildResult result = run({"-k"}, "n\n");
    expectAFullShutdown(result);
    EXPECT_TRUE(result.output.starts_with(kFoundBoth)) << result.output;
    EXPECT_EQ(result.count("msg MsgCvs0003N"), 0U);
}

TEST_F(MainTest, ATranslatedPromptIsAsked) {
    host.translations["MsgCvs0003N"] = "Wirklich? ";
    EXPECT_EQ(run({}, "n\n").output, "Wirklich? Shutdown aborted.\n");
}

TEST_F(MainTest, WithoutArgvZeroItAsksToo) {
    const ChildResult result = fakes::inChild([] {
        char* argv[] = {nullptr};
        std::exit(cvstop_main(0, argv));
    });
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kPrompt + "Shutdown aborted.\n");
}

TEST_F(MainTest, WithoutArgvZeroAYesIsAShutdown) {
    host.add("pazukiko", 10).stopsOn = "pazukiko -terminate";
    const ChildResult result = fakes::inChild(
        [] {
            char* argv[] = {nullptr, nullptr};
            std::exit(cvstop_main(0, argv));
        },
        "y\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, kPrompt + kGathering + initiating(1) + requesting(binPath("pazukiko")) + kAllSpecified);
}

// --- start -----------------------------------------------------------------------------------------------------------

TEST_F(MainTest, TheStepsAreInOrder) {
    const ChildResult result = run({"-l"});
    const std::vector<std::string> steps = {"getlocale",
                                            "enter Initialize ",
                                            "geteuid",
                                            "leave Initialize",
                                            kInitiated,
                                            "logparams 1 -l",
                                            "enter Arguments::parse",
                                            "leave Arguments::parse",
                                            "log_set_verbosity_filter 0",
                                            "enter Main ",
                                            "list 1 0",
                                            "leave Main",
                                            "enter Arguments::~Arguments "};
    for (std::size_t step = 1; step < steps.size(); ++step) {
        EXPECT_LT(at(result, steps[step - 1]), at(result, steps[step])) << steps[step];
    }
    EXPECT_LT(at(result, steps.back()), static_cast<std::ptrdiff_t>(result.journal.size()));
    EXPECT_EQ(result.count("log_set_process_kokaconf_verbose 0"), 1U);
    EXPECT_EQ(result.count("log_get_process_kokaconf_verbose"), 1U);
}

TEST_F(MainTest, TheArgumentsAreLoggedWithoutTheProgramsName) {
    EXPECT_EQ(run({"-k", "-q"}).count("logparams 2 -k -q"), 1U);
}

TEST_F(MainTest, EveryLookupUsesTheLocaleOfTheStart) {
    host.localeName = "ja_JP.UTF-8";
    const ChildResult result = fakes::inChild([] {
        char name[] = "cvstop";
        char option[] = "-k";
        char* argv[] = {name, option, nullptr};
        cvstop_main(2, argv);
        bool areRight = !fakes::world().lookups.empty();
        for (const fakes::Lookup& lookup : fakes::world().lookups) {
            areRight = areRight && lookup.locale == "ja_JP.UTF-8" && lookup.reserved == 0;
        }
        std::exit(areRight ? 0 : 1);
    });
    EXPECT_EQ(result.status, 0);
}

TEST_F(MainTest, AnOrdinaryUserIsRefusedWhateverTheArguments) {
    host.euid = 1000;
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{{}, {"-h"}, {"-k"}, {"-x"}}) {
        const ChildResult result = run(words, "y\n");
        EXPECT_EQ(result.status, 132);
        EXPECT_EQ(result.output, "Must be Administrator.\n");
        EXPECT_THAT(result.of({"log", "logparams", "telemetry", "list"}), IsEmpty());
    }
}

TEST_F(MainTest, AServerHostIsRefusedBeforeAnyPromptOrParsing) {
    host.isServer = 1;
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{{}, {"-h"}, {"-k"}}) {
        const ChildResult result = run(words, "y\n");
        EXPECT_EQ(result.status, 55);
        EXPECT_EQ(result.output, "Currently only supported on clients.\n");
        EXPECT_THAT(result.of({"log", "logparams", "telemetry"}),
                    ElementsAre("log 16 Initialize: Attempt to run cvstop on a server, clients support only"));
    }
}

TEST_F(MainTest, AnUnreadableConfigurationIsRefused) {
    host.configResult = 1;
    EXPECT_EQ(run({"-h"}).status, 110);
}

TEST_F(MainTest, WithoutALogDirectoryTheProgramRunsToItsNormalEnd) {
    host.logDirectoryExists = false;
    host.mkdirResult = -1;
    host.mkdirStatus = 13;
    addDaemonsAndThirdParties();
    const ChildResult result = run({"-k"});
    expectAFullShutdown(result);
    const std::string warning = "Unable to create log file.  status=13.  Continuing without logging.\n";
    EXPECT_TRUE(result.output.starts_with(warning + kFoundBoth)) << result.output;
}

// --- parse results ---------------------------------------------------------------------------------------------------

struct ParseCase {
    std::vector<std::string> words;
    int status;
    std::string output;
};

class ParseOutcome : public MainTest, public ::testing::WithParamInterface<ParseCase> {};

TEST_P(ParseOutcome, IsPrintedAndBecomesTheStatus) {
    host.add("halvd", 10);
    const ChildResult result = run(GetParam().words, "y\n");
    EXPECT_EQ(result.status, GetParam().status);
    EXPECT_EQ(result.output, GetParam().output);
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.of({"list", "kill", "system"}), IsEmpty());
    EXPECT_EQ(result.count("telemetry init"), 1U);
    EXPECT_EQ(result.count("telemetry destroy"), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Main, ParseOutcome,
    ::testing::Values(ParseCase{{"-h"}, 0, kUsage}, ParseCase{{"-k", "-h"}, 0, kUsage},
                      ParseCase{{"-HELP", "-x"}, 0, kUsage}, ParseCase{{"-x"}, 20, "Unknown option [-x]\n" + kUsage},
                      ParseCase{{"-K"}, 20, "Unknown option [-K]\n" + kUsage},
                      ParseCase{{"-%n%s"}, 20, "Unknown option [-%n%s]\n" + kUsage},
                      ParseCase{{"-q"}, 20, "Invalid argument. Quiet must be combined with kill.\n"},
                      ParseCase{{"-3"}, 20, "Invalid argument. Third party must be combined with -k or -l.\n"},
                      ParseCase{{"-q", "-3"}, 20, "Invalid argument. Third party must be combined with -k or -l.\n"},
                      ParseCase{{"-l", "-q"}, 20, "Invalid argument. List cannot be combined with quiet\n"},
                      ParseCase{{"-q", "-l"}, 20, "Invalid argument. List cannot be combined with quiet\n"},
                      ParseCase{
                          {"-k", "-b"}, 20, "Exclude-list file not specified with -b or -e (-excludelist) option\n"}));

} // namespace
