"""The manual and the README say what the code does: statuses, options, messages, seconds, signals, files and the shutdown table
are compared with the code's own."""
import os
import pathlib
import re
import subprocess
import sys

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(REPO / "tests/hosts"))

import systems  # noqa: E402

BUILD = REPO / os.environ.get("CVSTOP_BUILD", "build/dev")
MANUAL = REPO / "packaging/man"
PAGES = ("cvstop.8", "cvstop-watch.8", "cvstop-host.conf.5", "cvstop-excludelist.5")
TEXT = (MANUAL / "cvstop.8.scd").read_text()
HOST_CONF = (MANUAL / "cvstop-host.conf.5.scd").read_text()
WATCH = (MANUAL / "cvstop-watch.8.scd").read_text()
EXCLUDE_LIST = (MANUAL / "cvstop-excludelist.5.scd").read_text()
README = (REPO / "README.md").read_text()
README_PROSE = " ".join(README.split())
SOURCES = "\n".join(path.read_text() for folder in ("src", "platform", "include")
                    for path in sorted((REPO / folder).rglob("*")) if path.suffix in (".cpp", ".h"))
# Not the program's own: std::terminate ends it by SIGABRT.
ABORTED = 128 + 6


def section(name, text=TEXT):
    return re.search(rf"^# {name}\n(.*?)(?=^# |\Z)", text, re.M | re.S)[1]


def test_watchers_options_are_those_of_its_code():
    table = re.search(r"kOptions\[\] = \{\n(.*?)\n\};", (REPO / "watch/CommandLine.cpp").read_text(), re.S)[1]
    known = re.findall(r'^ +\{"(--[a-z-]+)", "(\w*)"', table, re.M)
    told = [re.fullmatch(r"\*(--[a-z-]+)\*(?: _(\w+)_)?", line).groups(default="")
            for line in section("OPTIONS", WATCH).splitlines() if line.startswith("*")]
    assert sorted(told) == sorted(known) and known
    for option, _ in known:
        assert f"*{option}*" in section("SYNOPSIS", WATCH)


def test_watchers_own_statuses_are_those_of_its_code():
    code = (REPO / "watch/main.cpp").read_text()
    names = "BadCommandLine|CannotExecute|NotFound|NotDrawn"
    known = [int(status) for status in re.findall(rf"constexpr int k(?:{names}) = (\d+);", code)]
    told = [int(status) for status in re.findall(r"^(?:With \*--draw\*, )?\*(\d+)\*", section("EXIT STATUS", WATCH), re.M)]
    assert len(known) == 4 and sorted(told) == sorted(known)


def messages():
    """The program's English messages."""
    template = (REPO / "po/cvstop.pot").read_text()
    entries = re.findall(r'^msgid ((?:".*"\n)+)', template, re.M)
    texts = ["".join(re.findall(r'"(.*)"', entry)) for entry in entries if entry != '""\n']
    return [text.replace("\\n", "\n").replace('\\"', '"') for text in texts]


def statuses_of_the_code():
    """Those of the one enum, src/shared/ExitStatus.h."""
    body = re.search(r"enum class ExitStatus : int \{\n(.*?)\n\};", SOURCES, re.S)[1]
    return {int(value) for value in re.findall(r"^ +\w+ = (\d+),$", body, re.M)} | {ABORTED}


def test_exit_statuses_are_those_of_the_code():
    assert {int(value) for value in re.findall(r"^\*(\d+)\*$", section("EXIT STATUS"), re.M)} == statuses_of_the_code()


def test_readmes_exit_statuses_are_those_of_the_code():
    table = README.split("### Exit status")[1].split("\n#")[0]
    assert {int(value) for value in re.findall(r"^\| (\d+)\b", table, re.M)} == statuses_of_the_code()


def options_of_the_code():
    table = re.search(r"kOptions\[\] = \{\n(.*?)\n\};", SOURCES, re.S)[1]
    return [re.findall(r'"(-[^"]+)"', row) for row in table.splitlines()]


def test_options_are_those_of_the_code():
    told = [re.findall(r"\*(-\w+)\*", line) for line in section("OPTIONS").splitlines() if line.startswith("*-")]
    assert sorted(map(sorted, told)) == sorted(map(sorted, options_of_the_code()))
    table = README.split("| option |")[1].split("\n\n")[0]
    for spelling in sum(options_of_the_code(), []):
        assert f"`{spelling}" in table, spelling


def test_watcher_spells_the_programs_options_as_the_program_does():
    """All but -k, which it need not know. One that it missed would have it watch a listing, or take a file for an option."""
    known = set(re.findall(r'"(-\w+)"', (REPO / "watch/ProgramArguments.cpp").read_text()))
    assert known == {spelling for row in options_of_the_code() if "-k" not in row for spelling in row}


def test_messages_that_are_quoted_are_the_programs():
    """Three points stand for what differs from run to run."""
    known = messages()
    quoted = re.findall(r'"([A-Z][^"]*|find_[^"]*)"', section("EXIT STATUS") + section("DIAGNOSTICS"))
    assert len(quoted) >= 9
    for text in quoted:
        pattern = ".*".join(re.escape(part) for part in text.split("..."))
        assert any(re.search(pattern, message) for message in known), text


def test_every_message_of_a_bad_command_line_is_told():
    told = section("DIAGNOSTICS")
    for message in messages():
        if message.startswith(("Invalid argument", "Exclude-list file not", "Unknown option")):
            assert re.sub("%s", "...", message.rstrip("\n")) in told, message


def number(pattern):
    found = re.search(pattern, SOURCES)
    assert found, pattern
    return int(found[1])


