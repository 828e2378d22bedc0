"""The shipped program on kernels that are older than this machine's. They are emulated: strace takes the mount out of statx's
answer, and calls are refused by strace, as a kernel does it, or by a filter, as a container's run time does.

On the plain build: strace and the sanitizers do not go together.
"""
import os
import pathlib
import struct

import pytest

from box import BIN, CVSTOP, GATHERING, listed, rows_of_listing, until_ended

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="in an ordinary user's box no script counts as the product's")
HERE = pathlib.Path(__file__).parent
SLEEP = "/usr/bin/sleep"
LIBRARY = "/usr/quarn/corvane/lib/libsampled.so"
NO_SNAPSHOT = 130
EPERM, ENOSYS = 1, 38
TRACE = "/usr/bin/strace -f -b execve -o /opt/calls -e trace=statx,openat2,ioctl,clone3,rseq"
# STATX_BASIC_STATS: all but the mount. stx_mask is what statx's buffer begins with.
NO_MOUNT = "-e inject=statx:poke_exit=@arg5=" + struct.pack("=I", 0x7FF).hex()
NO_OPENAT2 = "-e inject=openat2:error=ENOSYS"
# Refuses one other call, which nothing here needs: who owns the user namespace of a process that has its own.
NO_QUERY = "-e inject=ioctl:error=ENOTTY"
# libc's own ways to begin a thread or a command (5.3), and to learn when it was interrupted (4.18): it knows older ones.
NO_CLONE3 = "-e inject=clone3,rseq:error=ENOSYS"
INJECTED = "(INJECTED"
# How a kernel answers, and what a trace shows of each call: it cannot be refused what it was not asked.
KERNELS = {
    "4.12": (f"{TRACE} {NO_MOUNT} {NO_OPENAT2} {NO_QUERY} {NO_CLONE3}",
             {"statx": INJECTED, "openat2": INJECTED, "clone3": INJECTED, "rseq": INJECTED}),
    "6.6": (f"{TRACE} {NO_QUERY}", {"ioctl": INJECTED}),
    "filtered": (f"/usr/bin/python3 /opt/refuse.py openat2 EPERM {TRACE}", {"openat2": "= -1 EPERM"}),
    "filtered query": (f"/usr/bin/python3 /opt/refuse.py ioctl EPERM {TRACE}", {"ioctl": "= -1 EPERM"}),
}
FLEET = (f"{BIN}/halvd\n{BIN}/momuhe\n{BIN}/koka ignore=INT,TERM\n{BIN}/worker script=yes\n/opt/x/mapper map={LIBRARY}\n"
         f"/opt/x/editor cwd={BIN}\n")
# In mounts of their own: a daemon, one that was replaced since, and one that runs the product's code; and a container's copy.
HARDENED = f"""
starts() {{ until readlink /proc/[0-9]*/exe | grep -qx "$1"; do kill -0 $! || exit 98; sleep 0.01; done; }}
cp {SLEEP} {BIN}/hardened; unshare --mount {BIN}/hardened 600 & starts {BIN}/hardened
cp {SLEEP} {BIN}/replaced; unshare --mount {BIN}/replaced 600 & starts {BIN}/replaced
rm {BIN}/replaced; cp {SLEEP} {BIN}/replaced
cp {SLEEP} /opt/x/service; LD_PRELOAD={LIBRARY} unshare --mount /opt/x/service 600 & starts /opt/x/service
until grep -q 'r-xp.*libsampled' /proc/$!/maps; do kill -0 $! || exit 98; sleep 0.01; done
cp {SLEEP} {BIN}/contained
unshare --mount sh -c 'mount -t tmpfs tmpfs /usr/quarn; mkdir -p {BIN}; cp {SLEEP} {BIN}/contained; exec {BIN}/contained 600' &
starts {BIN}/contained
"""
PRODUCTS = {f"{BIN}/{name}" for name in ("halvd", "momuhe", "koka", "worker", "hardened", "replaced")}
STRANGERS = {f"/opt/x/{name}" for name in ("mapper", "editor", "service")}


@pytest.fixture
def client(host):
    def make(fleet=FLEET):
        here = host(fleet)
        here.install(HERE / "refuse.py", "/opt/refuse.py")
        return here
    return make


