"""report/index.html: the whole fleet on one page that needs nothing but itself."""

from __future__ import annotations

import html
from collections import Counter

from ansible_collections.quarn.corvane.plugins.plugin_utils import record as records_of
from ansible_collections.quarn.corvane.plugins.plugin_utils import table, timeline

STYLE = """
:root{color-scheme:light dark;--ink:#1b1f24;--soft:#57606a;--line:#d0d7de;--back:#fff;--card:#f6f8fa;--bad:#b3261e;--warn:#8a5a00;
--good:#1a6b34;--wait:#0969da22;--bar:#2f7d4f}
@media(prefers-color-scheme:dark){:root{--ink:#e6edf3;--soft:#9aa5b1;--line:#30363d;--back:#0d1117;--card:#161b22;--bad:#ff8a80;
--warn:#f0b849;--good:#6fd08c;--wait:#58a6ff2b;--bar:#57b87a}}
*{box-sizing:border-box}body{margin:0 auto;padding:1.5rem 1rem 4rem;max-width:75rem;font:16px/1.5 system-ui,sans-serif;
color:var(--ink);background:var(--back)}
h1{font-size:1.6rem;margin:0}p{margin:.4rem 0}.soft{color:var(--soft)}
ul.sums{display:flex;flex-wrap:wrap;gap:.5rem;list-style:none;padding:0;margin:1rem 0}
ul.sums li{background:var(--card);border:1px solid var(--line);border-radius:.5rem;padding:.4rem .8rem}ul.sums b{font-size:1.3rem}
table{border-collapse:collapse;width:100%}th{text-align:left;font-weight:600;color:var(--soft);font-size:.85rem}
th,td{padding:.5rem .6rem;border-bottom:1px solid var(--line);vertical-align:top}
td.w{overflow-wrap:anywhere}
td.n{text-align:right;font-variant-numeric:tabular-nums}th.n{text-align:right}td.h{font-weight:600;max-width:18rem;overflow-wrap:break-word}
td.h small{display:block;font-weight:400;color:var(--soft)}
.o{white-space:nowrap}.survivors,.failed,.unreachable{color:var(--bad)}.unfinished,.untouched,.running{color:var(--warn)}
.stopped,.nothing{color:var(--good)}
summary{cursor:pointer;color:var(--soft)}details ul{margin:.3rem 0;padding-left:1.2rem}pre{overflow:auto;max-height:20rem;
background:var(--card);padding:.6rem;font-size:.8rem}
svg{display:block;width:100%;max-height:12rem;background:var(--card);border:1px solid var(--line);margin-top:.3rem}
tr.down svg{height:3rem}
svg path{fill:none;
stroke-width:2.5;stroke:var(--bar)}svg .w{fill:var(--wait);stroke:none}svg .k{stroke:var(--warn)}
svg .s{stroke:var(--bad)}
.axis{display:flex;justify-content:space-between;font-size:.8rem;color:var(--soft)}
@media(max-width:40rem){thead{display:none}tr{display:block;border-bottom:1px solid var(--line);padding:.5rem 0}
td{display:inline-block;border:0;padding:.1rem .6rem .1rem 0}td.w{display:block}td.n{text-align:left}td:empty{display:none}
td.n:not(:empty)::after{content:" s"}}
"""

LEGEND = ("In a time line each bar is a process, from being asked to its end: <b class=stopped>ended</b>, "
          "<b class=running>killed</b>, <b class=survivors>still there</b>. Shaded: waiting.")


def escape(text):
    """What a client says, harmless on the page and to whoever copies from it."""
    return html.escape(table.safe(text))


def listed(items):
    return "<ul>" + "".join(f"<li>{item}</li>" for item in items) + "</ul>" if items else ""


def process(entry):
    return f"{escape(entry['name'])} ({entry['pid']}) <span class=soft>{escape(entry['path'])}</span>"


