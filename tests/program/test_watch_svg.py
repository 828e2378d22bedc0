"""The picture of a run: it is well-formed, its lanes are the numbers of the JSON, and no text stands on another."""
import json
import random
import re
import subprocess
import unicodedata
import xml.etree.ElementTree as ET

import pytest

from box import BUILD, REPO

PROGRAM = BUILD / "watch/cvstop-watch"
SVG = "{http://www.w3.org/2000/svg}"
LEFT, RIGHT = 270, 1030
ROWS = re.findall(r"^\| (\d+) \| `([^`]+)`", (REPO / "docs/shutdown-plan.md").read_text(), re.M)
ODD_NAMES = ["x" * 255, "バックアップ" * 40, "a&b<c>\"'", "\u202eevil\x1b[31m", "e" + "\u0301" * 300, "\\x5c\\xff"]


def asked(rng, begin):
    signals = rng.choice([["SIGTERM"], ["SIGINT", "SIGTERM", "SIGQUIT"], ["SIGHUP"], ["SIGINT", "SIGKILL"]])
    if rng.random() < 0.5:
        return [{"time": begin, "kind": "command", "command": "/usr/quarn/corvane/bin/x -terminate", "certain": True}]
    return [{"time": begin + number, "kind": "signal", "signal": name, "certain": rng.random() < 0.9}
            for number, name in enumerate(signals)]


def process(rng, number, end):
    row, name = rng.choice(ROWS) if rng.random() < 0.8 else (None, rng.choice(ODD_NAMES))
    outcome = rng.choice(["ended"] * 5 + ["ended before it was asked", "killed", "spared", "survived"])
    requests = asked(rng, rng.uniform(0, end / 2)) if outcome in ("ended", "killed", "survived") else []
    first = requests[-1]["time"] if requests else 0
    ended = rng.uniform(first, end) if outcome in ("ended", "ended before it was asked", "killed") else None
    return {
        "pid": 4194304 - 2 * number, "name": name, "path": "/usr/quarn/corvane/bin/x", "category": rng.choice([1, 1, 1, 2, 4]),
        "excluded": outcome == "spared" and rng.random() < 0.5, "row": row and int(row), "parent": {"pid": 1, "name": "systemd"},
        "unit": None, "start": -rng.uniform(0, 1e6), "asked": requests,
        "ended": ended, "gone": rng.uniform(ended, end) if ended is not None and rng.random() < 0.1 else None,
        "outcome": outcome, "certain": all(request["certain"] for request in requests) and rng.random() < 0.9,
        "reason": {"state": "stopped", "function": None, "tracer": None, "age": 7.5, "ignores": ["SIGTERM"], "blocks": []}
        if outcome == "survived" else None}


def stages(rng, end):
    kinds = ["gathering", "row", "row", "row", "sweep", "wait", "kill", "wait after the kill", "third parties"]
    times = [0, *sorted(rng.choice([rng.uniform(0, end), end / 3]) for _ in kinds[1:]), end]
    return [{"kind": kind, "row": 7 if kind == "row" else None, "name": rng.choice(ODD_NAMES) if kind == "row" else None,
             "begin": times[place], "end": times[place + 1], "waited_for": [1] if rng.random() < 0.5 else []}
            for place, kind in enumerate(kinds)]


def made_up(count, seed=0):
    """A run of so many processes; the same for the same seed."""
    rng = random.Random(f"{count} {seed}")
    end = rng.choice([0.004, 0.7, 12.0, 64.75, 3000.0])
    return {
        "version": 1,
        "run": {"arguments": ["/usr/quarn/corvane/bin/cvstop", "-k"], "host": "client.example", "pid": 4000,
                "begin": "2026-11-21T19:53:02.123456789Z", "end": end, "status": 1, "signal": None, "clock": "CLOCK_REALTIME",
                "resolution": 0, "observed": True, "log_complete": True, "notes": ["x" * 400] * rng.randint(0, 5)},
        "stages": stages(rng, end), "processes": [process(rng, number, end) for number in range(count)],
        "not_in_snapshot": [{"pid": None, "name": rng.choice(ODD_NAMES), "asked": asked(rng, end / 4)}] * rng.randint(0, 2),
        "came_back": [{"pid": 7, "name": rng.choice(ODD_NAMES), "path": "/x", "category": 1, "parent": {"pid": 1, "name": None},
                       "unit": "x.service", "start": end / 2}] * rng.randint(0, 1)}


class Picture:
    def __init__(self, folder, run):
        (folder / "run.json").write_text(json.dumps(run))
        subprocess.run([PROGRAM, "--draw", folder / "run.json", "--svg", folder / "run.svg"], check=True)
        self.bytes = (folder / "run.svg").stat().st_size
        self.root = ET.parse(folder / "run.svg").getroot()
        self.run = run
        last = max([run["run"]["end"], *(process["ended"] or 0 for process in run["processes"])])
        self.span = max(last, 0.001)
        self.lanes = {lane.get("id"): lane for lane in self.root.iter(SVG + "g") if lane.get("class") == "lane"}

    def x(self, moment):
        return LEFT + min(max(moment, 0), self.span) / self.span * (RIGHT - LEFT)


@pytest.fixture(params=[(0, 0), (1, 0), (70, 0), (70, 1), (70, 2), (70, 3), (2000, 0)], ids=lambda made: f"{made[0]}-{made[1]}")
def picture(request, tmp_path):
    return Picture(tmp_path, made_up(*request.param))


