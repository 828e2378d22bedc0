"""The live line on a terminal, which an emulator shows as it would look: nothing of the program's is lost, nothing of the line is
left."""
import json
import os
import pathlib
import re
import shlex
import sys
import unicodedata

import pyte
import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, GATHERING, LOG, REPO, WATCH, initiating, until_ended

HERE = pathlib.Path(__file__).parent
FLEET = f"{BIN}/kuror stop=3\n{BIN}/momuhe count=3\n{BIN}/strayd ignore=INT\n"
QUIETLY = [WATCH, "--no-report", "--"]
REWRITE = b"\r\x1b[K"


class Shown:
    """What a run showed on its terminal."""

    def __init__(self, here, result, size):
        self.bytes = here.inside("/opt/shown").read_bytes()
        self.text = self.bytes.decode()
        self.times = json.loads(here.inside("/opt/times").read_text())
        self.resizes = json.loads(here.inside("/opt/resizes").read_text())
        self.status = os.waitstatus_to_exitcode(int(here.inside("/opt/ended").read_text()))
        self.result = result
        self.size = size

    def screen(self):
        rows, columns = self.size
        screen = pyte.HistoryScreen(columns, rows, history=1000)
        stream = pyte.ByteStream(screen)
        done = 0
        for place, (lines, width) in self.resizes:
            stream.feed(self.bytes[done:place])
            screen.resize(lines, width)
            done = place
        stream.feed(self.bytes[done:])
        top = ["".join(line[column].data for column in range(screen.columns)).rstrip() for line in screen.history.top]
        return "\n".join(top + [line.rstrip() for line in screen.display]).rstrip()

    def lines(self):
        """Each form that the line took."""
        parts = [part.split(b"\r")[0].decode() for part in self.bytes.split(REWRITE)[1:]]
        return [part for part in parts if re.match(r"(\[[#-]{12}\] )?\d+ of \d+", part)]


def on_terminal(here, command, size=(24, 130), steps=(), env=None, **how):
    here.install(HERE / "terminal.py", "/opt/terminal.py")
    plan = json.dumps({"size": size, "steps": steps})
    result = here.run(command=shlex.join(["/usr/bin/python3", "/opt/terminal.py", plan, *command]),
                      env={"TERM": "xterm", **(env or {})}, **how)
    return Shown(here, result, size)


def written(count):
    return (GATHERING + initiating(count) + 3 * f"Signaling process {BIN}/momuhe\n" + f"Requesting termination of {BIN}/kuror.\n"
            + f"Signaling process {BIN}/strayd\n" + ALL_SPECIFIED)


def test_the_line_comes_and_goes(host):
    here = host(FLEET)
    shown = on_terminal(here, [*QUIETLY, "-k"])
    assert shown.status == 1
    assert shown.screen() == written(5).rstrip()
    assert any(re.fullmatch(r"\[#+-+\] 3 of 5 ended  \d s  waiting for kuror \(\d+\): asked \d s ago, up to 5\d s more", line)
               for line in shown.lines()), shown.lines()
    assert any(re.search(r"signalling strayd \(\d+\)", line) for line in shown.lines()), shown.lines()
    took = shown.times[-1][0] - shown.times[0][0]
    assert 3 < len(shown.lines()) <= 4 * took + 2
    # Nothing stands on the line before the program's own, and no colour in it.
    plain = re.sub(rb"\r\x1b\[K[^\r\n]*(?=\r\x1b\[K)", b"", shown.bytes).replace(REWRITE, b"")
    assert plain.replace(b"\r\n", b"\n").decode() == written(5)
    assert b"\x1b" not in plain


@pytest.mark.parametrize("columns", [20, 40, 80, 300])
def test_every_width(host, columns):
    here = host(f"{BIN}/kuror stop=2\n{BIN}/バックアップ停止監視 ignore=INT,TERM,QUIT\n{BIN}/{'x' * 200} ignore=INT\n")
    result = on_terminal(here, [*QUIETLY, "-k", "-b", "/dev/null"], size=(60, columns), before=ended_soon("バックアップ停止監視"))
    alone = on_terminal(here, [CVSTOP, "-k", "-b", "/dev/null"], size=(60, columns), before=ended_soon("バックアップ停止監視"))
    assert result.screen() == alone.screen()
    assert all(pyte_width(line) < columns for line in result.lines())
    assert result.lines()


