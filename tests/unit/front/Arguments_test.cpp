#include "Arguments.h"

#include <string>
#include <vector>

#include "Fixture.h"
#include "Messages.h"

using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kListWithQuiet = "Invalid argument. List cannot be combined with quiet\n";
const std::string kThirdPartyAlone = "Invalid argument. Third party must be combined with -k or -l.\n";
const std::string kQuietAlone = "Invalid argument. Quiet must be combined with kill.\n";
const std::string kNoFile = "Exclude-list file not specified with -b or -e (-excludelist) option\n";

class ArgumentsTest : public fakes::ProgramTest {
  protected:
    /// Parses "cvstop" and these words with a new Arguments.
    std::int32_t parse(const std::vector<std::string>& words) {
        m_words = words;
        m_words.insert(m_words.begin(), "/opt/sbin/cvstop");
        std::vector<char*> argv;
        for (std::string& word : m_words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        std::int32_t result = -1;
        m_printed = host.run([&] { result = arguments.parse(static_cast<std::int32_t>(m_words.size()), argv.data()); });
        return result;
    }

    void expectInitialValues() const {
        EXPECT_EQ(arguments.argIndex, 1);
        EXPECT_EQ(arguments.excludeListFile, "");
        EXPECT_EQ(arguments.killLevel, 0);
        EXPECT_EQ(arguments.waitTime, 30);
        EXPECT_FALSE(arguments.listMode);
        EXPECT_TRUE(arguments.verbose);
        EXPECT_EQ(arguments.verbosity, 0);
        EXPECT_FALSE(arguments.quiet);
        EXPECT_FALSE(arguments.thirdParty);
        EXPECT_EQ(arguments.programName, "");
    }

    [[nodiscard]] Journal telemetry() const { return host.of({"gauge", "telemetry"}); }

    void TearDown() override {
        EXPECT_EQ(m_printed, "") << "parsing prints nothing";
        ProgramTest::TearDown();
    }

    Arguments arguments;
    std::string m_printed;

  private:
    std::vector<std::string> m_words;
};

TEST_F(ArgumentsTest, InitialValues) {
    expectInitialValues();
}

TEST_F(ArgumentsTest, ConstructorDestructorAndParseAreTraced) {
    host.reset();
    {
        Arguments local;
        char name[] = "cvstop";
        char* argv[] = {name, nullptr};
        EXPECT_EQ(local.parse(1, argv), 0);
        host.run([&] { local.printUsage(); });
    }
    Journal names;
    for (const std::string& entry : host.of({"enter", "leave"})) {
        names.push_back(entry.substr(0, entry.find(' ', 6)));
        EXPECT_EQ(entry.find("INCOMPLETE"), std::string::npos) << entry;
    }
    EXPECT_THAT(names,
                ElementsAre("enter Arguments::Arguments", "leave Arguments::Arguments", "enter Arguments::parse",
                            "leave Arguments::parse", "enter Arguments::printUsage", "leave Arguments::printUsage",
                            "enter Arguments::~Arguments", "leave Arguments::~Arguments"));
}

TEST_F(ArgumentsTest, AssigningNewOnesResetsThem) {
    parse({"-k", "-3", "-b", "some/file", "-q"});
    arguments.waitTime = 7;
    arguments.verbose = false;
    arguments.verbosity = 5;
    arguments = Arguments();
    expectInitialValues();
}

TEST_F(ArgumentsTest, ACopyHasTheFieldsAndIsTracedAsConstructed) {
    parse({"-l", "-3", "-b", "some/file"});
    host.journal.clear();
    const Arguments copy = arguments;
    ASSERT_EQ(host.journal.size(), 2U);
    EXPECT_EQ(host.journal[0].rfind("enter Arguments::Arguments ", 0), 0U) << host.journal[0];
    EXPECT_EQ(host.journal[1], "leave Arguments::Arguments");
    EXPECT_EQ(copy.argIndex, 5);
    EXPECT_EQ(copy.excludeListFile, "some/file");
    EXPECT_TRUE(copy.listMode);
    EXPECT_TRUE(copy.thirdParty);
    EXPECT_EQ(copy.programName, "/opt/sbin/cvstop");
}

/// All other tests pass words that are not constant.
TEST_F(ArgumentsTest, WordsMayBeConstant) {
    const char* const words[] = {"cvstop", "-l", nullptr};
    EXPECT_EQ(arguments.parse(2, words), 0);
    EXPECT_TRUE(arguments.listMode);
}

TEST_F(ArgumentsTest, NoArgumentsMeanAShutdownAndAreCountedAsDefault) {
    EXPECT_EQ(parse({}), 0);
    EXPECT_EQ(arguments.killLevel, 1);
    EXPECT_EQ(arguments.argIndex, 1);
    EXPECT_EQ(arguments.programName, "/opt/sbin/cvstop");
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.default 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, ACompleteParseLeavesTheIndexAtArgc) {
    EXPECT_EQ(parse({"-k", "-b", "file", "-q"}), 0);
    EXPECT_EQ(arguments.argIndex, 5);
}

TEST_F(ArgumentsTest, QuietAloneIsInvalid) {
    EXPECT_EQ(parse({"-q"}), 2);
    EXPECT_EQ(outline, kQuietAlone);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.quiet 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, ThirdPartyAloneIsInvalid) {
    EXPECT_EQ(parse({"-3"}), 2);
    EXPECT_EQ(outline, kThirdPartyAlone);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.third_party 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, QuietWithThirdPartyReportsThirdPartyFirst) {
    EXPECT_EQ(parse({"-q", "-3"}), 2);
    EXPECT_EQ(outline, kThirdPartyAlone);
    EXPECT_THAT(host.of({"msg"}), ElementsAre("msg MsgCvs0105N"));
}

TEST_F(ArgumentsTest, ListThenQuietIsInvalid) {
    EXPECT_EQ(parse({"-l", "-q"}), 2);
    EXPECT_EQ(outline, kListWithQuiet);
    EXPECT_FALSE(arguments.quiet);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.list 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, QuietThenListIsInvalid) {
    EXPECT_EQ(parse({"-q", "-l"}), 2);
    EXPECT_EQ(outline, kListWithQuiet);
    EXPECT_FALSE(arguments.listMode);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.quiet 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, AFailureLeavesTheFieldsSetSoFar) {
    EXPECT_EQ(parse({"-k", "-3", "-l", "-q", "-b"}), 2);
    EXPECT_EQ(arguments.killLevel, 1);
    EXPECT_TRUE(arguments.thirdParty);
    EXPECT_TRUE(arguments.listMode);
    EXPECT_FALSE(arguments.quiet);
}

TEST_F(ArgumentsTest, KillWithListIsAccepted) {
    EXPECT_EQ(parse({"-k", "-l"}), 0);
    EXPECT_EQ(arguments.killLevel, 1);
    EXPECT_TRUE(arguments.listMode);
    EXPECT_THAT(telemetry(),
                ElementsAre("telemetry init", "gauge cvstop.kill 1", "gauge cvstop.list 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, ThirdPartyWithListIsAccepted) {
    EXPECT_EQ(parse({"-3", "-l"}), 0);
    EXPECT_EQ(arguments.killLevel, 0);
    EXPECT_TRUE(arguments.thirdParty);
}

TEST_F(ArgumentsTest, LongSpellingsAreAcceptedInAnyCase) {
    EXPECT_EQ(parse({"-KILL", "-Third_Party", "-QuIeT", "-BLACKLIST", "one"}), 0);
    EXPECT_EQ(arguments.killLevel, 1);
    EXPECT_TRUE(arguments.thirdParty);
    EXPECT_TRUE(arguments.quiet);
    EXPECT_EQ(arguments.excludeListFile, "one");
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.kill 1", "gauge cvstop.third_party 1",
                                         "gauge cvstop.quiet 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, LongListAndHelpAreAcceptedInAnyCase) {
    EXPECT_EQ(parse({"-LIST", "-hELP"}), 1);
    EXPECT_TRUE(arguments.listMode);
}

TEST_F(ArgumentsTest, UpperCaseEWithAFileIsAccepted) {
    EXPECT_EQ(parse({"-k", "-E", "some/file"}), 0);
    EXPECT_EQ(arguments.excludeListFile, "some/file");
}

TEST_F(ArgumentsTest, EverySpellingOfTheExcludeListTakesAFile) {
    EXPECT_EQ(parse({"-b", "1", "-blacklist", "2", "-e", "3", "-ExcludeList", "4", "-k"}), 0);
    EXPECT_EQ(arguments.excludeListFile, "4") << "a later file replaces an earlier one";
}

TEST_F(ArgumentsTest, AnExcludeListFileMayLookLikeAnOption) {
    EXPECT_EQ(parse({"-b", "-k"}), 0);
    EXPECT_EQ(arguments.excludeListFile, "-k");
    EXPECT_EQ(arguments.killLevel, 0);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "telemetry destroy"));
}

class UpperCaseShortSpelling : public ArgumentsTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(UpperCaseShortSpelling, IsAnUnknownOption) {
    EXPECT_EQ(parse({GetParam()}), 3);
    EXPECT_EQ(outline, "Unknown option [" + std::string(GetParam()) + "]\n");
}

INSTANTIATE_TEST_SUITE_P(Arguments, UpperCaseShortSpelling, ::testing::Values("-K", "-L", "-Q", "-B", "-H"));

TEST_F(ArgumentsTest, ExcludeListOptionAsTheLastArgumentIsInvalid) {
    EXPECT_EQ(parse({"-k", "-b"}), 2);
    EXPECT_EQ(outline, kNoFile);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.kill 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, KillThenHelpRecordsAndFlushesBothGauges) {
    EXPECT_EQ(parse({"-k", "-h"}), 1);
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.kill 1", "gauge cvstop.help 1",
                                         "telemetry flush", "telemetry destroy"));
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(ArgumentsTest, ArgumentsAfterHelpAreIgnored) {
    EXPECT_EQ(parse({"-h", "-nonsense"}), 1);
    EXPECT_THAT(host.of({"msg", "log"}), IsEmpty());
}

