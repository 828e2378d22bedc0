// Memory that runs out while the process table is read: every allocation fails once, in turn. The scan reports it,
// leaves nothing behind, and never returns a shorter list.

#include "ListerTest.h"

#include <atomic>
#include <cerrno>
#include <new>

namespace {

/// Allocations left until one fails; -1 for never.
std::atomic<int> g_untilFailure = -1;
std::atomic<int> g_held = 0;

bool isDue() {
    const int left = g_untilFailure;
    if (left >= 0) {
        g_untilFailure = left - 1;
    }
    return left == 0;
}

} // namespace

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
    return isDue() ? nullptr : __real_calloc(count, size);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

[[gnu::noinline]] void* operator new(std::size_t size) {
    void* memory = isDue() ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++g_held;
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    g_held -= memory != nullptr ? 1 : 0;
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace lister {
namespace {

class OutOfMemory : public FewProcesses, public testing::WithParamInterface<Proc_categories> {};

TEST_P(OutOfMemory, IsAnErrorAndNeverAShorterList) {
    const auto daemon = run(install("halvd"));
    const fs::path script = writeScript("worker", "#!/bin/sh\nkill -STOP $$\n");
    const Child worker(script, {"worker"});
    awaitStop(worker.pid());
    show(daemon->pid());
    show(worker.pid());
    int failures = 0;
    for (bool isDone = false; !isDone; ++failures) {
        CV_Process_s* list = nullptr;
        const int held = g_held;
        g_untilFailure = failures;
        const int result = listProcesses(m_roots, &list, GetParam(), 0);
        isDone = g_untilFailure >= 0; // it was never due
        g_untilFailure = -1;
        EXPECT_EQ(g_held, held) << failures;
        EXPECT_EQ(result, isDone ? 0 : ENOMEM) << failures;
        EXPECT_EQ(list != nullptr, isDone) << failures;
        int count = 0;
        while (list != nullptr) {
            count += list->pid == daemon->pid() || list->pid == worker.pid() ? 1 : 0;
            std::free(std::exchange(list, list->next));
        }
        EXPECT_EQ(count, isDone ? 2 : 0) << failures;
    }
    EXPECT_GT(failures, 20);
}

INSTANTIATE_TEST_SUITE_P(Categories, OutOfMemory, testing::Values(CAT_CORVANE, kAll),
                         [](const auto& parameter) { return parameter.param == kAll ? "All" : "Product"; });

} // namespace
} // namespace lister