def ended_soon(name):
    """The daemon of that name is killed by somebody else, eight seconds on."""
    return f"(sleep 8; for exe in /proc/[0-9]*/exe; do case $(readlink $exe) in */{name}) kill -KILL $(echo $exe | " \
        "tr -dc 0-9);; esac; done) >/dev/null 2>&1 &\n"


def pyte_width(text):
    screen = pyte.Screen(2000, 2)
    pyte.Stream(screen).feed(text)
    return screen.cursor.x


def test_resized_in_the_middle(host):
    steps = [["waiting for kuror", "resize", [24, 50]], ["waiting for kuror", "resize", [24, 120]]]
    here = host(FLEET)
    shown = on_terminal(here, [*QUIETLY, "-k"], steps=steps)
    first = shown.text.encode().find(b"waiting for kuror") + len("waiting for kuror")
    assert len(shown.resizes) == 2
    narrow = [line for line in shown.bytes[first:].split(REWRITE)[1:] if b" ended " in line]
    assert any(len(line.split(b"\r")[0]) < 50 for line in narrow)
    # The emulator cuts the lines that are there when it becomes narrow.
    cut = [[line[:50].rstrip() for line in text.splitlines()] for text in (shown.screen(), written(5))]
    assert cut[0] == cut[1]
    assert written(5).splitlines()[-1] in shown.screen()


@pytest.mark.parametrize("text", ["waiting for kuror", "signalling strayd"])
def test_terminal_that_goes_away(host, text):
    """The shutdown goes on to its end."""
    here = host(FLEET)
    shown = on_terminal(here, [*QUIETLY, "-k"], steps=[[text, "leave", None]])
    assert shown.status == 1
    assert "All Corvane processes terminated normally." in [record.text for record in shown.result.log]
    assert not any(shown.result.is_alive(name) for name in ("kuror", "momuhe", "strayd"))


@pytest.mark.parametrize("text", ["waiting for kuror", "signalling strayd"])
def test_watcher_that_is_killed_while_the_line_stands(host, text):
    """The program's output went through the watcher: it meets a reader that has gone, and goes on to its end."""
    here = host(FLEET)
    # The first process of the terminal stays: with it, the terminal would go away as well.
    here.write("/opt/x/first", f"{WATCH} --no-report -- -k\n{until_ended(CVSTOP)}")
    shown = on_terminal(here, ["/bin/sh", "/opt/x/first"], steps=[[text, "kill", WATCH]])
    assert text in shown.text
    assert "All Corvane processes terminated normally." in [record.text for record in shown.result.log]
    assert not any(shown.result.is_alive(name) for name in ("kuror", "momuhe", "strayd"))


@pytest.mark.parametrize("answer, text", [("n\n", "Shutdown aborted."), ("y\n", ALL_SPECIFIED.strip())])
def test_silent_while_the_question_stands(host, answer, text):
    here = host(FLEET)
    shown = on_terminal(here, [*QUIETLY], steps=[["(y/n) ", "type", answer]])
    before, after = shown.bytes.split(b"(y/n) ")
    assert b"\x1b" not in before and text in shown.screen()
    assert (REWRITE in after) == (answer == "y\n")
    alone = on_terminal(here, [CVSTOP], steps=[["(y/n) ", "type", answer]])
    assert shown.screen() == alone.screen() and shown.status == alone.status


@pytest.mark.parametrize("arguments", [("-k", "-q"), ("-l",), ("-h",), ("-x",)])
def test_nothing_is_added_where_nothing_is_wanted(host, arguments):
    here = host(f"{BIN}/kuror stop=2\n")
    shown = on_terminal(here, [*QUIETLY, *arguments])
    alone = on_terminal(here, [CVSTOP, *arguments])
    assert b"\x1b" not in shown.bytes
    assert (shown.screen(), shown.status) == (alone.screen(), alone.status)


