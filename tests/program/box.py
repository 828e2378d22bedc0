"""A client host in a box, as the program tests see it: lay a fleet, run the program, read what happened."""
import collections
import dataclasses
import importlib.machinery
import importlib.util
import os
import pathlib
import re
import shlex
import subprocess

import watching

REPO = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("CVSTOP_BUILD", "build/dev"))
if not BUILD.is_absolute():
    BUILD = REPO / BUILD
BIN = "/usr/quarn/corvane/bin"
CVSTOP = f"{BIN}/cvstop"
JOURNAL = "/usr/quarn/sandbox/journal"
LOG = "/usr/quarn/corvane/logs/cvstop/cvstop.log"
CANNOT_BOX = 125

# CVSTOP_TEST_THROUGH=watch runs each program once more through the watcher, and expects the same of it.
WATCH = "/opt/watch/cvstop-watch"
WATCHED = "/opt/watch/run.json"
THROUGH = os.environ.get("CVSTOP_TEST_THROUGH") == "watch"

# How the output of a shutdown begins, and how it ends: nothing was left for SIGKILL, or nothing is left after it.
GATHERING = "Gathering process information.\n"
ALL_SPECIFIED = "All Corvane specified processes terminated normally.\n"
ALL = "All processes terminated normally.\n"


def _load_make_tree():
    loader = importlib.machinery.SourceFileLoader("make_tree", str(REPO / "sandbox" / "make-tree"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("make_tree", loader))
    loader.exec_module(module)
    return module


lay_tree = _load_make_tree().lay_tree

Start = collections.namedtuple("Start", "pid argv")
Signal = collections.namedtuple("Signal", "time pid name signal")
Record = collections.namedtuple("Record", "time pid level function text")

RECORD = re.compile(r"^(\S+) client cvstop\[(\d+)\] (\w+) ([^:]+(?:::[^: ]+)?): (.*)$")

# Runs the fleet, then the program, then looks at who is left. The standard streams are files: what a test compares is
# what the program wrote, not what passed through a shell. The parentheses keep them out of the outer shell, which would
# otherwise hold files of the product's tree itself, and be listed for it.
SCRIPT = """
/opt/starter/start --start /usr/quarn/sandbox/fleet || exit 99
{before}
({command}) <{stdin} >/usr/quarn/sandbox/stdout 2>/usr/quarn/sandbox/stderr
echo $? >/usr/quarn/sandbox/status
{after}
for pid in /proc/[0-9]*; do
  printf '%s %s %s\\n' "${{pid#/proc/}}" "$(sed 's/.*) //;s/ .*//' "$pid/stat" 2>/dev/null)" \
    "$(readlink "$pid/exe" 2>/dev/null)"
done >/usr/quarn/sandbox/left
"""


# The executable of each process, a line each. Not by readlink, which may take only one name: busybox's does.
EXECUTABLES = "ls -l /proc/[0-9]*/exe 2>/dev/null | sed 's/.* -> //'"


def until_ended(path):
    """Shell text that goes on when no process runs the file any more, or after a minute: one that was sent SIGKILL, and is not
    waited for, may live on for a moment."""
    loop = f"until ! {EXECUTABLES} | grep -qxF {shlex.quote(path)}; do sleep 0.01; done"
    return f"timeout 60 sh -c {shlex.quote(loop)}\n"


def watched(command):
    """The shell text with each program in it run through the watcher."""
    return re.sub(rf"(?<![\w/.]){re.escape(CVSTOP)}(?=[ '\"]|$)", f"{WATCH} --no-report --json {WATCHED} -- {CVSTOP}", command)


def until_logged(text):
    """Shell text that goes on when the program, started last in the background, has a record in its log that holds this."""
    return f"until grep -qs '{text}' {LOG}; do kill -0 $! || exit 97; sleep 0.01; done\n"


@dataclasses.dataclass
class Result:
    stdout: str
    stderr: str
    status: int
    starts: list
    signals: list
    ends: dict
    pids: dict
    log: list
    alive: set
    tree: pathlib.Path

    def pid(self, name, instance=0):
        return self.pids[name][instance]

    def signals_of(self, name, instance=0):
        """The signals that one process noticed, in order, without the polite request of a stop command."""
        return [s.signal for s in self.signals if s.pid == self.pid(name, instance) and s.signal != "SIGUSR1"]

    def commands(self):
        """The argv of each stop command and tool that ran, in the order of their start."""
        return [" ".join(s.argv) for s in self.starts if s.argv[1:2] not in (["--serve"], ["--start"])]

    def is_alive(self, name, instance=0):
        return self.pid(name, instance) in self.alive

    def texts(self, function=None, level=None):
        return [r.text for r in self.log if function in (None, r.function) and level in (None, r.level)]


class Host:
    """One client host. Its tree lives as long as the test, so the program can be run in it more than once."""

    # What runs the host's shell scripts.
    SHELL = pathlib.Path("/bin/sh").resolve()

    def __init__(self, folder, fleet=""):
        self.tree = lay_tree(BUILD, fleet, folder)

    @property
    def quarn(self):
        return self.tree / "quarn"

    def write(self, path, data):
        """Writes a file of the box, given its path in the box."""
        target = self.inside(path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(data if isinstance(data, bytes) else data.encode())
        return path

    def install(self, file, path, mode=0o755):
        """Copies a file of the machine or of the build into the box."""
        self.write(path, pathlib.Path(file).read_bytes())
        self.inside(path).chmod(mode)
        return path

    def inside(self, path):
        """Where a file of the box lies on the machine."""
        return self.tree / ("quarn" + path[len("/usr/quarn"):] if path.startswith("/usr/quarn") else path.lstrip("/"))

    def shell(self, script, options=(), timeout=200):
        if os.environ.get("CVSTOP_COUNT_COVERAGE") == "1":
            # The program leaves its counts in its own tree: one that is ended while it writes spoils no other's.
            options = [*options, "--env", "GCOV_PREFIX=/opt/coverage"]
        return subprocess.run(
            [REPO / "sandbox/box", "--tree", self.tree, "--timeout", str(timeout), *options, "--", "sh", "-c", script],
            capture_output=True, timeout=timeout + 30, check=False)

    def run(self, *args, stdin="/dev/null", before="", after="", command=None, env=None, options=(), timeout=200):
        """Starts the fleet, runs the program with the arguments (or `command`), and reads what happened."""
        if command is None:
            command = shlex.join([CVSTOP, *args])
        if THROUGH:
            command = watched(command)
            # Any user may watch a shutdown, and writes there what was seen.
            self.inside(WATCHED).parent.chmod(0o1777)
        settings = [word for name, value in (env or {}).items() for word in ("--env", f"{name}={value}")]
        box = self.shell(SCRIPT.format(before=before, command=command, stdin=stdin, after=after), [*settings, *options], timeout)
        if box.returncode != 0:
            raise RuntimeError(f"the box ended with {box.returncode}: {box.stderr.decode(errors='replace')}")
        result = self.read_result()
        if THROUGH and self.inside(WATCHED).exists():
            # Each of these runs is one more that the watcher must have seen rightly.
            watching.assert_asked_as_logged(result, watching.Watched(self.inside(WATCHED).read_text()))
        return result

    def file(self, name):
        return (self.quarn / "sandbox" / name).read_text(errors="replace")

    def read_result(self):
        starts, signals, ends, pids = [], [], {}, collections.defaultdict(list)
        # Whose last word is written has nothing left but to exit. A later run in this tree may have its pid again.
        ending = set()
        for line in self.file("journal").splitlines():
            time, kind, pid, *rest = line.split("\t")
            pid = int(pid)
            if kind == "start":
                starts.append(Start(pid, rest))
            elif kind == "ready":
                pids[rest[0]].append(pid)
                ending.discard(pid)
            elif kind == "signal":
                signals.append(Signal(float(time), pid, *rest))
            elif kind == "end":
                ends[pid] = rest[1]
                ending.add(pid)
        left = [line.split(" ", 2) for line in self.file("left").splitlines()]
        return Result(
            stdout=self.file("stdout"), stderr=self.file("stderr"), status=int(self.file("status")), starts=starts,
            signals=signals, ends=ends, pids=pids, log=self.read_log(),
            alive={int(pid) for pid, state, _ in left if state not in ("Z", "X", "")} - ending, tree=self.tree)

    def read_log(self):
        path = self.quarn / "corvane/logs/cvstop/cvstop.log"
        if not path.is_file():
            return []
        records = []
        for line in path.read_text().splitlines():
            match = RECORD.match(line)
            assert match, f"no log record: {line!r}"
            time, pid, level, function, text = match.groups()
            records.append(Record(time, int(pid), level, function, text))
        return records


def assert_ends(text, end):
    """A long text is shown by its end, which is what was compared."""
    assert text.endswith(end), f"wanted at the end: {end!r}, but the end is: {text[-len(end) - 200:]!r}"


def initiating(count):
    return f"Initiating Orderly shutdown, {count} processes active\n"


def seconds(record):
    """The time of a log record, of its day."""
    hours, minutes, rest = record.time[11:26].split(":")
    return 3600 * int(hours) + 60 * int(minutes) + float(rest)


def table(rows, header=False):
    """The listing of (name, path, pid, category) rows as it must look."""
    labels = ("Name", "Path", "Pid", "Category")
    rows = [tuple(str(cell) for cell in row) for row in rows]
    shown = [labels, *rows] if header else rows
    widths = [max(len(row[column]) for row in shown) for column in range(4)]
    widths[3] = max(len("Third Party"), widths[3])
    text = [" ".join(cell.ljust(width) for cell, width in zip(row, widths)) for row in shown]
    if header:
        text.insert(1, " ".join("-" * width for width in widths))
    return "".join(line + "\n" for line in text)


def rows_of_listing(text):
    """The (path, category) pairs of what a listing printed, in its order."""
    if text == "":
        return []
    header, dashes, *lines = text.splitlines()
    assert header.split() == ["Name", "Path", "Pid", "Category"] and set(dashes) == {"-", " "}, f"no listing: {text!r}"
    return [(line.split()[1], "Corvane" if line.split()[-1] == "Corvane" else "Third Party") for line in lines]


def listed(result):
    """The (path, category) pairs of a listing that succeeded, in its order."""
    assert (result.status, result.stderr) == (0, ""), result.stdout
    return rows_of_listing(result.stdout)


def product(result, name, instance=0, path=None):
    return (name, path or f"{BIN}/{name}", result.pid(name, instance), "Corvane")


def third(result, name, path):
    return (name, path, result.pid(name), "Third Party")


def watch(here, *arguments, options=("--no-report",), prefix="", **how):
    """Runs the program through the watcher. Returns what a run without it returns, and what it saw."""
    command = prefix + shlex.join([WATCH, *options, "--json", WATCHED, "--", *arguments])
    result = here.run(command=command, **how)
    return result, watching.Watched(here.inside(WATCHED).read_text())
