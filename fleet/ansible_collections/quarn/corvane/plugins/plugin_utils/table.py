"""The fleet on a terminal: a row a client that is not simply down, and one line for all the others."""

from __future__ import annotations

from collections import Counter

from ansible_collections.quarn.corvane.plugins.module_utils.listing import show
from ansible_collections.quarn.corvane.plugins.plugin_utils import record as records_of

HEADINGS = ("CLIENT", "OUTCOME", "SECONDS", "WHAT")
LONGEST_TEXT = 160


def safe(text):
    """What a client says, harmless on a terminal."""
    return show(str(text).encode("utf-8", "backslashreplace"))


def plural(count, noun, ending="s"):
    return f"{count} {noun}" if count == 1 else f"{count} {noun}{ending}"


def seconds(record):
    elapsed = record.get("elapsed")
    return f"{elapsed:.1f}" if isinstance(elapsed, (int, float)) and elapsed else ""


def moment(record):
    """When the record was made, to the minute, by the controller's clock."""
    return safe(record["time"])[:16].replace("T", " ")


def named(processes):
    """Processes as text, several of one name counted."""
    return ", ".join(f"{name} ({count})" if count > 1 else name
                     for name, count in Counter(process["name"] for process in processes).items())


def what(record):
    """What there is to say of a client."""
    if record["outcome"] == "running":
        text = f"{plural(len(record.get('found', [])), 'process', 'es')} to stop"
    else:
        text = record["message"]
    notes = [f"in an earlier run, {moment(record)}"] if record.get("earlier") else []
    notes += [text] if text else []
    notes += [f"{label}: {named(record[key])}" for key, label in (("spared", "excluded"), ("listed_only", "only listed"))
              if record.get(key)]
    return "; ".join(notes)


def is_simply_down(record):
    return record["outcome"] in ("stopped", "nothing")


def rows(records):
    return [(safe(record["host"]), records_of.OUTCOMES[record["outcome"]], seconds(record), cut(safe(what(record))))
            for record in records if not is_simply_down(record)]


def cut(text):
    return text if len(text) <= LONGEST_TEXT else text[:LONGEST_TEXT - 3] + "..."


def split_earlier(records):
    """(those of this run, those that stand from earlier ones)."""
    return [record for record in records if not record.get("earlier")], [record for record in records if record.get("earlier")]


def sums(down):
    """The parts of the line on clients that this run found down, or brought there."""
    stopped = [record for record in down if record["outcome"] == "stopped"]
    parts = []
    if stopped:
        slowest = max(stopped, key=lambda record: record.get("elapsed") or 0)
        parts.append(f"{len(stopped)} stopped (the slowest, {safe(slowest['host'])}, in {seconds(slowest) or '0.0'} s)")
    if len(down) > len(stopped):
        parts.append(f"{len(down) - len(stopped)} with nothing to stop")
    excluded = sum(1 for record in down if record.get("spared"))
    if excluded:
        parts.append(f"{excluded} with processes that an exclude list names")
    return parts


def others(records):
    """The one line for all clients that are down, or an empty text."""
    down, earlier = split_earlier([record for record in records if is_simply_down(record)])
    if not down:
        return f"{plural(len(earlier), 'client')} down since earlier runs." if earlier else ""
    since = f"; {len(earlier)} of earlier runs" if earlier else ""
    return f"{plural(len(down), 'client')} down: {', '.join(sums(down))}{since}."


def table(records):
    """The lines of the table."""
    shown = rows(records_of.order(records))
    lines = []
    if shown:
        widths = [max(len(row[column]) for row in [HEADINGS, *shown]) for column in range(3)]
        lines = ["  ".join([*(cell.ljust(width) for cell, width in zip(row, widths)), row[3]]).rstrip()
                 for row in [HEADINGS, *shown]]
    rest = others(records)
    return [*lines, *([""] if lines and rest else []), *([rest] if rest else [])]
