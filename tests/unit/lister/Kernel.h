/// The kernel that the tests of the lister meet: this machine's, or one that answers as an older kernel does, by
/// CVSTOP_TEST_KERNEL:
///
///     6.6   knows no PROCMAP_QUERY
///     5.4   nor openat2, and its statx does not tell the mount of a file
///
/// The linker puts these calls in place of libc's.
#pragma once

#include <sys/stat.h>

namespace kernel {

/// From now on the kernel is of this version, or of the environment's again with a null pointer.
void pretend(const char* version);

/// How a look-up in the kernel's cache alone (RESOLVE_CACHED) is answered from now on: from whatever there is, with an
/// errno value, or by the kernel itself.
constexpr int kFromAll = 0;
constexpr int kByItself = -1;
void answerCachedLookUps(int how);

bool tellsMounts();
bool knowsOpenat2();
bool knowsMappingQuery();

int statx(int folder, const char* path, int flags, unsigned int mask, struct statx* to);
long syscall(long number, long a, long b, long c, long d);
int ioctl(int fd, unsigned long request, void* argument);

} // namespace kernel
