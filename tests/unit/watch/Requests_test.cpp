#include "Requests.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace watch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr Time at(double seconds) {
    return static_cast<Time>(seconds * static_cast<double>(kSecond));
}

/// One of which the record before it, and its own, are of these seconds.
Request request(double earliest, double time) {
    return {"/a", {{at(time), Asked::Kind::signal, "SIGTERM", true}}, at(earliest)};
}

Candidate there(std::size_t process) {
    return {process, {}, {}};
}
Candidate gone(std::size_t process, double when) {
    return {process, at(when), at(when)};
}

constexpr double kOver = 100;

Meant assigned(const std::vector<Request>& requests, const std::vector<Candidate>& candidates, bool firstOnly = false,
               std::optional<Time> over = at(kOver)) {
    std::vector<const Request*> pointers;
    for (const Request& one : requests) {
        pointers.push_back(&one);
    }
    return assignRequests(pointers, candidates, firstOnly, over);
}

std::vector<std::optional<std::size_t>> places(const Meant& meant) {
    std::vector<std::optional<std::size_t>> found;
    for (const Assignment& one : meant.requests) {
        found.push_back(one.process);
    }
    return found;
}

std::vector<bool> certain(const Meant& meant) {
    std::vector<bool> found;
    for (const Assignment& one : meant.requests) {
        found.push_back(one.certain);
    }
    return found;
}

