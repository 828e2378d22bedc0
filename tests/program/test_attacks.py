"""What a whole host can do to the lister: more containers, giants, servers that do not answer, processes on the run."""
import collections
import os
import pathlib
import re
import shlex

import pytest

from box import BIN, BUILD, CVSTOP, EXECUTABLES, GATHERING, assert_ends, listed, rows_of_listing, until_ended, until_logged

HERE = pathlib.Path(__file__).parent
SLEEP = "/usr/bin/sleep"
LIBRARY = "/usr/quarn/corvane/lib/libsampled.so"
NO_SNAPSHOT = 130
INTERPRETERS = 2000
# Stands beside whatever a test looks for: a listing that misses everything is not taken for one that is right.
FLEET = f"{BIN}/momuhe\n"
WITNESS = (f"{BIN}/momuhe", "Corvane")


def background(command, ready):
    """Starts a command and waits until a shell condition holds, at most as long as the box lasts; $! is its pid."""
    return f"{command} &\nuntil {ready}; do sleep 0.01; done\n"


def runs(path):
    return f"{EXECUTABLES} | grep -q '^{re.escape(path)}\\( (deleted)\\)\\{{0,1\\}}$'"


def runs_count(path):
    return f"{EXECUTABLES} | grep -c '^{re.escape(path)}$'"


# --- mount namespaces

OVERLAY = ("mount -t tmpfs tmpfs /tmp && mkdir /tmp/u /tmp/w && "
           "mount -t overlay overlay -o lowerdir=/usr/quarn,upperdir=/tmp/u,workdir=/tmp/w /usr/quarn && "
           f"exec {BIN}/halvd 31337")


@pytest.mark.parametrize("unshare", ["unshare --mount --pid --fork --mount-proc", "unshare --mount"])
def test_daemon_on_an_overlay_of_the_tree_is_not_the_hosts(host, unshare):
    here = host(FLEET)
    here.install(SLEEP, f"{BIN}/halvd")
    result = here.run("-l", before=background(f"{unshare} sh -c '{OVERLAY}'", runs(f"{BIN}/halvd")))
    assert listed(result) == [WITNESS]
    result = here.run("-l", before=background(f"{unshare} sh -c '{OVERLAY}'", runs(f"{BIN}/halvd")) + f"rm {BIN}/halvd\n")
    assert listed(result) == [WITNESS]


# In a mount namespace of its own, with a tree of its own, it runs a daemon that is gone, from a root whose way to the tree
# is an absolute link: whoever follows that from outside comes to the host's own tree.
JAIL = """
import os, re, shutil, subprocess
os.makedirs("/tmp/jail/usr")
os.symlink("/usr/quarn", "/tmp/jail/usr/quarn")
for file in re.findall(r"(/\\S+) \\(0x", subprocess.run(["ldd", "%(sleep)s"], capture_output=True, text=True).stdout):
    os.makedirs("/tmp/jail" + os.path.dirname(file), exist_ok=True)
    shutil.copy(file, "/tmp/jail" + file)
daemon = os.open("%(bin)s/halvd", os.O_RDONLY)
os.unlink("%(bin)s/halvd")
os.chroot("/tmp/jail")
os.chdir("/")
os.execve(daemon, ["halvd", "31337"], {})
""" % {"bin": BIN, "sleep": SLEEP}


def test_link_in_a_foreign_root_does_not_lead_to_the_hosts_tree(host):
    here = host(FLEET)
    here.write("/opt/jail.py", JAIL)
    inside = (f"mount -t tmpfs tmpfs /usr/quarn && mkdir -p {BIN} && cp {SLEEP} {BIN}/halvd && "
              "exec /usr/bin/python3 /opt/jail.py")
    result = here.run("-l", before=background(f"unshare --mount sh -c '{inside}'", runs(f"{BIN}/halvd")))
    assert listed(result) == [WITNESS]


# --- third parties

