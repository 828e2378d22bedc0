"""Processes that a dead file server protects from every question: they hold up neither a listing nor a shutdown of the others."""
import pathlib
import re

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, assert_ends, initiating, rows_of_listing
from stuck_host import BEFORE, SANDBOX, UNFINDABLE, skip_without_file_server

HERE = pathlib.Path(__file__).parent
WITNESS = (f"{BIN}/momuhe", "Corvane")
# Beside everything that else keeps this machine busy, the time is the program's own.
AT_ONCE = "nice -n -19 timeout -s KILL 5"
# It prints to a file of the tree.
CLOCK = ("/usr/bin/timeout", "Third Party")

STARTS = {"a script of the product": [f"{BIN}/worker"], "another script": ["/opt/worker"],
          "three": [f"{BIN}/worker", "/opt/worker", f"{BIN}/worker"]}


class StuckHost:
    """A host with a witness, where some interpreters are stuck."""

    def __init__(self, here, before):
        self.here = here
        self.before = before
        self.here.install(HERE / "stuckfs.py", "/opt/stuckfs.py")
        for path in (f"{BIN}/worker", "/opt/worker"):
            self.here.install(HERE / "stuck.py", path)

    def run(self, command, after=""):
        result = self.here.run(command=command, before=self.before, after=after)
        skip_without_file_server(self.here)
        return result

    def pids(self):
        return [int(pid) for pid in self.here.file("stuck").split()]


@pytest.fixture(params=STARTS.values(), ids=STARTS)
def stuck(host, request):
    return StuckHost(host(f"{BIN}/momuhe\n"), BEFORE + "".join(f"start_stuck {path}\n" for path in request.param))


@pytest.fixture(params=["/tmp/stuck/once", "/opt/link"], ids=["by its path", "by a link"])
def unfindable(host, request):
    return StuckHost(host(f"{BIN}/momuhe\n"), UNFINDABLE.replace("SCRIPT", request.param))


def check_log(result, pids):
    """Those that were passed over are named, and no others."""
    warnings = result.texts("find_processes_CV", "warning")
    assert len(warnings) == len(pids)
    for pid in pids:
        assert any(re.search(rf"\b{pid}\b", text) for text in warnings), warnings


def test_stuck_process_cannot_be_asked_for_its_arguments(stuck):
    """What the tests below stand on; and it is the file server that it waits for."""
    ask_each = f"for pid in $(cat {SANDBOX}/stuck); do timeout SECONDS cat /proc/$pid/cmdline >/dev/null; echo $?; done"
    result = stuck.run(command=ask_each.replace("SECONDS", "2"),
                       after=f"kill $server; ({ask_each.replace('SECONDS', '60')}) >{SANDBOX}/released\n")
    assert result.stdout == len(stuck.pids()) * "124\n"
    assert stuck.here.file("released") == len(stuck.pids()) * "0\n"


@pytest.mark.parametrize("option, besides", [("", []), (" -3", [CLOCK])], ids=["product", "third_parties"])
def test_listing_passes_over_what_is_stuck(stuck, option, besides):
    result = stuck.run(command=f"{AT_ONCE} {CVSTOP} -l{option}")
    assert (result.status, result.stderr) == (0, "")
    assert rows_of_listing(result.stdout) == [WITNESS, *besides]
    check_log(result, stuck.pids())


@pytest.mark.parametrize("option, found, third_parties", [("", 1, ""), (" -3", 2, "\nThere are 1 3rd party processes active.\n")],
                         ids=["product", "third_parties"])
def test_shutdown_passes_over_what_is_stuck(stuck, option, found, third_parties):
    result = stuck.run(command=f"{AT_ONCE} {CVSTOP} -k{option}")
    assert initiating(found) in result.stdout
    assert_ends(result.stdout, ALL_SPECIFIED + third_parties)
    assert (result.status, result.stderr) == (1, "")
    assert not result.is_alive("momuhe")
    assert set(stuck.pids()) <= result.alive
    check_log(result, stuck.pids())


@pytest.mark.parametrize("option", ["", " -3"], ids=["product", "third_parties"])
def test_listing_asks_no_server_for_a_script(unfindable, option):
    result = unfindable.run(command=f"{AT_ONCE} {CVSTOP} -l{option}")
    assert (result.status, result.stderr) == (0, "")
    assert rows_of_listing(result.stdout)[:1] == [WITNESS]
    check_log(result, unfindable.pids())


def test_shutdown_asks_no_server_for_a_script(unfindable):
    result = unfindable.run(command=f"{AT_ONCE} {CVSTOP} -k")
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert (result.status, result.stderr) == (1, "")
    assert not result.is_alive("momuhe")
    assert set(unfindable.pids()) <= result.alive
    check_log(result, unfindable.pids())