def test_seconds_are_those_of_the_code():
    seconds = number(r"waitTime = (\d+);")
    period = number(r"kProgressPeriodSeconds = (\d+);")
    checks = ", ".join(f"{check}th" for check in range(period, seconds, period))
    story = section("WHAT HAPPENS IN A SHUTDOWN")
    assert f"{seconds} checks, {seconds - 1} seconds at most, with a progress line at the {checks} and {seconds}th check" in story
    assert f"up to {seconds} seconds, and {seconds} more if it is still running" in story
    assert f"waits up to {seconds - 1} seconds" in README_PROSE
    assert f"up to {seconds} seconds" in EXCLUDE_LIST


def test_signals_are_those_of_the_code():
    """The sweep's signals, and a third party's, in their order."""
    def sent(source, function):
        body = re.search(rf"\b{function}\(.*?\n\}}", (REPO / "src" / source).read_text(), re.S)[0]
        names = ["SIG" + name for name in re.findall(r"SIGTYPE_(\w+)", body)]
        return ", ".join(names[:-1]) + " and " + names[-1]

    sweep = sent("shutdown/OrderlyShutdown.cpp", "stopWithSignals")
    assert f"no row stopped get {sweep}, a second apart" in section("WHAT HAPPENS IN A SHUTDOWN")
    assert f"no row stopped gets {sweep}." in README_PROSE
    assert f"get {sent('processes/ThirdParty.cpp', 'sendAllSignals')} at once" in section("WHAT HAPPENS IN A SHUTDOWN")


def test_rows_of_the_table_are_those_of_the_code():
    rows = re.findall(r'killDef\(\d+, \w+, "([^"]+)"', SOURCES)
    table = (MANUAL / "shutdown-table.scd").read_text().strip("`\n").splitlines()
    assert rows and [line.split()[0] for line in table if not line.startswith(" ")] == rows
    document = (REPO / "docs/shutdown-plan.md").read_text()
    assert re.findall(r"^\| \d+ \| `([^`]+)`", document, re.M) == rows


def test_rows_that_wait_are_those_of_the_code():
    waiting = re.findall(r'killDef\(\d+, \w+, "([^"]+)"[^()]*WAIT_PROCESS', SOURCES)
    assert f"Two rows wait for their process, *{waiting[0]}* and *{waiting[1]}*" in TEXT and len(waiting) == 2
    assert f"*{waiting[0]}* or *{waiting[1]}*" in EXCLUDE_LIST


def test_keys_of_the_configuration_are_those_of_the_code():
    known = re.findall(r'\{"(host|logging|telemetry)", "(\w+)"', (REPO / "platform/base/hostconf.cpp").read_text())
    told, current = [], None
    for line in section("KEYS", HOST_CONF).splitlines():
        if line.startswith("## ["):
            current = line[4:-1]
        elif re.fullmatch(r"\*\w+\*", line):
            told.append((current, line.strip("*")))
    assert sorted(told) == sorted(known) and known
    assert "from 0 to 99" in HOST_CONF and number(r"kMaxVerbosity = (\d+);") == 99


def files_of_the_code():
    paths = dict(re.findall(r'inline constexpr char (k\w+)\[\] = "([^"]+)";', SOURCES))
    name = paths["kProgramName"]
    return [f"{paths['kBinDirectory']}/{name}", paths["kHostConfiguration"], paths["kDefaultExcludeList"],
            f"{paths['kLogRoot']}/{name}/{name}.log", f"{paths['kLocaleRoot']}/"]


def test_files_are_those_of_the_code():
    told = re.findall(r"^_(/usr/quarn/[^_]+)_$", section("FILES"), re.M)
    assert told == files_of_the_code()


def test_readmes_files_are_those_of_the_code():
    _, configuration, exclude_list, log, _ = files_of_the_code()
    for path in (configuration, exclude_list, log):
        assert re.search(rf"{re.escape(path)}(?![.\w])", README), path


def test_languages_are_those_that_are_shipped():
    """A catalog names its own language."""
    assert {path.stem for path in (REPO / "po").glob("*.po")} == set((REPO / "po/LINGUAS").read_text().split())
    names = {re.search(r"^\"Language-Team: (.*)\\n\"$", path.read_text(), re.M)[1] for path in (REPO / "po").glob("*.po")}
    told = re.search(r"The translations: (.*), as ", section("FILES"))[1]
    assert set(re.split(", | and ", told)) == names


@pytest.mark.parametrize("page", PAGES)
def test_pages_are_sound(page):
    file = BUILD / "packaging/man" / page
    lint = subprocess.run(["mandoc", "-T", "lint", "-W", "error", file], capture_output=True, text=True, check=False)
    assert (lint.returncode, lint.stdout, lint.stderr) == (0, "", "")
    shown = subprocess.run(["man", "--warnings", "-l", file], capture_output=True, text=True, check=True,
                           env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8"})
    assert shown.stderr == ""
    lines = re.sub(".\b", "", shown.stdout).splitlines()
    assert max(map(len, lines)) <= 80 and lines[2] == "NAME"


def test_where_it_runs_is_what_the_booted_hosts_say():
    subprocess.run([REPO / "tests/hosts/systems.py", "--check"], check=True)


def test_kernels_that_were_booted_are_those_of_the_hosts():
    oldest, newest = systems.booted_kernels()
    for text in (section("WHERE IT RUNS"), README_PROSE):
        assert re.search(rf"kernels from {oldest} to {newest} were booted on x86\\?_64, and older ones emulated there", text)
