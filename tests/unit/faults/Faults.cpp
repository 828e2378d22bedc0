#include "Faults.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "Kernel.h"

namespace {

// No std::string: calls are also counted while memory is short. Both threads of a scan count.
char g_call[32];
int g_error = 0;
std::atomic<int> g_left = 0;
std::function<void()> g_act;
std::atomic<int> g_leftToAct = 0;
bool g_isRefused = false;
char g_hidden[64];

/// Set while the thread that waits looks whether the other one is at work (Worker::Thread::isRunnable). It does so only
/// on a busy machine, so these calls are neither counted nor made to fail.
thread_local bool t_isWatching = false;

bool isDue(const char* call) {
    if (t_isWatching) {
        return false;
    }
    if (g_leftToAct != 0 && --g_leftToAct == 0) {
        g_act();
    }
    if (g_left == 0 || std::strcmp(call, g_call) != 0 || (--g_left != 0 && !g_isRefused)) {
        return false;
    }
    g_left = g_isRefused ? 1 : 0;
    errno = g_error;
    return true;
}

/// From now on the thread's calls are not counted, until it closes what was opened.
int openWatched(int fd) {
    t_isWatching = fd >= 0;
    return fd;
}

bool isThreadsState(const char* path) {
    constexpr char kThreads[] = "/proc/self/task/";
    return std::strncmp(path, kThreads, sizeof kThreads - 1) == 0;
}

bool isHidden(const char* path) {
    const bool isIt = g_hidden[0] != '\0' && std::strncmp(path, g_hidden, std::strlen(g_hidden)) == 0;
    errno = isIt ? ENOENT : errno;
    return isIt;
}

void keep(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

void keep(const char* format, va_list arguments) {
    char text[1024];
    std::vsnprintf(text, sizeof text, format, arguments);
    faults::systemLog().emplace_back(text);
}

} // namespace

namespace faults {

void arm(const std::string& call, int error, int occurrence) {
    std::snprintf(g_call, sizeof g_call, "%s", call.c_str());
    g_error = error;
    g_left = occurrence;
}

void refuse(const std::string& call, int error) {
    arm(call, error, 1);
    g_isRefused = true;
}

void hide(const std::string& beginning) {
    std::snprintf(g_hidden, sizeof g_hidden, "%s", beginning.c_str());
}

void interrupt(int occurrence, std::function<void()> act) {
    g_act = std::move(act);
    g_leftToAct = occurrence;
}

bool disarm() {
    const bool wasReached = g_left == 0 && g_leftToAct == 0;
    g_isRefused = false;
    g_left = 0;
    g_leftToAct = 0;
    return wasReached;
}

std::vector<std::string>& systemLog() {
    static std::vector<std::string> texts;
    return texts;
}

} // namespace faults

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)

// A call with fixed arguments: its result, the name that it counts as, its own name.
#define PASS_ON(result, call, name, parameters, arguments)                                                             \
    result __real_##name parameters;                                                                                   \
    result __wrap_##name parameters {                                                                                  \
        return isDue(call) ? static_cast<result>(-1) : __real_##name arguments;                                        \
    }

// A call that takes a mode behind its flags only where it makes a file.
#define PASS_ON_OPEN(name)                                                                                             \
    int __real_##name(const char* path, int flags, ...);                                                               \
    int __wrap_##name(const char* path, int flags, ...) {                                                              \
        va_list rest;                                                                                                  \
        va_start(rest, flags);                                                                                         \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;                                         \
        va_end(rest);                                                                                                  \
        if (isThreadsState(path)) {                                                                                    \
            return openWatched(__real_##name(path, flags, mode));                                                      \
        }                                                                                                              \
        return isDue("open") || isHidden(path) ? -1 : __real_##name(path, flags, mode);                                \
    }
#define PASS_ON_OPENAT(name)                                                                                           \
    int __real_##name(int folder, const char* path, int flags, ...);                                                   \
    int __wrap_##name(int folder, const char* path, int flags, ...) {                                                  \
        va_list rest;                                                                                                  \
        va_start(rest, flags);                                                                                         \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;                                         \
        va_end(rest);                                                                                                  \
        return isDue("openat") ? -1 : __real_##name(folder, path, flags, mode);                                        \
    }

