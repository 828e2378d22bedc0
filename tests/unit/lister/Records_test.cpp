#include "records.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lister {
namespace {

using testing::ElementsAre;

/// The pids of a list, which is freed.
std::vector<pid_t> pidsOf(CV_Process_s* list) {
    std::vector<pid_t> pids;
    while (list != nullptr) {
        pids.push_back(list->pid);
        std::free(std::exchange(list, list->next));
    }
    return pids;
}

TEST(Records, AreInAscendingOrderHoweverTheyCome) {
    RecordList records;
    for (const pid_t pid : {20, 30, 10, 25, 40, 5}) {
        records.add(pid, 1, "halvd", "/halvd");
    }
    EXPECT_THAT(pidsOf(records.release()), ElementsAre(5, 10, 20, 25, 30, 40));
}

TEST(Records, AreHandedOverOnce) {
    RecordList records;
    records.add(1, 1, "halvd", "/halvd");
    EXPECT_THAT(pidsOf(records.release()), ElementsAre(1));
    EXPECT_EQ(records.release(), nullptr);
    records.add(2, 1, "halvd", "/halvd");
    EXPECT_THAT(pidsOf(records.release()), ElementsAre(2));
}

TEST(Records, HoldWhatTheyWereGivenAndNoMarks) {
    RecordList records;
    records.add(7, 4, "halvd", "/usr/quarn/halvd");
    CV_Process_s* record = records.release();
    EXPECT_EQ(record->pid, 7);
    EXPECT_EQ(record->category, 4);
    EXPECT_STREQ(record->name, "halvd");
    EXPECT_STREQ(record->path, "/usr/quarn/halvd");
    EXPECT_EQ(record->signalled, 0);
    EXPECT_EQ(record->excluded, 0);
    EXPECT_EQ(record->next, nullptr);
    std::free(record);
}

TEST(Records, CutTextsThatDoNotFit) {
    RecordList records;
    records.add(7, 1, std::string(5000, 'n'), std::string(5000, 'p'));
    CV_Process_s* record = records.release();
    EXPECT_EQ(std::string(record->name), std::string(sizeof record->name - 1, 'n'));
    EXPECT_EQ(std::string(record->path), std::string(sizeof record->path - 1, 'p'));
    std::free(record);
}

} // namespace
} // namespace lister
