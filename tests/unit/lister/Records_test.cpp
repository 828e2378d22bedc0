#include "records.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lister {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<pid_t> releasePids(RecordList& records) {
    std::vector<pid_t> pids;
    for (CV_Process_s* list = records.release(); list != nullptr; std::free(std::exchange(list, list->next))) {
        pids.push_back(list->pid);
    }
    return pids;
}

/// What is judged behind the others comes later than its pid.
TEST(Records, AscendInWhateverOrderTheyCome) {
    RecordList records;
    for (const pid_t pid : {50, 10, 30, 40, 20, 60, 55}) {
        records.add(pid, CAT_CORVANE, "name", "/path");
    }
    EXPECT_THAT(releasePids(records), ElementsAre(10, 20, 30, 40, 50, 55, 60));
    EXPECT_THAT(releasePids(records), IsEmpty());
    for (const pid_t pid : {2, 1}) {
        records.add(pid, CAT_CORVANE, "name", "/path");
    }
    EXPECT_THAT(releasePids(records), ElementsAre(1, 2));
}

TEST(Records, LongerTextsAreCut) {
    RecordList records;
    records.add(1, CAT_CORVANE, std::string(5000, 'n'), std::string(5000, 'p'));
    CV_Process_s* record = records.release();
    EXPECT_EQ(record->name, std::string(sizeof record->name - 1, 'n'));
    EXPECT_EQ(record->path, std::string(sizeof record->path - 1, 'p'));
    std::free(record);
}

} // namespace
} // namespace lister
