"""A shutdown whose output goes nowhere: closed streams, full disks, a reader or a terminal that goes away. It goes on to its
end."""
import signal

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, GATHERING, JOURNAL, assert_ends

pytestmark = pytest.mark.sanitized
FLEET = f"{BIN}/momuhe\n"


@pytest.mark.parametrize("closed", ["<&-", ">&-", "2>&-", "<&- >&-", "<&- >&- 2>&-"])
def test_closed_standard_streams(host, closed):
    here = host(FLEET)
    result = here.run(command=f"sh -c '{CVSTOP} -k {closed}'")
    assert result.status == 1 and not result.is_alive("momuhe")
    # Nothing that was meant for the user stands in the log: each line of it is a record.
    assert "Looking for remaining processes to shut down" in result.texts("OrderlyShutdown")


def test_full_disk_under_standard_output(host):
    result = host(FLEET).run(command=f"sh -c '{CVSTOP} -k >/dev/full'")
    assert result.status == 1 and not result.is_alive("momuhe")


def test_full_disk_under_the_log(host):
    here = host(FLEET)
    (here.quarn / "corvane/logs/cvstop").mkdir()
    result = here.run(
        "-k", before="mount -t tmpfs -o size=4k tmpfs /usr/quarn/corvane/logs/cvstop && "
        "head -c 4096 /dev/zero >/usr/quarn/corvane/logs/cvstop/full")
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert (result.stderr, result.status) == ("", 1)
    assert not result.is_alive("momuhe")


def test_reader_that_goes_away(host):
    result = host(f"{BIN}/momuhe\n{BIN}/strayd\n").run(
        command=f"sh -c '({CVSTOP} -k; echo $? >/usr/quarn/sandbox/own-status) | head -1'")
    assert result.stdout == GATHERING
    assert (result.tree / "quarn/sandbox/own-status").read_text() == "1\n"
    assert not result.is_alive("momuhe") and not result.is_alive("strayd")


def test_progress_is_seen_as_it_happens(host):
    """The reader ends the program at the line that tells of a signal: one that comes with the last line comes too late."""
    result = host(f"{BIN}/strayd ignore=all\n").run(command=(
        f"(sh -c 'echo $$ >/tmp/program; exec {CVSTOP} -k'; echo $? >/usr/quarn/sandbox/own-status) | "
        "while read -r line; do case $line in Signaling*) kill -KILL \"$(cat /tmp/program)\";; esac; done"))
    assert (result.tree / "quarn/sandbox/own-status").read_text() == f"{128 + 9}\n"


def test_stop_command_starts_with_the_signals_that_the_shutdown_ignores(host):
    here = host(f"{BIN}/dbsrv17\n")
    here.write(f"{BIN}/duzahi_start_stop", "#!/bin/sh\ngrep ^SigIgn: /proc/self/status >/usr/quarn/sandbox/ignored\n"
               f"kill -USR1 $(awk '$2 == \"ready\" {{ print $3 }}' {JOURNAL})\n")
    result = here.run("-k")
    assert_ends(result.stdout, ALL_SPECIFIED)
    ignored = int(here.file("ignored").split()[1], 16)
    assert ignored & (1 << signal.SIGHUP - 1 | 1 << signal.SIGPIPE - 1) == 0


def test_terminal_that_goes_away_half_way(host):
    """The hang-up comes while the stray process is being stopped: the shutdown goes on to its end."""
    result = host(f"{BIN}/strayd ignore=INT\n").run(command=(
        f"sh -c '{CVSTOP} -k & program=$!; until grep -q SIGINT {JOURNAL}; do kill -0 $program || exit; done; "
        "kill -HUP $program; wait $program'"))
    assert result.status == 1
    assert result.signals_of("strayd") == ["SIGINT", "SIGTERM"]
    assert not result.is_alive("strayd")
