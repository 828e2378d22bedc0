"""Runs in the box: shuts the fleet down once for each occurrence of a system call, which fails that once. INJECT_INTO is the
command line, in words, of another program to try; with INJECT_TERMINAL set its streams are a terminal.

    inject.py CALL ERRNO PART PARTS     a line of JSON a run; of PARTS that share the occurrences, this one's
    inject.py --calls                   the calls that the program makes after main has begun, as {CALL: [before main, in all]}
"""
import collections
import contextlib
import json
import os
import pty
import select
import shutil
import signal
import subprocess
import sys
import time

PROGRAM = os.environ.get("INJECT_INTO", "/usr/quarn/corvane/bin/cvstop -k -3").split()
LOG = "/usr/quarn/corvane/logs/cvstop/cvstop.log"
TRACE, OUTPUT, JOURNAL = "/tmp/trace", "/tmp/output", "/usr/quarn/sandbox/journal"
# The first thing that main does: it looks whether the standard streams are there.
MAIN_BEGINS = "fcntl(0, F_GETFD)"
LONGEST_RUN = 150
STUCK = 124


def daemons():
    """The processes that run a file of the tree, by pid; zombies are none."""
    found = {}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            path = os.readlink(f"/proc/{pid}/exe")
        except OSError:
            continue
        if path.startswith("/usr/quarn/") or path.startswith("/opt/"):
            found[int(pid)] = path
    return {pid: path for pid, path in found.items() if not path.startswith("/opt/starter/")}


def still_running(pids):
    """The executables of those that live, sorted. A stop command at work runs a daemon's file, too: it is not asked for."""
    return sorted(path for pid, path in daemons().items() if pid in pids)


def start_fleet():
    os.truncate(JOURNAL, 0)
    # Without its folder, so that making it is among the calls.
    shutil.rmtree(os.path.dirname(LOG), ignore_errors=True)
    subprocess.run(["/opt/starter/start", "--start", "/usr/quarn/sandbox/fleet"], check=True)


def end_fleet():
    for pid in daemons():
        with contextlib.suppress(ProcessLookupError):  # it was about to end
            os.kill(pid, signal.SIGKILL)
    while daemons():
        pass


def run_on_terminal(words):
    """The status of a command whose terminal's other end is written down."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.execvpe(words[0], words, {**os.environ, "TERM": "xterm"})
    deadline = time.monotonic() + LONGEST_RUN
    with open(OUTPUT, "wb") as output:
        while select.select([terminal], [], [], max(0, deadline - time.monotonic()))[0]:
            try:
                output.write(os.read(terminal, 65536))
            except OSError:
                # The last one that had it open has gone.
                os.close(terminal)
                return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    os.kill(pid, signal.SIGKILL)
    os.waitpid(pid, 0)
    return STUCK


def trace(*options):
    """Traces every thread of the program, but not the commands that it starts. Calls are counted by thread."""
    if os.environ.get("INJECT_TERMINAL"):
        return run_on_terminal(["strace", "-f", "-b", "execve", "-o", TRACE, *options, *PROGRAM])
    with open(OUTPUT, "w") as output:
        try:
            return subprocess.run(["strace", "-f", "-b", "execve", "-o", TRACE, *options, *PROGRAM],
                                  stdin=subprocess.DEVNULL, stdout=output,
                                  stderr=subprocess.STDOUT, timeout=LONGEST_RUN, check=False).returncode
        except subprocess.TimeoutExpired:
            return STUCK


def run(call, error, occurrence):
    start_fleet()
    status = trace("-e", f"inject={call}:error={error}:when={occurrence}")
    with open(TRACE) as lines:
        injected = [line for line in lines if line.rstrip().endswith("(INJECTED)")]
    with open(OUTPUT, errors="replace") as lines:
        output = lines.read()
    warnings = []
    if os.path.exists(LOG):
        with open(LOG, errors="replace") as lines:
            warnings = [line for line in lines if " warning " in line]
    with open(JOURNAL) as lines:
        events = [line.split("\t") for line in lines.read().splitlines()]
    signals = [event[3:] for event in events if event[1] == "signal"]
    ready = [int(event[2]) for event in events if event[1] == "ready"]
    left = still_running(ready)
    end_fleet()
    return {"occurrence": occurrence, "status": status, "injected": injected, "output": output, "signals": signals,
            "left": left, "warnings": warnings}


def count_calls():
    start_fleet()
    trace()
    end_fleet()
    before, threads, has_begun = collections.Counter(), collections.defaultdict(collections.Counter), False
    with open(TRACE) as lines:
        for line in lines:
            thread, _, text = line.partition(" ")
            text = text.lstrip()
            has_begun = has_begun or text.startswith(MAIN_BEGINS)
            call = text.split("(")[0]
            if call.isidentifier():
                threads[call][thread] += 1
                before[call] += not has_begun
    return {call: [before[call], max(counts.values())] for call, counts in threads.items()}


def main():
    counts = count_calls()
    if sys.argv[1] == "--calls":
        print(json.dumps(counts))
        return
    call, error, part, parts = sys.argv[1:]
    first, last = counts.get(call, [0, 0])
    for occurrence in range(first + 1 + int(part), last + 1, int(parts)):
        print(json.dumps(run(call, error, occurrence)), flush=True)


if __name__ == "__main__":
    main()
