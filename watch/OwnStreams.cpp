#include "OwnStreams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace watch {

namespace {

/// Terminals, pipes and the null device are no files of any tree.
bool isFile(int fd) {
    struct stat status {};
    return ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace

void OwnStreams::letGo() {
    static_cast<void>(!::chdir("/"));
    const UniqueFd null(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!null) {
        return;
    }
    ::dup3(null.get(), STDIN_FILENO, O_CLOEXEC);
    ::dup3(null.get(), STDOUT_FILENO, O_CLOEXEC);
    if (isFile(STDERR_FILENO) && m_shelf.put(STDERR_FILENO)) {
        ::dup3(null.get(), STDERR_FILENO, O_CLOEXEC);
        m_isAway = true;
    }
}

void OwnStreams::takeBack() {
    if (!m_isAway) {
        return;
    }
    if (const UniqueFd file = m_shelf.take()) {
        ::dup3(file.get(), STDERR_FILENO, O_CLOEXEC);
    }
    m_isAway = false;
}

} // namespace watch
