#!/usr/bin/python3
"""Draws docs/performance.svg from the figures in docs/performance.md.

    bench/plot.py             draws it
    bench/plot.py --compare   fails unless it shows these figures

A row a command: a stem from the line of 1, the first command of its group, to the command's own multiple. The scale is
logarithmic, so that twice as fast is as far from that line as twice as slow.
"""
import html
import math
import pathlib
import re
import sys

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
DOCUMENT, PICTURE = DOCS / "performance.md", DOCS / "performance.svg"

WIDTH, MARGIN, ROW, GAP = 900, 24, 21, 40
# Where the scale begins and ends; labels stand before it, numbers behind, so that no text lies on a line.
SCALE_LEFT, SCALE_RIGHT, RATIO_RIGHT, MEDIAN_RIGHT = 290, 690, 785, WIDTH - MARGIN
# Where the words above the first group stand.
TITLE_Y, SUBTITLE_Y, LEGEND_Y, SCALE_Y, FIRST_GROUP_Y = 34, 56, 84, 120, 132

TITLE = "Time of each command, as a multiple of the first of its group"
SUBTITLE = ("Medians of whole runs. Logarithmic scale: each line stands for twice the time of the one to its left; "
            "left of 1× is faster.")
LEGEND = (("dot first", "the first of its group: 1×", 200), ("dot own", "cvstop", 80), ("dot", "other tools", 100))
# It brings its own page, since the scheme that a reader prefers need not be that of the page around the picture.
STYLE = """
    .page { fill: #ffffff; stroke: #d1d9e0; }
    text { font: 13px "DejaVu Sans", Verdana, Helvetica, Arial, sans-serif; fill: #1f2328; }
    .title { font-size: 16px; font-weight: bold; }
    .note { font-size: 12px; fill: #59636e; }
    .group, .own { font-weight: bold; }
    .middle { text-anchor: middle; }
    .end { text-anchor: end; }
    .line { stroke: #d1d9e0; }
    .one { stroke: #1f2328; stroke-width: 1.5; }
    .stem { stroke: #6e7781; stroke-width: 2; }
    .dot { fill: #6e7781; }
    .first { fill: #ffffff; stroke: #1f2328; stroke-width: 1.5; }
    .stem.own { stroke: #0b62c4; stroke-width: 4; }
    .dot.own { fill: #0b62c4; }
    @media (prefers-color-scheme: dark) {
      .page { fill: #0d1117; stroke: #3d444d; }
      text { fill: #e6edf3; }
      .note { fill: #a3adb8; }
      .line { stroke: #3d444d; }
      .one { stroke: #e6edf3; }
      .stem { stroke: #9aa4b0; }
      .dot { fill: #9aa4b0; }
      .first { fill: #0d1117; stroke: #e6edf3; }
      .stem.own { stroke: #58a6ff; }
      .dot.own { fill: #58a6ff; }
    }
"""


def read_groups(document):
    """The groups of the document's table: name, and (command, ratio, median in ms) of each row."""
    groups = []
    for part in re.split("^### ", document, flags=re.M)[1:]:
        rows = re.findall(r"^\| `(.+?)` \| ([\d.]+) \| ([\d.]+) \|", part, re.M)
        if rows:
            groups.append((part.split("\n", 1)[0], [(command, float(ratio), float(median)) for command, ratio, median in rows]))
    return groups


class Scale:
    """From the power of two below all ratios to the one above them."""

    def __init__(self, ratios):
        self.low, self.high = math.floor(math.log2(min(ratios))), math.ceil(math.log2(max(ratios)))

    def x(self, ratio):
        unit = (SCALE_RIGHT - SCALE_LEFT) / (self.high - self.low)
        return round(SCALE_LEFT + (math.log2(ratio) - self.low) * unit, 1)

    def ticks(self):
        return [2.0 ** power for power in range(self.low, self.high + 1)]


def text(x, y, words, kinds=""):
    attribute = f' class="{kinds}"' if kinds else ""
    return f'<text x="{x}" y="{y}"{attribute}>{html.escape(words, quote=False)}</text>'


