// Builds the shutdown table. Any system call but those for memory, from before the first static object to the end,
// kills the process with SIGSYS (seccomp(2)). Exit status 0, or 2 where the kernel does not take the filter.
#include <cstddef>
#include <deque>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "cvshutdown.h"

namespace {

constexpr int kNoFilterStatus = 2;

// Skips the second instruction unless the number matches.
#define ALLOW(name) BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_##name, 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)

[[gnu::constructor(101)]] void allowNothingButMemory() {
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                            ALLOW(brk),
                            ALLOW(mmap),
                            ALLOW(munmap),
                            ALLOW(mremap),
                            ALLOW(mprotect),
                            ALLOW(madvise),
                            ALLOW(futex),
                            ALLOW(getrandom),
                            ALLOW(exit_group),
                            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    const sock_fprog program = {static_cast<unsigned short>(sizeof filter / sizeof filter[0]), filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        _exit(kNoFilterStatus);
    }
}

} // namespace

int main() {
    _exit(KillDefines.empty() ? 1 : 0);
}
