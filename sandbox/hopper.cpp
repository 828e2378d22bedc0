// A process that does not hold still: lives for some milliseconds, and then
//
//   hopper MILLISECONDS          leaves a child in its place and ends: it is never where it was
//   hopper MILLISECONDS exec     becomes a new program under the same pid
//   hopper MILLISECONDS brood    has a child that ends at once, and goes on

#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Returns in who goes on; false when there is no room for one more process.
bool hop() {
    const pid_t child = fork();
    if (child > 0) {
        _exit(0);
    }
    return child == 0;
}

bool brood() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    return child > 0 && waitpid(child, nullptr, 0) == child;
}

} // namespace

int main(int argc, char** argv) {
    const long milliseconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 2;
    const char* mode = argc > 2 ? argv[2] : "hop";
    const timespec life = {milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    for (bool goesOn = true; goesOn;) {
        nanosleep(&life, nullptr);
        if (std::strcmp(mode, "exec") == 0) {
            execv("/proc/self/exe", argv);
            return 1;
        }
        goesOn = std::strcmp(mode, "brood") == 0 ? brood() : hop();
    }
    return 1;
}
