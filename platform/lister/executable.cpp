#include "rules.h"

#include <cerrno>

#include <fcntl.h>

#include "cvcategories.h"
#include "errors.h"
#include "names.h"

namespace lister {

/// A mount of the caller's that the path leads over proves the path, for a running, a replaced and a removed file
/// alike, wherever the process has moved since; a mount that was lazily detached is listed nowhere. In another mount
/// namespace (hardened services have their own) it must be the host's very file of that path, or, when that is gone, a
/// process that looks at the host's very folder.
bool isHostsExecutable(const Caller& caller, const PinnedProcess& process, const FileStatus& status,
                       std::string_view path, bool isDeleted) {
    if (caller.seesMount(status.mountId, path)) {
        return true;
    }
    if (caller.sharesMountNamespace(process)) {
        return false;
    }
    if (!isDeleted) {
        const std::optional<FileStatus> hosts = lister::statusOf(AT_FDCWD, std::string(path).c_str());
        if (!hosts) {
            throwIfRefused(errno);
        }
        return sameFile(status, hosts);
    }
    return caller.sharesInstallRoot(process);
}

Verdict judgeExecutable(const Caller& caller, const PinnedProcess& process, std::string_view link) {
    const FileStatus status = required(process.executable());
    LinkedFile file = lookUpLinkText(std::string(link), status);
    if (!isBelow(file.path, caller.installRoot())) {
        return {0, Reason::NoRelation, ""};
    }
    if (caller.isOwnExecutable(status, file.path)) {
        return {0, Reason::CallersExecutable, file.path};
    }
    if (const std::optional<Reason> reason = caller.outOfScope(process)) {
        return {0, *reason, file.path};
    }
    if (!isHostsExecutable(caller, process, status, file.path, file.isDeleted)) {
        return {0, Reason::NotTheHostsFile, file.path};
    }
    if (!isFitPath(file.path)) {
        return {CAT_OTHER_THIRD_PARTY, Reason::UnfitPath, file.path};
    }
    return {CAT_CORVANE, Reason::ProductExecutable, file.path};
}

} // namespace lister
