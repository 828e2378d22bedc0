#include "cvshutdown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;

namespace {

TEST(CvShutdown, NameTablesAreIndexedByValue) {
    EXPECT_THAT(kill_type_names,
                ElementsAre("NORMAL_TERMINATE", "TERMINATE_T", "KILL", "KILLH", "KILL9", "PROXY_ALL", "LOCAL_TERMINATE",
                            "LOCALHOST_TERMINATE", "UNMOUNT", "SELECTIVE_CANCEL", "ZELDPARAMS", "NOARGS", "HOST_T",
                            "REMOVE", "MOSK_STOP", "JAVA_STOP", "SKIP", "STOP"));
    EXPECT_EQ(group_names[GROUP_NONE], "");
    EXPECT_EQ(group_names[GROUP_MEDIA_MANAGER], "media-manager");
    EXPECT_EQ(group_names[GROUP_CORVANE], "corvane");
    EXPECT_EQ(group_names[GROUP_TQL_CLIENT], "tql-client");
    EXPECT_EQ(group_names[GROUP_TQL_MASTER], "tql-master");
    EXPECT_EQ(group_names[GROUP_ULM], "ulm");
    EXPECT_EQ(group_names[GROUP_PYX], "pyx");
    EXPECT_EQ(group_names[GROUP_MASTER], "master");
    EXPECT_EQ(group_names[GROUP_CLIENT], "client");
    EXPECT_EQ(group_names[GROUP_ROBOTIC], "robotic");
    EXPECT_EQ(group_names[GROUP_JOBS], "jobs");
    EXPECT_EQ(group_names[GROUP_JAVA], "java");
    EXPECT_EQ(group_names[GROUP_END], "end");
    EXPECT_EQ(group_names[GROUP_NULL], "NULL");
    EXPECT_EQ(shutdown_names[SHUTDOWN_PROMPT], "prompt");
    EXPECT_EQ(shutdown_names[SHUTDOWN_KILL], "kill");
    EXPECT_EQ(shutdown_names[SHUTDOWN_NULL], "NULL");
}

TEST(CvShutdown, ARowIsAPlainCopyableValue) {
    const killDef row = KillDefines[23];
    killDef copy(0, GROUP_NONE, "", false, KILL, 0, WAIT_NONE, 1, "");
    copy = row;
    EXPECT_EQ(copy.name, "dbsrv17");
    EXPECT_EQ(copy.serviceName, "Corvane Rotiva Service");
}

} // namespace
