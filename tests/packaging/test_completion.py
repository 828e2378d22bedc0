"""What the shells offer behind `cvstop`: only what can still be said, and files behind -b."""
import os
import pathlib
import pty
import re
import select
import subprocess
import time

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
COMPLETION = REPO / "packaging/completion"
KILL, LIST, THIRD = {"-k", "-kill"}, {"-l", "-list"}, {"-3", "-third_party"}
QUIET, EXCLUDE, HELP = {"-q", "-quiet"}, {"-b", "-blacklist", "-e", "-excludelist"}, {"-h", "-help"}
ALL = KILL | LIST | THIRD | QUIET | EXCLUDE | HELP
# What stands before the last word, and what of the options is offered for it.
OFFERS = [
    ([], ALL),
    (["-k"], THIRD | QUIET | EXCLUDE),
    (["-kill", "-3"], QUIET | EXCLUDE),
    (["-l"], THIRD | EXCLUDE),
    (["-list", "-3", "-b", "file"], set()),
    (["-q"], KILL | THIRD | EXCLUDE),
    (["-3"], KILL | LIST | QUIET | EXCLUDE),
    (["-h"], set()),
]
NAMES = ["".join(words) or "nothing" for words, _ in OFFERS]


def bash(words, current, cwd):
    """What the function offers for the last word."""
    script = ('. "$1"; shift; COMP_WORDS=(cvstop "$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); compopt() { :; }; _cvstop; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    run = subprocess.run(["bash", "--norc", "-c", script, "bash", COMPLETION / "cvstop.bash", *words, current], cwd=cwd,
                         capture_output=True, text=True, check=True)
    assert run.stderr == ""
    return set(filter(None, run.stdout.splitlines()))


JSON, PICTURE, REPORT, DRAW = {"--json"}, {"--svg"}, {"--no-report"}, {"--draw"}
# The same behind cvstop-watch.
WATCH_OFFERS = [
    ([], JSON | PICTURE | REPORT | DRAW | {"--help", "--"}),
    (["--json", "f"], PICTURE | REPORT | {"--"}),
    (["--no-report", "--svg", "-k"], JSON | {"--"}),
    (["--draw", "f"], PICTURE),
    (["--help"], set()),
    (["--"], ALL),
    (["cvstop"], ALL),
    (["--svg", "f", "--", "-k"], THIRD | QUIET | EXCLUDE),
    (["--", "/usr/quarn/corvane/bin/cvstop", "-l"], THIRD | EXCLUDE),
]
WATCH_NAMES = ["".join(words).replace("/", "") or "nothing" for words, _ in WATCH_OFFERS]


def bash_watch(words, current, cwd):
    script = ('. "$1"; . "$2"; shift 2; COMP_WORDS=(cvstop-watch "$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); compopt() { :; }; '
              '_cvstop_watch; printf "%s\\n" "${COMPREPLY[@]}"')
    run = subprocess.run(["bash", "--norc", "-c", script, "bash", COMPLETION / "cvstop.bash", COMPLETION / "cvstop-watch.bash",
                          *words, current], cwd=cwd, capture_output=True, text=True, check=True)
    assert run.stderr == ""
    return set(filter(None, run.stdout.splitlines()))


@pytest.mark.parametrize("words, offers", WATCH_OFFERS, ids=WATCH_NAMES)
def test_bash_offers_what_can_follow_the_watcher(words, offers, tmp_path):
    assert bash_watch(words, "-", tmp_path) == offers


def test_bash_offers_files_and_programs_behind_the_watcher(tmp_path):
    (tmp_path / "stop.json").touch()
    for option in JSON | PICTURE | DRAW:
        assert bash_watch([option], "stop", tmp_path) == {"stop.json"}
    assert "true" in bash_watch(["--no-report"], "tru", tmp_path)
    assert bash_watch(["--draw", "f"], "tru", tmp_path) == set()