def line(x1, y1, x2, y2, kinds):
    return f'<line class="{kinds}" x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}"/>'


def dot(x, y, kinds):
    return f'<circle class="{kinds}" cx="{x}" cy="{y}" r="5"/>'


def is_own(command):
    return command.startswith("cvstop")


def draw_legend():
    parts, x = [], MARGIN
    for kinds, words, width in LEGEND:
        parts += [dot(x + 5, LEGEND_Y - 4, kinds), text(x + 17, LEGEND_Y, words, "note")]
        x += width
    return parts


def draw_ticks(scale, y):
    return [text(scale.x(tick), y, f"{tick:g}×", "middle own" if tick == 1 else "note middle") for tick in scale.ticks()]


def draw_row(scale, y, row, is_first):
    """A command's label, its mark, and its numbers, in the middle of a row that begins at y."""
    command, ratio, median = row
    own = " own" if is_own(command) else ""
    middle, base = y + ROW / 2, y + ROW / 2 + 4.5
    stem = [] if is_first else [line(scale.x(1), middle, scale.x(ratio), middle, "stem" + own)]
    return [text(MARGIN + 12, base, command, own.strip()), *stem,
            dot(scale.x(ratio), middle, "dot first" if is_first else "dot" + own),
            text(RATIO_RIGHT, base, f"{ratio:.2f}×", "end" + own), text(MEDIAN_RIGHT, base, f"{median:.2f} ms", "end" + own)]


def draw_group(scale, y, name, rows):
    """Its name, and below it, not behind it, the lines of the scale with the rows."""
    top, bottom = y + 10, y + 10 + ROW * len(rows)
    parts = [text(MARGIN, y, name, "group")]
    parts += [line(scale.x(tick), top, scale.x(tick), bottom, "one" if tick == 1 else "line") for tick in scale.ticks()]
    for index, row in enumerate(rows):
        parts += draw_row(scale, top + index * ROW, row, index == 0)
    return parts, bottom


def describe(groups):
    """All multiples in words, for a screen reader."""
    told = [f"{name}: " + ", ".join(f"{command} {ratio:.2f}" for command, ratio, _ in rows) + "." for name, rows in groups]
    return " ".join(told)


def draw(groups):
    scale = Scale([ratio for _, rows in groups for _, ratio, _ in rows])
    parts = [text(MARGIN, TITLE_Y, TITLE, "title"), text(MARGIN, SUBTITLE_Y, SUBTITLE, "note"), *draw_legend(),
             text(RATIO_RIGHT, SCALE_Y, "multiple", "note end"), text(MEDIAN_RIGHT, SCALE_Y, "median", "note end"),
             *draw_ticks(scale, SCALE_Y)]
    y = FIRST_GROUP_Y
    for name, rows in groups:
        drawn, bottom = draw_group(scale, y + 18, name, rows)
        parts += drawn
        y = bottom + GAP - 18
    parts += draw_ticks(scale, bottom + 18)
    height = bottom + 36
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" viewBox="0 0 {WIDTH} {height}" '
            f'role="img" aria-labelledby="title desc">\n  <title id="title">{TITLE}</title>\n'
            f'  <desc id="desc">{html.escape(describe(groups), quote=False)}</desc>\n  <style>{STYLE}  </style>\n'
            f'  <rect class="page" x="0.5" y="0.5" width="{WIDTH - 1}" height="{height - 1}" rx="8"/>\n  '
            + "\n  ".join(parts) + "\n</svg>\n")


def drawn():
    return draw(read_groups(DOCUMENT.read_text()))


def write():
    PICTURE.write_text(drawn())


def main():
    if sys.argv[1:] != ["--compare"]:
        write()
    elif PICTURE.read_text() != drawn():
        sys.exit(f"{PICTURE.name} does not show the figures of {DOCUMENT.name}: bench/plot.py draws it anew")


if __name__ == "__main__":
    main()
