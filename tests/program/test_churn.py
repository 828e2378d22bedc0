"""A host that does not hold still: processes come and go and change while they are read, two runs at once, a load on all
processors. What lived throughout is never missed, and nobody is signalled for another."""
import pytest

from box import ALL_SPECIFIED, BIN, BUILD, CVSTOP, assert_ends

FLEET = f"{BIN}/halvd\n{BIN}/momuhe count=3\n{BIN}/koka\n/opt/a/editor cwd={BIN}\n"
LIVING = sorted([f"{BIN}/halvd", *3 * [f"{BIN}/momuhe"], f"{BIN}/koka"])
LISTINGS, SHUTDOWNS = 200, 20
# Several of these tests may share two processors, each with a load of its own.
PATIENCE = 900

# Strangers that have children without a pause, that change their pid every other millisecond, that exec without a pause.
# Dead children are awaited: pid 1 of the box would not keep up with orphans, and the machine would run out of pids.
STORM = "for n in 1 2 3 4; do /opt/hopper 0 brood & strangers=\"$strangers $!\"; done; /opt/hopper 2 &\n"
EXECS = "for n in 1 2 3 4; do /opt/hopper 0 exec & strangers=\"$strangers $!\"; done\n"
LOAD = "for n in 1 2; do sh -c 'while :; do :; done' & strangers=\"$strangers $!\"; done\n"
# Those that keep their pids are written down, once each has become what it is.
WRITTEN_DOWN = ("for pid in $strangers; do until grep -qzE 'hopper|while' /proc/$pid/cmdline; do sleep 0.01; done; done\n"
                "echo $strangers >/usr/quarn/sandbox/strangers\n")
DISTURBANCES = {"storm": STORM + WRITTEN_DOWN, "execs": EXECS + WRITTEN_DOWN, "load": LOAD + WRITTEN_DOWN}


@pytest.fixture
def churning(host):
    here = host(FLEET)
    here.install(BUILD / "sandbox/hopper", "/opt/hopper")
    return here


def listings(text):
    """The sorted paths of each listing."""
    return [sorted(line.split()[1] for line in part.splitlines()[2:]) for part in text.split("Name ")[1:]]


@pytest.mark.parametrize("disturbance", DISTURBANCES)
@pytest.mark.parametrize("option", ["-l", "-l -3"])
def test_listings_miss_nobody_who_lived_throughout(churning, disturbance, option):
    result = churning.run(before=DISTURBANCES[disturbance], timeout=PATIENCE,
                          command=f"for n in $(seq {LISTINGS}); do {CVSTOP} {option} || echo failed; done")
    assert "failed" not in result.stdout and result.stderr == ""
    found = listings(result.stdout)
    assert len(found) == LISTINGS
    for paths in found:
        assert [path for path in paths if path.startswith(BIN)] == LIVING
        assert "/opt/hopper" not in paths
        assert option == "-l" or "/opt/a/editor" in paths


@pytest.mark.parametrize("option", ["-l", "-l -3"])
def test_listings_two_at_once(churning, option):
    result = churning.run(timeout=PATIENCE,
                          command=f"for n in $(seq {LISTINGS}); do {CVSTOP} {option} >/opt/one & {CVSTOP} {option}; wait; "
                                  "cat /opt/one; done")
    found = listings(result.stdout)
    assert len(found) == 2 * LISTINGS
    for paths in found:
        assert [path for path in paths if path.startswith(BIN)] == LIVING


def check_shutdown(result):
    assert result.stderr == ""
    assert not [name for name in ("halvd", "momuhe", "koka") if result.is_alive(name)]
    assert result.is_alive("editor") and result.signals_of("editor") == []
    assert {signal.name for signal in result.signals} == {"halvd", "momuhe", "koka"}
    assert [argv for argv in result.commands() if "-terminate" in argv][0] == f"{BIN}/halvd -terminate"


@pytest.mark.parametrize("disturbance", DISTURBANCES)
def test_shutdowns_stop_the_product_and_nobody_else(churning, disturbance):
    for _ in range(SHUTDOWNS):
        result = churning.run("-k", before=DISTURBANCES[disturbance])
        assert result.status == 1
        assert_ends(result.stdout, ALL_SPECIFIED)
        strangers = {int(pid) for pid in churning.file("strangers").split()}
        assert strangers and strangers <= result.alive
        check_shutdown(result)
        (churning.quarn / "sandbox/journal").write_text("")


@pytest.mark.sanitized
def test_shutdowns_two_at_once(churning):
    for _ in range(SHUTDOWNS):
        result = churning.run(command=(
            f"sh -c '{CVSTOP} -k -q & first=$!; {CVSTOP} -k -q; second=$?; wait $first; echo $? $second'"))
        # The later of two runs may find nothing left.
        assert result.stdout in ("1 1\n", "1 0\n", "0 1\n")
        # Neither run took the other for the product.
        assert not any("cvstop" in text for text in result.texts("Processes::KillProcess"))
        check_shutdown(result)
        (churning.quarn / "sandbox/journal").write_text("")
