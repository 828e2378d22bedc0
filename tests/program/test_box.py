"""The box itself and its sample daemons: what the other program tests stand on."""
import os
import pathlib
import shlex
import socket
import subprocess
import uuid

import pytest

import box
from box import ALL_SPECIFIED, BIN, GATHERING, JOURNAL, REPO, initiating

PROGRAM = str(REPO / "sandbox/box")
VOLMGR = "/usr/quarn/volmgr/bin"
# Waits until a command succeeds; for a minute at most, so that a busy machine is no reason to fail.
UNTIL = "until_true() { timeout 60 sh -c \"until $1; do sleep 0.01; done\" || { echo \"never: $1\" >&2; exit 1; }; }; "
PID_OF = "pid_of() { awk -F'\\t' -v name=\"$1\" '$2 == \"ready\" && $4 == name { print $3; exit }' " + JOURNAL + "; }; "
HELPERS = UNTIL + PID_OF


def script(text):
    """A command line for Host.run that knows until_true and pid_of."""
    return f"sh -ec {shlex.quote(HELPERS + text)}"


def journaled(line_end):
    """A condition for until_true: a journal line ends like this."""
    return f"grep -q '{line_end}$' {JOURNAL}"


@pytest.fixture
def tree(host):
    return host().tree


def call_box(*arguments, env=None, timeout=120):
    return subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, env=env, timeout=timeout, check=False)


# --- the box


def test_processes_of_the_host_are_not_there(host):
    here = host()
    result = here.run(command="sh -c 'readlink /proc/self/ns/pid; readlink /proc/[0-9]*/exe | sort -u'")
    namespace, *executables = result.stdout.splitlines()
    assert namespace != os.readlink("/proc/self/ns/pid")
    assert set(executables) <= {"/usr/bin/bwrap", "/usr/bin/dash", "/usr/bin/readlink", "/usr/bin/sort"}
    assert "/usr/bin/dash" in executables


def test_nothing_is_written_outside_the_tree(host):
    here = host()
    mark = f"box-mark-{uuid.uuid4().hex}"
    places = ["/etc", "/usr", "/usr/bin", "/var/tmp", "/tmp", "/run", "/dev/shm", "/", "/usr/quarn", "/opt", str(REPO)]
    result = here.run(command=f"sh -c 'for place; do touch $place/{mark} 2>/dev/null && echo $place; done' sh "
                              + shlex.join(places))
    assert {"/tmp", "/usr/quarn", "/opt"} <= set(result.stdout.splitlines())
    assert not {"/etc", "/usr/bin", "/var/tmp", "/", str(REPO)} & set(result.stdout.splitlines())
    assert [place for place in places if (pathlib.Path(place) / mark).exists()] == []
    assert (here.quarn / mark).exists() and (here.tree / "opt" / mark).exists()


def test_environment_is_fixed(host):
    environment = host().run(command="env", env={"LANG": "de_DE.UTF-8"}).stdout.splitlines()
    assert sorted(line for line in environment if not line.startswith(("PWD=", "_=", "OLDPWD="))) == [
        "HOME=/tmp", "LANG=de_DE.UTF-8", "LC_ALL=C", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "TZ=UTC"]


def test_network_is_the_loopback_alone_and_it_carries(host):
    program = ("import socket; print([name for _, name in socket.if_nameindex()]); "
               "a = socket.socket(type=socket.SOCK_DGRAM); a.bind((\"127.0.0.1\", 0)); a.settimeout(10); "
               "b = socket.socket(type=socket.SOCK_DGRAM); b.sendto(b\"gauge\", a.getsockname()); print(a.recv(9))")
    assert host().run(command=shlex.join(["/usr/bin/python3", "-c", program])).stdout == "['lo']\nb'gauge'\n"


def test_host_has_its_own_name(host):
    assert host().run(command="uname -n").stdout == "client\n"
    assert socket.gethostname() != "client"


def test_no_system_log_is_reached(host):
    assert host().run(command="sh -c 'test -e /dev/log; echo $?'").stdout == "1\n"


@pytest.mark.parametrize("status", [0, 7, 110])
def test_exit_status_is_the_commands(tree, status):
    assert call_box("--tree", tree, "--", "sh", "-c", f"exit {status}").returncode == status


