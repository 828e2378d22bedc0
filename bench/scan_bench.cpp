// Does the scan grow in a straight line with the process table, and its memory with the records alone? Over made-up
// tables of 1,000 to 100,000 processes, of which every hundredth or none runs an executable of the product.
//
//   scan_bench                       all sizes; BigO at the end
//   scan_bench --benchmark_filter=1000/

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include <malloc.h>

#include <benchmark/benchmark.h>

#include "lister.h"

namespace {

namespace fs = std::filesystem;

/// A process table of files: PID/exe is a link, as in /proc, and a process of the product lends the caller's own
/// namespaces. Removed with its last user.
class Table {
  public:
    Table(int processes, int everyNth) {
        std::string name = (fs::temp_directory_path() / "cvstop-bench-XXXXXX").string();
        m_folder = mkdtemp(name.data());
        fs::create_directories(m_folder / "quarn");
        std::ofstream(product()) << "a daemon";
        fs::create_directory(proc());
        fs::create_symlink("/proc/self", fs::path(proc()) / "self");
        for (int pid = 1; pid <= processes; ++pid) {
            addProcess(fs::path(proc()) / std::to_string(pid), everyNth != 0 && pid % everyNth == 0);
        }
    }
    ~Table() { fs::remove_all(m_folder); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    [[nodiscard]] std::string proc() const { return m_folder / "proc"; }
    [[nodiscard]] std::string installRoot() const { return m_folder / "quarn"; }

  private:
    [[nodiscard]] fs::path product() const { return m_folder / "quarn/halvd"; }
    void addProcess(const fs::path& folder, bool isProduct) {
        fs::create_directory(folder);
        fs::create_symlink(isProduct ? product() : "/usr/bin/stranger", folder / "exe");
        if (isProduct) {
            fs::create_symlink("/proc/self/ns", folder / "ns");
        }
    }

    fs::path m_folder;
};

int countAndFree(CV_Process_s* list) {
    int count = 0;
    while (list != nullptr) {
        std::free(std::exchange(list, list->next));
        ++count;
    }
    return count;
}

void scan(benchmark::State& state, int everyNth) {
    const Table table(static_cast<int>(state.range(0)), everyNth);
    const std::string proc = table.proc();
    lister::Roots roots;
    roots.proc = proc.c_str();
    roots.install = table.installRoot();
    int records = 0;
    const std::size_t before = mallinfo2().uordblks;
    std::size_t held = 0;
    for (auto step : state) {
        CV_Process_s* list = nullptr;
        if (lister::listProcesses(roots, &list, CAT_CORVANE, 0) != 0) {
            state.SkipWithError("the table cannot be listed");
            break;
        }
        held = mallinfo2().uordblks - before;
        records = countAndFree(list);
    }
    state.SetComplexityN(state.range(0));
    state.counters["held_bytes"] = static_cast<double>(held);
    state.counters["records"] = records;
    state.counters["ns_a_process"] =
        benchmark::Counter(static_cast<double>(state.range(0)) * 1e-9,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Strangers(benchmark::State& state) {
    scan(state, 0);
}
void EveryHundredthIsTheProducts(benchmark::State& state) {
    scan(state, 100);
}

BENCHMARK(Strangers)
    ->RangeMultiplier(10)
    ->Range(1000, 100'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK(EveryHundredthIsTheProducts)
    ->RangeMultiplier(10)
    ->Range(1000, 100'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

} // namespace

BENCHMARK_MAIN();
