#include "Messages.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Fixture.h"

using ::testing::ElementsAre;

namespace {

class MessagesTest : public fakes::ProgramTest {};

/// A message as a line of the second copy.
std::string lineOf(const Message& message) {
    std::string line = std::string(message.key) + " \"";
    for (const char c : std::string_view(message.text)) {
        line += c == '\n' ? "\\n" : std::string(1, c);
    }
    return line + '"';
}

std::vector<std::string> secondCopy() {
    std::ifstream copy(CVSTOP_TEST_DATA "/shared/message_table.txt");
    std::vector<std::string> lines;
    for (std::string line; std::getline(copy, line);) {
        if (line[0] != '#') {
            lines.push_back(line);
        }
    }
    return lines;
}

/// Scripts search the output for these texts, and catalogs are keyed by them: neither changes by a slip.
TEST_F(MessagesTest, KeysAndTextsAreThoseOfTheSecondCopy) {
    const std::vector<std::string> lines = secondCopy();
    for (std::size_t row = 0; row < std::max(lines.size(), std::size(kMessages)); ++row) {
        const std::string program = row < std::size(kMessages) ? lineOf(kMessages[row]) : "(no such row)";
        const std::string copy = row < lines.size() ? lines[row] : "(no such row)";
        ASSERT_EQ(program, copy) << "row " << row + 1 << " of Messages.h and of tests/unit/shared/message_table.txt. "
                                 << "Where the program is right, the line of the text is\n"
                                 << program;
    }
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