def test_the_time_is_capped(tree):
    assert call_box("--tree", tree, "--timeout", "1", "--", "tail", "-f", "/dev/null").returncode == 124


@pytest.mark.parametrize("ending, seconds, status", [("exit 3", "60", 3), ("tail -f /dev/null", "2", 124)])
def test_detached_processes_end_with_the_box(tree, ending, seconds, status):
    """A process that outlived the box would hold this pipe, and the call would not return."""
    result = call_box("--tree", tree, "--timeout", seconds, "--", "sh", "-c",
                      f"setsid sh -c 'trap \"\" HUP TERM; echo here; tail -f /dev/null' & {ending}")
    assert result.returncode == status


def test_orphans_are_reaped(host):
    result = host(f"{BIN}/halvd\n").run(command=script(
        f"pid=$(pid_of halvd); {BIN}/halvd -terminate; until_true \"! kill -0 $pid 2>/dev/null\"; echo gone"))
    assert result.stdout == "gone\n"


def test_dropped_capability_is_gone(host):
    bounding = "grep CapEff /proc/self/status"
    whole = int(host().run(command=bounding).stdout.split()[1], 16)
    less = int(host().run(command=bounding, options=["--drop", "CAP_SYS_PTRACE"]).stdout.split()[1], 16)
    ptrace = 1 << 19
    assert whole & ptrace and less == whole & ~ptrace


@pytest.mark.parametrize("arguments", [[], ["--tree", "/nowhere"], ["--tree", "/nowhere", "--"], ["--what"]])
def test_wrong_use_of_the_box(arguments):
    result = call_box(*arguments)
    assert result.returncode == box.CANNOT_BOX
    assert result.stderr.startswith(("usage: box", "box: unknown argument"))


def test_missing_bubblewrap_is_said(tree):
    result = subprocess.run(["/bin/bash", PROGRAM, "--tree", tree, "--", "true"], capture_output=True, text=True,
                            env={"PATH": "/nowhere"}, check=False)
    assert (result.returncode, result.stderr) == (box.CANNOT_BOX, "box: bubblewrap is not installed\n")


def test_forbidding_kernel_is_said(tree):
    forbidding = tree / "opt/bwrap"
    forbidding.write_text("#!/bin/sh\necho 'bwrap: No permissions to create new namespace' >&2\nexit 1\n")
    forbidding.chmod(0o755)
    result = call_box("--tree", tree, "--", "true", env={**os.environ, "PATH": f"{tree}/opt:{os.environ['PATH']}"})
    assert result.returncode == box.CANNOT_BOX
    assert result.stderr == "box: the kernel forbids it here: bwrap: No permissions to create new namespace\n"


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can become another user; all other tests show it already")
def test_ordinary_user_gets_the_box_too(host):
    here = host(f"{BIN}/halvd\n{BIN}/momuhe\n")
    subprocess.run(["chown", "-R", "65534:65534", here.tree], check=True)
    as_nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
    if subprocess.run([*as_nobody, "test", "-w", here.tree], check=False).returncode != 0:
        pytest.skip(f"an ordinary user cannot reach {here.tree}")
    commands = ("/opt/starter/start --start /usr/quarn/sandbox/fleet; id -u; "
                f"{BIN}/cvstop -l | awk 'NR > 2 {{ print $1 }}'; {BIN}/cvstop -k -q; echo $?; "
                f"timeout 60 sh -c 'until [ -z \"$({BIN}/cvstop -l)\" ]; do sleep 0.01; done'; echo $?")
    result = subprocess.run([*as_nobody, PROGRAM, "--tree", here.tree, "--", "sh", "-c", commands],
                            capture_output=True, text=True, timeout=120, check=False)
    assert (result.stdout, result.stderr) == ("0\nhalvd\nmomuhe\n1\n0\n", "")


# --- the tree


def test_each_daemon_is_a_file_of_its_own(host):
    """An exclude list names files by device and inode: a hard link would exclude them all."""
    here = host(f"{BIN}/halvd\n{BIN}/momuhe\n")
    files = [(here.quarn / "corvane/bin" / name).stat() for name in ("halvd", "momuhe", "duzahi_start_stop")]
    assert len({file.st_ino for file in files}) == 3
    assert {file.st_nlink for file in files} == {1}


# --- the daemons


