/// One pass over the process table.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "UniqueFd.h"
#include "caller.h"
#include "cvcategories.h"
#include "process.h"
#include "records.h"
#include "roots.h"
#include "verdict.h"

namespace lister {

/// One pass over the process table.
class Scan {
  public:
    Scan(const Roots& roots, Proc_categories categories, int verbosity)
        : m_roots(roots), m_categories(categories), m_verbosity(verbosity), m_self(getpid()) {}

    /// Returns 0 or an errno value.
    int run(RecordList& records);

  private:
    void visit(const char* name, pid_t pid);
    bool visitFolder(const char* folder, pid_t pid);
    bool visitLink(const char* folder, pid_t pid, std::string_view link);
    bool visitOtherThreads(const char* name, pid_t pid);
    bool visitThreads(const char* task, pid_t pid);
    void visitUnreadable(pid_t pid, int error);
    void take(pid_t pid, const Verdict& verdict);
    void log(pid_t pid, const Verdict& verdict) const;
    Verdict judge(const char* folder, pid_t pid, std::string_view link);
    Verdict judgeSettled(const PinnedProcess& process, std::string_view link);
    Verdict judgeOnce(const PinnedProcess& process, std::string_view link);
    Verdict judgePinned(const PinnedProcess& process, std::string_view link);
    const Caller& caller();
    [[nodiscard]] bool wantsThirdParties() const {
        return (m_categories & (CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY)) != 0;
    }

    Roots m_roots;
    Proc_categories m_categories;
    int m_verbosity;
    pid_t m_self;
    UniqueFd m_proc;
    RecordList* m_records = nullptr;
    std::string m_installRoot;
    std::optional<Caller> m_caller;
    bool m_metPid1 = false;
    bool m_wasDenied = false;
};

} // namespace lister
