#include "Inherited.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace watch {

namespace {

void setAction(int number, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigaction(number, &action, nullptr);
}

/// The open descriptors above 2; none where there is no /proc, and with it no process that would be seen to hold them.
std::vector<int> openDescriptors() {
    std::vector<int> found;
    std::error_code error;
    std::filesystem::directory_iterator entry("/proc/self/fd", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const int descriptor = std::atoi(entry->path().filename().c_str());
        if (descriptor > STDERR_FILENO) {
            found.push_back(descriptor);
        }
    }
    // The folder's own has been closed with it.
    entry = {};
    std::erase_if(found, [](int descriptor) { return ::fcntl(descriptor, F_GETFD) == -1; });
    return found;
}

} // namespace

Inherited::Inherited() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
            // The lowest free number is this one (open(2)). Closed again on exec: the program's streams are its own
            // business. cppcheck-suppress leakReturnValNotUsed ; it stands in for the stream as long as the watcher
            // runs
            static_cast<void>(::open("/dev/null", O_RDWR | O_CLOEXEC));
        }
    }
    m_others = openDescriptors();
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
    setAction(SIGPIPE, SIG_IGN);
    setAction(SIGCHLD, SIG_DFL);
    sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGCHLD);
    ::sigaddset(&blocked, SIGTTOU);
    ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

sigset_t Inherited::interrupts() {
    sigset_t set;
    ::sigemptyset(&set);
    for (std::size_t place = 0; place < kInterrupts; ++place) {
        ::sigaddset(&set, kSignals[place]);
    }
    return set;
}

void Inherited::holdInterrupts() const {
    const sigset_t set = interrupts();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
}

std::optional<int> Inherited::heldInterrupt() const {
    sigset_t held;
    if (::sigpending(&held) != 0) {
        return std::nullopt;
    }
    for (std::size_t place = 0; place < kInterrupts; ++place) {
        // While it is blocked, one that is ignored waits as well.
        const bool isIgnored = m_actions[place].sa_handler == SIG_IGN;
        const bool wasBlocked = ::sigismember(&m_mask, kSignals[place]) == 1;
        if (::sigismember(&held, kSignals[place]) == 1 && !isIgnored && !wasBlocked) {
            return kSignals[place];
        }
    }
    return std::nullopt;
}

void Inherited::ignoreInterrupts() const {
    for (std::size_t place = 0; place < kInterrupts; ++place) {
        setAction(kSignals[place], SIG_IGN);
    }
    const sigset_t set = interrupts();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
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

void Inherited::closeOthers() const {
    for (const int descriptor : m_others) {
        ::close(descriptor);
    }
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
