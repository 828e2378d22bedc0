"""One client's record: what became of it, as report/HOST.json holds it. Made from whatever result Ansible has of the client,
which may be that it never answered."""

from __future__ import annotations

import json
import os
import re
import tempfile
import urllib.parse

from ansible_collections.quarn.corvane.plugins.module_utils.listing import show

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
# Those that a module returns. The others are for the controller to say.
MODULES = ("survivors", "running", "stopped", "nothing")
# What cvstop-watch writes, and nothing besides: Ansible may come to read a record as an inventory, and takes a key such as
# `hosts` or `vars` for its own.
WATCHED = ("version", "run", "stages", "processes", "not_in_snapshot", "came_back")


def processes(value):
    """Those of a list that are processes."""
    known = [entry for entry in value if isinstance(entry, dict) and isinstance(number(entry.get("pid")), int)
             and isinstance(entry.get("name"), str) and isinstance(entry.get("path"), str)] if isinstance(value, list) else []
    return [{key: entry[key] for key in ("name", "path", "pid", "category", "new") if key in entry} for entry in known]


def number(value):
    """A number that can be reckoned with, or None."""
    return value if isinstance(value, (int, float)) and not isinstance(value, bool) and abs(value) < 1e15 else None


def texts(value):
    return [line for line in value if isinstance(line, str)] if isinstance(value, list) else []


def watched(value):
    return {key: value[key] for key in WATCHED if key in value} if isinstance(value, dict) else None


# What a record keeps of a result, and how: a client may be anybody's by now, and return anything.
KEPT = {"found": processes, "stopped": processes, "survivors": processes, "spared": processes, "listed_only": processes,
        "rc": number, "began": number, "elapsed": number, "output": texts, "watch": watched, "warnings": texts}


def kept(result):
    """What a record keeps of a result, each key of the type that it has in a sound one."""
    values = {key: read(result[key]) for key, read in KEPT.items() if key in result}
    return {key: value for key, value in values.items() if value is not None}


def outcome_of(result):
    if result.get("unreachable"):
        return "unreachable"
    if isinstance(result.get("outcome"), str) and result["outcome"] in MODULES:
        return result["outcome"]
    return "unfinished" if result.get("finished") == 0 else "failed"


def message_of(result, outcome):
    """One line for a person, harmless on a terminal. A module that did not run at all left its reason on another stream than its message."""
    if outcome == "unfinished":
        return "The controller stopped waiting. The shutdown goes on on the client: run again to see how it ended."
    lines = [str(result.get("msg") or "")]
    if "rc" in result and outcome == "failed" and lines[0].startswith(("MODULE FAILURE", "The module failed")):
        said = str(result.get("module_stderr") or "") + "\n" + str(result.get("module_stdout") or "")
        lines = ["The client cannot run Ansible's modules:", *[line for line in said.splitlines() if line.strip()][-1:]]
    return show(" ".join(" ".join(lines).split()).encode("utf-8", "backslashreplace"))


def make(host, result, moment, tolerant=False):
    """The record of a client from the result of its task. `tolerant`: survivors are no failure."""
    outcome = outcome_of(result)
    record = {"version": VERSION, "host": host, "outcome": outcome, "time": moment, "message": message_of(result, outcome),
              "failed": outcome in FAILURES and not (outcome == "survivors" and tolerant)}
    return {**record, **kept(result)}


def untouched(host, moment, reason):
    return {"version": VERSION, "host": host, "outcome": "untouched", "time": moment, "message": reason, "failed": False}


def given_up(host, moment):
    """The record of a client that Ansible took out of the run before the role could note anything."""
    return {"version": VERSION, "host": host, "outcome": "failed", "time": moment, "failed": True,
            "message": "Ansible itself gave this client up: see what it said of it in this run."}


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
    types = {"outcome": str, "time": str, "message": str, "failed": bool}
    known = (isinstance(record, dict) and record.get("version") == VERSION
             and all(isinstance(record.get(key), kind) for key, kind in types.items()) and record["outcome"] in OUTCOMES)
    return {"version": VERSION, "host": host, **{key: record[key] for key in types}, **kept(record)} if known else None


def order(records):
    """Who needs a person first, then by name."""
    places = list(OUTCOMES)
    return sorted(records, key=lambda record: (not needs_a_person(record), places.index(record["outcome"]), record["host"]))
