"""A stop's time line as a small picture, from the report of cvstop-watch: a line a process, from being asked to its end."""

from __future__ import annotations

import html

from ansible_collections.quarn.corvane.plugins.plugin_utils.table import safe

WIDTH = 1000
LANE = 4
KINDS = {"ended": "e", "ended before it was asked": "e", "killed": "k", "survived": "s"}
SLOWEST = 5
# As far as cvstop-watch's moments reach.
MOST = 4e9


def moment(value):
    """Seconds. Raises TypeError or ValueError for what is no moment, such as infinity."""
    value = float(value)
    if not abs(value) <= MOST:
        raise ValueError(f"{value} is no moment")
    return value


class Stop:
    """What the page needs of a report. Raises KeyError, TypeError, ValueError, AttributeError, IndexError or OverflowError where
    the report is none of ours: it comes from a client, which may be anybody's by now."""

    def __init__(self, report):
        self.end = max(moment(report["run"]["end"]), 0.001)
        self.waits = [(moment(stage["begin"]), moment(stage["end"]), str(stage["kind"])) for stage in report["stages"]]
        self.lanes = [self._lane(process) for process in report["processes"]
                      if process["asked"] and process["outcome"] in KINDS]
        self.lanes.sort(key=lambda lane: lane["asked"])

    def _lane(self, process):
        asked = moment(process["asked"][0]["time"])
        ended = process["ended"]
        ended = self.end if ended is None else moment(ended)
        last = process["asked"][-1]
        return {"name": str(process["name"]), "pid": int(process["pid"]), "asked": asked, "ended": max(asked, ended),
                "kind": KINDS[process["outcome"]], "by": str(last.get("signal") or "its stop command"),
                "reason": reason(process.get("reason"))}

    def slowest(self):
        return sorted(self.lanes, key=lambda lane: lane["asked"] - lane["ended"])[:SLOWEST]

    def survivors(self):
        return [lane for lane in self.lanes if lane["kind"] == "s"]


def reason(why):
    """Why a process survived, in words."""
    if not why:
        return ""
    parts = [str(why["state"])]
    if why.get("function"):
        parts.append(f"in {why['function']}")
    if why.get("tracer"):
        parts.append(f"traced by {why['tracer']['name']} ({why['tracer']['pid']})")
    return " ".join(parts)


def svg(stop):
    """The picture: as wide as its place, higher with each process, colours by the page's style."""
    height = LANE * (len(stop.lanes) + 1)

    def at(when):
        return round(WIDTH * min(max(when, 0), stop.end) / stop.end)

    bands = "".join(f'<path class="w" d="M{at(begin)} 0H{at(end)}V{height}H{at(begin)}z"/>'
                    for begin, end, kind in stop.waits if kind.startswith("wait"))
    paths = {}
    for place, lane in enumerate(stop.lanes, 1):
        start = at(lane["asked"])
        paths.setdefault(lane["kind"], []).append(f"M{start} {LANE * place}H{max(start + 3, at(lane['ended']))}")
    lines = "".join(f'<path class="{kind}" d="{"".join(strokes)}"/>' for kind, strokes in sorted(paths.items()))
    return (f'<svg role="img" viewBox="0 0 {WIDTH} {height}" height="{height}" preserveAspectRatio="none">'
            f"<title>{html.escape(safe(summary(stop)))}</title>{bands}{lines}</svg>")


def summary(stop):
    """The picture in words."""
    text = f"{len(stop.lanes)} processes were asked to end within {stop.end:.1f} seconds"
    if stop.lanes:
        slowest = stop.slowest()[0]
        text += f"; {slowest['name']} took longest, {slowest['ended'] - slowest['asked']:.1f} s"
    return text + "."