TEST_F(ArgumentsTest, KillWithAnExcludeListRecordsNoGaugeForIt) {
    EXPECT_EQ(parse({"-k", "-b", "my.list"}), 0);
    EXPECT_EQ(arguments.excludeListFile, "my.list");
    EXPECT_THAT(telemetry(), ElementsAre("telemetry init", "gauge cvstop.kill 1", "telemetry destroy"));
}

TEST_F(ArgumentsTest, AnUnknownWordIsReportedAndLogged) {
    EXPECT_EQ(parse({"-x"}), 3);
    EXPECT_STREQ(outline, "Unknown option [-x]\n");
    EXPECT_THAT(host.of({"msg", "log", "telemetry", "gauge"}),
                ElementsAre("telemetry init", "msg MsgCvs0145N", "log 16 Arguments::parse: Unknown option [-x]",
                            "telemetry destroy"));
}

TEST_F(ArgumentsTest, AWordWithConversionsIsReportedLiterally) {
    EXPECT_EQ(parse({"-%s%n"}), 3);
    EXPECT_STREQ(outline, "Unknown option [-%s%n]\n");
    EXPECT_THAT(host.of({"log"}), ElementsAre("log 16 Arguments::parse: Unknown option [-%s%n]"));
}

TEST_F(ArgumentsTest, OnlyWholeWordsAreOptions) {
    for (const char* word : {"k", "-kq", "--kill", "-kil", "-", "", "-kill ", "-3rd", "-third-party"}) {
        arguments.argIndex = 1;
        EXPECT_EQ(parse({word}), 3) << word;
    }
}

