#include "scan.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cvlog.h"
#include "errors.h"
#include "interpreters.h"
#include "names.h"
#include "procparse.h"

namespace lister {

namespace {

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

/// Bounds how often a process is looked for again that was there and then was not.
constexpr int kMostRevisits = 8;

/// A batch changes threads twice, some 20 us. But what the kernel keeps of a process should still be in the processor's
/// cache when it is judged, and the process still be there: in batches of 512 a judgement took 3 % longer.
constexpr std::size_t kBatch = 32;

/// So few while the other thread has nothing to do.
constexpr std::size_t kFirstBatch = 8;

/// Batches that wait while another one is judged. Without one the thread slept after each until it was handed the next.
constexpr std::size_t kMostWaiting = 1;

} // namespace

int Scan::run(RecordList& records) {
    m_records = &records;
    m_proc.reset(open(m_roots.proc, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_proc) {
        return errno;
    }
    const int error = forEachName(m_proc.get(), [this](const char* name) {
        if (const std::optional<pid_t> pid = parsePid(name)) {
            m_metPid1 = m_metPid1 || *pid == 1;
            visit(name, *pid, 0);
        }
        if (m_deferred.size() >= (m_inJudgement.empty() ? kFirstBatch : kBatch)) {
            handOver();
        }
        return true;
    });
    if (error != 0) {
        return error;
    }
    while (!m_deferred.empty() || !m_inJudgement.empty()) {
        handOver();
    }
    return isWhole() ? 0 : EACCES;
}

/// A confined caller must not see that nothing runs.
bool Scan::isWhole() {
    return m_metPid1 && (!m_wasDenied || (hasPtraceCapability() && theJudge()->caller().isInInitialUserNamespace()));
}

/// If the first thread exited, try the others; one that calls exec takes its place (execve(2)), so look there again.
void Scan::visit(const char* name, pid_t pid, int look) {
    if (pid != m_self && !visitFolder(name, pid, look) && !visitOtherThreads(name, pid, look)) {
        visitFolder(name, pid, look);
    }
}

/// `folder` is "PID" or "PID/task/TID". False if the thread exited before it could be read. One system call for a
/// process that is no hit.
bool Scan::visitFolder(const char* folder, pid_t pid, int look) {
    char path[kNameSize];
    *static_cast<char*>(mempcpy(mempcpy(path, folder, std::strlen(folder)), "/exe", 4)) = '\0';
    LinkBuffer buffer;
    if (const std::optional<std::string_view> link = readLink(m_proc.get(), path, buffer)) {
        return visitLink(folder, pid, *link, look);
    }
    const int error = errno;
    visitUnreadable(pid, error);
    return lostReason(error) != Reason::Vanished;
}

bool Scan::visitLink(const char* folder, pid_t pid, std::string_view link, int look) {
    if (!isBelow(link, m_roots.install)) {
        if (wantsThirdParties() || mayRunScript(pid, link)) {
            defer(folder, pid, link, look);
        }
        return true;
    }
    const std::optional<Verdict> verdict = theJudge()->judge(folder, pid, link, MayBlock::No);
    if (!verdict) {
        defer(folder, pid, link, look);
        return true;
    }
    take(pid, *verdict);
    return verdict->reason != Reason::Vanished;
}

/// A script that calls the program is not stopped by it: nobody has to wait for what the caller's own shells answer.
bool Scan::mayRunScript(pid_t pid, std::string_view link) {
    return isInterpreterName(lastComponent(pathOfLink(link))) && !theJudge()->caller().isAncestor(pid);
}

void Scan::defer(const char* folder, pid_t pid, std::string_view link, int look) {
    m_deferred.reserve(kBatch);
    m_deferred.push_back({folder, pid, std::string(link), look});
}

/// While the links of a batch are read, one is judged, and another one waits: the thread that judges never has to.
void Scan::handOver() {
    if (!m_deferred.empty()) {
        m_inJudgement.push_back(std::make_shared<const std::vector<Deferred>>(std::exchange(m_deferred, {})));
        m_deferredJudge.start(theJudge(), m_inJudgement.back());
        if (m_inJudgement.size() <= kMostWaiting) {
            return;
        }
    }
    takeJudged();
}

/// One that vanished may have lost its first thread alone, or have executed another program from another thread.
void Scan::takeJudged() {
    const auto processes = std::move(m_inJudgement.front());
    m_inJudgement.pop_front();
    const std::vector<Verdict> verdicts = m_deferredJudge.finish();
    for (std::size_t at = 0; at < verdicts.size(); ++at) {
        const Deferred& process = (*processes)[at];
        if (verdicts[at].reason != Reason::Vanished) {
            take(process.pid, verdicts[at]);
        } else if (process.look < kMostRevisits) {
            visit(std::to_string(process.pid).c_str(), process.pid, process.look + 1);
        }
    }
}

/// Kernel threads and zombies have no executable; a process whose first thread has exited shows none either, but has
/// others. A folder's link count is 2 and one for each folder in it: PID/task has one a thread (fs/proc/base.c).
bool Scan::visitOtherThreads(const char* name, pid_t pid, int look) {
    const std::string task = std::string(name) + "/task";
    const std::optional<FileStatus> status = statusOf(m_proc.get(), task.c_str());
    if (!status) {
        visitUnreadable(pid, errno);
    }
    return status && status->links > 3 && visitThreads(task.c_str(), pid, look);
}

/// False if every thread exited before it could be read.
bool Scan::visitThreads(const char* task, pid_t pid, int look) {
    const PinnedProcess threads(m_proc.get(), pid, task);
    const UniqueFd folder = threads ? threads.open(".", O_RDONLY | O_DIRECTORY) : UniqueFd();
    bool wasRead = false;
    const int error = folder
                          ? forEachName(folder.get(),
                                        [&](const char* name) {
                                            wasRead = parsePid(name) &&
                                                      visitFolder((std::string(task) + '/' + name).c_str(), pid, look);
                                            return !wasRead;
                                        })
                          : errno;
    if (error != 0) {
        visitUnreadable(pid, error);
    }
    return wasRead;
}

/// A path that is too long is one that the kernel cannot give, to any caller; anything else may hide a process of the
/// product from a caller that may not look.
void Scan::visitUnreadable(pid_t pid, int error) {
    if (lostReason(error) == Reason::Vanished) {
        return;
    }
    if (error == ENAMETOOLONG) {
        logmsgf(kLogWarning, kScanName, "Process %d passed over: the path of its executable is too long", pid);
        return;
    }
    // Neither is the fault of this process.
    if (error == ENOMEM || error == ENOSYS) {
        throw ScanFailure{error};
    }
    m_wasDenied = true;
    logmsgf(kLogWarning, kScanName, "Process %d passed over: its executable cannot be read", pid);
}

void Scan::take(pid_t pid, const Verdict& verdict) {
    log(pid, verdict);
    m_wasDenied = m_wasDenied || verdict.reason == Reason::Unreadable || verdict.reason == Reason::Stuck ||
                  verdict.reason == Reason::AsksServer;
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
    const ReasonRow& row = rowOf(verdict.reason);
    if (row.isWarning || (m_verbosity > kDetailVerbosity && verdict.reason != Reason::NoRelation)) {
        logmsgf(row.isWarning ? kLogWarning : kLogProgress, kScanName, "Process %d category %d, %s: %s", pid,
                verdict.category, row.text, verdict.path.c_str());
    }
}

const std::shared_ptr<const Judge>& Scan::theJudge() {
    if (!m_judge) {
        m_judge = std::make_shared<const Judge>(m_roots, wantsThirdParties());
    }
    return m_judge;
}

} // namespace lister
