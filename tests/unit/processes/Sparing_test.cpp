#include "Sparing.h"

#include <cstdio>

#include "Fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class SparingTest : public fakes::ProgramTest {
  protected:
    static CV_Process_s recordOf(std::int32_t category, std::int32_t excluded = 0) {
        CV_Process_s record = {};
        std::snprintf(record.name, sizeof record.name, "halvd");
        record.category = category;
        record.excluded = excluded;
        return record;
    }
    static Sparing of(const CV_Process_s& record, Touch touch) { return sparingOf(&record, touch); }
};

TEST_F(SparingTest, ADaemonMayBeTouchedInEveryWay) {
    for (const Touch touch : {Touch::Signal, Touch::RunCommand}) {
        EXPECT_EQ(of(recordOf(CAT_CORVANE), touch), Sparing::None);
    }
}

TEST_F(SparingTest, AnExcludedProcessIsLeftAloneWhateverItIs) {
    for (const Touch touch : {Touch::Signal, Touch::RunCommand}) {
        for (const std::int32_t category : {CAT_CORVANE, CAT_THIRD_PARTY, CAT_OTHER_THIRD_PARTY}) {
            EXPECT_EQ(of(recordOf(category, 1), touch), Sparing::Excluded) << category;
        }
    }
}

TEST_F(SparingTest, AListedOnlyProcessIsLeftAlone) {
    for (const Touch touch : {Touch::Signal, Touch::RunCommand}) {
        EXPECT_EQ(of(recordOf(CAT_OTHER_THIRD_PARTY), touch), Sparing::OnlyListed);
    }
}

TEST_F(SparingTest, AThirdPartyMayBeSignalledButNoCommandIsRunForIt) {
    EXPECT_EQ(of(recordOf(CAT_THIRD_PARTY), Touch::Signal), Sparing::None);
    EXPECT_EQ(of(recordOf(CAT_THIRD_PARTY), Touch::RunCommand), Sparing::NoCommand);
}

TEST_F(SparingTest, EachReasonHasItsDebugLine) {
    const CV_Process_s record = recordOf(CAT_CORVANE);
    for (const Sparing sparing : {Sparing::Excluded, Sparing::OnlyListed, Sparing::NoCommand}) {
        logSparing(sparing, {"Unit", "fn"}, &record);
    }
    EXPECT_THAT(
        host.journal,
        ElementsAre("debug 1 fn: Ignoring process because it is on exclude list, Name = halvd(Unit:#)",
                    "debug 1 fn: Ignoring process because it is only listed, Name = halvd(Unit:#)",
                    "debug 1 fn: Ignoring process because no command is run for a third party, Name = halvd(Unit:#)"));
    host.journal.clear();
    CVLogger::s_default = nullptr;
    logSparing(Sparing::Excluded, {"Unit", "fn"}, &record);
    EXPECT_THAT(host.journal, IsEmpty());
}

} // namespace
