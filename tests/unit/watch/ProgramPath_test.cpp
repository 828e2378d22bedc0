#include "ProgramPath.h"

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "TempFolder.h"

namespace watch {
namespace {

namespace fs = std::filesystem;

class ProgramPathTest : public testing::Test {
  protected:
    std::string program(const std::string& name, bool executable = true) const {
        const std::string path = folder.write(name, "");
        fs::permissions(path, executable ? fs::perms::owner_all : fs::perms::owner_read);
        return path;
    }
    TempFolder folder;
};

TEST_F(ProgramPathTest, APathIsTakenAsItIs) {
    EXPECT_EQ(findProgram(program("a"), "").path, folder.at("a"));
    EXPECT_EQ(findProgram(folder.at("none"), folder.at("")).error, ENOENT);
    EXPECT_EQ(findProgram(program("a") + "/x", "").error, ENOENT);
    EXPECT_EQ(findProgram(folder.at("."), "").error, EACCES);
    EXPECT_EQ(findProgram(program("plain", false), "").error, EACCES);
}

TEST_F(ProgramPathTest, ANameIsLookedForFolderByFolder) {
    const std::string second = program("two/name");
    const std::string search = folder.at("one") + ":" + folder.at("two");
    EXPECT_EQ(findProgram("name", search).path, second);
    const std::string first = program("one/name");
    EXPECT_EQ(findProgram("name", search).path, first);
    EXPECT_EQ(findProgram("other", search).error, ENOENT);
}

TEST_F(ProgramPathTest, AFileThatCannotBeExecutedIsPassedOverAndRemembered) {
    program("one/name", false);
    const std::string search = folder.at("one") + ":" + folder.at("two");
    EXPECT_EQ(findProgram("name", search).error, EACCES);
    const std::string second = program("two/name");
    EXPECT_EQ(findProgram("name", search).path, second);
}

TEST_F(ProgramPathTest, AnEmptyEntryIsTheWorkingFolder) {
    program("name");
    const fs::path before = fs::current_path();
    fs::current_path(folder.at(""));
    EXPECT_EQ(findProgram("name", ":/nowhere").path, "./name");
    EXPECT_EQ(findProgram("name", "/nowhere:").path, "./name");
    // No search path at all is none, and not the working folder.
    EXPECT_EQ(findProgram("name", "").error, ENOENT);
    fs::current_path(before);
}

} // namespace
} // namespace watch
