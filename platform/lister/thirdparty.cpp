#include "rules.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <functional>

#include <fcntl.h>

#include "cvbase.h"
#include "errors.h"
#include "lookup.h"
#include "mappings.h"
#include "names.h"
#include "procparse.h"

namespace lister {

namespace {

/// "fd/2147483647" and its NUL.
constexpr std::size_t kDescriptorNameSize = 16;

/// "map_files/", two addresses, a dash and a NUL.
constexpr std::size_t kMappingNameSize = 10 + 16 + 1 + 16 + 1;

/// A process that may be a third party. Whether it shares the caller's mounts is read once, after a name matched.
class Candidate {
  public:
    Candidate(const Caller& caller, const PinnedProcess& process) : m_caller(caller), m_process(process) {}

    [[nodiscard]] const Caller& caller() const { return m_caller; }
    [[nodiscard]] const PinnedProcess& process() const { return m_process; }
    bool sharesMounts() {
        if (!m_sharesMounts) {
            m_sharesMounts = m_caller.sharesMountNamespace(m_process);
        }
        return *m_sharesMounts;
    }

  private:
    const Caller& m_caller;
    const PinnedProcess& m_process;
    std::optional<bool> m_sharesMounts;
};

/// Whether a name that the kernel gave leads below the install root, or is the root itself.
bool isProductName(const Caller& caller, std::string_view name) {
    const std::string_view path = pathOfLink(name);
    return isBelow(path, caller.installRoot()) || path == caller.installRoot();
}

/// Whether the file that the kernel gave this name is the host's own. In the caller's mount namespace the name proves
/// it; in another one the host must have that very file at that path.
bool namesHostsFile(Candidate& candidate, std::string_view name,
                    const std::function<std::optional<FileId>()>& askFile) {
    if (candidate.sharesMounts()) {
        return true;
    }
    const std::optional<FileStatus> status = statusOf(AT_FDCWD, std::string(pathOfLink(name)).c_str());
    if (!status) {
        throwIfRefused(errno);
        return false;
    }
    return askFile() == status->id;
}

/// The file itself is asked: `maps` tells another device than a status does on an overlay of two file systems and on
/// btrfs. It is not given to a caller without CAP_SYS_ADMIN, nor in a thread's folder (proc_pid_map_files(5),
/// Linux 4.3).
FileId mappedFile(const PinnedProcess& process, const FileMapping& mapping) {
    char name[kMappingNameSize];
    std::snprintf(name, sizeof name, "map_files/%" PRIx64 "-%" PRIx64, mapping.begin, mapping.end);
    const std::optional<FileStatus> status = process.status(name);
    return status ? status->id : FileId{mapping.deviceMajor, mapping.deviceMinor, mapping.inode};
}

/// Whether the process runs the product's code inside: it has an executable mapping of a file below the install root.
bool mapsProduct(const Roots& roots, Candidate& candidate) {
    const UniqueFd maps = candidate.process().open("maps", O_RDONLY);
    if (!maps) {
        throwLost(errno);
    }
    return anyExecutableMapping(
        maps.get(), roots, candidate.caller().installRoot(), [&candidate](const FileMapping& mapping) {
            return isProductName(candidate.caller(), mapping.name) &&
                   namesHostsFile(candidate, mapping.name, [&] { return mappedFile(candidate.process(), mapping); });
        });
}

bool linksIntoProduct(Candidate& candidate, const char* name) {
    LinkBuffer buffer;
    const std::optional<std::string_view> link = candidate.process().link(name, buffer);
    if (!link) {
        throwIfRefused(errno);
        return false;
    }
    if (!isProductName(candidate.caller(), *link)) {
        return false;
    }
    return namesHostsFile(candidate, *link, [&]() -> std::optional<FileId> {
        const std::optional<FileStatus> status = candidate.process().status(name);
        return status ? std::optional(status->id) : std::nullopt;
    });
}

bool descriptorsInProduct(Candidate& candidate, const Budget& budget) {
    const UniqueFd folder = candidate.process().open("fd", O_RDONLY | O_DIRECTORY);
    if (!folder) {
        throwLost(errno);
    }
    bool found = false;
    int count = 0;
    const int error = forEachName(folder.get(), [&](const char* name) {
        if (++count > budget.descriptors) {
            throw ProcessLost{Reason::OverBudget};
        }
        char path[kDescriptorNameSize] = "fd/";
        std::memcpy(path + 3, name, std::min(std::strlen(name) + 1, sizeof path - 4));
        found = name[0] != '.' && linksIntoProduct(candidate, path);
        return !found;
    });
    if (error != 0) {
        throwLost(error);
    }
    return found;
}

/// Anyone can send a descriptor, so holding one never justifies a signal.
bool holdsProduct(Candidate& candidate, const Budget& budget) {
    return linksIntoProduct(candidate, "cwd") || linksIntoProduct(candidate, "root") ||
           descriptorsInProduct(candidate, budget);
}

/// What an exclude list can say of an executable: it names files by path, and finds them by device and inode.
struct Executable {
    std::string path;
    bool isExcludable = false;
};

/// A line of an exclude list, and a record, hold no longer path and no control character.
bool canBeWritten(std::string_view path) {
    return path.size() < sizeof CV_Process_s::path && !hasControls(path);
}

/// The executable as the caller finds it by its path: the very file, or what replaced it.
Executable examineExecutable(Candidate& candidate, const std::optional<FileStatus>& status, const std::string& link) {
    if (!status) {
        return {link, false};
    }
    const Caller& caller = candidate.caller();
    const LinkedFile file =
        readLinkText(link, *status, withoutDeleted(link) ? lookUpWithoutWaiting(caller, link) : std::nullopt);
    const std::optional<FileStatus> found = lookUpWithoutWaiting(caller, file.path);
    const bool isVeryFile = found && !file.isDeleted && found->id == status->id;
    const bool isReplacement = found && file.isDeleted && candidate.sharesMounts();
    if (!isVeryFile && !isReplacement) {
        return {link, false};
    }
    return {file.path, canBeWritten(file.path)};
}

/// Why a process that runs the product's code must still only be listed, if so.
std::optional<Reason> demotion(const Caller& caller, const PinnedProcess& process, const Executable& executable) {
    if (process.pid() == 1) {
        return Reason::DemotedPid1;
    }
    if (caller.isAncestor(process.pid())) {
        return Reason::DemotedAncestor;
    }
    if (caller.outOfScope(process)) {
        return Reason::DemotedScope;
    }
    // A service whose executable was upgraded under it is still that service.
    if (isHostServiceName(lastComponent(pathOfLink(executable.path)))) {
        return Reason::DemotedHostService;
    }
    if (!executable.isExcludable) {
        return Reason::DemotedUnexcludable;
    }
    return std::nullopt;
}

} // namespace

Verdict judgeThirdParty(const Roots& roots, const Caller& caller, const PinnedProcess& process) {
    Candidate candidate(caller, process);
    const bool isMapped = mapsProduct(roots, candidate);
    if (!isMapped && !holdsProduct(candidate, roots.budget)) {
        return {};
    }
    const std::string link = required(process.link("exe"));
    // A server of the process's own may refuse its status to root (fuse(4), allow_other): it is only listed then.
    const std::optional<FileStatus> status = process.status("exe");
    if (status && caller.isOwnExecutable(*status, pathOfLink(link))) {
        return {0, Reason::CallersExecutable, link};
    }
    Executable executable = examineExecutable(candidate, status, link);
    if (!isMapped) {
        return {CAT_OTHER_THIRD_PARTY, Reason::HoldsProduct, executable.path};
    }
    if (const std::optional<Reason> reason = demotion(caller, process, executable)) {
        return {CAT_OTHER_THIRD_PARTY, *reason, executable.path};
    }
    return {CAT_THIRD_PARTY, Reason::MapsProduct, executable.path};
}

} // namespace lister
