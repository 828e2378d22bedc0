// Many processes that do nothing:
//
//   mute COUNT             says "ready" when there are COUNT of them
//   mute COUNT erased      and none of them shows its arguments any more, as any user's process can see to

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>
#include <unistd.h>

namespace {

/// POWER and ARM have pages of up to this size.
constexpr std::size_t kLargestPage = 65536;

/// Takes away the page where the arguments begin: the kernel then has nothing to show.
bool erase(char* firstArgument) {
    const auto size = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const std::uintptr_t page = reinterpret_cast<std::uintptr_t>(firstArgument) / size * size;
    return munmap(reinterpret_cast<void*>(page), size) == 0; // NOLINT(performance-no-int-to-ptr)
}

/// The frames of the callers may lie in the page that is taken away: nothing returns to them.
[[noreturn]] [[gnu::noinline]] void stay(char* erased, int ready) {
    volatile char distance[4 * kLargestPage];
    distance[0] = erased == nullptr || erase(erased) ? 'r' : 'f';
    const char answer = distance[0];
    if (write(ready, &answer, 1) != 1) {
        _exit(1);
    }
    close(ready);
    for (;;) {
        pause();
    }
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "mute: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

} // namespace

int main(int argc, char** argv) {
    const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1;
    const bool erases = argc > 2 && std::strcmp(argv[2], "erased") == 0;
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) {
        fail("pipe");
    }
    for (long n = 0; n < count; ++n) {
        const pid_t child = fork();
        if (child < 0) {
            fail("fork");
        }
        if (child == 0) {
            stay(erases ? argv[0] : nullptr, pipe[1]);
        }
    }
    for (long n = 0; n < count; ++n) {
        char answer = 0;
        if (read(pipe[0], &answer, 1) != 1 || answer != 'r') {
            fail("a child");
        }
    }
    std::puts("ready");
    std::fflush(stdout);
    pause();
}
