#include "deferred.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

namespace lister {

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

DeferredJudge::~DeferredJudge() {
    for (const auto& batch : m_batches) {
        batch->isOver = true;
    }
    bool isDone = m_worker.has_value();
    for (auto batch = m_batches.begin(); batch != m_batches.end() && isDone; ++batch) {
        try {
            isDone = m_worker->finish(m_patience.withOne(), (*batch)->done).isDone;
        } catch (...) {
            // The scan has failed already, and says why.
        }
    }
}

void DeferredJudge::begin(const std::shared_ptr<Batch>& batch) {
    if (!m_worker) {
        m_worker.emplace();
    }
    m_worker->start([batch] { batch->workOff(); });
}

/// On another thread: the one before was left behind.
void DeferredJudge::beginAgain() {
    for (const auto& batch : m_batches) {
        begin(batch);
    }
}

/// If it is not done, the next process did not answer in time.
Worker::Wait DeferredJudge::awaitEnd(const Batch& batch) {
    const Worker::Wait wait = m_worker->finish(m_patience.withOne(), batch.done);
    m_patience.spend(wait.idle);
    if (!wait.isDone) {
        m_worker.reset();
        m_patience.halve();
    }
    return wait;
}

void DeferredJudge::start(const std::shared_ptr<const Judge>& judge,
                          const std::shared_ptr<const std::vector<Deferred>>& processes) {
    if (!processes->empty()) {
        const auto batch = std::make_shared<Batch>(judge, processes, 0);
        begin(batch);
        m_batches.push_back(batch);
    }
}

std::vector<Verdict> DeferredJudge::finish() {
    std::vector<Verdict> verdicts;
    for (bool isWhole = m_batches.empty(); !isWhole;) {
        const std::shared_ptr<Batch> batch = std::move(m_batches.front());
        m_batches.pop_front();
        const Worker::Wait wait = awaitEnd(*batch);
        batch->isOver = true;
        // Not `done`, which may have grown since: a thread that was left behind may wake.
        std::move(batch->verdicts.begin(), batch->verdicts.begin() + static_cast<std::ptrdiff_t>(wait.progress),
                  std::back_inserter(verdicts));
        if (!wait.isDone && wait.progress < batch->verdicts.size()) {
            verdicts.push_back({0, Reason::Stuck, (*batch->processes)[verdicts.size()].link});
        }
        isWhole = verdicts.size() == batch->processes->size();
        if (!isWhole) {
            m_batches.push_front(std::make_shared<Batch>(batch->judge, batch->processes, verdicts.size()));
        }
        if (!wait.isDone) {
            beginAgain();
        }
    }
    return verdicts;
}

} // namespace lister