def test_descriptor_that_was_sent_to_a_stranger_only_lists_it(host):
    """Sending a daemon's file to a database must not get the database stopped."""
    here = host(FLEET)
    here.write("/opt/receive.py", "import socket, os, signal\n"
               "ours, theirs = socket.socketpair(socket.AF_UNIX)\n"
               "if os.fork() == 0:\n"
               "    theirs.close()\n"
               f"    socket.send_fds(ours, [b'x'], [os.open('{BIN}/momuhe', os.O_RDONLY)])\n"
               "    os._exit(0)\n"
               "ours.close()\n"
               "socket.recv_fds(theirs, 1, 1)\n"
               "os.wait()\n"
               "open('/opt/received', 'w').close()\n"
               "signal.pause()\n")
    before = background("/usr/bin/python3 /opt/receive.py", "test -e /opt/received")
    python = os.path.realpath("/usr/bin/python3")
    assert listed(here.run("-l", "-3", before=before)) == [WITNESS, (python, "Third Party")]
    here.inside("/opt/received").unlink()
    result = here.run("-k", "-3", before=before, after=f"{runs(python)} && echo alive >/usr/quarn/sandbox/alive")
    assert here.file("alive") == "alive\n"
    assert not result.is_alive("momuhe")


def test_excluded_third_party_whose_executable_was_replaced_is_spared(host):
    here = host(f"/opt/db/mapper map={LIBRARY}\n{BIN}/momuhe\n")
    here.write("/opt/list", "/opt/db/mapper\n")
    replace = "cp /opt/db/mapper /opt/db/new; mv /opt/db/new /opt/db/mapper\n"
    result = here.run("-k", "-3", "-b", "/opt/list", before=replace)
    assert result.is_alive("mapper") and not result.is_alive("momuhe")
    assert result.signals_of("mapper") == []


def test_replaced_third_party_that_no_list_names_is_ended(host):
    here = host(f"/opt/db/mapper map={LIBRARY}\n{BIN}/momuhe\n")
    result = here.run("-k", "-3", before="cp /opt/db/mapper /opt/db/new; mv /opt/db/new /opt/db/mapper\n",
                      after=until_ended("/opt/db/mapper (deleted)"))
    assert not result.is_alive("mapper")


def test_stranger_named_like_a_row_is_never_run_with_terminate(host):
    """The row's command runs, for the daemon that it is meant for."""
    result = host(f"/opt/x/halvd map={LIBRARY}\n{BIN}/halvd\n").run("-k", "-3", after=until_ended("/opt/x/halvd"))
    assert result.commands() == [f"{BIN}/halvd -terminate"]
    assert result.ends[result.pid("halvd", 1)] == "asked"
    # As a third party it is signalled, and only that.
    assert not result.is_alive("halvd", 0)


def test_service_of_the_host_that_runs_the_products_code_is_only_listed(host):
    services = ["sshd", "crond", "dockerd", "dbus-daemon", "systemd-logind", "NetworkManager"]
    result = host("".join(f"/opt/x/{name} map={LIBRARY}\n" for name in [*services, "mapper"])).run(
        "-k", "-3", after=until_ended("/opt/x/mapper"))
    assert "\nThere are 7 3rd party processes active.\n" in result.stdout
    for name in services:
        assert result.is_alive(name) and result.signals_of(name) == [], name
    assert not result.is_alive("mapper")


@pytest.mark.skipif(os.geteuid() != 0, reason="what a process has mapped is shown to the host's root alone")
def test_service_with_a_library_of_a_tree_on_an_overlay_is_ended(host):
    """Of two file systems: there the kernel tells another device of a mapping than of the file's status."""
    here = host(FLEET)
    folder = os.path.dirname(LIBRARY)
    overlay = ("mkdir /tmp/upper /tmp/work && "
               f"mount -t overlay overlay -o lowerdir={folder},upperdir=/tmp/upper,workdir=/tmp/work {folder} || exit 97\n")
    service = background(f"LD_PRELOAD={LIBRARY} unshare --mount {SLEEP} 600",
                         f"{runs(SLEEP)} && grep -q 'r-xp.*libsampled' /proc/$!/maps")
    result = here.run("-k", "-3", before=overlay + service,
                      after=f"{until_ended(SLEEP)}{runs(SLEEP)} || echo ended >/usr/quarn/sandbox/ended\n")
    assert "\nThere are 1 3rd party processes active.\n" in result.stdout
    assert here.file("ended") == "ended\n"


