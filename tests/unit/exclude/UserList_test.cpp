#include <string>

#include "UserListTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kParse = "UserList::setProcessExcludelist: ";
const std::string kUnrecognized = "Unrecognized line. exclude list entry must be a full path that contains / or \\: ";

TEST_F(UserListTest, AFileThatDoesNotExistIsReportedAndChangesNothing) {
    ASSERT_TRUE(read("/a\n"));
    host.journal.clear();
    const std::string missing = path("missing");
    EXPECT_FALSE(list.setProcessExcludelist(missing));
    EXPECT_THAT(list.list(), ElementsAre("/a"));
    EXPECT_THAT(host.journal, ElementsAre("debug 1 " + kParse + "Parsing exclude list file: " + missing + kSite,
                                          "debug 1 " + kParse + "Failed to open the exclude list file " + missing +
                                              ",not using exclude list file." + kSite));
}

TEST_F(UserListTest, AnEmptyFileIsReadWithTwoMessages) {
    EXPECT_TRUE(read(""));
    EXPECT_THAT(list.list(), IsEmpty());
    EXPECT_THAT(host.journal, ElementsAre("debug 1 " + kParse + "Parsing exclude list file: " + path("list") + kSite,
                                          "debug 1 " + kParse + "Succesfully parsed exclude list file." + kSite));
}

TEST_F(UserListTest, BlanksAndTabsAreTrimmed) {
    EXPECT_TRUE(read("   /opt/tool/bin/agent  \t\n\t /b c \t \n"));
    EXPECT_THAT(list.list(), ElementsAre("/opt/tool/bin/agent", "/b c"));
}

TEST_F(UserListTest, CommentsAreNotStored) {
    g_logger.setVerbosity(5);
    EXPECT_TRUE(read("  # remark\n#/usr/bin/x\n"));
    EXPECT_THAT(list.list(), IsEmpty());
    EXPECT_THAT(lines(), ElementsAre("debug 5 " + kParse + "Skipping comment: # remark" + kSite,
                                     "debug 5 " + kParse + "Skipping comment: #/usr/bin/x" + kSite));
}

TEST_F(UserListTest, AnEmptyLineIsUnrecognizedWithNothingAfterTheBlank) {
    EXPECT_TRUE(read("\n"));
    EXPECT_THAT(lines(), ElementsAre("debug 1 " + kParse + kUnrecognized + kSite));
}

TEST_F(UserListTest, ALineOfThreeBlanksIsNotTrimmed) {
    EXPECT_TRUE(read("   \n"));
    EXPECT_THAT(lines(), ElementsAre("debug 1 " + kParse + kUnrecognized + "   " + kSite));
    EXPECT_THAT(list.list(), IsEmpty());
}

TEST_F(UserListTest, CarriageReturnsStayInTheLine) {
    EXPECT_TRUE(read("/usr/bin/x\r\n\r\n"));
    EXPECT_THAT(list.list(), ElementsAre("/usr/bin/x\r"));
    EXPECT_THAT(lines(), ElementsAre("debug 1 " + kParse + kUnrecognized + "\r" + kSite));
}

TEST_F(UserListTest, RelativePathsAndBackslashesAreStored) {
    EXPECT_TRUE(read("bin/agent\nC:\\tools\\agent.exe\n/\n\\\n"));
    EXPECT_THAT(list.list(), ElementsAre("bin/agent", "C:\\tools\\agent.exe", "/", "\\"));
}

TEST_F(UserListTest, ThereAreNoInlineComments) {
    EXPECT_TRUE(read("/usr/bin/x # remark\n"));
    EXPECT_THAT(list.list(), ElementsAre("/usr/bin/x # remark"));
}

TEST_F(UserListTest, ALineWithoutASeparatorIsDropped) {
    EXPECT_TRUE(read("  agent \n/a\n"));
    EXPECT_THAT(list.list(), ElementsAre("/a"));
    EXPECT_THAT(lines(), ElementsAre("debug 1 " + kParse + kUnrecognized + "agent" + kSite));
}

TEST_F(UserListTest, TheSamePathTwiceIsStoredTwice) {
    g_logger.setVerbosity(5);
    EXPECT_TRUE(read("/a\n/a\n"));
    EXPECT_THAT(list.list(), ElementsAre("/a", "/a"));
    EXPECT_THAT(lines(), ElementsAre("debug 5 " + kParse + "Saved exclude list entry:/a" + kSite,
                                     "debug 5 " + kParse + "Vector Length: 1" + kSite,
                                     "debug 5 " + kParse + "Saved exclude list entry:/a" + kSite,
                                     "debug 5 " + kParse + "Vector Length: 2" + kSite));
}

TEST_F(UserListTest, ASecondFileIsAppended) {
    EXPECT_TRUE(read("/z\n/y\n"));
    EXPECT_TRUE(read("/a\n"));
    EXPECT_THAT(list.list(), ElementsAre("/z", "/y", "/a"));
}

TEST_F(UserListTest, ALastLineWithoutANewlineIsReadToo) {
    EXPECT_TRUE(read("/a\n/b"));
    EXPECT_THAT(list.list(), ElementsAre("/a", "/b"));
}

TEST_F(UserListTest, FormFeedsAndInvalidBytesStay) {
    const std::string odd("/a\0b\xFF\f", 6);
    EXPECT_TRUE(read("\f/x\n" + odd + "\n"));
    EXPECT_THAT(list.list(), ElementsAre("\f/x", odd));
}

TEST_F(UserListTest, AVeryLongLineIsStoredWhole) {
    const std::string line = "/" + std::string(300000, 'l');
    EXPECT_TRUE(read(line + "\n"));
    EXPECT_THAT(list.list(), ElementsAre(line));
}

TEST_F(UserListTest, AFolderOpensAndLoadsAsEmpty) {
    EXPECT_TRUE(list.setProcessExcludelist(path("")));
    EXPECT_THAT(list.list(), IsEmpty());
    EXPECT_EQ(host.journal.back(), "debug 1 " + kParse + "Succesfully parsed exclude list file." + kSite);
}

TEST_F(UserListTest, DetailsAreOnlyBuiltAboveVerbosityFour) {
    g_logger.setVerbosity(4);
    EXPECT_TRUE(read("/a\n# c\nword\n"));
    EXPECT_THAT(lines(), ElementsAre("debug 1 " + kParse + kUnrecognized + "word" + kSite));
}

TEST_F(UserListTest, WithoutALoggerNothingIsWritten) {
    CVLogger::s_default = nullptr;
    EXPECT_TRUE(read("/a\n# c\nword\n"));
    EXPECT_FALSE(list.setProcessExcludelist(path("missing")));
    EXPECT_THAT(host.journal, IsEmpty());
    EXPECT_THAT(list.list(), ElementsAre("/a"));
}

} // namespace
