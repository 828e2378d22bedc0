#include "scan.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cvlog.h"
#include "names.h"
#include "procparse.h"
#include "rules.h"

namespace lister {

namespace {

constexpr char kFunction[] = "find_processes_CV";
constexpr int kDetailVerbosity = 4;

/// "4194304/exe" and its like.
constexpr std::size_t kNameSize = 64;

/// CAP_SYS_PTRACE lets the caller read everybody's links; without it a process that is denied may be one of the
/// product.
bool hasPtraceCapability() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data = {};
    return syscall(SYS_capget, &header, data.data()) == 0 &&
           (data[CAP_TO_INDEX(CAP_SYS_PTRACE)].effective & CAP_TO_MASK(CAP_SYS_PTRACE)) != 0;
}

/// Bounds re-judging of a process that keeps calling exec.
constexpr int kJudgements = 8;

} // namespace

int Scan::run(RecordList& records) {
    m_records = &records;
    m_proc.reset(open(m_roots.proc, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_proc) {
        return errno;
    }
    char resolved[PATH_MAX];
    m_installRoot = realpath(m_roots.install, resolved) != nullptr ? resolved : m_roots.install;
    const int error = forEachName(m_proc.get(), [this](const char* name) {
        if (const std::optional<pid_t> pid = parsePid(name)) {
            visit(name, *pid);
        }
        return true;
    });
    if (error != 0) {
        return error;
    }
    // A confined caller must not see that nothing runs.
    const bool isWhole = m_metPid1 && (!m_wasDenied || hasPtraceCapability());
    return isWhole ? 0 : EACCES;
}

/// If the first thread exited, try the others; one that calls exec takes its place (execve(2)), so look there again.
void Scan::visit(const char* name, pid_t pid) {
    m_metPid1 = m_metPid1 || pid == 1;
    if (pid != m_self && !visitFolder(name, pid) && !visitOtherThreads(name, pid)) {
        visitFolder(name, pid);
    }
}

/// `folder` is "PID" or "PID/task/TID". False if the thread exited before it could be read. One system call for a
/// process that is no hit.
bool Scan::visitFolder(const char* folder, pid_t pid) {
    char path[kNameSize];
    *static_cast<char*>(mempcpy(mempcpy(path, folder, std::strlen(folder)), "/exe", 4)) = '\0';
    LinkBuffer link;
    const ssize_t length = readlinkat(m_proc.get(), path, link, sizeof link);
    if (length >= 0) {
        return visitLink(folder, pid, std::string_view(link, static_cast<std::size_t>(length)));
    }
    const int error = errno;
    visitUnreadable(pid, error);
    return lostReason(error) != Reason::Vanished;
}

bool Scan::visitLink(const char* folder, pid_t pid, std::string_view link) {
    if (!isBelow(link, m_installRoot) && !isInterpreterName(lastComponent(link)) && !wantsThirdParties()) {
        return true;
    }
    const Verdict verdict = judge(folder, pid, link);
    take(pid, verdict);
    return verdict.reason != Reason::Vanished;
}

/// Kernel threads and zombies have no executable; a process whose first thread has exited shows none either, but has
/// others. A folder's link count is 2 and one for each folder in it: PID/task has one a thread (fs/proc/base.c).
bool Scan::visitOtherThreads(const char* name, pid_t pid) {
    const std::string task = std::string(name) + "/task";
    const std::optional<FileStatus> status = statusOf(m_proc.get(), task.c_str());
    if (!status) {
        visitUnreadable(pid, errno);
    }
    return status && status->links > 3 && visitThreads(task.c_str(), pid);
}

/// False if every thread exited before it could be read.
bool Scan::visitThreads(const char* task, pid_t pid) {
    const PinnedProcess threads(m_proc.get(), pid, task);
    const UniqueFd folder = threads ? threads.open(".", O_RDONLY | O_DIRECTORY) : UniqueFd();
    bool hasTold = false;
    const int error =
        folder ? forEachName(folder.get(),
                             [&](const char* name) {
                                 hasTold = parsePid(name) && visitFolder((std::string(task) + '/' + name).c_str(), pid);
                                 return !hasTold;
                             })
               : errno;
    if (error != 0) {
        visitUnreadable(pid, error);
    }
    return hasTold;
}

/// A path of a page and more is one that the kernel cannot give, to nobody; anything else may hide a process of the
/// product from a caller that may not look.
void Scan::visitUnreadable(pid_t pid, int error) {
    if (lostReason(error) == Reason::Vanished) {
        return;
    }
    if (error == ENAMETOOLONG) {
        logmsgf(kLogWarning, kFunction, "Process %d passed over: the path of its executable is too long", pid);
        return;
    }
    if (error == ENOMEM) {
        throw ScanFailure{error};
    }
    m_wasDenied = true;
    logmsgf(kLogWarning, kFunction, "Process %d passed over: its executable cannot be read", pid);
}

Verdict Scan::judge(const char* folder, pid_t pid, std::string_view link) {
    const PinnedProcess process(m_proc.get(), pid, folder);
    if (!process) {
        return {0, lostReason(errno), std::string(link)};
    }
    return judgeSettled(process, link);
}

/// What was read of a process is one truth where it showed the same executable before and after. When it executes
/// another program meanwhile, half of what was read is of either. When it exits it gives up its memory before its
/// descriptors and folders (do_exit, kernel/exit.c), and reads as if it had none.
Verdict Scan::judgeSettled(const PinnedProcess& process, std::string_view link) {
    LinkBuffer buffers[2];
    for (int count = 0; count < kJudgements; ++count) {
        Verdict verdict = judgeOnce(process, link);
        const std::optional<std::string_view> after = process.link("exe", buffers[count % 2]);
        if (!after) {
            return {0, lostReason(errno), std::string(link)};
        }
        if (*after == link) {
            return verdict;
        }
        link = *after;
    }
    return {0, Reason::Unsettled, std::string(link)};
}

/// A rule that cannot be answered ends the judgement, and its reason is the verdict.
Verdict Scan::judgeOnce(const PinnedProcess& process, std::string_view link) {
    try {
        return judgePinned(process, link);
    } catch (const ProcessLost& lost) {
        return {0, lost.reason, std::string(link)};
    }
}

Verdict Scan::judgePinned(const PinnedProcess& process, std::string_view link) {
    if (isBelow(link, m_installRoot)) {
        Verdict verdict = judgeExecutable(caller(), process);
        if (verdict.category != 0 || verdict.reason != Reason::NoRelation) {
            return verdict;
        }
    } else if (isInterpreterName(lastComponent(link))) {
        Verdict verdict = judgeScript(caller(), process);
        if (verdict.category != 0) {
            return verdict;
        }
    }
    return wantsThirdParties() ? judgeThirdParty(m_roots, caller(), process) : Verdict{};
}

void Scan::take(pid_t pid, const Verdict& verdict) {
    log(pid, verdict);
    m_wasDenied = m_wasDenied || verdict.reason == Reason::Unreadable;
    if ((verdict.category & m_categories) == 0) {
        return;
    }
    if (verdict.category == CAT_CORVANE) {
        m_records->add(pid, verdict.category, lastComponent(verdict.path), verdict.path);
        return;
    }
    const std::string path = withoutControls(verdict.path);
    m_records->add(pid, verdict.category, lastComponent(path), path);
}

void Scan::log(pid_t pid, const Verdict& verdict) const {
    const bool isWarning = verdict.reason == Reason::UnfitPath || verdict.reason == Reason::OverBudget ||
                           verdict.reason == Reason::Unreadable || verdict.reason == Reason::Unsettled;
    if (isWarning || (m_verbosity > kDetailVerbosity && verdict.reason != Reason::NoRelation)) {
        logmsgf(isWarning ? kLogWarning : kLogProgress, kFunction, "Process %d category %d, %s: %s", pid,
                verdict.category, reasonText(verdict.reason), verdict.path.c_str());
    }
}

const Caller& Scan::caller() {
    if (!m_caller) {
        m_caller.emplace(m_roots);
    }
    return *m_caller;
}

} // namespace lister