TEST_F(ArgumentsTest, ARepeatedOptionIsCountedAgain) {
    EXPECT_EQ(parse({"-k", "-kill", "-k"}), 0);
    EXPECT_EQ(host.count("gauge cvstop.kill 1"), 3U);
}

TEST_F(ArgumentsTest, FailingTelemetryChangesNothing) {
    host.telemetryResult = 5;
    EXPECT_EQ(parse({"-k", "-h"}), 1);
    EXPECT_EQ(host.count("telemetry destroy"), 1U);
}

TEST_F(ArgumentsTest, AVeryLongUnknownWordIsCutToTheBuffer) {
    EXPECT_EQ(parse({std::string(5000, 'x')}), 3);
    EXPECT_EQ(std::string(outline), "Unknown option [" + std::string(1023 - 16, 'x'));
}

TEST_F(ArgumentsTest, UsageIsThreeLinesWithTheProgramsName) {
    arguments.programName = "prog";
    EXPECT_EQ(host.run([&] { arguments.printUsage(); }),
              "Usage:\n prog [ -k | -kill [ -3 | -third_party ] [ -q | -quiet ] ]\n"
              " prog -l | -list [ -3 | -third_party ]\n"
              " prog -h | -help\n");
    EXPECT_THAT(host.of({"msg"}), ElementsAre("msg MsgCvs0155N", "msg MsgCvs0165N", "msg MsgCvs0190N"));
}

TEST_F(ArgumentsTest, UsageWithConversionsInTheProgramsNameIsLiteral) {
    arguments.programName = "%d%s";
    EXPECT_EQ(host.run([&] { arguments.printUsage(); }).substr(0, 13), "Usage:\n %d%s ");
}

} // namespace
