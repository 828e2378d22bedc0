"""Each system call of the watcher fails once, in turn: the shutdown goes its way all the same, with its status and all that it
prints; or the program never ran, and nothing was touched."""
import os
import signal

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, LOG, WATCH, WATCHED, assert_ends
from injecting import calls_after_main, cases, inject
from watching import Watched

FLEET = f"{BIN}/momuhe\n/opt/a/editor cwd={BIN}\n"
COMMAND = f"{WATCH} --no-report --json {WATCHED} --svg /opt/watch/run.svg -- -k -3"
# Each error is one that the call's manual page names.
FAULTS = [("openat", "EMFILE"), ("openat", "EACCES"), ("read", "EIO"), ("write", "ENOSPC"), ("close", "EIO"),
          ("readlinkat", "ENOMEM"), ("readlinkat", "EACCES"), ("getdents64", "EIO"), ("statx", "EACCES"),
          ("newfstatat", "EACCES"), ("readlink", "EIO"), ("access", "EACCES"), ("fcntl", "EBADF"), ("pidfd_open", "EMFILE"),
          ("pidfd_open", "ENOSYS"), ("poll", "ENOMEM"), ("signalfd4", "EMFILE"), ("pipe2", "EMFILE"), ("clone", "EAGAIN"),
          ("clone3", "EAGAIN"), ("wait4", "EINTR"), ("socketpair", "EMFILE"), ("sendmsg", "ENOBUFS"), ("recvmsg", "EAGAIN"),
          ("dup3", "EBADF"), ("chdir", "EACCES"), ("prlimit64", "EPERM"), ("rt_sigaction", "EINVAL"),
          ("rt_sigprocmask", "EINVAL"), ("rt_sigpending", "EFAULT"), ("ioctl", "EIO"), ("uname", "EFAULT"), ("pread64", "EIO"),
          ("fsync", "EIO"), ("rename", "EACCES"), ("unlink", "EACCES"), ("mprotect", "ENOMEM"), ("madvise", "EINVAL"),
          ("openat2", "EACCES"), ("unshare", "EPERM"), ("clock_gettime", "EINVAL"), ("getrandom", "EAGAIN")]
PARTS = {"openat": 3, "read": 3, "close": 3, "readlinkat": 2}
# Calls that cannot fail, those that end, and mmap: without memory a C++ program ends, which is the end of the watcher alone.
INFALLIBLE = {"getpid", "getppid", "getpgrp", "gettid", "geteuid", "getuid", "exit", "exit_group", "brk", "futex", "rseq",
              "set_robust_list", "execve", "mmap", "rt_sigreturn", "restart_syscall"}
REWRITE = "\x1b[K"
# What a terminal adds: the calls that look what it is and keep the line, and the pipe that the program's output goes through.
COMMAND_ON_TERMINAL = f"{WATCH} -- -k"
FAULTS_ON_TERMINAL = [("ioctl", "EIO"), ("openat", "EMFILE"), ("pipe2", "EMFILE"), ("fcntl", "EBADF"), ("dup2", "EBADF"),
                      ("poll", "ENOMEM"), ("read", "EIO"), ("write", "EIO")]
PARTS_ON_TERMINAL = {"ioctl": 2, "openat": 3, "read": 3}
# The watcher's statuses where the program never ran, and the program's own.
NEVER_RAN, FOUND = {125, 126, 127}, 1


def test_each_call_that_can_fail_has_a_fault(host):
    assert calls_after_main(host(FLEET), COMMAND) - INFALLIBLE - {call for call, _ in FAULTS} == set()


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
@pytest.mark.parametrize("call, error, part", cases(FAULTS, PARTS))
def test_one_failure_of(host, call, error, part):
    here = host(FLEET)
    runs = inject(here, call, error, str(part), str(PARTS.get(call, 1)), command=COMMAND)
    # Not every run reaches its occurrence: the number of looks differs.
    reached = [run for run in runs if run["injected"]]
    assert reached, "nothing was tried"
    for run in reached:
        what = (call, error, run["occurrence"], run["status"], run["injected"], run["output"])
        assert "/opt/a/editor" in run["left"], what
        if run["status"] in NEVER_RAN:
            assert f"{BIN}/momuhe" in run["left"] and run["signals"] == [] and "cvstop-watch: " in run["output"], what
        else:
            assert run["status"] == FOUND and run["output"].startswith("Gathering process information.\n"), what
            assert ALL_SPECIFIED in run["output"] and f"{BIN}/momuhe" not in run["left"], what


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
@pytest.mark.parametrize("call, error, part", cases(FAULTS_ON_TERMINAL, PARTS_ON_TERMINAL))
def test_one_failure_on_a_terminal_of(host, call, error, part):
    """The line may be lost, and what the terminal did not take; the shutdown is not, and what has the terminal keeps it."""
    parts = PARTS_ON_TERMINAL.get(call, 1)
    # One that takes its time, so that there is a line.
    fleet = FLEET + f"{BIN}/kuror stop=2\n" if call == "pipe2" else FLEET
    runs = inject(host(fleet), call, error, str(part), str(parts), command=COMMAND_ON_TERMINAL, terminal=True)
    reached = [run for run in runs if run["injected"]]
    assert reached, "nothing was tried"
    for run in reached:
        what = (call, error, run["occurrence"], run["status"], run["injected"], run["output"])
        if run["status"] in NEVER_RAN:
            assert f"{BIN}/momuhe" in run["left"] and run["signals"] == [] and "cvstop-watch: " in run["output"], what
        else:
            assert run["status"] == FOUND and f"{BIN}/momuhe" not in run["left"], what
            assert call == "write" or ALL_SPECIFIED.strip() in run["output"], what
    if call == "pipe2":
        # Without the pipe the program writes to the terminal itself, and no line may stand there.
        assert [REWRITE in run["output"] for run in reached] == [False, True, True]


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


