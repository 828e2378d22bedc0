#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include "Fixture.h"
#include "cvshutdown.h"

namespace {

class KillDefinesTest : public fakes::ProgramTest {};

const char* const kGroups[] = {"GROUP_NONE",       "GROUP_MEDIA_MANAGER", "GROUP_CORVANE", "GROUP_TQL_CLIENT",
                               "GROUP_TQL_MASTER", "GROUP_ULM",           "GROUP_PYX",     "GROUP_MASTER",
                               "GROUP_CLIENT",     "GROUP_ROBOTIC",       "GROUP_JOBS",    "GROUP_JAVA",
                               "GROUP_END",        "GROUP_NULL"};
const char* const kWaitTypes[] = {"WAIT_NONE", "WAIT_PROCESS", "WAIT_ALL", "WAIT_ALL_FIRST"};

/// A row as a line of the second copy.
std::string lineOf(const killDef& row) {
    std::ostringstream line;
    line << row.sequence << ' ' << kGroups[row.group] << ' ' << std::quoted(row.name) << ' ' << std::boolalpha
         << row.isCommand << ' ' << kill_type_names[row.killType] << ' ' << row.firstOnly << ' '
         << kWaitTypes[row.waitType] << ' ' << row.platformMask << ' ' << std::quoted(row.serviceName);
    return line.str();
}

std::vector<std::string> secondCopy() {
    std::ifstream copy(CVSTOP_TEST_DATA "/shutdown/shutdown_table.txt");
    std::vector<std::string> lines;
    for (std::string line; std::getline(copy, line);) {
        if (line[0] != '#') {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST_F(KillDefinesTest, AllNineFieldsOfAllRowsAreThoseOfTheSecondCopy) {
    const std::vector<std::string> lines = secondCopy();
    for (std::size_t row = 0; row < std::max(lines.size(), KillDefines.size()); ++row) {
        const std::string program = row < KillDefines.size() ? lineOf(KillDefines[row]) : "(no such row)";
        const std::string copy = row < lines.size() ? lines[row] : "(no such row)";
        ASSERT_EQ(program, copy) << "row " << row + 1 << " of KillDefines.cpp and of tests/unit/shutdown/"
                                 << "shutdown_table.txt. Where the program is right, the line of the text is\n"
                                 << program;
    }
}

TEST_F(KillDefinesTest, NoNameOccursTwice) {
    std::set<std::string> names;
    for (const killDef& row : KillDefines) {
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
    }
}

TEST_F(KillDefinesTest, RowsWithAServiceNameAreThoseOfMaskThree) {
    for (const killDef& row : KillDefines) {
        EXPECT_EQ(row.platformMask, row.serviceName.empty() ? 1 : 3) << row.name;
    }
}

/// The fakes record calls of the product's libraries; in a program of the table alone, any system call but those for
/// memory is fatal.
TEST_F(KillDefinesTest, BuildingTheTableDoesNothingElse) {
    for (const std::string& entry : host.startup) {
        EXPECT_NE(entry.find(" Arguments::Arguments"), std::string::npos) << entry;
    }
    const fakes::ChildResult alone = fakes::inChild([] { execl(CVSTOP_TABLE_ALONE, CVSTOP_TABLE_ALONE, nullptr); });
    if (alone.status == 2) {
        GTEST_SKIP() << "the kernel takes no filter of system calls";
    }
    EXPECT_EQ(alone.signal, 0) << "building the table made a system call: strace " CVSTOP_TABLE_ALONE;
    EXPECT_EQ(alone.status, EXIT_SUCCESS);
}

} // namespace
