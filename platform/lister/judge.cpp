#include "judge.h"

#include <cerrno>
#include <string>

#include <fcntl.h>

#include "errors.h"
#include "interpreters.h"
#include "names.h"
#include "procparse.h"
#include "rules.h"

namespace lister {

namespace {

/// Bounds re-judging of a process that keeps calling exec.
constexpr int kJudgements = 8;

UniqueFd openFolder(const char* path) {
    UniqueFd folder(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        throw ScanFailure{errno};
    }
    return folder;
}

/// What may run a script.
Verdict judgeInterpreter(const Caller& caller, const PinnedProcess& process, std::string_view link) {
    if (!isInterpreterName(lastComponent(pathOfLink(link)))) {
        return {};
    }
    try {
        return judgeScript(caller, process, link);
    } catch (const ProcessLost& lost) {
        if (lost.reason != Reason::AsksServer) {
            throw;
        }
        return {0, lost.reason, std::string(link)};
    }
}

} // namespace

Judge::Judge(const Roots& roots, bool wantsThirdParties)
    : m_roots(roots), m_wantsThirdParties(wantsThirdParties), m_proc(openFolder(roots.proc)), m_caller(roots) {}

std::optional<Verdict> Judge::judge(const char* folder, pid_t pid, std::string_view link, MayBlock mayBlock) const {
    const PinnedProcess process(m_proc.get(), pid, folder);
    if (!process) {
        return Verdict{0, lostReason(errno), std::string(link)};
    }
    return judgeSettled(process, link, mayBlock);
}

/// What was read of a process is one truth where it showed the same executable before and after. When it executes
/// another program meanwhile, half of what was read is of either. When it exits it gives up its memory before its
/// descriptors and folders (do_exit, kernel/exit.c), and reads as if it had none.
std::optional<Verdict> Judge::judgeSettled(const PinnedProcess& process, std::string_view link,
                                           MayBlock mayBlock) const {
    LinkBuffer buffers[2];
    for (int count = 0; count < kJudgements; ++count) {
        std::optional<Verdict> verdict = judgeOnce(process, link, mayBlock);
        const std::optional<std::string_view> after = process.link("exe", buffers[count % 2]);
        if (!after) {
            return Verdict{0, lostReason(errno), std::string(link)};
        }
        if (!verdict || *after == link) {
            return verdict;
        }
        link = *after;
    }
    return Verdict{0, Reason::Unsettled, std::string(link)};
}

/// A rule that cannot be answered ends the judgement, and its reason is the verdict.
std::optional<Verdict> Judge::judgeOnce(const PinnedProcess& process, std::string_view link, MayBlock mayBlock) const {
    try {
        return judgePinned(process, link, mayBlock);
    } catch (const ProcessLost& lost) {
        return Verdict{0, lost.reason, std::string(link)};
    }
}

std::optional<Verdict> Judge::judgePinned(const PinnedProcess& process, std::string_view link,
                                          MayBlock mayBlock) const {
    if (isBelow(link, m_caller.installRoot())) {
        Verdict verdict = judgeExecutable(m_caller, process, link);
        if (verdict.category != 0 || verdict.reason != Reason::NoRelation || !m_wantsThirdParties) {
            return verdict;
        }
    }
    return mayBlock == MayBlock::Yes ? std::optional(judgeStranger(process, link)) : std::nullopt;
}

/// Whoever made sure that its script cannot be looked up may still be a third party.
Verdict Judge::judgeStranger(const PinnedProcess& process, std::string_view link) const {
    Verdict script = judgeInterpreter(m_caller, process, link);
    if (script.category != 0 || !m_wantsThirdParties) {
        return script;
    }
    Verdict thirdParty = judgeThirdParty(m_roots, m_caller, process);
    return thirdParty.reason == Reason::NoRelation ? script : thirdParty;
}

} // namespace lister
