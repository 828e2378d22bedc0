#include <fstream>
#include <iomanip>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "Fixture.h"
#include "Processes.h"
#include "cvshutdown.h"

namespace {

class KillDefinesTest : public fakes::ProgramTest {};

const std::map<std::string, int> kGroups = {{"GROUP_NONE", 0},       {"GROUP_MEDIA_MANAGER", 1}, {"GROUP_CORVANE", 2},
                                            {"GROUP_TQL_CLIENT", 3}, {"GROUP_TQL_MASTER", 4},    {"GROUP_ULM", 5},
                                            {"GROUP_PYX", 6},        {"GROUP_MASTER", 7},        {"GROUP_CLIENT", 8},
                                            {"GROUP_ROBOTIC", 9},    {"GROUP_JOBS", 10},         {"GROUP_JAVA", 11},
                                            {"GROUP_END", 12},       {"GROUP_NULL", 13}};

const std::map<std::string, int> kKillTypes = {{"NORMAL_TERMINATE", 0},
                                               {"TERMINATE_T", 1},
                                               {"KILL", 2},
                                               {"KILLH", 3},
                                               {"KILL9", 4},
                                               {"PROXY_ALL", 5},
                                               {"LOCAL_TERMINATE", 6},
                                               {"LOCALHOST_TERMINATE", 7},
                                               {"UNMOUNT", 8},
                                               {"SELECTIVE_CANCEL", 9},
                                               {"ZELDPARAMS", 10},
                                               {"NOARGS", 11},
                                               {"HOST_T", 12},
                                               {"REMOVE", 13},
                                               {"MOSK_STOP", 14},
                                               {"JAVA_STOP", 15},
                                               {"SKIP", 16},
                                               {"STOP", 17}};

const std::map<std::string, int> kWaitTypes = {
    {"WAIT_NONE", 0}, {"WAIT_PROCESS", 1}, {"WAIT_ALL", 2}, {"WAIT_ALL_FIRST", 3}};

void compareRow(const killDef& row, const std::string& line) {
    SCOPED_TRACE(line);
    std::istringstream fields(line);
    std::int32_t position = 0;
    std::int32_t sequence = 0;
    std::int32_t firstOnly = -1;
    std::int32_t platformMask = 0;
    std::string group;
    std::string name;
    std::string isCommand;
    std::string killType;
    std::string waitType;
    std::string serviceName;
    fields >> position >> sequence >> group >> std::quoted(name) >> isCommand >> killType >> firstOnly >> waitType >>
        platformMask >> std::quoted(serviceName);
    ASSERT_FALSE(fields.fail());
    EXPECT_EQ(row.sequence, sequence);
    EXPECT_EQ(row.group, kGroups.at(group));
    EXPECT_EQ(row.name, name);
    EXPECT_EQ(row.isCommand, isCommand == "true");
    EXPECT_EQ(row.killType, kKillTypes.at(killType));
    EXPECT_EQ(row.firstOnly, firstOnly);
    EXPECT_EQ(row.waitType, kWaitTypes.at(waitType));
    EXPECT_EQ(row.platformMask, platformMask);
    EXPECT_EQ(row.serviceName, serviceName);
}

TEST_F(KillDefinesTest, AllNineFieldsOfAllRowsAreThoseOfTheSecondCopy) {
    std::ifstream copy(CVSTOP_TEST_DATA "/shutdown/shutdown_table.txt");
    std::size_t row = 0;
    for (std::string line; std::getline(copy, line);) {
        if (line[0] == '#') {
            continue;
        }
        ASSERT_LT(row, KillDefines.size());
        compareRow(KillDefines[row++], line);
    }
    EXPECT_EQ(row, 67U);
}

TEST_F(KillDefinesTest, Holds67RowsFromSawekToPazukiko) {
    ASSERT_EQ(KillDefines.size(), 67U);
    EXPECT_EQ(KillDefines.front().name, "sawek");
    EXPECT_EQ(KillDefines.front().killType, KILL9);
    EXPECT_EQ(KillDefines.back().name, "pazukiko");
    EXPECT_EQ(KillDefines.back().killType, NORMAL_TERMINATE);
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

TEST_F(KillDefinesTest, KillTypesAreUsedAsOftenAsTheyShould) {
    std::map<int, int> used;
    for (const killDef& row : KillDefines) {
        ++used[row.killType];
    }
    const std::map<int, int> expected = {{NORMAL_TERMINATE, 29},
                                         {TERMINATE_T, 3},
                                         {KILL, 16},
                                         {KILLH, 4},
                                         {KILL9, 2},
                                         {PROXY_ALL, 1},
                                         {LOCAL_TERMINATE, 1},
                                         {UNMOUNT, 1},
                                         {SELECTIVE_CANCEL, 1},
                                         {ZELDPARAMS, 1},
                                         {NOARGS, 1},
                                         {HOST_T, 1},
                                         {REMOVE, 1},
                                         {MOSK_STOP, 2},
                                         {SKIP, 1},
                                         {STOP, 2}};
    EXPECT_EQ(used, expected);
}

TEST_F(KillDefinesTest, BuildingTheTableDoesNothingElse) {
    for (const std::string& entry : host.startup) {
        EXPECT_NE(entry.find(" Arguments::Arguments"), std::string::npos) << entry;
    }
}

} // namespace