@pytest.mark.parametrize("between", ["", "env --unset LD_PRELOAD sh -c "], ids=["parent", "grandparent"])
def test_ancestor_that_runs_the_products_code_is_spared(host, between):
    """Whatever started the program must not be ended by it, however it came to the product's code."""
    def below_the_ancestor(command, then):
        if between:
            command = between + shlex.quote(f"{command}; exit $?")
        return f"env LD_PRELOAD={LIBRARY} sh -c {shlex.quote(f'{command}; {then}')}"
    here = host(FLEET)
    listing = here.run(command=below_the_ancestor(f"{CVSTOP} -l -3", "exit $?"))
    # The shell between has its standard streams in the tree.
    shells = 2 if between else 1
    assert listed(listing) == [WITNESS] + shells * [(os.path.realpath("/bin/sh"), "Third Party")]
    result = here.run(command=below_the_ancestor(f"{CVSTOP} -k -3", "echo survived"))
    assert_ends(result.stdout, "survived\n")
    assert not result.is_alive("momuhe")


def test_mapper_in_a_pid_namespace_of_its_own_is_spared(host):
    here = host(FLEET)
    # Its executable shows before it has mapped the library.
    maps = f"grep -l 'r-xp.*{SLEEP}' /proc/[0-9]*/maps 2>/dev/null | xargs -r grep -q 'r-xp.*libsampled'"
    before = background(f"LD_PRELOAD={LIBRARY} unshare --pid --fork {SLEEP} 600", maps)
    listing = listed(here.run("-l", "-3", before=before))
    assert WITNESS in listing and (SLEEP, "Third Party") in listing
    result = here.run("-k", "-3", before=before, after=f"{runs(SLEEP)} && echo alive >/usr/quarn/sandbox/alive")
    assert here.file("alive") == "alive\n"
    assert not result.is_alive("momuhe")


# --- giants, and servers that do not answer

GIANT = """
import ctypes, os, resource, signal, sys
mmap = ctypes.CDLL(None).mmap
mmap.restype = ctypes.c_void_p
mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_long]
def map_page(file, protection):
    if mmap(None, 4096, protection, 2, file, 0) == ctypes.c_void_p(-1).value:
        sys.exit("no more mappings")
file = os.open("/usr/bin/sleep", os.O_RDONLY)
for n in range(65000):
    map_page(file, 5 if n % 2 else 1)
if len(sys.argv) > 1:
    product = os.open(sys.argv[1], os.O_RDONLY)
    map_page(product, 5)
    os.close(product)
for n in range(min(20000, resource.getrlimit(resource.RLIMIT_NOFILE)[1] - 100)):
    os.dup(file)
open("/opt/giant%d" % len(sys.argv), "w").close()
signal.pause()
"""


def test_giants_beside_a_stuck_file_server_do_not_hold_up_a_listing(host):
    """65,000 mappings and 20,000 descriptors, of a stranger and of one that runs the product's code; and on a server that
    answers nobody any more, a daemon's namesake, one that runs the product's code, and one that works there."""
    here = host(FLEET)
    here.write("/opt/giant.py", GIANT)
    here.install(HERE / "stuckfs.py", "/opt/stuckfs.py")
    before = ("mkdir /tmp/stuck\n"
              + background("/usr/bin/python3 /opt/stuckfs.py /tmp/stuck /opt/starter/start >/tmp/mounted 2>&1",
                           "test -s /tmp/mounted || ! kill -0 $!")
              + "server=$!; grep -q mounted /tmp/mounted || { cp /tmp/mounted /usr/quarn/sandbox/unmountable; exit 0; }\n"
              + background("(exec /tmp/stuck/program --serve 1 life=600) >/dev/null", runs("/tmp/stuck/program"))
              + background(f"(LD_PRELOAD={LIBRARY} exec /tmp/stuck/program --serve 1 life=600) >/dev/null",
                           "grep -q 'r-xp.*libsampled' /proc/$!/maps 2>/dev/null")
              + background(f"(cd /tmp/stuck; exec {SLEEP} 600)", runs(SLEEP))
              + background("/usr/bin/python3 /opt/giant.py", "test -e /opt/giant1")
              + background(f"/usr/bin/python3 /opt/giant.py {LIBRARY}", "test -e /opt/giant2")
              + "kill -STOP $server\n")
    command = f"timeout 60 {CVSTOP} -l && echo and && timeout 60 {CVSTOP} -l -3"
    result = here.run(command=command, before=before)
    if (here.quarn / "sandbox/unmountable").exists():
        pytest.skip(f"no file server can be mounted here: {here.file('unmountable')}")
    assert (result.status, result.stderr) == (0, "")
    products, all_of_them = (rows_of_listing(text) for text in result.stdout.split("and\n"))
    assert products == [WITNESS]
    # Of the giants and of the namesakes, those that run the product's code; and what prints to a file of the tree.
    assert all_of_them == [WITNESS, ("/tmp/stuck/program", "Third Party"), (os.path.realpath("/usr/bin/python3"), "Third Party"),
                           ("/usr/bin/timeout", "Third Party")]