def test_every_start_is_journaled_exactly(host):
    result = host(f"{BIN}/halvd stop=3\n{BIN}/momuhe count=2  # two of it\n\n# none\n").run(command="true")
    assert [(s.argv[0], *s.argv[3:]) for s in result.starts] == [
        (f"{BIN}/halvd", "stop=3"), (f"{BIN}/momuhe", "count=2"), (f"{BIN}/momuhe", "count=2")]
    assert {name: len(pids) for name, pids in result.pids.items()} == {"halvd": 1, "momuhe": 2}
    assert [s.pid for s in result.starts] == [*result.pids["halvd"], *result.pids["momuhe"]]
    assert all(result.is_alive("momuhe", n) for n in (0, 1)) and result.is_alive("halvd")
    assert (result.signals, result.ends) == ([], {})


def test_lines_of_many_processes_never_mix(host):
    words = [f"argument-{n}-" + "x" * 200 for n in range(60)]
    result = host().run(command=script(
        f"for word in {' '.join(words)}; do {BIN}/duzahi_start_stop $word & done; wait"))
    assert sorted(result.commands()) == sorted(f"{BIN}/duzahi_start_stop {word}" for word in words)


def test_unknown_arguments_are_written_down_and_do_nothing(host):
    result = host(f"{BIN}/halvd\n").run(command=f"{BIN}/halvd -what 'two words' ''")
    assert result.starts[-1].argv == [f"{BIN}/halvd", "-what", "two words", ""]
    assert (result.status, result.signals) == (0, [])
    assert result.is_alive("halvd")


@pytest.mark.parametrize("request_word", ["-terminate", "-terminate_local"])
def test_terminate_stops_every_instance_of_that_executable_and_no_other(host, request_word):
    here = host(f"{BIN}/halvd count=2\n{BIN}/momuhe\n{VOLMGR}/halvd\n")
    result = here.run(command=script(
        f"{BIN}/halvd {request_word}; until_true \"test \\$(grep -c asked {JOURNAL}) = 2\""))
    assert (result.stderr, result.status) == ("", 0)
    assert [result.ends.get(result.pid("halvd", n)) for n in (0, 1, 2)] == ["asked", "asked", None]
    assert result.is_alive("halvd", 2) and result.is_alive("momuhe")
    assert [s.signal for s in result.signals] == ["SIGUSR1", "SIGUSR1"]


def test_recycled_pid_of_another_executable_is_not_asked(host):
    """The registry says halvd of a pid that is momuhe's by now."""
    result = host(f"{BIN}/halvd\n{BIN}/momuhe\n").run(command=script(
        f"echo {BIN}/halvd >/usr/quarn/sandbox/pids/$(pid_of momuhe); {BIN}/halvd -terminate; "
        f"until_true \"{journaled('asked')}\""))
    assert (result.stderr, result.status) == ("", 0)
    assert result.is_alive("momuhe") and not result.is_alive("halvd")
    assert [s.name for s in result.signals] == ["halvd"]


@pytest.mark.parametrize("command, stopped", [
    (f"{BIN}/admincmd/vilohibo -all", ["mamegok"]),
    (f"{BIN}/admincmd/humowow -M localhost -terminate", ["dobd"]),
    (f"{BIN}/duzahi_start_stop stop", ["CV_dbsrv", "dbsrv17"]),
    (f"{BIN}/ndmpsolekagent.stop -remove", ["ndmpsolekagent"]),
    (f"{VOLMGR}/nodakewe -h localhost -t", ["borad", "kobd", "nanid", "neded", "zeld"]),
    ("/usr/quarn/mosk/CorvaneDB/howivd -stop", ["howivd"]),
    ("/usr/quarn/mosk/CorvaneDB/mubd -stop", ["mubd"]),
    (f"{BIN}/admincmd/humowow -M localhost -suspend_cancel_selective", []),
    (f"{BIN}/duzahi_start_stop start", []),
    (f"{VOLMGR}/nodakewe -h localhost", [])])
