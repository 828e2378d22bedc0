// Memory that runs out in the program: every allocation after the start of main fails once, in turn. The program ends
// by std::terminate, or with its own status while the snapshot is taken, and every signal up to then was right.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <new>
#include <string>

#include "Fixture.h"

int cvstop_main(int argc, char** argv);

namespace {

/// Allocations of the program left until one fails; -1 for never.
std::atomic<int> g_untilFailure = -1;

bool isDue() {
    const int left = g_untilFailure;
    if (left < 0 || fakes::Aside::isHere()) {
        return false;
    }
    g_untilFailure = left - 1;
    return left == 0;
}

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    void* memory = isDue() ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using fakes::ChildResult;
using fakes::Journal;
using ::testing::AnyOf;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kNoSnapshotStatus = 130;
constexpr int kFoundStatus = 1;

class OutOfMemory : public fakes::ProgramTest {
  protected:
    /// The shutdown of a small fleet, with that allocation failing.
    ChildResult shutDown(int untilFailure) {
        clear();
        host.add("momuhe", 10);
        host.add("strayd", 20).diesOf = {SIGQUIT};
        host.add("halvd", 30).stopsOn = "halvd -terminate";
        host.add("koka", 40).diesOf = {SIGKILL};
        host.add("mapper", 50, CAT_THIRD_PARTY);
        host.add("editor", 60, CAT_OTHER_THIRD_PARTY);
        // An uncaught exception ends the program as it would without the test framework.
        return fakes::inChild([untilFailure]() noexcept {
            std::string words[] = {"cvstop", "-k", "-3"};
            char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
            std::atexit([] { fakes::world().record(g_untilFailure >= 0 ? "note spared" : "note failed"); });
            g_untilFailure = untilFailure;
            std::exit(cvstop_main(3, arguments));
        });
    }

    static Journal deeds(const ChildResult& result) { return result.of({"kill", "system"}); }
};

TEST_F(OutOfMemory, AnywhereEndsTheProgramAndSendsNoWrongSignal) {
    const ChildResult whole = shutDown(1'000'000);
    ASSERT_EQ(whole.status, kFoundStatus);
    ASSERT_THAT(deeds(whole), Not(IsEmpty()));
    int aborted = 0;
    int withoutSnapshot = 0;
    for (int allocation = 0;; ++allocation) {
        SCOPED_TRACE("allocation " + std::to_string(allocation));
        const ChildResult result = shutDown(allocation);
        if (result.count("note spared") == 1) {
            break;
        }
        const Journal done = deeds(result);
        const Journal all = deeds(whole);
        ASSERT_LE(done.size(), all.size());
        EXPECT_TRUE(std::equal(done.begin(), done.end(), all.begin()));
        if (result.status == kNoSnapshotStatus) {
            EXPECT_THAT(done, IsEmpty());
            ++withoutSnapshot;
        } else if (result.signal == 0) {
            // A stream hides its own shortage, and loses what it was to print.
            ASSERT_EQ(result.status, kFoundStatus);
            EXPECT_EQ(done, all);
        } else {
            ASSERT_EQ(result.signal, SIGABRT);
            ++aborted;
        }
    }
    EXPECT_GT(aborted, 0);
    EXPECT_GT(withoutSnapshot, 0);
}

} // namespace