def time_line(record):
    """The picture of a stop and who held it up; nothing where cvstop-watch was not there or wrote what it should not."""
    try:
        stop = timeline.Stop(record["watch"])
    except (KeyError, TypeError, ValueError, AttributeError, IndexError, OverflowError):
        return ""
    if not stop.lanes:
        return ""
    longest = stop.slowest()[0]
    slowest = [f"{escape(lane['name'])} ({lane['pid']}): {lane['ended'] - lane['asked']:.1f} s, {escape(lane['by'])}"
               for lane in stop.slowest()]
    why = [f"{escape(lane['name'])} ({lane['pid']}): {escape(lane['reason'])}" for lane in stop.survivors() if lane["reason"]]
    return (timeline.svg(stop) + f"<div class=axis><span>0 s</span><span>{stop.end:.1f} s</span></div>"
            f"<details><summary>Longest: {escape(longest['name'])}, {longest['ended'] - longest['asked']:.1f} s</summary>"
            f"{listed(slowest)}</details>"
            + (f"<p>Why it is still there:</p>{listed(why)}" if why else ""))


def details(record):
    """What is behind a row: each kind of process, and for a failure what the program printed."""
    parts = []
    for key, label in (("survivors", "Left"), ("found", "To stop"), ("spared", "Excluded"), ("listed_only", "Only listed")):
        processes = record.get(key) or []
        if processes and (key != "found" or record["outcome"] == "running"):
            state = " open" if key == "survivors" else ""
            parts.append(f"<details{state}><summary>{label}: {len(processes)}</summary>"
                         f"{listed(map(process, processes))}</details>")
    if record.get("warnings"):
        parts.append(f"<details><summary>Warnings: {len(record['warnings'])}</summary>"
                     f"{listed(map(escape, record['warnings']))}</details>")
    if record["failed"] and record.get("output"):
        text = "\n".join(escape(line) for line in record["output"][-40:])
        parts.append(f"<details><summary>What the program printed</summary><pre>{text}</pre></details>")
    return "".join(parts)


def row(record):
    outcome = record["outcome"]
    message = escape(record["message"])
    if outcome == "stopped" and not message:
        message = table.plural(len(record.get("stopped", [])), "process", "es")
    down = " class=down" if table.is_simply_down(record) else ""
    when = ("Earlier run: " if record.get("earlier") else "") + table.moment(record)
    return (f"<tr{down}><td class=h>{escape(record['host'])}<small>{html.escape(when)}</small></td>"
            f"<td class='o {outcome}'>{records_of.OUTCOMES[outcome]}</td>"
            f"<td class=n>{table.seconds(record)}</td><td class=w>{message}{details(record)}{time_line(record)}</td></tr>\n")


def sums(records):
    now, earlier = table.split_earlier(records)
    counts = Counter(record["outcome"] for record in now)
    counted = [(outcome, counts[outcome], label) for outcome, label in records_of.OUTCOMES.items() if counts[outcome]]
    if earlier:
        counted.append(("soft", len(earlier), "of earlier runs"))
    return "".join(f"<li><b class={kind}>{count}</b> {label}</li>" for kind, count, label in counted)


def needing(records):
    """How many of these clients need a person, as text; empty where none does."""
    waiting = sum(1 for record in records if records_of.needs_a_person(record))
    need = "needs" if waiting == 1 else "need"
    return f"{waiting} of {table.plural(len(records), 'client')} {need} a person" if waiting else ""


def verdict(records):
    now, earlier = table.split_earlier(records)
    done = f"All {table.plural(len(now), 'client')} are done." if len(now) != 1 else "The client is done."
    need = needing(now)
    parts = [f"{need}. Those come first here, and failed.txt names them." if need else done] if now else []
    if earlier:
        parts.append(f"{needing(earlier) or table.plural(len(earlier), 'client')}, by records of earlier runs.")
    return " ".join(parts)


def page(records, moment):
    """The page for these records."""
    ordered = records_of.order(records)
    return (f'<!doctype html>\n<html lang="en"><meta charset="utf-8">'
            f'<meta name="viewport" content="width=device-width,initial-scale=1"><title>Shutdown of the fleet</title>'
            f"<style>{STYLE}</style>\n<h1>Shutdown of the fleet</h1><p>{verdict(records)}</p>"
            f"<p class=soft>Written {escape(moment)}.</p><ul class=sums>{sums(records)}</ul><p class=soft>{LEGEND}</p>\n"
            f"<table><thead><tr><th scope=col>Client</th><th scope=col>Outcome</th><th scope=col class=n>Seconds</th>"
            f"<th scope=col>What</th></tr></thead><tbody>\n{''.join(map(row, ordered))}</tbody></table></html>\n")
