/// Processes whose judgement may be held up for ever, and the thread that judges them.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "judge.h"
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
    /// The verdicts in the order of the processes; Reason::Stuck for one that gave no answer for a second. Every such
    /// process halves the patience with the next, down to 20 ms: anybody can make many of them. Throws
    /// ScanFailure and std::bad_alloc.
    std::vector<Verdict> judge(const std::shared_ptr<const Judge>& judge,
                               const std::shared_ptr<const std::vector<Deferred>>& processes);

  private:
    struct Batch;
    bool run(const std::shared_ptr<Batch>& batch);

    std::optional<Worker> m_worker;
    std::chrono::milliseconds m_patience = std::chrono::seconds(1);
};

} // namespace lister
