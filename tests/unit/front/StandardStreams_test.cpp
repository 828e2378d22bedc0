#include <cstdio>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "Fixture.h"
#include "front.h"

using fakes::ChildResult;
using fakes::inChild;

namespace {

class StandardStreamsTest : public fakes::ProgramTest {};

/// Whether a descriptor is open on /dev/null.
bool isOnDevNull(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
}

TEST_F(StandardStreamsTest, ClosedStandardStreamsAreOpenedOnDevNull) {
    const ChildResult result = inChild([] {
        close(0);
        close(1);
        close(2);
        prepareStandardStreams();
        const bool areOpen = isOnDevNull(0) && isOnDevNull(1) && isOnDevNull(2);
        _exit(areOpen ? 0 : 1);
    });
    EXPECT_EQ(result.status, 0);
}

TEST_F(StandardStreamsTest, OneClosedStandardStreamIsOpenedAndTheOthersStay) {
    for (const int closed : {0, 1, 2}) {
        const ChildResult result = inChild([closed] {
            close(closed);
            prepareStandardStreams();
            int onDevNull = 0;
            for (const int fd : {0, 1, 2}) {
                onDevNull += isOnDevNull(fd) ? 1 : 0;
            }
            _exit(onDevNull == 1 && isOnDevNull(closed) ? 0 : 1);
        });
        EXPECT_EQ(result.status, 0) << "descriptor " << closed;
    }
}

TEST_F(StandardStreamsTest, StandardOutputIsLineBufferedOnAPipe) {
    const ChildResult result = inChild([] {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
            _exit(2);
        }
        prepareStandardStreams();
        const std::string line = "seen at once\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
        pollfd ready = {ends[0], POLLIN, 0};
        _exit(poll(&ready, 1, 0) == 1 ? 0 : 1);
    });
    EXPECT_EQ(result.status, 0);
}

} // namespace
