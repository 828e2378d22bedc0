#include "front.h"

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

namespace {

bool isClosed(int descriptor) {
    return fcntl(descriptor, F_GETFD) == -1 && errno == EBADF;
}

} // namespace

void prepareStandardStreams() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        // open returns the lowest free number (open(2)), which is this one. Without a /dev/null, a descriptor that can
        // be neither read nor written still keeps the place.
        if (isClosed(descriptor) && open("/dev/null", O_RDWR) == -1) {
            // cppcheck-suppress leakReturnValNotUsed ; it stands in for the stream as long as the program runs
            static_cast<void>(open("/", O_PATH));
        }
    }
    // Progress is seen as it happens, also through a pipe or in a file.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
}
