#include "rules.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>

#include "cvbase.h"
#include "names.h"

namespace lister {

namespace {

// include/uapi/linux/fs.h of Linux 6.11; the headers of the oldest hosts that build this lack it.
struct procmap_query {
    std::uint64_t size;
    std::uint64_t query_flags;
    std::uint64_t query_addr;
    std::uint64_t vma_start;
    std::uint64_t vma_end;
    std::uint64_t vma_flags;
    std::uint64_t vma_page_size;
    std::uint64_t vma_offset;
    std::uint64_t inode;
    std::uint32_t dev_major;
    std::uint32_t dev_minor;
    std::uint32_t vma_name_size;
    std::uint32_t build_id_size;
    std::uint64_t vma_name_addr;
    std::uint64_t build_id_addr;
};
constexpr unsigned long kProcmapQuery = _IOWR('f', 17, procmap_query);
constexpr std::uint64_t kVmaExecutable = 0x04;
constexpr std::uint64_t kCoveringOrNextVma = 0x10;
constexpr std::uint64_t kFileBackedVma = 0x20;

/// "fd/2147483647" and its NUL.
constexpr std::size_t kDescriptorNameSize = 16;

/// How a search for a reason ended.
enum class Search { Found, NotFound, OverBudget, Gone, Unreadable };

Search searchFailure(int error) {
    throwIfShort(error);
    return lostReason(error) == Reason::Vanished ? Search::Gone : Search::Unreadable;
}

/// One process and what is asked of it; the costlier facts are read when a name has come close.
class Holder {
  public:
    Holder(const Caller& caller, const PinnedProcess& process, const Budget& budget)
        : m_caller(caller), m_process(process), m_budget(budget) {}

    [[nodiscard]] const Caller& caller() const { return m_caller; }
    [[nodiscard]] const PinnedProcess& process() const { return m_process; }
    [[nodiscard]] const Budget& budget() const { return m_budget; }
    bool sharesMounts() {
        if (!m_sharesMounts) {
            m_sharesMounts = m_caller.hasMountNamespace(m_process);
        }
        return *m_sharesMounts;
    }

