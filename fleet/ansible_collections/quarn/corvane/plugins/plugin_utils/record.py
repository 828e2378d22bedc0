"""One client's record: what became of it, as report/HOST.json holds it. Made from whatever result Ansible has of the client,
which may be that it never answered."""

from __future__ import annotations

import json
import os
import re
import tempfile
import urllib.parse

VERSION = 1

# What needs a person comes first. The words are those of the page and of the table.
OUTCOMES = {
    "survivors": "something is left",
    "failed": "failed",
    "unfinished": "still stopping",
    "unreachable": "unreachable",
    "untouched": "not touched",
    "running": "running",
    "stopped": "stopped",
    "nothing": "nothing ran",
}
# Those that count against the limit. What was not touched is no failure, but is left to do.
FAILURES = ("survivors", "failed", "unfinished", "unreachable")
KEPT = ("found", "stopped", "survivors", "spared", "listed_only", "rc", "began", "elapsed", "output", "watch", "warnings")


def outcome_of(result):
    if result.get("unreachable"):
        return "unreachable"
    if result.get("outcome") in OUTCOMES:
        return result["outcome"]
    return "unfinished" if result.get("finished") == 0 else "failed"


def message_of(result, outcome):
    """One line for a person. A module that did not run at all left its reason on another stream than its message."""
    if outcome == "unfinished":
        return "The controller stopped waiting. The shutdown goes on on the client: run again to see how it ended."
    lines = [str(result.get("msg") or "")]
    if "rc" in result and outcome == "failed" and lines[0].startswith(("MODULE FAILURE", "The module failed")):
        said = str(result.get("module_stderr") or "") + "\n" + str(result.get("module_stdout") or "")
        lines = ["The client cannot run Ansible's modules:", *[line for line in said.splitlines() if line.strip()][-1:]]
    return " ".join(" ".join(lines).split())


def make(host, result, moment, tolerant=False):
    """The record of a client from the result of its task. `tolerant`: survivors are no failure."""
    outcome = outcome_of(result)
    record = {"version": VERSION, "host": host, "outcome": outcome, "time": moment, "message": message_of(result, outcome),
              "failed": outcome in FAILURES and not (outcome == "survivors" and tolerant)}
    record.update((key, result[key]) for key in KEPT if key in result)
    return record


def untouched(host, moment, reason):
    return {"version": VERSION, "host": host, "outcome": "untouched", "time": moment, "message": reason, "failed": False}


def needs_a_person(record):
    """Whether the client is left to do, and belongs into failed.txt."""
    return record["failed"] or record["outcome"] in ("untouched", "running")


def file_name(host):
    """The file of a host's record. A name may hold anything that an inventory takes, slashes included."""
    return re.sub(r"^\.", "%2E", urllib.parse.quote(host, safe="[]:@ ")) + ".json"


def write_whole(path, text):
    """Writes a file under another name first: whoever reads it sees the old one or the new one."""
    folder, name = os.path.split(path)
    os.makedirs(folder, exist_ok=True)
    handle, draft = tempfile.mkstemp(dir=folder, prefix="." + name[:50])
    try:
        with os.fdopen(handle, "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(draft, 0o644)
        os.replace(draft, path)
    except BaseException:
        os.unlink(draft)
        raise


def save(folder, record):
    write_whole(os.path.join(folder, file_name(record["host"])), json.dumps(record, indent=1, sort_keys=True) + "\n")


def load(folder, host):
    """The record of a host, or None without a readable one."""
    try:
        with open(os.path.join(folder, file_name(host)), encoding="utf-8") as file:
            record = json.load(file)
    except (OSError, ValueError):
        return None
    known = isinstance(record, dict) and record.get("version") == VERSION and record.get("outcome") in OUTCOMES
    return dict(record, host=host) if known else None


def order(records):
    """Who needs a person first, then by name."""
    places = list(OUTCOMES)
    return sorted(records, key=lambda record: (not needs_a_person(record), places.index(record["outcome"]), record["host"]))