TEST(Requests, OfNoneAndForNone) {
    EXPECT_THAT(places(assigned({}, {there(0)})), IsEmpty());
    EXPECT_THAT(assigned({}, {there(0)}).unsure, IsEmpty());
    const Meant found = assigned({request(10, 11)}, {});
    EXPECT_THAT(places(found), ElementsAre(std::nullopt));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, AsManyAsCandidatesAreInTheirOrder) {
    const Meant found = assigned({request(10, 11), request(11, 12)}, {there(3), gone(5, 20)});
    EXPECT_THAT(places(found), ElementsAre(3, 5));
    EXPECT_THAT(certain(found), ElementsAre(true, true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, WhoWasGoneBeforeWasNotAsked) {
    const Meant found = assigned({request(10, 11), request(11, 12)}, {there(3), gone(4, 9), there(5)});
    EXPECT_THAT(places(found), ElementsAre(3, 5));
    EXPECT_THAT(certain(found), ElementsAre(true, true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, WhoWentBetweenTheRequestAndItsRecordWasAsked) {
    const Meant found = assigned({request(10, 11)}, {gone(3, 10)});
    EXPECT_THAT(places(found), ElementsAre(3));
    EXPECT_THAT(certain(found), ElementsAre(true));
}

TEST(Requests, WhoStayedBeyondAllOfThemWasAsked) {
    const Meant found = assigned({request(10, 11), request(13, 14)}, {there(3), gone(4, 12), gone(5, 20)});
    EXPECT_THAT(places(found), ElementsAre(3, 5));
    EXPECT_THAT(certain(found), ElementsAre(true, true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, WhoWasStillThereWhenTheNextOneWasAskedHadBeenAsked) {
    // The first of them was there at 11, so that the request of 11 was for it; the second could not be asked at 13.
    const Meant found = assigned({request(10, 11), request(13, 14)}, {gone(3, 12), gone(4, 12), there(5)});
    EXPECT_THAT(places(found), ElementsAre(3, 5));
    EXPECT_THAT(certain(found), ElementsAre(true, true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, WhereTheLogCannotTellItIsSaidOfEach) {
    const Meant found =
        assigned({request(10, 11), request(13, 14)}, {gone(2, 9), gone(3, 10.5), gone(4, 10.6), there(5)});
    EXPECT_THAT(places(found), ElementsAre(3, 5));
    EXPECT_THAT(certain(found), ElementsAre(false, true));
    EXPECT_THAT(found.unsure, ElementsAre(3, 4));
}

TEST(Requests, WhoWasAskedByOneOfTwoIsUnsure) {
    const Meant found = assigned({request(10, 11), request(10, 11)}, {gone(3, 10.5), gone(4, 10.5), gone(5, 10.5)});
    EXPECT_THAT(places(found), ElementsAre(3, 4));
    EXPECT_THAT(certain(found), ElementsAre(false, false));
    EXPECT_THAT(found.unsure, ElementsAre(3, 4, 5));
}

TEST(Requests, AZombieIsThereFromItsEndUntilItsParentTakesNote) {
    // It may have been gone since 10.5, and may have been there until 20.
    const Meant found = assigned({request(10, 11)}, {{3, at(10.5), at(20)}, gone(4, 50)});
    EXPECT_THAT(found.unsure, ElementsAre(3, 4));
    // Nobody takes note of this one: it was asked.
    const Meant kept = assigned({request(10, 11)}, {{3, at(10.5), {}}, gone(4, 50)});
    EXPECT_THAT(places(kept), ElementsAre(3));
    EXPECT_THAT(kept.unsure, IsEmpty());
    // Its end was not seen, only that it was gone.
    EXPECT_THAT(assigned({request(10, 11)}, {{3, {}, at(10.5)}, gone(4, 50)}).unsure, ElementsAre(3, 4));
}

TEST(Requests, WhoWasThereWhenAllHadBeenComeToWasAsked) {
    const Meant found = assigned({request(10, 11)}, {gone(3, 10.5), gone(4, 20)}, false, at(12));
    EXPECT_THAT(places(found), ElementsAre(4));
    EXPECT_THAT(certain(found), ElementsAre(true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, WhoHasNotBeenComeToYetHasNotBeenAsked) {
    const Meant found = assigned({request(10, 11)}, {there(3), there(4)}, false, std::nullopt);
    EXPECT_THAT(places(found), ElementsAre(3));
    EXPECT_THAT(certain(found), ElementsAre(true));
    EXPECT_THAT(found.unsure, IsEmpty());
}

TEST(Requests, MoreThanCandidatesMeanSomebodyElse) {
    const Meant found = assigned({request(10, 11), request(13, 14)}, {there(3)});
    EXPECT_THAT(places(found), ElementsAre(3, std::nullopt));
    EXPECT_THAT(certain(found), ElementsAre(false, false));
    EXPECT_THAT(found.unsure, ElementsAre(3));
}

TEST(Requests, WhatCannotHaveBeenIsAGuess) {
    // Two stayed, and only one request is in the log: a record is missing.
    const Meant found = assigned({request(10, 11)}, {there(3), there(4)});
    EXPECT_THAT(places(found), ElementsAre(3));
    EXPECT_THAT(certain(found), ElementsAre(false));
    EXPECT_THAT(found.unsure, ElementsAre(3, 4));
}

TEST(Requests, SoManyThatTheirWaysAreNotTriedAreAGuess) {
    const std::vector<Request> requests(1'000, request(10, 11));
    std::vector<Candidate> candidates(2'100, gone(7, 10.5));
    const Meant found = assigned(requests, candidates);
    EXPECT_EQ(found.requests.size(), 1'000U);
    EXPECT_FALSE(found.requests[0].certain);
    EXPECT_EQ(found.unsure.size(), 2'100U);
    // As many as there are requests are no trouble.
    candidates.resize(1'000);
    EXPECT_TRUE(assigned(requests, candidates).requests[999].certain);
}

TEST(Requests, ARowOfTheFirstAsksNobodyElse) {
    const Meant found = assigned({request(10, 11)}, {there(3), there(5)}, true);
    EXPECT_THAT(places(found), ElementsAre(3));
    EXPECT_THAT(certain(found), ElementsAre(true));
    EXPECT_THAT(found.unsure, IsEmpty());
    EXPECT_THAT(places(assigned({request(10, 11)}, {there(3)}, true)), ElementsAre(3));
}

} // namespace
} // namespace watch
