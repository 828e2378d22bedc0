/// One pass over the process table.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "UniqueFd.h"
#include "cvcategories.h"
#include "deferred.h"
#include "judge.h"
#include "records.h"
#include "roots.h"
#include "verdict.h"

namespace lister {

/// What the log calls a scan.
inline constexpr char kScanName[] = "find_processes_CV";

class Scan {
  public:
    Scan(const Roots& roots, Proc_categories categories, int verbosity)
        : m_roots(roots), m_categories(categories), m_verbosity(verbosity), m_self(getpid()) {}

    /// Returns 0 or an errno value.
    int run(RecordList& records);

  private:
    void visit(const char* name, pid_t pid, int look);
    bool visitFolder(const char* folder, pid_t pid, int look);
    bool visitLink(const char* folder, pid_t pid, std::string_view link, int look);
    bool visitOtherThreads(const char* name, pid_t pid, int look);
    bool visitThreads(const char* task, pid_t pid, int look);
    void visitUnreadable(pid_t pid, int error);
    bool mayRunScript(pid_t pid, std::string_view link);
    void defer(const char* folder, pid_t pid, std::string_view link, int look);
    void handOver();
    void takeJudged();
    void take(pid_t pid, const Verdict& verdict);
    void log(pid_t pid, const Verdict& verdict) const;
    [[nodiscard]] bool isWhole();
    const std::shared_ptr<const Judge>& theJudge();
    [[nodiscard]] bool wantsThirdParties() const {
        return (m_categories & (CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY)) != 0;
    }

    Roots m_roots;
    Proc_categories m_categories;
    int m_verbosity;
    pid_t m_self;
    UniqueFd m_proc;
    RecordList* m_records = nullptr;
    std::shared_ptr<const Judge> m_judge;
    /// Those that wait to be handed over, and those that are being judged.
    std::vector<Deferred> m_deferred;
    std::deque<std::shared_ptr<const std::vector<Deferred>>> m_inJudgement;
    DeferredJudge m_deferredJudge;
    bool m_metPid1 = false;
    bool m_wasDenied = false;
};

} // namespace lister
