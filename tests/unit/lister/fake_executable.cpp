// Preloaded into a program, makes it show another executable: unmaps the program's own file, which is what the kernel
// asks for, and then names the file of FAKE_EXECUTABLE with PR_SET_MM_MAP (prctl(2)). An ordinary user may do so in a
// user namespace of their own. Prints "faked", or why not, to descriptor 1, and waits.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <linux/prctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cinttypes>

namespace {

/// The text of a file of /proc/self.
struct Text {
    std::array<char, 65536> bytes;
    explicit Text(const char* path) : bytes() {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        std::size_t size = 0;
        for (ssize_t count = 0; (count = read(file, bytes.data() + size, bytes.size() - 1 - size)) > 0;) {
            size += static_cast<std::size_t>(count);
        }
        close(file);
    }
};

void unmapOwnFile() {
    char own[4096];
    own[readlink("/proc/self/exe", own, sizeof own - 1)] = '\0';
    Text maps("/proc/self/maps");
    for (const char* line = maps.bytes.data(); line != nullptr && *line != '\0';) {
        const char* end = std::strchr(line, '\n');
        const char* path = std::strstr(line, own);
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        if (path != nullptr && path < end && std::sscanf(line, "%" SCNxPTR "-%" SCNxPTR, &from, &to) == 2) {
            munmap(reinterpret_cast<void*>(from), to - from);
        }
        line = end != nullptr ? end + 1 : nullptr;
    }
}

/// The layout as it is (proc_pid_stat(5), fields 26 to 28 and 45 to 51), with another executable.
prctl_mm_map layoutWith(int executable) {
    const Text stat("/proc/self/stat");
    std::array<std::uint64_t, 53> field = {};
    const char* at = std::strrchr(stat.bytes.data(), ')') + 3; // field 3, a letter
    for (std::size_t number = 4; number < field.size(); ++number) {
        at = std::strchr(at, ' ') + 1;
        field[number] = std::strtoull(at, nullptr, 10);
    }
    prctl_mm_map map = {};
    map.start_code = field[26];
    map.end_code = field[27];
    map.start_stack = field[28];
    map.start_data = field[45];
    map.end_data = field[46];
    map.start_brk = field[47];
    map.brk = reinterpret_cast<std::uintptr_t>(sbrk(0));
    map.arg_start = field[48];
    map.arg_end = field[49];
    map.env_start = field[50];
    map.env_end = field[51];
    map.exe_fd = static_cast<std::uint32_t>(executable);
    return map;
}

[[gnu::constructor]] void fakeExecutable() {
    const int executable = open(std::getenv("FAKE_EXECUTABLE"), O_RDONLY);
    prctl_mm_map map = layoutWith(executable);
    unmapOwnFile();
    const bool isFaked = prctl(PR_SET_MM, PR_SET_MM_MAP, &map, sizeof map, 0) == 0;
    dprintf(STDOUT_FILENO, "%s\n", isFaked ? "faked" : std::strerror(errno));
    close(executable);
    for (;;) {
        pause();
    }
}

} // namespace
