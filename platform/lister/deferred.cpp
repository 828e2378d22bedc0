#include "deferred.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

namespace lister {

namespace {

constexpr std::chrono::milliseconds kLeastPatience{20};

} // namespace

/// Owned by the thread that works it off, too: it may be left behind with it.
struct DeferredJudge::Batch {
    Batch(std::shared_ptr<const Judge> batchJudge, std::shared_ptr<const std::vector<Deferred>> all, std::size_t begin)
        : judge(std::move(batchJudge)), processes(std::move(all)), first(begin), verdicts(processes->size() - first) {}

    void workOff() {
        for (std::size_t at = 0; at < verdicts.size() && !isOver; done = ++at) {
            const Deferred& process = (*processes)[first + at];
            verdicts[at] = *judge->judge(process.folder.c_str(), process.pid, process.link, MayBlock::Yes);
        }
    }

    std::shared_ptr<const Judge> judge;
    std::shared_ptr<const std::vector<Deferred>> processes;
    std::size_t first;
    /// On the processes from the first on; `done` of them are there.
    std::vector<Verdict> verdicts;
    std::atomic<std::size_t> done = 0;
    std::atomic<bool> isOver = false;
};

/// False if the next process did not answer in time.
bool DeferredJudge::run(const std::shared_ptr<Batch>& batch) {
    if (!m_worker) {
        m_worker.emplace();
    }
    if (m_worker->run([batch] { batch->workOff(); }, m_patience)) {
        return true;
    }
    m_worker.reset();
    m_patience = std::max(m_patience / 2, kLeastPatience);
    return false;
}

std::vector<Verdict> DeferredJudge::judge(const std::shared_ptr<const Judge>& judge,
                                          const std::shared_ptr<const std::vector<Deferred>>& processes) {
    std::vector<Verdict> verdicts;
    verdicts.reserve(processes->size());
    while (verdicts.size() < processes->size()) {
        const auto batch = std::make_shared<Batch>(judge, processes, verdicts.size());
        const bool isWhole = run(batch);
        // Read `done` first: the thread may wake and go on.
        const std::size_t done = batch->done;
        batch->isOver = true;
        std::move(batch->verdicts.begin(), batch->verdicts.begin() + static_cast<std::ptrdiff_t>(done),
                  std::back_inserter(verdicts));
        if (!isWhole && done < batch->verdicts.size()) {
            verdicts.push_back({0, Reason::Stuck, (*processes)[verdicts.size()].link});
        }
    }
    return verdicts;
}

} // namespace lister