def test_file_of_the_product_behind_thousands_of_others_is_found(host):
    here = host(FLEET)
    here.write("/opt/hoard.py", "import os, resource, signal\n"
               "file = os.open('/usr/bin/sleep', os.O_RDONLY)\n"
               "for n in range(min(20000, resource.getrlimit(resource.RLIMIT_NOFILE)[0] - 100)):\n"
               "    os.dup(file)\n"
               f"product = os.open('{LIBRARY}', os.O_RDONLY)\n"
               "open('/opt/hoarded', 'w').close()\n"
               "signal.pause()\n")
    result = here.run("-l", "-3", before=background("/usr/bin/python3 /opt/hoard.py", "test -e /opt/hoarded"))
    assert listed(result) == [WITNESS, (os.path.realpath("/usr/bin/python3"), "Third Party")]


# --- the caller's own limits

def test_caller_that_may_not_look_is_told_so(host):
    """A confined root must not see that nothing runs."""
    here = host(FLEET)
    result = here.run(command=f"setpriv --bounding-set -sys_ptrace --inh-caps -sys_ptrace {CVSTOP} -l")
    assert (result.stdout, result.status) == ("find_process_CV failed with status 13\n", NO_SNAPSHOT)


@pytest.mark.parametrize("mode, first", [("-l", ""), ("-k", GATHERING)])
def test_root_of_a_user_namespace_is_told_that_it_was_denied(host, mode, first):
    """The capabilities that it has there say nothing of the processes outside."""
    result = host(FLEET).run(command=f"unshare --user --map-root-user {CVSTOP} {mode}")
    assert (result.stdout, result.status) == (first + "find_process_CV failed with status 13\n", NO_SNAPSHOT)
    assert result.is_alive("momuhe") and result.signals == []


@pytest.mark.parametrize("option", ["-l", "-l -3"])
def test_few_descriptors_are_an_error_or_a_whole_listing(host, option):
    here = host(f"{BIN}/momuhe count=3\n")
    here.run(command=f"for few in $(seq 3 16); do (ulimit -n $few; {CVSTOP} {option}; echo \"status $?\"); done")
    results = re.findall(r"((?:.*\n)*?)status (\d+)\n", here.file("stdout"))
    assert len(results) == 14
    for text, status in results:
        # 127: the loader finds no descriptor for the C library, in a build that counts lines and is linked dynamically.
        assert status in ("0", "110", "127", str(NO_SNAPSHOT)), text
        assert status != "0" or text.count(f"{BIN}/momuhe") == 3, text
    assert results[-1][1] == "0"
    assert sum(status == str(NO_SNAPSHOT) for _, status in results) >= 3


def test_little_memory_is_an_end_or_a_whole_listing(host):
    """Each limit of the address space from where the program cannot even start to where it has enough."""
    here = host(f"{BIN}/momuhe count=3\n")
    here.run(command=f"for few in $(seq 2000 100 12000); do (ulimit -v $few; {CVSTOP} -l 2>/dev/null; echo \"status $?\"); done")
    results = re.findall(r"((?:.*\n)*?)status (\d+)\n", here.file("stdout"))
    assert len(results) == 101
    complete = 0
    for text, status in results:
        # 137, 139: the kernel finds no room to load it; 127: the C library none for its first thread ("Cannot allocate TLS
        # block"); 134: std::terminate, the defined end.
        assert status in ("0", "110", str(NO_SNAPSHOT), "127", "134", "137", "139"), (text, status)
        assert status != "0" or text.count(f"{BIN}/momuhe") == 3, text
        complete += status == "0"
    assert results[-1][1] == "0" and 0 < complete < 101


