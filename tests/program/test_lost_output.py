"""A shutdown whose output goes nowhere: closed streams, full disks, a reader or a terminal that goes away. It goes on to its
end."""
import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, GATHERING, JOURNAL, assert_ends

pytestmark = pytest.mark.sanitized
FLEET = f"{BIN}/momuhe\n"


def test_closed_standard_streams(host):
    here = host(FLEET)
    result = here.run(command=f"sh -c '{CVSTOP} -k <&- >&- 2>&-'")
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


def test_terminal_that_goes_away_half_way(host):
    """The hang-up comes while the stray process is being stopped: the shutdown goes on to its end."""
    result = host(f"{BIN}/strayd ignore=INT\n").run(command=(
        f"sh -c '{CVSTOP} -k & program=$!; until grep -q SIGINT {JOURNAL}; do kill -0 $program || exit; done; "
        "kill -HUP $program; wait $program'"))
    assert result.status == 1
    assert result.signals_of("strayd") == ["SIGINT", "SIGTERM"]
    assert not result.is_alive("strayd")