def test_tools_stop_the_daemons_that_they_are_for(host, command, stopped):
    names = ["mamegok", "dobd", "dbsrv17", "CV_dbsrv", "ndmpsolekagent", "kobd", "nanid", "neded", "borad", "zeld",
             "howivd", "mubd", "halvd"]
    # What was asked before halvd has noticed it when halvd has: it is asked last, and awaited with the others.
    asked = len(stopped) + 1
    result = host("".join(f"{BIN}/{name}\n" for name in names)).run(command=script(
        f"{command}; {BIN}/halvd -terminate; until_true \"test \\$(grep -c asked {JOURNAL}) -ge {asked}\""))
    assert (result.stderr, result.status) == ("", 0)
    assert sorted(s.name for s in result.signals) == sorted([*stopped, "halvd"])
    assert sorted(name for name in names if not result.is_alive(name)) == sorted([*stopped, "halvd"])
    assert result.commands()[0] == command


@pytest.mark.parametrize("form", ["", " script=yes"])
def test_ignored_signal_is_noticed_and_ignored(host, form):
    result = host(f"{BIN}/momuhe ignore=TERM,HUP{form}\n").run(command=script(
        "pid=$(pid_of momuhe); for signal in TERM HUP TERM QUIT; do "
        "noted=$(grep -c SIG$signal $journal || true); kill -$signal $pid; "
        "until_true \"test \\$(grep -c SIG$signal $journal) -gt $noted\"; done; "
        "until_true \"! kill -0 $pid 2>/dev/null\"".replace("$journal", JOURNAL)))
    assert (result.stderr, result.status) == ("", 0)
    assert result.signals_of("momuhe") == ["SIGTERM", "SIGHUP", "SIGTERM", "SIGQUIT"]
    assert result.ends == {result.pid("momuhe"): "signal"}


@pytest.mark.parametrize("form", ["", " script=yes"])
def test_only_sigkill_ends_one_that_ignores_all(host, form):
    result = host(f"{BIN}/momuhe ignore=all stop=never{form}\n").run(command=script(
        "pid=$(pid_of momuhe); for signal in TERM HUP INT QUIT USR1; do kill -$signal $pid; "
        f"until_true \"grep -q SIG$signal {JOURNAL}\"; done; kill -0 $pid && echo lives; "
        "kill -KILL $pid; until_true \"! kill -0 $pid 2>/dev/null\""))
    assert (result.stdout, result.stderr, result.status) == ("lives\n", "", 0)
    assert [s.signal for s in result.signals] == ["SIGTERM", "SIGHUP", "SIGINT", "SIGQUIT", "SIGUSR1"]
    assert result.ends == {} and not result.is_alive("momuhe")


def ends_at(here):
    return {line.split("\t")[3]: float(line.split("\t")[0]) for line in here.file("journal").splitlines()
            if line.split("\t")[1] == "end"}


def test_slow_one_obeys_after_its_time(host):
    here = host(f"{BIN}/halvd stop=1\n")
    result = here.run(command=script(f"{BIN}/halvd -terminate; until_true \"{journaled('asked')}\""))
    assert (result.stderr, result.status) == ("", 0)
    assert ends_at(here)["halvd"] - result.signals[0].time >= 0.99


def test_one_ends_by_itself(host):
    result = host(f"{BIN}/halvd life=1\n").run(command=script(f"until_true \"{journaled('life')}\""))
    assert (result.stderr, result.status) == ("", 0)
    assert result.ends == {result.pid("halvd"): "life"} and result.signals == []


def test_zombie_survives_sigkill(host):
    result = host(f"{BIN}/momuhe survive=zombie parent=/opt/keeper/keeper\n").run(command=script(
        "pid=$(pid_of momuhe); parent=$(awk '/^PPid/ { print $2 }' /proc/$pid/status); "
        "readlink /proc/$pid/exe /proc/$parent/exe; kill -KILL $pid; "
        "until_true \"grep -q '^State:.Z' /proc/$pid/status\"; kill -KILL $pid; kill -0 $pid; echo $?; "
        "readlink /proc/$parent/exe"))
    assert (result.stderr, result.status) == ("", 0)
    assert result.stdout == f"{BIN}/momuhe\n/opt/keeper/keeper\n0\n/opt/keeper/keeper\n"