# --- what it costs

def test_stranger_costs_one_system_call(host):
    here = host(FLEET)
    strangers = f"for n in $(seq 200); do {SLEEP} 600 & done\n" + background("true", f"test $({runs_count(SLEEP)}) = 200")
    result = here.run(command=f"strace -o /opt/calls {CVSTOP} -l", before=strangers)
    assert listed(result) == [WITNESS]
    calls = [line.split("(")[0] for line in here.inside("/opt/calls").read_text().splitlines()]
    scan = calls[calls.index("getdents64"):]
    links = scan.count("readlinkat")
    assert links >= 200
    # What besides: the table itself, the shells' being interpreters, once the caller, and the output.
    assert len(scan) < links + 110, collections.Counter(scan)


@pytest.mark.skipif(os.geteuid() != 0, reason="in a user namespace no interpreter belongs to root: none is trusted")
def test_interpreters_that_have_erased_their_arguments_hold_up_nobody(host):
    """Any user can start thousands. Looking again for the arguments of each, as is right for one that is just being executed,
    asks a thousand times more, and took ten seconds and more."""
    here = host(FLEET)
    mksh = here.install(BUILD / "sandbox/mute", "/opt/shells/mksh")
    shells = background(f"{mksh} {INTERPRETERS} erased >/tmp/ready", "grep -qs ready /tmp/ready")
    result = here.run(command=f"strace -f -e trace=openat -o /opt/calls {CVSTOP} -l", before=shells)
    assert listed(result) == [WITNESS]
    opened = collections.Counter(re.findall(r'openat\(\d+, "(\w+)"', here.inside("/opt/calls").read_text()))
    # Besides: the shells of the box, and the ancestors of the program.
    assert 2 * INTERPRETERS <= opened["cmdline"] <= 2 * INTERPRETERS + 20, opened
    assert INTERPRETERS <= opened["stat"] <= INTERPRETERS + 20, opened


def test_interpreter_that_runs_no_file_of_the_product_is_asked_no_more_than_that(host):
    """Hosts have hundreds: of each are read the arguments, and its executable's link once more."""
    here = host(FLEET)
    mksh = here.install(BUILD / "sandbox/mute", "/opt/shells/mksh")
    here.write("/opt/shells/100", "exit\n")
    shells = f"cd /opt/shells\n{background(f'{mksh} 100 >/tmp/ready', 'grep -qs ready /tmp/ready')}"
    result = here.run(command=f"strace -f -e trace=openat,readlinkat,statx -o /opt/calls {CVSTOP} -l", before=shells)
    assert listed(result) == [WITNESS]
    text = here.inside("/opt/calls").read_text()
    calls = collections.Counter(re.findall(r'(\w+)\(\d+, "([a-z]+)"', text))
    # No link is on the way to the file: where it leads need not be asked.
    assert text.count('"/proc/thread-self/fd/') <= 20
    # Besides: the daemon, and the program itself. A watcher looks too, and more than once.
    asked = calls["openat", "cmdline"]
    assert asked >= 100 and calls["readlinkat", "exe"] <= asked + 10, calls
    assert calls["statx", "exe"] <= 10 and calls["openat", "stat"] <= 20, calls


# --- on the run

def test_process_that_hops_from_pid_to_pid_is_seen(host):
    """With a buffer of many names none of 50 scans sees it: half of them leaves room for a busy machine."""
    here = host()
    here.install(BUILD / "sandbox/hopper", f"{BIN}/hopper")
    here.run(command=f"for n in $(seq 50); do {CVSTOP} -l; done",
             before=background(f"{BIN}/hopper 2", runs(f"{BIN}/hopper")))
    assert here.file("stdout").count(f"{BIN}/hopper") >= 25


def test_replaced_program_that_still_runs_is_no_process_of_the_product(host):
    """An upgrade in the middle of a shutdown: the new release must not stop, nor count, the old one."""
    here = host(f"{BIN}/momuhe ignore=all\n")
    result = here.run(before=f"{CVSTOP} -k -q &\n" + until_logged("Waiting for")
                      + f"cp {CVSTOP} {BIN}/new; mv {BIN}/new {CVSTOP}\n", command=f"{CVSTOP} -l -3", after="wait\n")
    assert listed(result) == [WITNESS]
