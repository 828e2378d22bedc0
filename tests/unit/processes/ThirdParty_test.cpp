#include <string>

#include "SnapshotTest.h"

using fakes::FakeProcess;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class ThirdPartyTest : public SnapshotTest {
  protected:
    int terminate(bool quiet = false) {
        int count = -1;
        m_printed = host.run([&] { count = m_processes->terminate3rdParty(quiet); });
        return count;
    }

    FakeProcess& addStubborn(const std::string& name, std::int32_t pid) {
        FakeProcess& process = host.add(name, pid, 2);
        process.diesOf.clear();
        process.path = "/opt/" + name;
        return process;
    }

    std::string m_printed;
};

TEST_F(ThirdPartyTest, WithoutThirdPartyRecordsReturnsZeroAndPrintsNothing) {
    host.add("halvd", 10);
    snapshot();
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(m_printed, "");
    EXPECT_THAT(host.of({"kill", "log", "msg"}), IsEmpty());
}

TEST_F(ThirdPartyTest, WithAnEmptyListReturnsZero) {
    snapshot();
    EXPECT_EQ(terminate(), 0);
    EXPECT_EQ(host.journal.front(), "enter Processes::terminate3rdParty CV_Processes this");
    EXPECT_EQ(host.journal.back(), "leave Processes::terminate3rdParty");
}

TEST_F(ThirdPartyTest, TheWholeSeriesOfSignalsIsSentAtOnce) {
    addStubborn("holder", 10);
    snapshot();
    EXPECT_EQ(terminate(), 1);
    const std::string signaling = "log 2 Processes::KillProcess: Signaling process /opt/holder ";
    EXPECT_THAT(host.of({"kill", "sleep", "log", "msg", "out"}),
                ElementsAre("log 2 Processes::terminate3rdParty: KILLING holder ACTION=0 PID=10", "msg MsgCvs0260N",
                            "out Terminating third party process, holder pid-10\n", "kill 10 SIGINT", "msg MsgCvs0255N",
                            "out Signaling process /opt/holder\n", signaling + "(2)", "kill 10 SIGTERM",
                            signaling + "(1)", "kill 10 SIGHUP", signaling + "(0)", "kill 10 SIGQUIT",
                            signaling + "(3)", "kill 10 SIGKILL", signaling + "(4)"));
}

TEST_F(ThirdPartyTest, TheSeriesGoesOnWhenTheFirstSignalWasEnough) {
    host.add("holder", 10, 2);
    snapshot();
    EXPECT_EQ(terminate(), 1);
    EXPECT_EQ(host.of({"kill"}).size(), 5U);
    EXPECT_EQ(m_processes->list()->signalled, 0) << "signalled stays as it is";
}

TEST_F(ThirdPartyTest, TheTerminatingMessageDoesNotDependOnVerbose) {
    Args.verbose = false;
    addStubborn("holder", 10);
    snapshot();
    EXPECT_EQ(terminate(), 1);
    EXPECT_EQ(m_printed, "Terminating third party process, holder pid-10\n");
}

TEST_F(ThirdPartyTest, ARecordThatTheShutdownMarkedIsLeftAlone) {
    addStubborn("java", 10);
    snapshot();
    m_processes->list()->signalled = 1;
    EXPECT_FALSE(isTerminable3rdParty(m_processes->list()));
    EXPECT_EQ(terminate(), 0);
    EXPECT_THAT(host.of({"kill"}), IsEmpty());
}

TEST_F(ThirdPartyTest, AnExcludedRecordIsListedButNotSignalledAndNotCounted) {
    addStubborn("holder", 10);
    addStubborn("other", 11);
    snapshot();
    m_processes->list()->excluded = 1;
    EXPECT_TRUE(isTerminable3rdParty(m_processes->list()));
    EXPECT_EQ(terminate(true), 1);
    EXPECT_EQ(host.of({"kill"}).size(), 5U);
    EXPECT_EQ(host.count("kill 11 SIGKILL"), 1U);
    EXPECT_THAT(host.of({"debug"}), ElementsAre("debug 1 Processes::terminate3rdParty: Ignoring process because it is "
                                                "on exclude list, Name = holder(CV_Processes:#)"));
}

TEST_F(ThirdPartyTest, AListedOnlyRecordIsNeverSignalled) {
    host.add("editor", 10, 4);
    snapshot();
    EXPECT_FALSE(isTerminable3rdParty(m_processes->list()));
    EXPECT_EQ(terminate(), 0);
    EXPECT_THAT(host.of({"kill", "probe", "msg"}), IsEmpty()) << "the category is looked at first";
}

TEST_F(ThirdPartyTest, TheOwnRecordIsNeverSignalled) {
    host.add("cvstop", host.ownPid, 2);
    snapshot();
    EXPECT_FALSE(isTerminable3rdParty(m_processes->list()));
    EXPECT_EQ(terminate(), 0);
    EXPECT_THAT(host.of({"kill", "log", "msg"}), IsEmpty());
}

TEST_F(ThirdPartyTest, AnExitedProcessIsSkipped) {
    host.add("holder", 10, 2).alive = false;
    snapshot();
    EXPECT_FALSE(isTerminable3rdParty(m_processes->list()));
    EXPECT_EQ(terminate(), 0);
}

TEST_F(ThirdPartyTest, QuietPrintsNothingAndLogsOneLineAndFiveSignalsForEach) {
    addStubborn("one", 10);
    addStubborn("two", 11);
    snapshot();
    EXPECT_EQ(terminate(true), 2);
    EXPECT_EQ(m_printed, "");
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
    EXPECT_EQ(host.of({"log"}).size(), 12U);
    EXPECT_EQ(host.count("log 2 Processes::terminate3rdParty: KILLING two ACTION=0 PID=11"), 1U);
}

TEST_F(ThirdPartyTest, OtherCategoriesAreNoThirdPartyProcesses) {
    for (const std::int32_t category : {0, 1, 3, 6, 7}) {
        CV_Process_s proc = {};
        proc.category = category;
        proc.pid = 10;
        EXPECT_FALSE(isTerminable3rdParty(&proc)) << category;
    }
}

TEST_F(ThirdPartyTest, IsTerminableMeansActive) {
    host.add("halvd", 10);
    host.add("gone", 11).alive = false;
    snapshot();
    EXPECT_TRUE(isTerminable(m_processes->list()));
    EXPECT_FALSE(isTerminable(m_processes->list()->next));
    EXPECT_FALSE(isTerminable(nullptr));
}

} // namespace
