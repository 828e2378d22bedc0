#include "UserList.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "Fixture.h"

using fakes::Journal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kParse = "UserList::setProcessExcludelist: ";
const std::string kContains = "debug 1 UserList::processExcludelistContains: ";
const std::string kMatches = "UserList::processMatchesExcludelistEntry: ";
const std::string kSite = "(UserList:#)";
const std::string kUnrecognized = "Unrecognized line. exclude list entry must be a full path that contains / or \\: ";

class UserListTest : public fakes::ProgramTest {
  protected:
    UserListTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "userlist.XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
        host.journal.clear();
    }

    ~UserListTest() override { std::filesystem::remove_all(m_folder); }

    [[nodiscard]] std::string path(const std::string& name) const { return m_folder + "/" + name; }

    [[nodiscard]] std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    /// Reads a file of that content.
    bool read(const std::string& content) { return list.setProcessExcludelist(write("list", content)); }

    /// What was logged, without the start and the end of a reading.
    [[nodiscard]] Journal lines() const {
        Journal entries = host.of({"debug"});
        entries.erase(entries.begin());
        entries.pop_back();
        return entries;
    }

    UserList list;

  private:
    std::string m_folder;
};

// --- reading ---------------------------------------------------------------------------------------------------------

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

TEST_F(UserListTest, ALastLineWithoutANewlineIsReadAllTheSame) {
    EXPECT_TRUE(read("/a\n/b"));
    EXPECT_THAT(list.list(), ElementsAre("/a", "/b"));
}

