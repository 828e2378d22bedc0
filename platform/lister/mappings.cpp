#include "mappings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <string>

#include <sys/ioctl.h>
#include <unistd.h>

#include "errors.h"
#include "procparse.h"
#include "verdict.h"

namespace lister {

namespace {

/// What is looked for. A process has hundreds of mappings, of which the beginning of the name rules out nearly all.
struct Wanted {
    std::string_view beginning;
    const std::function<bool(const FileMapping&)>& matches;
};

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

/// An older kernel does not know the query, and a filter of system calls may refuse it, which the kernel never does
/// once the file is open; a name beyond a page stops it, while the text goes on behind that line.
bool mustReadText(int error) {
    constexpr std::array kErrors = {ENOTTY, EINVAL, ENAMETOOLONG, EPERM, EACCES, ENOSYS};
    return std::find(kErrors.begin(), kErrors.end(), error) != kErrors.end();
}

/// Nothing where the text has to be read instead.
std::optional<bool> queryMappings(int maps, const Budget& budget, const Wanted& wanted) {
    procmap_query query;
    char name[PATH_MAX];
    std::uint64_t address = 0;
    for (int count = 0; count < budget.mappings; ++count) {
        const int error = nextMapping(maps, address, query, name);
        if (error == ENOENT) {
            return false;
        }
        if (mustReadText(error)) {
            return std::nullopt;
        }
        if (error != 0) {
            throwLost(error);
        }
        if (std::strncmp(name, wanted.beginning.data(), wanted.beginning.size()) == 0 &&
            wanted.matches({query.vma_start, query.vma_end, name, query.dev_major, query.dev_minor, query.inode})) {
            return true;
        }
        address = query.vma_end;
    }
    throw ProcessLost{Reason::OverBudget};
}

bool lineMatches(std::string_view line, const Wanted& wanted) {
    const std::optional<MapsLine> mapping = parseMapsLine(line);
    const std::string name = mapping && mapping->executable ? unescapeOctal(mapping->path) : "";
    return name.starts_with(wanted.beginning) &&
           wanted.matches(
               {mapping->begin, mapping->end, name, mapping->deviceMajor, mapping->deviceMinor, mapping->inode});
}

/// Takes the whole lines off `pending`; whether one of them matches.
bool takeLines(std::string& pending, const Wanted& wanted) {
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = pending.find('\n', begin)) != std::string::npos; begin = end + 1) {
        if (lineMatches(std::string_view(pending).substr(begin, end - begin), wanted)) {
            return true;
        }
    }
    pending.erase(0, begin);
    return false;
}

bool readMappings(int maps, const Budget& budget, const Wanted& wanted) {
    std::string pending;
    char buffer[16384];
    std::size_t total = 0;
    while (total < budget.mapsBytes) {
        const ssize_t count = read(maps, buffer, sizeof buffer);
        if (count < 0) {
            throwLost(errno);
        }
        if (count == 0) {
            return false;
        }
        total += static_cast<std::size_t>(count);
        pending.append(buffer, static_cast<std::size_t>(count));
        if (takeLines(pending, wanted)) {
            return true;
        }
    }
    throw ProcessLost{Reason::OverBudget};
}

} // namespace

bool anyExecutableMapping(int maps, const Roots& roots, std::string_view beginning,
                          const std::function<bool(const FileMapping&)>& matches) {
    const Wanted wanted = {beginning, matches};
    const std::optional<bool> answer = roots.queryMappings ? queryMappings(maps, roots.budget, wanted) : std::nullopt;
    return answer ? *answer : readMappings(maps, roots.budget, wanted);
}

} // namespace lister