@pytest.mark.parametrize("words, offers", OFFERS, ids=NAMES)
def test_bash_offers_what_can_still_be_said(words, offers, tmp_path):
    assert bash(words, "-", tmp_path) == offers


def test_bash_knows_long_spellings_in_any_case(tmp_path):
    assert bash(["-LIST"], "-", tmp_path) == THIRD | EXCLUDE


def test_bash_takes_the_word_behind_e_for_a_file(tmp_path):
    assert bash(["-e", "-k"], "-", tmp_path) == ALL - EXCLUDE - HELP


def test_bash_narrows_to_what_was_begun(tmp_path):
    assert bash([], "-li", tmp_path) == {"-list"}


def test_bash_offers_files_behind_b(tmp_path):
    (tmp_path / "keep.list").touch()
    (tmp_path / "other").touch()
    for option in EXCLUDE:
        assert bash(["-k", option], "", tmp_path) == {"keep.list", "other"}
        assert bash(["-k", option], "ke", tmp_path) == {"keep.list"}


class Zsh:
    """An interactive zsh that knows the completion alone."""

    def __init__(self, cwd):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(cwd)
            environment = {"PATH": os.environ["PATH"], "TERM": "dumb", "HOME": str(cwd), "COLUMNS": "200"}
            os.execvpe("zsh", ["zsh", "-f", "-i"], environment)
        self.text = ""
        self.run(f"fpath=({COMPLETION} $fpath); autoload -Uz compinit; compinit -u -D; LISTMAX=0; unsetopt zle_bracketed_paste; "
                 "setopt no_beep; stty columns 200; unsetopt prompt_sp prompt_cr; PS1=rea''dy:")

    def read_until(self, mark):
        end = time.monotonic() + 60
        while mark not in self.text:
            assert time.monotonic() < end, self.text
            if select.select([self.terminal], [], [], 0.1)[0]:
                self.text += os.read(self.terminal, 65536).decode(errors="replace")
        before, self.text = self.text.split(mark, 1)
        return before

    def run(self, command):
        """Runs a command line; returns what came before its end."""
        os.write(self.terminal, f"{command}; print -r -- en''d\n".encode())
        output = self.read_until("\nend")
        # What is typed before the line editor is there again would not reach it.
        self.read_until("ready:")
        return output

    def complete(self, line):
        # ^U drops the line that the completion left; what was offered comes before the next command's end.
        os.write(self.terminal, f"{line}\t\x15".encode())
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]|.\x08", "", self.run(":"))

    def close(self):
        os.write(self.terminal, b"exit\n")
        os.close(self.terminal)
        os.waitpid(self.pid, 0)


@pytest.fixture
def zsh(tmp_path):
    shell = Zsh(tmp_path)
    yield shell
    shell.close()


@pytest.mark.parametrize("words, offers", OFFERS, ids=NAMES)
def test_zsh_offers_what_can_still_be_said(zsh, words, offers):
    shown = zsh.complete(" ".join(["cvstop", *words, "-"]))
    described = [row.split(" -- ")[0] for row in shown.splitlines() if row.startswith("-")]
    assert {option for row in described for option in row.split()} == offers, shown


def test_zsh_offers_files_behind_b(zsh, tmp_path):
    (tmp_path / "keep.list").touch()
    assert "keep.list" in zsh.complete("cvstop -k -b ")


@pytest.mark.parametrize("words, offers", WATCH_OFFERS, ids=WATCH_NAMES)
def test_zsh_offers_what_can_follow_the_watcher(zsh, words, offers):
    """One offer alone is put into the line at once, and so are two dashes that all offers begin with."""
    offers = offers - {"--"}
    begin = "--" if offers and all(offer.startswith("--") for offer in offers) else "-"
    shown = zsh.complete(" ".join(["cvstop-watch", *words, begin]))
    described = [row.split(" -- ")[0] for row in shown.splitlines() if row.startswith("-")]
    if len(offers) == 1:
        assert f"{' '.join(words)} {min(offers)}" in shown
    else:
        assert {option for row in described for option in row.split()} == offers, shown
