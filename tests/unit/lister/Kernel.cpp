#include "Kernel.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
int __real_statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);
long __real_syscall(long number, long a, long b, long c, long d);
int __real_ioctl(int fd, unsigned long request, void* argument);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace kernel {

namespace {

enum class Version { Oldest, WithoutMappingQuery, Todays };

Version versionOf(const char* name) {
    const std::string_view text = name != nullptr ? name : "";
    if (!text.empty() && text != "5.4" && text != "6.6") {
        throw std::invalid_argument("no such kernel: " + std::string(text));
    }
    return text.empty() ? Version::Todays : text == "5.4" ? Version::Oldest : Version::WithoutMappingQuery;
}

Version g_version = versionOf(std::getenv("CVSTOP_TEST_KERNEL"));

std::atomic<int> g_cacheAnswer = kByItself;

bool isCachedLookUp(long number, long how) {
    return number == SYS_openat2 && (reinterpret_cast<const open_how*>(how)->resolve & RESOLVE_CACHED) != 0;
}

long answerLookUp(long folder, long path) {
    if (g_cacheAnswer != kFromAll) {
        errno = g_cacheAnswer;
        return -1;
    }
    return openat(static_cast<int>(folder), reinterpret_cast<const char*>(path), O_PATH | O_CLOEXEC);
}

/// _IOWR('f', 17, struct procmap_query)
bool isMappingQuery(unsigned long request) {
    return _IOC_TYPE(request) == 'f' && _IOC_NR(request) == 17;
}

} // namespace

void pretend(const char* version) {
    g_version = versionOf(version != nullptr ? version : std::getenv("CVSTOP_TEST_KERNEL"));
}

bool tellsMounts() {
    return g_version != Version::Oldest;
}

bool knowsOpenat2() {
    return g_version != Version::Oldest;
}

bool knowsMappingQuery() {
    return g_version == Version::Todays;
}

int statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to) {
    const int result = __real_statx(folder, path, flags, mask, to);
    if (!tellsMounts()) {
        to->stx_mask &= ~STATX_MNT_ID;
        to->stx_mnt_id = 0;
    }
    return result;
}

void answerCachedLookUps(int how) {
    g_cacheAnswer = how;
}

long syscall(long number, long a, long b, long c, long d) {
    if (g_cacheAnswer != kByItself && isCachedLookUp(number, c)) {
        return answerLookUp(a, b);
    }
    if (number == SYS_openat2 && !knowsOpenat2()) {
        errno = ENOSYS;
        return -1;
    }
    return __real_syscall(number, a, b, c, d);
}

int ioctl(int fd, unsigned long request, void* argument) {
    if (isMappingQuery(request) && !knowsMappingQuery()) {
        errno = ENOTTY;
        return -1;
    }
    return __real_ioctl(fd, request, argument);
}

} // namespace kernel