extern "C" {
PASS_ON_OPEN(open)
PASS_ON_OPEN(open64)
PASS_ON(int, "open", __open_2, (const char* path, int flags), (path, flags))
PASS_ON(int, "open", __open64_2, (const char* path, int flags), (path, flags))
PASS_ON_OPENAT(openat)
PASS_ON_OPENAT(openat64)
PASS_ON(int, "openat", __openat_2, (int folder, const char* path, int flags), (folder, path, flags))
PASS_ON(int, "openat", __openat64_2, (int folder, const char* path, int flags), (folder, path, flags))
PASS_ON(ssize_t, "read", read, (int fd, void* to, std::size_t size), (fd, to, size))
PASS_ON(ssize_t, "read", __read_chk, (int fd, void* to, std::size_t size, std::size_t room), (fd, to, size, room))
PASS_ON(ssize_t, "write", write, (int fd, const void* bytes, std::size_t size), (fd, bytes, size))
PASS_ON(int, "fstat", fstat, (int fd, struct stat* to), (fd, to))
PASS_ON(int, "fstat", fstat64, (int fd, struct stat64* to), (fd, to))
PASS_ON(int, "stat", stat, (const char* path, struct stat* to), (path, to))
PASS_ON(int, "stat", stat64, (const char* path, struct stat64* to), (path, to))
PASS_ON(ssize_t, "getdents64", getdents64, (int fd, void* to, std::size_t size), (fd, to, size))
PASS_ON(int, "mkdir", mkdir, (const char* path, mode_t mode), (path, mode))
PASS_ON(int, "chmod", chmod, (const char* path, mode_t mode), (path, mode))
PASS_ON(int, "fchmod", fchmod, (int fd, mode_t mode), (fd, mode))
PASS_ON(int, "socket", socket, (int domain, int type, int protocol), (domain, type, protocol))
PASS_ON(ssize_t, "sendto", sendto,
        (int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t length),
        (fd, bytes, size, flags, to, length))
PASS_ON(int, "poll", poll, (pollfd * fds, nfds_t count, int timeout), (fds, count, timeout))
PASS_ON(int, "poll", __poll_chk, (pollfd * fds, nfds_t count, int timeout, std::size_t room),
        (fds, count, timeout, room))

ssize_t __real_readlinkat(int folder, const char* path, char* to, std::size_t size);
ssize_t __wrap_readlinkat(int folder, const char* path, char* to, std::size_t size) {
    if (!isDue("readlinkat")) {
        return __real_readlinkat(folder, path, to, size);
    }
    // Without an error it gives as much as there is room for.
    std::memset(to, '/', g_error == 0 ? size : 0);
    return g_error == 0 ? static_cast<ssize_t>(size) : -1;
}
ssize_t __wrap___readlinkat_chk(int folder, const char* path, char* to, std::size_t size, std::size_t /*room*/);
ssize_t __wrap___readlinkat_chk(int folder, const char* path, char* to, std::size_t size, std::size_t /*room*/) {
    return __wrap_readlinkat(folder, path, to, size);
}

char* __real_realpath(const char* path, char* to);
char* __wrap_realpath(const char* path, char* to) {
    return isDue("realpath") ? nullptr : __real_realpath(path, to);
}
char* __wrap___realpath_chk(const char* path, char* to, std::size_t /*room*/);
char* __wrap___realpath_chk(const char* path, char* to, std::size_t /*room*/) {
    return __wrap_realpath(path, to);
}

int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);
int __wrap_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to) {
    return isDue("statx") ? -1 : kernel::statx(folder, path, flags, mask, to);
}
long __wrap_syscall(long number, long a, long b, long c, long d);
long __wrap_syscall(long number, long a, long b, long c, long d) {
    return isDue("syscall") ? -1 : kernel::syscall(number, a, b, c, d);
}
int __wrap_ioctl(int fd, unsigned long request, void* argument);
int __wrap_ioctl(int fd, unsigned long request, void* argument) {
    return isDue("ioctl") ? -1 : kernel::ioctl(fd, request, argument);
}

/// A descriptor is closed even where close says that it failed (close(2)).
int __real_close(int fd);
int __wrap_close(int fd) {
    const int result = __real_close(fd);
    if (std::exchange(t_isWatching, false)) {
        return result;
    }
    return isDue("close") ? -1 : result;
}

void __wrap_syslog(int level, const char* format, ...);
void __wrap_syslog(int /*level*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(format, arguments);
    va_end(arguments);
}
void __wrap___syslog_chk(int level, int flag, const char* format, ...);
void __wrap___syslog_chk(int /*level*/, int /*flag*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep(format, arguments);
    va_end(arguments);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
