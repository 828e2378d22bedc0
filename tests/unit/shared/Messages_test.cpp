#include "Messages.h"

#include <fstream>
#include <string>

#include "Fixture.h"

using ::testing::ElementsAre;

namespace {

class MessagesTest : public fakes::ProgramTest {};

/// Turns the "\n" of the text file into newlines.
std::string withNewlines(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isNewline = text.compare(at, 2, "\\n") == 0;
        result += isNewline ? '\n' : text[at];
        at += isNewline ? 1 : 0;
    }
    return result;
}

TEST_F(MessagesTest, KeysAndTextsAreThoseOfTheSecondCopy) {
    std::ifstream copy(CVSTOP_TEST_DATA "/shared/message_table.txt");
    std::size_t row = 0;
    for (std::string line; std::getline(copy, line);) {
        if (line[0] == '#') {
            continue;
        }
        ASSERT_LT(row, std::size(kMessages));
        const std::size_t blank = line.find(' ');
        EXPECT_EQ(kMessages[row].key, line.substr(0, blank));
        EXPECT_EQ(kMessages[row].text, withNewlines(line.substr(blank + 2, line.size() - blank - 3)));
        ++row;
    }
    EXPECT_EQ(row, 37U);
    EXPECT_EQ(row, std::size(kMessages));
}

TEST_F(MessagesTest, ALookUpPassesTheLocaleTheWholeBufferAndZeros) {
    std::snprintf(lc_messages, sizeof lc_messages, "%s", "fr_FR.UTF-8");
    formatMessage<Msg::GatheringProcesses>();
    ASSERT_EQ(host.lookups.size(), 1U);
    const fakes::Lookup& lookup = host.lookups[0];
    EXPECT_EQ(lookup.key, "MsgCvs0005N");
    EXPECT_EQ(lookup.locale, "fr_FR.UTF-8");
    EXPECT_EQ(lookup.size, 1024U);
    EXPECT_EQ(lookup.buffer, outline);
    EXPECT_EQ(lookup.reserved, 0);
    EXPECT_EQ(lookup.defaultText, "Gathering process information.\n");
}

TEST_F(MessagesTest, FormattingPrintsNothingAndPrintingAddsNothing) {
    EXPECT_EQ(host.run([] { formatMessage<Msg::InitiatingShutdown>(7); }), "");
    EXPECT_EQ(host.run([] { printOutline(); }), "Initiating Orderly shutdown, 7 processes active\n");
    EXPECT_EQ(host.run([] { printMessage<Msg::HeadingPid>(); }), "Pid");
}

TEST_F(MessagesTest, ATranslationTakesThePlaceOfTheDefault) {
    host.translations["MsgCvs0255N"] = "Sende Signal an %s\n";
    EXPECT_EQ(host.run([] { printMessage<Msg::SignalingProcess>("/x"); }), "Sende Signal an /x\n");
}

TEST_F(MessagesTest, APercentSignInAnArgumentIsPrintedLiterally) {
    EXPECT_EQ(host.run([] { printMessage<Msg::SignalingProcess>("/opt/100%s%n/%d"); }),
              "Signaling process /opt/100%s%n/%d\n");
}

TEST_F(MessagesTest, ALongMessageIsCutToTheBuffer) {
    const std::string name(2000, 'p');
    const std::string printed = host.run([&] { printMessage<Msg::SignalingProcess>(name.c_str()); });
    EXPECT_EQ(printed.size(), 1023U);
    EXPECT_EQ(printed.substr(0, 20), "Signaling process pp");
}

TEST_F(MessagesTest, TheKeyOfTheExcludeListMessageHasThreeDigits) {
    formatMessage<Msg::ExcludeListNotLoaded>("/etc/my.list");
    EXPECT_THAT(host.of({"msg"}), ElementsAre("msg MsgCvs281N"));
    EXPECT_STREQ(outline, "Failed to load user-specified exclude list: /etc/my.list\n");
}

} // namespace