def test_third_parties_take_their_place(host):
    library = "/usr/quarn/corvane/lib/libsampled.so"
    result = host(f"/opt/a/mapper map={library}\n/opt/a/editor cwd={BIN}\n/opt/a/pager open=/usr/quarn/corvane/host.conf\n"
                  ).run(command=script(
                      "grep -c \"r-xp .*libsampled.so\" /proc/$(pid_of mapper)/maps; readlink /proc/$(pid_of editor)/cwd; "
                      "readlink /proc/$(pid_of pager)/fd/* | grep quarn; "
                      "readlink /proc/$(pid_of mapper)/cwd /proc/$(pid_of mapper)/fd/*"))
    assert (result.stderr, result.status) == ("", 0)
    assert result.stdout.splitlines()[:4] == ["1", BIN, "/usr/quarn/corvane/host.conf", "/"]
    assert set(result.stdout.splitlines()[4:]) == {"/dev/null"}


def test_daemons_are_detached_from_the_starter(host):
    result = host(f"{BIN}/halvd\n{BIN}/momuhe script=yes\n").run(command=script(
        "for name in halvd momuhe; do awk '/^PPid/ { print $2 }' /proc/$(pid_of $name)/status; "
        "readlink /proc/$(pid_of $name)/fd/[012]; done"))
    assert result.stdout == 2 * ("1\n" + 3 * "/dev/null\n")


def test_script_is_run_by_its_interpreter_and_obeys(host):
    result = host(f"{BIN}/halvd script=yes count=2\n{BIN}/momuhe script=yes\n").run(command=script(
        f"readlink /proc/$(pid_of halvd)/exe; tr '\\0' ' ' </proc/$(pid_of halvd)/cmdline | cut -d' ' -f2; "
        f"{BIN}/halvd -terminate; until_true \"test \\$(grep -c asked {JOURNAL}) = 2\""))
    assert (result.stdout, result.stderr, result.status) == (f"{os.path.realpath('/bin/sh')}\n{BIN}/halvd\n", "", 0)
    assert [result.ends.get(result.pid("halvd", n)) for n in (0, 1)] == ["asked", "asked"]
    assert result.is_alive("momuhe")


@pytest.mark.skipif(os.geteuid() != 0, reason="in a user namespace no interpreter belongs to root: none is trusted")
def test_script_is_listed_and_stopped_by_its_own_path(host):
    result = host(f"{BIN}/halvd script=yes\n{BIN}/momuhe script=yes\n").run("-k")
    assert result.stdout == (
        GATHERING + initiating(2) + f"Signaling process {BIN}/momuhe\nRequesting termination of {BIN}/halvd.\n" + ALL_SPECIFIED)
    assert result.signals_of("momuhe") == ["SIGTERM"]
    assert result.ends == {result.pid("momuhe"): "signal", result.pid("halvd"): "asked"}


@pytest.mark.parametrize("line", [f"{BIN}/halvd what=1\n", f"{BIN}/halvd cwd=/nowhere\n", f"{BIN}/halvd script=yes life=3\n"])
def test_fleet_that_cannot_start_is_no_fleet(host, line):
    with pytest.raises(RuntimeError, match="the box ended with 99"):
        host(line).run(command="true")


# --- the fleets


def fleet(name):
    lines = (REPO / "sandbox/fleets" / f"{name}.fleet").read_text().splitlines()
    return [line.split() for line in lines if line and not line.startswith("#")]


def table_rows():
    lines = (REPO / "tests/unit/shutdown/shutdown_table.txt").read_text().splitlines()
    rows = [shlex.split(line) for line in lines if not line.startswith("#")]
    return {row[2]: row[4] for row in rows if row[3] == "false"}


def names(lines):
    return [line[0].split("/")[-1] for line in lines]


def test_whole_table_fleet_has_each_process_row_once_in_order():
    assert names(fleet("whole-table")) == list(table_rows()), "a new row's process goes into sandbox/fleets/whole-table.fleet"


def test_demo_fleet_is_a_busy_host():
    lines, rows = fleet("demo"), table_rows()
    known = [name for name in names(lines) if name in rows]
    assert len(set(known)) == len(known), "a row's process stands twice in sandbox/fleets/demo.fleet"
    assert len(known) > len(rows) / 2, "sandbox/fleets/demo.fleet is to have most processes of the table"
    assert {rows[name] for name in known} == set(rows.values())
    words = " ".join(word for line in lines for word in line[1:])
    for wanted in ("count=3", "ignore=all", "stop=4", "life=", "map=", "cwd="):
        assert wanted in words, wanted
    assert any(line[0].startswith("/usr/quarn") and name not in rows for line, name in zip(lines, names(lines)))
    assert "koka" in known
