/// Processes whose judgement may be held up for ever, and the thread that judges them.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "judge.h"
#include "patience.h"
#include "worker.h"

namespace lister {

struct Deferred {
    /// "PID", or "PID/task/TID".
    std::string folder;
    pid_t pid = 0;
    /// The text of its link exe.
    std::string link;
    /// How often it was looked for before.
    int look = 0;
};

/// Judges on a thread that is left behind where a process does not answer.
class DeferredJudge {
  public:
    explicit DeferredJudge(Patience patience = Patience()) : m_patience(patience) {}
    /// What is being judged is given up after the process that it is at, or with it where it does not answer.
    ~DeferredJudge();
    DeferredJudge(const DeferredJudge&) = delete;
    DeferredJudge& operator=(const DeferredJudge&) = delete;

    /// Begins to judge these as soon as the ones before are judged. Throws ScanFailure.
    void start(const std::shared_ptr<const Judge>& judge,
               const std::shared_ptr<const std::vector<Deferred>>& processes);

    /// The verdicts on the oldest that were started and not finished, in the order of the processes, none where there
    /// are no such; Reason::Stuck for one that gave no answer for as long as the patience lasts, which begins anew with
    /// each process. Throws ScanFailure and std::bad_alloc.
    std::vector<Verdict> finish();

  private:
    struct Batch;
    void begin(const std::shared_ptr<Batch>& batch);
    void beginAgain();
    Worker::Wait awaitEnd(const Batch& batch);

    /// Those that are begun and not finished.
    std::deque<std::shared_ptr<Batch>> m_batches;
    std::optional<Worker> m_worker;
    Patience m_patience;
};

} // namespace lister
