"""Each system call that the program makes after main has begun fails once, in turn, in each of its threads, during a shutdown
of three obedient daemons, third parties and gauges included: no crash, no hang, no wrong signal, a status that means something,
and no daemon left behind in silence.

On the plain build: strace and the sanitizers do not go together.
"""
import pytest

from box import BIN
from injecting import calls_after_main, cases, inject

FLEET = f"{BIN}/halvd\n{BIN}/momuhe\n{BIN}/koka\n/opt/a/editor cwd={BIN}\n"
# One takes its time, so that there is something to wait for, however fast the machine.
SLOW_FLEET = FLEET.replace("halvd", "halvd stop=1")
DAEMONS = {f"{BIN}/{name}" for name in ("halvd", "momuhe", "koka")}
EDITOR = "/opt/a/editor"

# Each error is one that the call's manual page names.
FAULTS = [("openat", "EMFILE"), ("openat", "EACCES"), ("read", "EIO"), ("write", "ENOSPC"), ("close", "EIO"),
          ("readlinkat", "ENOMEM"), ("readlinkat", "EACCES"), ("getdents64", "EIO"), ("statx", "EACCES"), ("statx", "ENOMEM"),
          ("newfstatat", "EIO"), ("readlink", "EIO"), ("access", "EACCES"), ("fcntl", "EBADF"), ("fchmod", "EPERM"),
          ("kill", "EPERM"), ("kill", "ESRCH"), ("clock_nanosleep", "EINTR"), ("mmap", "ENOMEM"),
          ("rt_sigaction", "EINVAL"), ("rt_sigprocmask", "EINVAL"), ("clone3", "EAGAIN"), ("vfork", "EAGAIN"),
          ("clone", "EAGAIN"), ("wait4", "ECHILD"), ("uname", "EFAULT"), ("lseek", "ESPIPE"), ("munmap", "EINVAL"),
          ("mkdir", "EACCES"), ("chmod", "EPERM"), ("socket", "EMFILE"), ("sendto", "EAGAIN"), ("sendto", "ECONNREFUSED"),
          ("ioctl", "EIO"), ("openat2", "EACCES"), ("unshare", "EPERM"),
          ("mprotect", "ENOMEM"), ("madvise", "EINVAL"), ("clock_gettime", "EINVAL")]
# Those with many occurrences share them among several tests.
PARTS = {"openat": 4, "read": 2, "write": 3, "close": 4, "readlinkat": 3, "statx": 2, "kill": 4, "rt_sigaction": 2,
         "rt_sigprocmask": 2}
# Calls that cannot fail (brk answers with the break as it is, never with an error; rseq and set_robust_list are the C
# library's own first steps in a thread), and those that end.
INFALLIBLE = {"getpid", "getppid", "gettid", "geteuid", "exit", "exit_group", "brk", "execve", "futex", "rseq", "set_robust_list"}

# 1: found something; 110: no host.conf; 130: no whole snapshot.
FOUND, UNTOUCHED = 1, {110, 130}
# std::terminate, where memory ran out.
ABORTED = -6
# Ways to start a command: the C library takes one of them.
SPAWNS = {"clone", "clone3", "vfork"}


@pytest.fixture
def client(host):
    """Gauges are sent, so that a socket is among the calls; nobody listens."""
    def make(fleet):
        here = host(fleet)
        here.write("/usr/quarn/corvane/host.conf", "[host]\nrole = client\n[telemetry]\nstatsd = 127.0.0.1:8125\n")
        return here

    return make


def test_each_call_that_can_fail_has_a_fault(client):
    assert calls_after_main(client(FLEET)) - INFALLIBLE - {call for call, _ in FAULTS} == set()


@pytest.mark.parametrize("call, error, part", cases(FAULTS, PARTS))
def test_one_failure_of(client, call, error, part):
    here = client(SLOW_FLEET if call == "clock_nanosleep" else FLEET)
    runs = inject(here, call, error, str(part), str(PARTS.get(call, 1)))
    # Not every run reaches its occurrence: the number of looks differs.
    reached = [run for run in runs if run["injected"]]
    assert reached or call in SPAWNS, "nothing was tried"
    for run in reached:
        what = (call, error, run["occurrence"], run["status"], run["injected"], run["output"])
        left = DAEMONS & set(run["left"])
        assert EDITOR in run["left"], what
        assert "editor" not in [name for name, _ in run["signals"]], what
        if run["status"] in UNTOUCHED:
            assert left == DAEMONS and run["signals"] == [], what
        elif run["status"] == ABORTED:
            assert error == "ENOMEM", what
        else:
            assert run["status"] == FOUND, what
            # An unanswered look at a process counts as its end; and what cannot be read of a single process is passed over,
            # and said in the log.
            was_passed_over = any("passed over" in warning for warning in run["warnings"])
            assert not left or call == "kill" or was_passed_over, what


def test_some_way_to_start_a_command_failed(client):
    assert any(run["injected"] for call in SPAWNS for run in inject(client(FLEET), call, "EAGAIN", "0", "1"))
