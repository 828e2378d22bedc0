"""What the watcher saw of a run, and what the run was: the log and the journal of the box tell it a second time."""
import datetime
import json

# A filter of system calls that answers pidfd_open as a kernel before 5.3 does (seccomp(2)).
REFUSE_PIDFD = """
import ctypes, errno, os, struct, sys
libc = ctypes.CDLL(None, use_errno=True)
load, equal, give = 0x20, 0x15, 0x06
program = b"".join(struct.pack("HBBI", *line) for line in (
    (load, 0, 0, 0), (equal, 0, 1, 434), (give, 0, 0, 0x00050000 | errno.ENOSYS), (give, 0, 0, 0x7fff0000)))
buffer = ctypes.create_string_buffer(program)
filter = struct.pack("HxxxxxxP", 4, ctypes.addressof(buffer))
assert libc.prctl(38, 1, 0, 0, 0) == 0 and libc.prctl(22, 2, ctypes.c_char_p(filter)) == 0, ctypes.get_errno()
os.execv(sys.argv[1], sys.argv[1:])
"""


# So long after a request its record may be written.
UNTIL_WRITTEN = 1


class Watched:
    """The JSON of a run, with its times as the log and the journal have them: seconds since the epoch."""

    def __init__(self, text):
        self.json = json.loads(text)
        self.run = self.json["run"]
        begin = self.run["begin"]
        whole, fraction = begin.rstrip("Z").split(".")
        self.begin = datetime.datetime.fromisoformat(whole + "+00:00").timestamp() + float("0." + fraction)
        self.processes = {process["pid"]: process for process in self.json["processes"]}
        self.stages = self.json["stages"]

    def at(self, time):
        return self.begin + time

    def named(self, name):
        found, = (process for process in self.json["processes"] if process["name"] == name)
        return found

    def outcomes(self):
        return {process["name"]: process["outcome"] for process in self.json["processes"]}

    def asked(self, name):
        return [asked.get("signal") or asked["command"] for asked in self.named(name)["asked"]]

    def kinds(self):
        return [stage["kind"] for stage in self.stages]


def logged(result, pid):
    """When the program asked, as its log has it: for each request the second, and its text."""
    asked = []
    for record in result.log:
        if record.pid != pid:
            continue
        when = datetime.datetime.fromisoformat(record.time).timestamp()
        if record.function == "executeStop":
            asked.append((when, record.text[len('Executing "'):-len(' > /dev/null 2>&1 &"')]))
        elif record.function == "Processes::KillProcess" and record.text.startswith("Signaling"):
            kind = int(record.text[record.text.rindex("(") + 1:-1])
            asked.append((when, ("SIGHUP", "SIGTERM", "SIGINT", "SIGQUIT", "SIGKILL")[kind]))
    return sorted(asked)


def assert_asked_as_logged(result, seen):
    """Each request of the log stands with one process, to the microsecond; unless the log itself is not whole."""
    if seen.run["notes"]:
        return
    told = [(seen.at(asked["time"]), asked.get("signal") or asked["command"])
            for process in seen.json["processes"] + seen.json["not_in_snapshot"] for asked in process["asked"]]
    # A box that is started again gives the same pids again, and its log goes on.
    wanted = [asked for asked in logged(result, seen.run["pid"]) if asked[0] >= seen.begin]
    assert [text for _, text in sorted(told)] == [text for _, text in wanted]
    assert all(abs(one - other) < 2e-6 for (one, _), (other, _) in zip(sorted(told), wanted))


def lateness(here, seen):
    """For each daemon that was seen to end, how much later it ended for the watcher: than the journal has it, or, of one that
    was killed and so has no last word, than the log has its SIGKILL."""
    late = {}
    for line in here.file("journal").splitlines():
        time, kind, pid, *_ = line.split("\t")
        # On a busy machine one may have ended before the watcher looked for the first time.
        if kind == "end" and int(pid) in seen.processes:
            late[int(pid)] = seen.at(seen.processes[int(pid)]["ended"]) - float(time)
    for pid, process in seen.processes.items():
        if process["outcome"] == "killed" and pid not in late:
            late[pid] = process["ended"] - process["asked"][-1]["time"]
    return late


def assert_outcomes(result, seen):
    """Nobody's outcome is wrong: who is alive, who was killed, who was asked."""
    for pid, process in seen.processes.items():
        outcome = process["outcome"]
        assert (pid in result.alive) == (outcome in ("spared", "survived") and process["ended"] is None), process
        asked = [asked.get("signal") or asked["command"] for asked in process["asked"]]
        if pid in result.ends:
            assert outcome in ("ended", "ended before it was asked"), process
        elif outcome == "killed":
            assert "SIGKILL" in asked
        assert outcome not in ("ended", "survived", "killed") or asked, process
        if outcome == "ended":
            assert process["ended"] >= process["asked"][0]["time"] - UNTIL_WRITTEN, process
