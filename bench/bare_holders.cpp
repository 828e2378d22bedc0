// The least that a listing of third parties can cost: every link of every process, and the name of every executable
// mapping of a file.

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <sys/ioctl.h>

#include "bare.h"

namespace {

// include/uapi/linux/fs.h of Linux 6.11.
struct procmap_query {
    std::uint64_t size, query_flags, query_addr, vma_start, vma_end, vma_flags, vma_page_size, vma_offset, inode;
    std::uint32_t dev_major, dev_minor, vma_name_size, build_id_size;
    std::uint64_t vma_name_addr, build_id_addr;
};
constexpr unsigned long kProcmapQuery = _IOWR('f', 17, procmap_query);
constexpr const char* kLinks[] = {"exe", "cwd", "root"};
constexpr std::uint64_t kNextExecutableFile = 0x04 | 0x10 | 0x20;

/// Before Linux 6.11: the text of maps, its lines unread.
int readMaps(int maps) {
    char buffer[32768];
    int hits = 0;
    for (ssize_t count = 0; (count = read(maps, buffer, sizeof buffer)) > 0;) {
        hits +=
            memmem(buffer, static_cast<std::size_t>(count), kProductRoot, sizeof kProductRoot - 1) != nullptr ? 1 : 0;
    }
    return hits;
}

int countMappings(int maps) {
    char name[4096];
    int hits = 0;
    procmap_query query = {};
    for (std::uint64_t address = 0;; address = query.vma_end) {
        query = {};
        query.size = sizeof query;
        query.query_flags = kNextExecutableFile;
        query.query_addr = address;
        query.vma_name_addr = reinterpret_cast<std::uintptr_t>(&name[0]);
        query.vma_name_size = sizeof name;
        if (ioctl(maps, kProcmapQuery, &query) != 0) {
            return errno == ENOTTY ? readMaps(maps) : hits;
        }
        hits += isProduct(name) ? 1 : 0;
    }
}

int countDescriptors(int process) {
    int hits = 0;
    const int folder = openFolder(process, "fd");
    forEachEntry(folder, [&](const char* name) {
        char link[4096];
        hits += readLink(folder, name, link) > 0 && isProduct(link) ? 1 : 0;
    });
    close(folder);
    return hits;
}

int countHolds(int process) {
    char link[4096];
    int hits = 0;
    for (const char* name : kLinks) {
        hits += readLink(process, name, link) > 0 && isProduct(link) ? 1 : 0;
    }
    const int maps = openat(process, "maps", O_RDONLY | O_CLOEXEC);
    hits += countMappings(maps);
    close(maps);
    return hits + countDescriptors(process);
}

} // namespace

int main() {
    const int proc = openFolder(AT_FDCWD, "/proc");
    int count = 0;
    forEachEntry(proc, [&](const char* name) {
        const int process = openat(proc, name, O_PATH | O_DIRECTORY | O_CLOEXEC);
        count += countHolds(process) > 0 ? 1 : 0;
        close(process);
    });
    std::printf("%d\n", count);
    return 0;
}