@pytest.mark.parametrize("kernel", KERNELS)
def test_older_kernel_lists_what_todays_lists(client, kernel):
    here = client()
    command, traced = KERNELS[kernel]
    result = here.run(before=HARDENED, command=f"{CVSTOP} -l -3 >/opt/today; {command} {CVSTOP} -l -3 >/opt/older")
    assert (result.status, result.stderr) == (0, "")
    # Shells and tracers, whose standard error is a file of the tree, differ.
    today, older = ([row for row in rows_of_listing(here.inside(path).read_text()) if not row[0].startswith("/usr/bin/")]
                    for path in ("/opt/today", "/opt/older"))
    assert older == today
    assert {path for path, kind in today if kind == "Corvane"} == PRODUCTS
    assert {path for path, kind in today if kind == "Third Party"} == STRANGERS
    calls = here.inside("/opt/calls").read_text().splitlines()
    for call, shown in traced.items():
        assert any(f" {call}" in line and shown in line for line in calls), f"{call} was answered"


@pytest.mark.parametrize("kernel", KERNELS)
def test_older_kernel_shuts_down_what_todays_shuts_down(client, kernel):
    def shut_down(command):
        result = client().run(before=HARDENED, command=f"{command} {CVSTOP} -k -3 >/opt/output",
                              after="".join(map(until_ended, ("/opt/x/mapper", "/opt/x/service", f"{BIN}/koka"))))
        names = ("halvd", "momuhe", "koka", "worker", "mapper", "editor")
        return (result.status, sorted(result.commands()), {name: result.signals_of(name) for name in names},
                {name for name in names if result.is_alive(name)}, sorted(
                    line.split(" ", 2)[2] for line in (result.tree / "quarn/sandbox/left").read_text().splitlines()
                    if line.endswith(("/hardened", "/replaced", "/service", "/contained"))))

    older = shut_down(KERNELS[kernel][0])
    assert older == shut_down("")
    assert older[0] == 1 and older[3] == {"editor"} and older[4] == [f"{BIN}/contained"]


@pytest.mark.parametrize("command", [f"{TRACE} -e inject=statx:error=ENOSYS", "/usr/bin/python3 /opt/refuse.py statx ENOSYS",
                                     "/usr/bin/python3 /opt/refuse.py statx EPERM"],
                         ids=["kernel", "filter", "older-filter"])
@pytest.mark.parametrize("mode, first", [("-l", ""), ("-k", GATHERING), ("-k -3", GATHERING)])
def test_kernel_that_cannot_tell_the_mount_of_a_file_is_told_apart(client, command, mode, first):
    """Nothing is signalled, and the log says what the kernel lacks."""
    result = client().run(command=f"{command} {CVSTOP} {mode}")
    assert (result.stdout, result.status) == (f"{first}find_process_CV failed with status {ENOSYS}\n", NO_SNAPSHOT)
    assert result.texts("find_processes_CV", "error") == [
        "The kernel does not tell which mount a file is on: that takes Linux 4.12"]
    assert result.signals == [] and result.commands() == []
    assert all(result.is_alive(name) for name in ("halvd", "momuhe", "koka", "worker", "mapper", "editor"))


@pytest.mark.parametrize("mode, first", [("-l", ""), ("-k", GATHERING), ("-k -3", GATHERING)])
def test_filter_that_lets_no_thread_begin_leaves_the_table_unread(client, mode, first):
    """A filter that is older than clone3 answers EPERM, for which libc knows nothing else. Who cannot be looked at without a
    thread may be the product's, so nothing is signalled."""
    result = client().run(command=f"/usr/bin/python3 /opt/refuse.py clone3 EPERM {CVSTOP} {mode}")
    assert (result.stdout, result.status) == (f"{first}find_process_CV failed with status {EPERM}\n", NO_SNAPSHOT)
    assert result.texts("find_processes_CV", "error") == [
        "No thread can be started to look at other processes: Operation not permitted"]
    assert result.signals == [] and result.commands() == []
    assert all(result.is_alive(name) for name in ("halvd", "momuhe", "koka", "worker", "mapper", "editor"))


# --- a process table that hides the processes of others (proc(5), hidepid)

HIDE = "mount -o remount,hidepid=2 /proc || exit 97\n"


def test_hidden_processes_are_listed_by_root(client):
    result = client().run("-l", before=HIDE + HARDENED)
    assert {path for path, _ in listed(result)} == PRODUCTS


@pytest.mark.parametrize("mode, first", [("-l", ""), ("-k", GATHERING)])
def test_confined_root_from_whom_processes_are_hidden_is_told_so(client, mode, first):
    """It does not even see that there is something that it may not look at."""
    confined = f"setpriv --bounding-set -sys_ptrace --inh-caps -sys_ptrace {CVSTOP} {mode}"
    result = client().run(before=HIDE, command=confined)
    assert (result.stdout, result.status) == (f"{first}find_process_CV failed with status 13\n", NO_SNAPSHOT)
    assert result.signals == []
