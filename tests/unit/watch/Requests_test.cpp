#include "Requests.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

Request request(Time earliest, Time time) {
    return {"/a", {{time, Asked::Kind::signal, "SIGTERM", true}}, earliest};
}

std::vector<Assignment> assigned(const std::vector<Request>& requests, const std::vector<Candidate>& candidates,
                                 bool firstOnly) {
    std::vector<const Request*> pointers;
    for (const Request& one : requests) {
        pointers.push_back(&one);
    }
    return assignRequests(pointers, candidates, firstOnly);
}

std::vector<std::optional<std::size_t>> meant(const std::vector<Assignment>& assignments) {
    std::vector<std::optional<std::size_t>> places;
    for (const Assignment& one : assignments) {
        places.push_back(one.process);
    }
    return places;
}

bool allCertain(const std::vector<Assignment>& assignments) {
    return std::all_of(assignments.begin(), assignments.end(), [](const Assignment& one) { return one.certain; });
}

TEST(Requests, OfNoneAndForNone) {
    EXPECT_TRUE(assigned({}, {{0, {}}}, false).empty());
    const auto found = assigned({request(10, 11)}, {}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(std::nullopt));
}

TEST(Requests, AsManyAsCandidatesAreInTheirOrder) {
    const auto found = assigned({request(10, 11), request(11, 12)}, {{3, {}}, {5, {}}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3, 5));
    EXPECT_TRUE(allCertain(found));
}

TEST(Requests, WhoWasGoneBeforeWasNotAsked) {
    const auto found = assigned({request(10, 11), request(11, 12)}, {{3, {}}, {4, 9}, {5, {}}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3, 5));
    EXPECT_TRUE(allCertain(found));
}

TEST(Requests, WhoWentBetweenTheRequestAndItsRecordWasAsked) {
    const auto found = assigned({request(10, 11)}, {{3, 10}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3));
    EXPECT_TRUE(allCertain(found));
}

TEST(Requests, WhoStayedBeyondAllOfThemWasAsked) {
    // One of the two that went meanwhile could have been asked, but there are as many requests as stayed.
    const auto found = assigned({request(10, 11), request(13, 14)}, {{3, {}}, {4, 12}, {5, 20}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3, 5));
    EXPECT_TRUE(allCertain(found));
}

TEST(Requests, WhereTheLogCannotTellItIsSaid) {
    const auto found = assigned({request(10, 11), request(13, 14)}, {{3, 12}, {4, 12}, {5, {}}, {6, 9}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3, 4));
    EXPECT_FALSE(found[0].certain || found[1].certain);
}

TEST(Requests, MoreThanCandidatesMeanSomebodyElse) {
    const auto found = assigned({request(10, 11), request(13, 14)}, {{3, {}}}, false);
    EXPECT_THAT(meant(found), testing::ElementsAre(3, std::nullopt));
    EXPECT_FALSE(found[0].certain);
}

TEST(Requests, ARowOfTheFirstAsksNobodyElse) {
    const auto found = assigned({request(10, 11)}, {{3, {}}, {5, {}}}, true);
    EXPECT_THAT(meant(found), testing::ElementsAre(3));
    EXPECT_TRUE(allCertain(found));
}

} // namespace
} // namespace watch
