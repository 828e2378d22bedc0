"""Each system call of the watcher fails once, in turn: the shutdown goes its way all the same, with its status and all that it
prints; or the program never ran, and nothing was touched."""
import os

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, WATCH, WATCHED, assert_ends
from injecting import calls_after_main, cases, inject

FLEET = f"{BIN}/momuhe\n/opt/a/editor cwd={BIN}\n"
COMMAND = f"{WATCH} --no-report --json {WATCHED} --svg /opt/watch/run.svg -- -k -3"
# Each error is one that the call's manual page names.
FAULTS = [("openat", "EMFILE"), ("openat", "EACCES"), ("read", "EIO"), ("write", "ENOSPC"), ("close", "EIO"),
          ("readlinkat", "ENOMEM"), ("readlinkat", "EACCES"), ("getdents64", "EIO"), ("statx", "EACCES"),
          ("newfstatat", "EACCES"), ("readlink", "EIO"), ("access", "EACCES"), ("faccessat2", "EACCES"), ("fcntl", "EBADF"),
          ("pidfd_open", "EMFILE"), ("pidfd_open", "ENOSYS"), ("poll", "ENOMEM"), ("signalfd4", "EMFILE"), ("pipe2", "EMFILE"),
          ("clone", "EAGAIN"), ("clone3", "EAGAIN"), ("wait4", "EINTR"), ("socketpair", "EMFILE"), ("sendmsg", "ENOBUFS"),
          ("recvmsg", "EAGAIN"), ("dup2", "EBADF"), ("dup3", "EBADF"), ("chdir", "EACCES"), ("getcwd", "ENOENT"),
          ("prlimit64", "EPERM"), ("rt_sigaction", "EINVAL"), ("rt_sigprocmask", "EINVAL"), ("rt_sigpending", "EFAULT"), ("ioctl", "EIO"),
          ("uname", "EFAULT"), ("lseek", "ESPIPE"), ("pread64", "EIO"), ("fsync", "EIO"), ("rename", "EACCES"),
          ("renameat2", "EACCES"), ("unlink", "EACCES"), ("unlinkat", "EACCES"), ("fchmod", "EPERM"), ("linkat", "EACCES"),
          ("fstatfs", "EIO"), ("statfs", "EIO"), ("umask", "EINVAL"), ("mprotect", "ENOMEM"), ("madvise", "EINVAL"),
          ("munmap", "EINVAL"), ("openat2", "EACCES"), ("unshare", "EPERM"), ("clock_gettime", "EINVAL"),
          ("clock_nanosleep", "EINTR"), ("sched_yield", "EINVAL"), ("mremap", "ENOMEM"), ("getrandom", "EAGAIN")]
PARTS = {"openat": 3, "read": 3, "close": 3, "readlinkat": 2}
# Calls that cannot fail, those that end, and mmap: without memory a C++ program ends, which is the end of the watcher alone.
INFALLIBLE = {"getpid", "getppid", "getpgrp", "gettid", "geteuid", "getuid", "exit", "exit_group", "brk", "futex", "rseq",
              "set_robust_list", "execve", "mmap", "rt_sigreturn", "restart_syscall"}
# The watcher's statuses where the program never ran, and the program's own.
NEVER_RAN, FOUND = {125, 126, 127}, 1


def test_each_call_that_can_fail_has_a_fault(host):
    assert calls_after_main(host(FLEET), COMMAND) - INFALLIBLE - {call for call, _ in FAULTS} == set()


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
@pytest.mark.parametrize("call, error, part", cases(FAULTS, PARTS))
def test_one_failure_of(host, call, error, part):
    here = host(FLEET)
    for run in inject(here, call, error, str(part), str(PARTS.get(call, 1)), command=COMMAND):
        if not run["injected"]:
            continue
        what = (call, error, run["occurrence"], run["status"], run["injected"], run["output"])
        assert "/opt/a/editor" in run["left"], what
        if run["status"] in NEVER_RAN:
            assert f"{BIN}/momuhe" in run["left"] and run["signals"] == [] and "cvstop-watch: " in run["output"], what
        else:
            assert run["status"] == FOUND and run["output"].startswith("Gathering process information.\n"), what
            assert ALL_SPECIFIED in run["output"] and f"{BIN}/momuhe" not in run["left"], what


def interrupted_at(here, call, name):
    """Runs the watcher, which is sent the signal as it enters its first call of that name."""
    return here.run(command=f"strace -f -b execve -o /tmp/trace -e inject={call}:signal={name}:when=1 "
                    f"{WATCH} --no-report -- -k; echo $?", env={"LC_ALL": "C"})


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
@pytest.mark.parametrize("name, status", [("INT", 130), ("QUIT", 131), ("HUP", 129)])
@pytest.mark.parametrize("call", ["pidfd_open", "clone", "chdir", "rt_sigpending"])
def test_interrupt_before_the_program_starts(host, call, name, status):
    """While the watcher lists, and between its fork and the program's start: as without it, nothing is shut down."""
    result = interrupted_at(host(f"{BIN}/momuhe\n"), call, name)
    assert result.stdout == f"{status}\n" and result.log == [] and result.is_alive("momuhe")


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
def test_interrupt_of_the_watcher_alone_once_the_program_runs(host):
    result = interrupted_at(host(f"{BIN}/momuhe\n"), "uname", "INT")
    assert_ends(result.stdout, ALL_SPECIFIED + "1\n")
    assert not result.is_alive("momuhe")


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
def test_interrupts_that_the_starter_ignores(host):
    """As under nohup: one that comes while the watcher starts the program is nobody's."""
    here = host(f"{BIN}/momuhe\n")
    result = here.run(command=f"sh -c 'trap \"\" INT; exec strace -f -b execve -o /tmp/trace "
                      f"-e inject=clone:signal=INT:when=1 {WATCH} --no-report -- {CVSTOP} -k'")
    assert result.status == 1 and not result.is_alive("momuhe")