def test_dumb_terminal_gets_whole_lines(host):
    shown = on_terminal(host(FLEET), [WATCH, "--", "-k"], env={"TERM": "dumb"})
    assert b"\x1b" not in shown.bytes
    assert re.search(r"^cvstop-watch: 3 of 5 ended  [2-4] s  waiting for kuror ", shown.text.replace("\r", ""), re.M)


def test_standard_output_in_a_file_is_the_programs_own(host):
    here = host(FLEET)
    shown = on_terminal(here, ["/bin/sh", "-c", f"{WATCH} --no-report -- -k >/opt/output"])
    assert here.inside("/opt/output").read_text() == written(5)
    assert shown.screen() == "" and shown.lines()


def test_lines_in_a_file(host):
    """None in the first two seconds, and then one every ten."""
    here = host(f"{BIN}/kuror stop=13\n")
    result = here.run(command=f"{WATCH} -- -k")
    lines = [line for line in result.stderr.splitlines() if line.startswith("cvstop-watch: 0 of 1 ended")]
    first, second = (int(re.search(r"ended  (\d+) s", line)[1]) for line in lines)
    # A busy machine makes them late.
    assert 2 <= first and 10 <= second - first and second < 15
    quick = here.run(command=f"{WATCH} -- -k -q", before=f"rm -f {LOG}\n")
    assert "ended  2 s" not in quick.stderr


def test_background_of_a_terminal_that_stops_writers(host):
    """The program writes to a file; the watcher's own lines stop neither of the two, and none is rewritten."""
    here = host(FLEET)
    here.write("/opt/x/job", f"stty tostop\nset -m\n{WATCH} -- -k >/opt/output &\nwait $!\necho ended with $?\n")
    shown = on_terminal(here, ["/usr/bin/timeout", "--foreground", "-s", "KILL", "60", "/bin/sh", "/opt/x/job"])
    assert here.inside("/opt/output").read_text() == written(5)
    assert re.search(r"^cvstop-watch: 3 of 5 ended  [2-4] s  waiting for kuror ", shown.screen(), re.M), shown.text
    assert "5 processes in" in shown.screen() and "ended with 1" in shown.screen()
    assert b"\x1b" not in shown.bytes


@pytest.mark.parametrize("way, is_live", [("| cat", False), (">/dev/tty", True), (">/dev/null", True)])
def test_standard_output_elsewhere(host, way, is_live):
    """What comes to the terminal by another way would stand in the middle of the line: there is none then."""
    here = host(FLEET)
    shown, alone = (on_terminal(here, ["/bin/sh", "-c", f"{' '.join(command)} -k {way}"]) for command in (QUIETLY, [CVSTOP]))
    assert shown.screen() == alone.screen() and bool(shown.lines()) == is_live
    assert is_live or b"\x1b" not in shown.bytes


def test_whole_lines_are_not_made_up_for(host):
    """None while the question stands, and afterwards one in ten seconds."""
    here = host(f"{BIN}/kuror stop=5\n")
    result = here.run(command=f"(sleep 13; echo y) | {WATCH}")
    ended = re.findall(r"^cvstop-watch: 0 of 1 ended  (\d+) s", result.stderr, re.M)
    assert len(ended) == 1 and int(ended[0]) >= 13, result.stderr


def test_wide_characters_are_known():
    """One that is taken for narrow would make the line longer than the terminal is wide. Some have become wide only lately."""
    text = (REPO / "watch/Text.cpp").read_text()
    ranges = re.findall(r"{0x(\w+), 0x(\w+)}", re.search(r"kWide\[\] = {(.*?)};", text, re.S)[1])
    known = {chr(code) for first, last in ranges for code in range(int(first, 16), int(last, 16) + 1)}
    assigned = {character for character in map(chr, range(sys.maxunicode + 1))
                if unicodedata.category(character) not in ("Cn", "Co", "Mn", "Me")}
    wide = {character for character in assigned if unicodedata.east_asian_width(character) in "WF"}
    assert wide <= known
    lately = {*map(chr, [*range(0x2630, 0x2638), *range(0x268A, 0x2690), *range(0x4DC0, 0x4E00), *range(0x1D300, 0x1D377)])}
    assert known & assigned <= wide | lately
