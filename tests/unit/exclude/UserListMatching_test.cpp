#include <filesystem>
#include <string>

#include "UserListTest.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kContains = "debug 1 UserList::processExcludelistContains: ";
const std::string kMatches = "UserList::processMatchesExcludelistEntry: ";

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

TEST_F(UserListTest, OnlyTheFirstOfTwoMatchingEntriesIsCompared) {
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
