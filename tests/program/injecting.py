"""Failures on purpose, from outside the box: inject.py makes them inside."""
import json
import pathlib
import shlex

INSIDE = pathlib.Path(__file__).with_name("inject.py")


def cases(faults, parts):
    """(call, error, part) of each fault; `parts` tells of the calls with many occurrences among how many tests these are."""
    return [(call, error, part) for call, error in faults for part in range(parts.get(call, 1))]


def inject(here, *arguments, command=None, terminal=False):
    """What inject.py tells of each of its runs, of the program or of another command; on a terminal or not."""
    here.install(INSIDE, "/opt/inject.py")
    options = ["--env", f"INJECT_INTO={command}"] if command else []
    options += ["--env", "INJECT_TERMINAL=yes"] if terminal else []
    box = here.shell("/usr/bin/python3 /opt/inject.py " + shlex.join(arguments), options, timeout=900)
    assert box.returncode == 0, box.stderr.decode()
    return [json.loads(line) for line in box.stdout.decode().splitlines()]


def calls_after_main(here, command=None):
    """The system calls that are made after main has begun."""
    calls, = inject(here, "--calls", command=command)
    return {call for call, (before, total) in calls.items() if total > before}
