#include "proc.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include "cvshutdown.h"

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

// What one process may cost: twice what the largest databases have (vm.max_map_count is 65,530 unless raised).
constexpr int kMappingBudget = 200'000;
constexpr int kDescriptorBudget = 200'000;
constexpr std::size_t kMapsBytesBudget = 64U << 20U;

/// How a search for a reason ended.
enum class Search { Found, NotFound, OverBudget, Gone };

/// Whether the file that a mapping or a link shows under `text` is one of this host's below the install root. In the
/// caller's mount namespace its name tells; in another one it must be the host's very file of that name.
bool isProductFile(const Caller& caller, bool sharesMounts, std::string_view text, const std::optional<FileId>& file) {
    const std::optional<std::string_view> stripped = withoutDeleted(text);
    const std::string path(stripped.value_or(text));
    if (!isBelow(path, caller.installRoot()) && path != caller.installRoot()) {
        return false;
    }
    if (sharesMounts) {
        return true;
    }
    const std::optional<FileStatus> status = statusOf(AT_FDCWD, path.c_str());
    return status && file && status->id == *file;
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

std::optional<Search> queryMappings(const Caller& caller, int maps, bool sharesMounts) {
    procmap_query query;
    char name[PATH_MAX];
    std::uint64_t address = 0;
    for (int count = 0; count < kMappingBudget; ++count) {
        const int error = nextMapping(maps, address, query, name);
        if (error == ENOENT) {
            return Search::NotFound;
        }
        if (error == ENOTTY || error == EINVAL) {
            return std::nullopt; // an older kernel
        }
        // A name that is too long for the buffer (ENAMETOOLONG) is longer than any path that can be looked up.
        if (error != 0 && error != ENAMETOOLONG) {
            return Search::Gone;
        }
        if (error == 0 &&
            isProductFile(caller, sharesMounts, name, FileId{query.dev_major, query.dev_minor, query.inode})) {
            return Search::Found;
        }
        if (error == ENAMETOOLONG) {
            return std::nullopt; // the text of maps goes on behind it
        }
        address = query.vma_end;
    }
    return Search::OverBudget;
}

bool isProductMapping(const Caller& caller, std::string_view line, bool sharesMounts) {
    const std::optional<MapsLine> mapping = parseMapsLine(line);
    return mapping && mapping->executable && mapping->path.starts_with("/") &&
           isProductFile(caller, sharesMounts, unescapeOctal(mapping->path),
                         FileId{mapping->deviceMajor, mapping->deviceMinor, mapping->inode});
}

Search readMappings(const Caller& caller, int maps, bool sharesMounts) {
    std::string pending;
    char buffer[16384];
    std::size_t total = 0;
    while (total < kMapsBytesBudget) {
        const ssize_t count = read(maps, buffer, sizeof buffer);
        if (count <= 0) {
            return count == 0 ? Search::NotFound : Search::Gone;
        }
        total += static_cast<std::size_t>(count);
        pending.append(buffer, static_cast<std::size_t>(count));
        std::size_t begin = 0;
        for (std::size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
            if (isProductMapping(caller, std::string_view(pending).substr(begin, end - begin), sharesMounts)) {
                return Search::Found;
            }
        }
        pending.erase(0, begin);
    }
    return Search::OverBudget;
}

/// Whether the process runs the product's code inside: it has an executable mapping of a file below the install root.
Search mapsProduct(const Roots& roots, const Caller& caller, const PinnedProcess& process, bool sharesMounts) {
    const UniqueFd maps = process.open("maps", O_RDONLY);
    if (!maps) {
        return Search::Gone;
    }
    if (roots.queryMappings) {
        if (const std::optional<Search> answer = queryMappings(caller, maps.get(), sharesMounts)) {
            return *answer;
        }
    }
    return readMappings(caller, maps.get(), sharesMounts);
}

bool linksIntoProduct(const Caller& caller, const PinnedProcess& process, const char* name, bool sharesMounts) {
    const std::optional<std::string> link = process.link(name);
    if (!link || !link->starts_with(caller.installRoot())) {
        return false;
    }
    const std::optional<FileStatus> status = sharesMounts ? std::nullopt : process.status(name);
    return isProductFile(caller, sharesMounts, *link, status ? std::optional(status->id) : std::nullopt);
}

Search descriptorsInProduct(const Caller& caller, const PinnedProcess& process, bool sharesMounts) {
    UniqueFd folder = process.open("fd", O_RDONLY | O_DIRECTORY);
    DIR* directory = folder ? fdopendir(folder.get()) : nullptr;
    if (directory == nullptr) {
        return Search::Gone;
    }
    static_cast<void>(folder.release()); // closedir closes it
    Search result = Search::NotFound;
    int count = 0;
    while (const dirent* entry = readdir(directory)) {
        if (++count > kDescriptorBudget) {
            result = Search::OverBudget;
            break;
        }
        const std::string name = std::string("fd/") + entry->d_name;
        if (entry->d_name[0] != '.' && linksIntoProduct(caller, process, name.c_str(), sharesMounts)) {
            result = Search::Found;
            break;
        }
    }
    closedir(directory);
    return result;
}

/// Such a reason may not be the process's own, a descriptor can be sent to it: so it is only ever listed.
Search holdsProduct(const Caller& caller, const PinnedProcess& process, bool sharesMounts) {
    if (linksIntoProduct(caller, process, "cwd", sharesMounts) ||
        linksIntoProduct(caller, process, "root", sharesMounts)) {
        return Search::Found;
    }
    return descriptorsInProduct(caller, process, sharesMounts);
}

/// What an exclude list can say of an executable: it names files by path, and finds them by device and inode.
struct Executable {
    std::string path;
    bool isExcludable = false;
};

Executable examineExecutable(const FileStatus& status, const std::string& link, bool sharesMounts) {
    LinkedFile file = readLinkText(link, status);
    const std::optional<FileStatus> found = statusOf(AT_FDCWD, file.path.c_str());
    const bool isVeryFile = found && !file.isDeleted && found->id == status.id;
    const bool isReplacement = found && file.isDeleted && sharesMounts;
    if (!isVeryFile && !isReplacement) {
        return {link, false};
    }
    const bool canBeWritten = file.path.size() < sizeof CV_Process_s::path && !hasControls(file.path);
    return {file.path, canBeWritten};
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

Verdict failedSearch(Search search, const std::string& path) {
    return {0, search == Search::OverBudget ? Reason::OverBudget : Reason::Vanished, path};
}

} // namespace

Verdict judgeThirdParty(const Roots& roots, const Caller& caller, const PinnedProcess& process) {
    const std::optional<std::string> link = process.link("exe");
    const std::optional<FileStatus> status = process.status("exe");
    if (!link || !status) {
        return {0, Reason::Vanished, ""};
    }
    if (caller.isOwnExecutable(*status)) {
        return {0, Reason::CallersExecutable, ""};
    }
    const bool sharesMounts = caller.hasMountNamespace(process);
    const Search mapped = mapsProduct(roots, caller, process, sharesMounts);
    if (mapped == Search::Found) {
        Executable executable = examineExecutable(*status, *link, sharesMounts);
        if (const std::optional<Reason> reason = demotion(caller, process, executable)) {
            return {CAT_OTHER_THIRD_PARTY, *reason, executable.path};
        }
        return {CAT_THIRD_PARTY, Reason::MapsProduct, executable.path};
    }
    if (mapped != Search::NotFound) {
        return failedSearch(mapped, *link);
    }
    const Search held = holdsProduct(caller, process, sharesMounts);
    if (held == Search::Found) {
        return {CAT_OTHER_THIRD_PARTY, Reason::HoldsProduct, examineExecutable(*status, *link, sharesMounts).path};
    }
    return held == Search::NotFound ? Verdict{} : failedSearch(held, *link);
}

} // namespace lister