# Runs the watcher, and does VERB to the program as soon as its log says that the daemon was asked.
DO_TO_PROGRAM = f"""
import json, os, signal, subprocess, time
run = subprocess.Popen(['{WATCH}', '--no-report', '--json', '{WATCHED}', '--', '-k'])
deadline = time.monotonic() + 60
def wait(condition):
    while not condition():
        assert time.monotonic() < deadline and run.poll() is None
        time.sleep(0.01)
def state(pid):
    return open(f'/proc/{{pid}}/stat').read().rsplit(')', 1)[1].split()[0]
wait(lambda: os.path.exists('{LOG}') and 'Signaling process {BIN}/strayd' in open('{LOG}').read())
program, = (int(pid) for pid in open(f'/proc/{{run.pid}}/task/{{run.pid}}/children').read().split())
"""


def test_program_that_is_killed(host):
    here = host(f"{BIN}/strayd ignore=all\n")
    here.write("/opt/kill.py", DO_TO_PROGRAM + "os.kill(program, signal.SIGKILL)\nprint(run.wait())\n")
    result = here.run(command="/usr/bin/python3 /opt/kill.py")
    assert_ends(result.stdout, "-9\n")
    seen = Watched(here.inside(WATCHED).read_text())
    assert (seen.run["status"], seen.run["signal"]) == (None, signal.SIGKILL)
    assert seen.outcomes() == {"strayd": "survived"} and result.is_alive("strayd")


def test_program_that_is_stopped_for_a_while(host):
    """The watcher neither ends nor stops with it, and sees what ends meanwhile."""
    here = host(f"{BIN}/strayd ignore=INT\n")
    here.write("/opt/stop.py", DO_TO_PROGRAM + """
os.kill(program, signal.SIGSTOP)
wait(lambda: state(program) == 'T')
wait(lambda: state(run.pid) == 'S')
os.kill(program, signal.SIGCONT)
print(run.wait())
""")
    result = here.run(command="/usr/bin/python3 /opt/stop.py")
    assert_ends(result.stdout, ALL_SPECIFIED + "1\n")
    assert Watched(here.inside(WATCHED).read_text()).outcomes() == {"strayd": "ended"}


def test_full_disk_under_the_picture(host):
    here = host(f"{BIN}/momuhe\n")
    result = here.run(
        before="mkdir /tmp/small; mount -t tmpfs -o size=4k tmpfs /tmp/small; head -c 4096 /dev/zero >/tmp/small/full\n",
        command=f"{WATCH} --no-report --json {WATCHED} --svg /tmp/small/run.svg -- -k", after="ls /tmp/small >/opt/names\n")
    assert result.status == 1 and result.stderr.startswith("cvstop-watch: /tmp/small/run.svg is not written: ")
    assert here.inside("/opt/names").read_text() == "full\n" and Watched(here.inside(WATCHED).read_text()).run["status"] == 1


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box traces nobody")
def test_log_that_cannot_be_read(host):
    here = host(f"{BIN}/momuhe\n")
    result = here.run(command=f"strace -f -b execve -o /tmp/trace -e inject=pread64:error=EIO "
                      f"{WATCH} --no-report --json {WATCHED} -- -k")
    assert result.status == 1 and result.stderr == "" and not result.is_alive("momuhe")
    assert Watched(here.inside(WATCHED).read_text()).run["notes"] == ["the debug log cannot be read: Input/output error"]


@pytest.mark.parametrize("options, says", [("--no-report", 1), (f"--no-report --json {WATCHED}", 0), ("", 1)])
def test_watcher_that_sees_nothing_says_so_once(host, options, says):
    here = host(f"{BIN}/momuhe\n")
    result = here.run(command=f"unshare --mount sh -c 'mount -t tmpfs none /proc && {WATCH} {options} -- -k'")
    assert result.stderr.count("the processes cannot be listed: ") == says
    listing = here.run(command=f"unshare --mount sh -c 'mount -t tmpfs none /proc && {WATCH} {options} -- -l'")
    assert "cannot be listed" not in listing.stderr