TEST_F(UserListTest, FormFeedsAndBytesOfNoTextStay) {
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

// --- matching --------------------------------------------------------------------------------------------------------

TEST_F(UserListTest, AnEmptyListMatchesNothingWithoutAskingTheFileSystem) {
    g_logger.setVerbosity(1);
    EXPECT_FALSE(list.processExcludelistContains("/bin/sh"));
    EXPECT_THAT(host.journal, ElementsAre(kContains + "Searching exclude list for process: /bin/sh" + kSite));
}

TEST_F(UserListTest, ASymbolicLinkToTheExecutableMatches) {
    const std::string agent = write("agent", "x");
    std::filesystem::create_symlink(agent, path("link"));
    read(path("link") + "\n");
    EXPECT_TRUE(list.processExcludelistContains(agent));
}

TEST_F(UserListTest, ARedundantComponentMatches) {
    const std::string agent = write("agent", "x");
    read(path("./agent") + "\n");
    EXPECT_TRUE(list.processExcludelistContains(agent));
}

TEST_F(UserListTest, AHardLinkMatchesAndACopyDoesNot) {
    const std::string agent = write("agent", "x");
    std::filesystem::create_hard_link(agent, path("hard"));
    std::filesystem::copy(agent, path("copy"));
    EXPECT_TRUE(list.processMatchesExcludelistEntry(agent, path("hard")));
    EXPECT_FALSE(list.processMatchesExcludelistEntry(agent, path("copy")));
}

TEST_F(UserListTest, ADirectoryMatchesNoExecutable) {
    const std::string agent = write("agent", "x");
    read(path("") + "\n");
    EXPECT_FALSE(list.processExcludelistContains(agent));
}

TEST_F(UserListTest, AnEntryWithACarriageReturnNeverMatches) {
    const std::string agent = write("agent", "x");
    read(agent + "\r\n");
    EXPECT_FALSE(list.processExcludelistContains(agent));
}

TEST_F(UserListTest, ARelativeEntryIsResolvedAgainstTheWorkingDirectory) {
    const std::string agent = write("agent", "x");
    read("./agent\n");
    EXPECT_FALSE(list.processExcludelistContains(agent));
    const std::filesystem::path previous = std::filesystem::current_path();
    std::filesystem::current_path(path(""));
    EXPECT_TRUE(list.processExcludelistContains(agent));
    std::filesystem::current_path(previous);
}

TEST_F(UserListTest, AProcessWhoseFileIsGoneIsNeverExcluded) {
    const std::string agent = write("agent", "x");
    read(path("gone") + "\n" + agent + "\n");
    EXPECT_FALSE(list.processExcludelistContains(path("gone")));
}

TEST_F(UserListTest, OnlyTheFirstOfTwoMatchingEntriesIsLookedAt) {
    const std::string agent = write("agent", "x");
    std::filesystem::create_hard_link(agent, path("one"));
    std::filesystem::create_hard_link(agent, path("two"));
    read(path("one") + "\n" + path("two") + "\n");
    host.journal.clear();
    EXPECT_TRUE(list.processExcludelistContains(agent));
    EXPECT_THAT(host.journal, ElementsAre("stat " + agent, "stat " + path("one"),
                                          "debug 1 " + kMatches + "Process path " + agent +
                                              " matches exclude list entry " + path("one") + kSite));
}

TEST_F(UserListTest, TheEntriesAreAskedInFileOrderUntilOneMatches) {
    const std::string agent = write("agent", "x");
    read(path("b") + "\n" + write("a", "y") + "\n" + agent + "\n/never\n");
    host.journal.clear();
    EXPECT_TRUE(list.processExcludelistContains(agent));
    EXPECT_THAT(host.of({"stat"}), ElementsAre("stat " + agent, "stat " + path("b"), "stat " + agent,
                                               "stat " + path("a"), "stat " + agent, "stat " + agent));
}

TEST_F(UserListTest, AtVerbosityZeroAMatchIsLoggedAndTheSearchIsNot) {
    const std::string agent = write("agent", "x");
    read(agent + "\n");
    host.journal.clear();
    EXPECT_TRUE(list.processExcludelistContains(agent));
    EXPECT_THAT(host.of({"debug"}), ElementsAre("debug 1 " + kMatches + "Process path " + agent +
                                                " matches exclude list entry " + agent + kSite));
}

TEST_F(UserListTest, AboveVerbosityFourEveryComparisonIsLogged) {
    g_logger.setVerbosity(5);
    const std::string agent = write("agent", "x");
    const std::string other = write("other", "x");
    EXPECT_FALSE(list.processMatchesExcludelistEntry(agent, other));
    EXPECT_THAT(host.of({"debug"}),
                ElementsAre("debug 5 " + kMatches + "Comparing exclude list paths: " + agent + " and " + other + kSite,
                            "debug 5 " + kMatches + "Process path " + agent + " does not match exclude list entry " +
                                other + kSite));
}

TEST_F(UserListTest, AMissingProcessPathIsLoggedBeforeTheEntryIsAsked) {
    g_logger.setVerbosity(5);
    const std::string gone = path("gone");
    EXPECT_FALSE(list.processMatchesExcludelistEntry(gone, gone));
    EXPECT_THAT(host.journal,
                ElementsAre("debug 5 " + kMatches + "Comparing exclude list paths: " + gone + " and " + gone + kSite,
                            "stat " + gone,
                            "debug 5 " + kMatches + "stat failed for process path: " + gone +
                                "error is: No such file or directory" + kSite));
}

TEST_F(UserListTest, AMissingEntryIsLogged) {
    g_logger.setVerbosity(5);
    const std::string agent = write("agent", "x");
    EXPECT_FALSE(list.processMatchesExcludelistEntry(agent, agent + "/below"));
    EXPECT_EQ(host.of({"debug"}).back(), "debug 5 " + kMatches + "stat failed for exclude list entry: " + agent +
                                             "/belowerror is: Not a directory" + kSite);
}

TEST_F(UserListTest, NegativeOutcomesAreNotBuiltAtVerbosityFour) {
    g_logger.setVerbosity(4);
    const std::string agent = write("agent", "x");
    EXPECT_FALSE(list.processMatchesExcludelistEntry(agent, write("other", "x")));
    EXPECT_FALSE(list.processMatchesExcludelistEntry(path("gone"), agent));
    EXPECT_FALSE(list.processMatchesExcludelistEntry(agent, path("gone")));
    EXPECT_THAT(host.of({"debug"}), IsEmpty());
}

TEST_F(UserListTest, DeviceAndInodeMustBothBeEqual) {
    host.files["/usr/quarn/a"] = {1, 100};
    host.files["/usr/quarn/same"] = {1, 100};
    host.files["/usr/quarn/device"] = {2, 100};
    host.files["/usr/quarn/inode"] = {1, 101};
    EXPECT_TRUE(list.processMatchesExcludelistEntry("/usr/quarn/a", "/usr/quarn/same"));
    EXPECT_FALSE(list.processMatchesExcludelistEntry("/usr/quarn/a", "/usr/quarn/device"));
    EXPECT_FALSE(list.processMatchesExcludelistEntry("/usr/quarn/a", "/usr/quarn/inode"));
}

TEST_F(UserListTest, InodesOf64BitsAreComparedWhole) {
    host.files["/usr/quarn/a"] = {1, 0x100000005ULL};
    host.files["/usr/quarn/b"] = {1, 0x200000005ULL};
    EXPECT_FALSE(list.processMatchesExcludelistEntry("/usr/quarn/a", "/usr/quarn/b"));
}

TEST_F(UserListTest, MatchingWithoutALoggerWritesNothing) {
    CVLogger::s_default = nullptr;
    const std::string agent = write("agent", "x");
    EXPECT_TRUE(list.processMatchesExcludelistEntry(agent, agent));
    EXPECT_THAT(host.of({"debug"}), IsEmpty());
}

} // namespace
