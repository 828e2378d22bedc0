// A crowd of idle processes: crowd [/SCRIPT] COUNT [MAPPINGS DESCRIPTORS]. Each child has that many more mappings of a
// file, every second one executable, and that many more descriptors. Prints "ready" when all are there, ends when its
// input does. The script is not looked at: it is there for who reads the arguments of an interpreter.

#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace {

bool addMappings(int count) {
    const int self = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    for (int i = 0; i < count; ++i) {
        if (mmap(nullptr, 4096, i % 2 != 0 ? PROT_READ | PROT_EXEC : PROT_READ, MAP_PRIVATE, self, 0) == MAP_FAILED) {
            return false;
        }
    }
    close(self);
    return true;
}

bool addDescriptors(int count) {
    for (int i = 0; i < count; ++i) {
        if (open("/dev/null", O_RDONLY) < 0) {
            return false;
        }
    }
    return true;
}

[[noreturn]] void idle() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        pause();
    }
}

} // namespace

int main(int argc, char** argv) {
    const int script = argc > 1 && argv[1][0] == '/' ? 1 : 0;
    const auto number = [&](int index) { return script + index < argc ? std::atoi(argv[script + index]) : 0; };
    if (number(1) <= 0 || !addMappings(number(2)) || !addDescriptors(number(3))) {
        std::fprintf(stderr, "usage: crowd [/SCRIPT] COUNT [MAPPINGS DESCRIPTORS]\n");
        return 1;
    }
    for (int i = 0; i < number(1); ++i) {
        const pid_t child = fork();
        if (child == 0) {
            idle();
        }
        if (child < 0) {
            std::perror("crowd");
            return 1;
        }
    }
    std::puts("ready");
    std::fflush(stdout);
    return std::getchar() == EOF ? 0 : 1;
}