  private:
    const Caller& m_caller;
    const PinnedProcess& m_process;
    const Budget& m_budget;
    std::optional<bool> m_sharesMounts;
};

/// Whether a name that the kernel gave leads below the install root, or is the root itself.
bool isProductName(const Caller& caller, std::string_view name) {
    const std::string_view path = withoutDeleted(name).value_or(name);
    return isBelow(path, caller.installRoot()) || path == caller.installRoot();
}

/// Whether the file of such a name is this host's: in the caller's mount namespace the name tells; in another one it
/// must be the host's very file of that name.
bool isHostsFile(Holder& holder, std::string_view name, const std::optional<FileId>& file) {
    if (holder.sharesMounts()) {
        return true;
    }
    const std::optional<FileStatus> status =
        statusOf(AT_FDCWD, std::string(withoutDeleted(name).value_or(name)).c_str());
    if (!status) {
        throwIfRefused(errno);
    }
    return status && file && status->id == *file;
}

bool isProductFile(Holder& holder, std::string_view name, const FileId& file) {
    return isProductName(holder.caller(), name) && isHostsFile(holder, name, file);
}

/// The next executable mapping of a file at or after `address`. Returns 0 or an errno value, ENOENT for no more.
int nextMapping(int maps, std::uint64_t address, procmap_query& query, char (&name)[PATH_MAX]) {
    query = {};
    query.size = sizeof query;
    query.query_flags = kCoveringOrNextVma | kFileBackedVma | kVmaExecutable;
    query.query_addr = address;
    query.vma_name_addr = reinterpret_cast<std::uintptr_t>(&name[0]);
    query.vma_name_size = sizeof name;
    name[0] = '\0';
    return ioctl(maps, kProcmapQuery, &query) == 0 ? 0 : errno;
}

std::optional<Search> queryMappings(Holder& holder, int maps) {
    procmap_query query;
    char name[PATH_MAX];
    std::uint64_t address = 0;
    for (int count = 0; count < holder.budget().mappings; ++count) {
        const int error = nextMapping(maps, address, query, name);
        if (error == ENOENT) {
            return Search::NotFound;
        }
        if (error == ENOTTY || error == EINVAL) {
            return std::nullopt; // an older kernel
        }
        if (error == ENAMETOOLONG) {
            return std::nullopt; // a name beyond a page stops the query; the text of maps goes on behind it
        }
        if (error != 0) {
            return searchFailure(error);
        }
        if (isProductFile(holder, name, FileId{query.dev_major, query.dev_minor, query.inode})) {
            return Search::Found;
        }
        address = query.vma_end;
    }
    return Search::OverBudget;
}

bool isProductMapping(Holder& holder, std::string_view line) {
    const std::optional<MapsLine> mapping = parseMapsLine(line);
    return mapping && mapping->executable && mapping->path.starts_with("/") &&
           isProductFile(holder, unescapeOctal(mapping->path),
                         FileId{mapping->deviceMajor, mapping->deviceMinor, mapping->inode});
}

Search readMappings(Holder& holder, int maps) {
    std::string pending;
    char buffer[16384];
    std::size_t total = 0;
    while (total < holder.budget().mapsBytes) {
        const ssize_t count = read(maps, buffer, sizeof buffer);
        if (count <= 0) {
            return count == 0 ? Search::NotFound : searchFailure(errno);
        }
        total += static_cast<std::size_t>(count);
        pending.append(buffer, static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
            if (isProductMapping(holder, std::string_view(pending).substr(begin, end - begin))) {
                return Search::Found;
            }
        }
        pending.erase(0, begin);
    }
    return Search::OverBudget;
}

/// Whether the process runs the product's code inside: it has an executable mapping of a file below the install root.
Search mapsProduct(const Roots& roots, Holder& holder) {
    const UniqueFd maps = holder.process().open("maps", O_RDONLY);
    if (!maps) {
        return searchFailure(errno);
    }
    if (roots.queryMappings) {
        if (const std::optional<Search> answer = queryMappings(holder, maps.get())) {
            return *answer;
        }
    }
    return readMappings(holder, maps.get());
}

bool linksIntoProduct(Holder& holder, const char* name) {
    LinkBuffer buffer;
    const std::optional<std::string_view> link = holder.process().link(name, buffer);
    if (!link) {
        throwIfRefused(errno);
        return false;
    }
    if (!isProductName(holder.caller(), *link)) {
        return false;
    }
    const std::optional<FileStatus> status = holder.process().status(name);
    return isHostsFile(holder, *link, status ? std::optional(status->id) : std::nullopt);
}

Search descriptorsInProduct(Holder& holder) {
    const UniqueFd folder = holder.process().open("fd", O_RDONLY | O_DIRECTORY);
    if (!folder) {
        return searchFailure(errno);
    }
    Search result = Search::NotFound;
    int count = 0;
    const int error = forEachName(folder.get(), [&](const char* name) {
        char path[kDescriptorNameSize] = "fd/";
        std::memcpy(path + 3, name, std::min(std::strlen(name) + 1, sizeof path - 4));
        if (++count > holder.budget().descriptors) {
            result = Search::OverBudget;
        } else if (name[0] != '.' && linksIntoProduct(holder, path)) {
            result = Search::Found;
        }
        return result == Search::NotFound;
    });
    return error == 0 ? result : searchFailure(error);
}

/// Such a reason may not be the process's own, a descriptor can be sent to it: so it is only ever listed.
Search holdsProduct(Holder& holder) {
    if (linksIntoProduct(holder, "cwd") || linksIntoProduct(holder, "root")) {
        return Search::Found;
    }
    return descriptorsInProduct(holder);
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
Executable examineExecutable(Holder& holder, const std::optional<FileStatus>& status, const std::string& link) {
    if (!status) {
        return {link, false};
    }
    LinkedFile file = readLinkText(link, *status);
    const std::optional<FileStatus> found = lookUpWithoutWaiting(file.path, holder.caller().mountType(status->mountId));
    const bool isVeryFile = found && !file.isDeleted && found->id == status->id;
    const bool isReplacement = found && file.isDeleted && holder.sharesMounts();
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
    if (outOfScope(caller, process)) {
        return Reason::DemotedScope;
    }
    // A service whose executable was upgraded under it is still that service.
    if (isHostServiceName(lastComponent(withoutDeleted(executable.path).value_or(executable.path)))) {
        return Reason::DemotedHostService;
    }
    if (!executable.isExcludable) {
        return Reason::DemotedUnexcludable;
    }
    return std::nullopt;
}

/// A process that ended while it was read is no record, nor is one of which nothing was found within the budget.
Verdict withoutReason(Search search, const std::string& path) {
    switch (search) {
    case Search::OverBudget:
        return {0, Reason::OverBudget, path};
    case Search::Unreadable:
        return {0, Reason::Unreadable, path};
    case Search::Gone:
        return {0, Reason::Vanished, path};
    case Search::Found:
    case Search::NotFound:
        break;
    }
    return {};
}

} // namespace

Verdict judgeThirdParty(const Roots& roots, const Caller& caller, const PinnedProcess& process) {
    Holder holder(caller, process, roots.budget);
    const Search mapped = mapsProduct(roots, holder);
    const Search held = mapped == Search::NotFound ? holdsProduct(holder) : mapped;
    if (held == Search::NotFound) {
        return {};
    }
    const std::string link = required(process.link("exe"));
    if (held != Search::Found) {
        return withoutReason(held, link);
    }
    // A server of the process's own may refuse its status to root (fuse(4), allow_other): it is only listed then.
    const std::optional<FileStatus> status = process.status("exe");
    if (status && caller.isOwnExecutable(*status, withoutDeleted(link).value_or(link))) {
        return {0, Reason::CallersExecutable, link};
    }
    Executable executable = examineExecutable(holder, status, link);
    if (mapped != Search::Found) {
        return {CAT_OTHER_THIRD_PARTY, Reason::HoldsProduct, executable.path};
    }
    if (const std::optional<Reason> reason = demotion(caller, process, executable)) {
        return {CAT_OTHER_THIRD_PARTY, *reason, executable.path};
    }
    return {CAT_THIRD_PARTY, Reason::MapsProduct, executable.path};
}

} // namespace lister
