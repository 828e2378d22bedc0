// A process that is never where it was: lives for some milliseconds, leaves a child in its place and ends.
//
//   hopper MILLISECONDS

#include <cstdlib>
#include <ctime>

#include <unistd.h>

int main(int argc, char** argv) {
    const long milliseconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 2;
    const timespec life = {milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    setsid();
    for (;;) {
        nanosleep(&life, nullptr);
        const pid_t child = fork();
        if (child < 0) {
            return 1;
        }
        if (child > 0) {
            _exit(0);
        }
    }
}
