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
    if (!m_batch) {
        return;
    }
    m_batch->isOver = true;
    try {
        static_cast<void>(m_worker->finish(m_patience.withOne(), m_batch->done));
    } catch (...) {
        // The scan has failed already, and says why.
    }
}

void DeferredJudge::begin(const std::shared_ptr<Batch>& batch) {
    if (!m_worker) {
        m_worker.emplace();
    }
    m_worker->start([batch] { batch->workOff(); });
    m_batch = batch;
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
        begin(std::make_shared<Batch>(judge, processes, 0));
    }
}

std::vector<Verdict> DeferredJudge::finish() {
    std::vector<Verdict> verdicts;
    while (const std::shared_ptr<Batch> batch = std::exchange(m_batch, nullptr)) {
        const Worker::Wait wait = awaitEnd(*batch);
        batch->isOver = true;
        // Not `done`, which may have grown since: a thread that was left behind may wake.
        std::move(batch->verdicts.begin(), batch->verdicts.begin() + static_cast<std::ptrdiff_t>(wait.progress),
                  std::back_inserter(verdicts));
        if (!wait.isDone && wait.progress < batch->verdicts.size()) {
            verdicts.push_back({0, Reason::Stuck, (*batch->processes)[verdicts.size()].link});
        }
        if (verdicts.size() < batch->processes->size()) {
            begin(std::make_shared<Batch>(batch->judge, batch->processes, verdicts.size()));
        }
    }
    return verdicts;
}

} // namespace lister
