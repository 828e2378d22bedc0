#include "Inherited.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace watch {

Inherited::Inherited() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // The lowest free number is this one (open(2)). Closed again on exec: the program's streams are its own
            // business. cppcheck-suppress leakReturnValNotUsed ; it stands in for the stream as long as the watcher
            // runs
            static_cast<void>(::open("/dev/null", O_RDWR | O_CLOEXEC));
        }
    }
    for (std::size_t place = 0; place < kSignals.size(); ++place) {
        ::sigaction(kSignals[place], nullptr, &m_actions[place]);
    }
    ::sigprocmask(SIG_BLOCK, nullptr, &m_mask);
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        m_descriptors = descriptors;
    }
}

void Inherited::prepareWatcher() const {
    struct sigaction action = {};
    for (const int number : kSignals) {
        action.sa_handler = number == SIGCHLD ? SIG_DFL : SIG_IGN;
        ::sigaction(number, &action, nullptr);
    }
    sigset_t child;
    ::sigemptyset(&child);
    ::sigaddset(&child, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &child, nullptr);
}

std::size_t Inherited::raiseDescriptorLimit(std::size_t wanted) const {
    if (!m_descriptors) {
        return 0;
    }
    rlimit limit = *m_descriptors;
    if (limit.rlim_cur < wanted) {
        limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            return m_descriptors->rlim_cur;
        }
    }
    return std::min<rlim_t>(limit.rlim_cur, wanted);
}

void Inherited::restore() const {
    for (std::size_t place = 0; place < kSignals.size(); ++place) {
        ::sigaction(kSignals[place], &m_actions[place], nullptr);
    }
    if (m_descriptors) {
        ::setrlimit(RLIMIT_NOFILE, &*m_descriptors);
    }
    ::sigprocmask(SIG_SETMASK, &m_mask, nullptr);
}

} // namespace watch