def close(text, number):
    return abs(float(text) - number) <= 0.051


def test_lanes_are_the_numbers_of_the_json(picture):
    """The bar begins where it was first asked and ends where it ended; each mark stands at its request."""
    for process in picture.run["processes"]:
        lane = picture.lanes[f"p{process['pid']}"]
        bars = [rect for rect in lane.iter(SVG + "rect") if rect.get("class") in ("bar", "killed")]
        if process["asked"] and process["outcome"] != "survived":
            begin, end = picture.x(process["asked"][0]["time"]), picture.x(process["ended"])
            assert len(bars) == 1 and close(bars[0].get("x"), begin)
            assert abs(float(bars[0].get("width")) - max(end - begin, 1.5)) <= 0.051
            assert bars[0].get("class") == ("killed" if process["outcome"] == "killed" else "bar")
        else:
            assert not bars
        opened = [path for path in lane.iter(SVG + "path") if path.get("class") == "survived"]
        assert len(opened) == (process["outcome"] == "survived")
        zombie = [path.get("d") for path in lane.iter(SVG + "path") if path.get("class") == "zombie"]
        if process["gone"] and picture.x(process["gone"]) - picture.x(process["ended"]) > 0.1:
            begin, end = re.fullmatch(r"M([\d.]+) 8H([\d.]+)", zombie[0]).groups()
            assert close(begin, picture.x(process["ended"])) and close(end, picture.x(process["gone"]))
        assert len(zombie) <= (process["gone"] is not None)
        marks = [mark.get("x") for mark in lane.iter(SVG + "use")]
        assert all(any(close(mark, picture.x(request["time"])) for mark in marks) for request in process["asked"])
        assert len(marks) <= len(process["asked"])


def test_lanes_are_in_the_order_of_the_table(picture):
    def key(process):
        return (process["row"] or 10**6, process["category"], process["pid"])

    wanted = [f"p{process['pid']}" for process in sorted(picture.run["processes"], key=key)]
    assert [name for name in picture.lanes if name and name.startswith("p")] == wanted


def test_each_lane_can_be_read_and_reached(picture):
    for lane in picture.lanes.values():
        assert lane.get("tabindex") == "0" and lane.get("role") == "listitem"
        assert lane[0].tag == SVG + "title" and lane[0].text
    for process in picture.run["processes"]:
        title = picture.lanes[f"p{process['pid']}"][0].text
        assert f"({process['pid']}): {process['outcome']}" in title
        description = picture.lanes[f"p{process['pid']}"].find(SVG + "desc")
        assert description is not None and description.text.startswith("Asked: " if process["asked"] else "Nothing was asked")


def test_bands_are_the_stages_of_the_json(picture):
    bands = [rect for rect in picture.root.iter(SVG + "rect") if rect.get("class") in ("odd", "even")]
    edges = {(round(picture.x(stage["begin"]), 1), stage["kind"]) for stage in picture.run["stages"] if stage["kind"] != "row"}
    for begin, kind in edges:
        assert any(close(band.get("x"), begin) and band[0].text.startswith(kind) for band in bands), kind
    assert [band.get("class") for band in bands] == ["odd" if place % 2 == 0 else "even" for place in range(len(bands))]


def columns(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def boxes(element, left=0.0, top=0.0):
    """Where each text stands on the page: left, top, right, bottom."""
    if shift := element.get("transform"):
        dx, dy = map(float, re.fullmatch(r"translate\((\S+) (\S+)\)", shift).groups())
        left, top = left + dx, top + dy
    if element.tag == SVG + "text":
        x, y = left + float(element.get("x")), top + float(element.get("y"))
        # No font of 12 px is wider than it states, and none is squeezed.
        assert abs(float(element.get("textLength")) - 7.3 * columns(element.text)) <= 0.051, element.text
        yield (x, y - 10, x + float(element.get("textLength")), y + 3, element.text)
    for child in element:
        yield from boxes(child, left, top)


def test_no_text_stands_on_another_or_leaves_the_page(picture):
    found = sorted(boxes(picture.root), key=lambda box: box[1])
    width, height = float(picture.root.get("width")), float(picture.root.get("height"))
    assert found
    for place, (left, top, right, bottom, text) in enumerate(found):
        assert left >= 0 and right <= width and top >= 0 and bottom <= height, text
        for other in found[place + 1:]:
            if other[1] >= bottom:
                break
            assert other[0] >= right or other[2] <= left, (text, other[4])


def test_a_process_costs_at_most_a_kilobyte(picture):
    lanes = sum(len(picture.run[kind]) for kind in ("processes", "not_in_snapshot", "came_back"))
    axes = len(picture.run["processes"]) // 50 * 900
    assert picture.bytes <= 1000 * lanes + 9000 + axes
    if lanes > 1000:
        assert picture.bytes <= 1000 * lanes


def test_picture_suits_light_and_dark(picture):
    style = picture.root.find(SVG + "style").text
    light, dark = style.split("@media (prefers-color-scheme: dark)")
    painted = set(re.findall(r"^(\S+) \{[^}]*(?:fill|stroke): #", light, re.M))
    assert painted and painted <= set(re.findall(r"^(\S+) \{", dark, re.M))
