"""Hosts that lack what others have, or have something unusual in its place: the shell, the time zone."""
import shutil
import struct

import pytest

from box import ALL, BIN, CVSTOP, assert_ends, listed

DAEMONS = ("halvd", "fahazude")
FLEET = "".join(f"{BIN}/{name}\n" for name in DAEMONS)
NEPAL = "+05:45"


# --- the time zone (tzset(3))

def zone():
    """A file of a time zone (RFC 8536) of a fixed offset."""
    def block(version):
        counts = struct.pack(">6I", 0, 0, 0, 0, 1, 6)
        return b"TZif" + version + bytes(15) + counts + struct.pack(">iBB", 5 * 3600 + 45 * 60, 0, 0) + b"+0545\0"
    return block(b"2") + block(b"2") + b"\n<+0545>-5:45\n"


def offsets(host, setting, before=""):
    here = host(FLEET)
    here.write("/opt/zones/Far/Away", zone())
    result = here.run(before=f"mount -t tmpfs tmpfs /etc || exit 97\n{before}", command=f"env -u TZ {setting} {CVSTOP} -l")
    assert {path for path, _ in listed(result)} == {f"{BIN}/{name}" for name in DAEMONS}
    return {record.time[-6:] for record in result.log}


def test_time_of_a_host_without_a_time_zone_is_utc(host):
    assert offsets(host, "") == {"+00:00"}


def test_time_of_a_host_is_that_of_its_localtime(host):
    assert offsets(host, "", "cp /opt/zones/Far/Away /etc/localtime\n") == {NEPAL}


@pytest.mark.parametrize("setting, expected", [("TZDIR=/opt/zones TZ=Far/Away", NEPAL), ("TZ=:/opt/zones/Far/Away", NEPAL),
                                               ("TZ='<+0545>-5:45'", NEPAL), ("TZ=No/Such/Zone", "+00:00"), ("TZ=", "+00:00")])
def test_time_zone_of_the_environment_comes_first(host, setting, expected):
    assert offsets(host, setting, "printf TZif >/etc/localtime\n") == {expected}


def test_damaged_localtime_is_none(host):
    assert offsets(host, "", "head -c 60 /opt/zones/Far/Away >/etc/localtime\n") == {"+00:00"}


# --- the shell, which runs the stop commands (system(3))

OVERLAY = ("mkdir /tmp/upper /tmp/work && mount -t overlay overlay -o lowerdir=/usr/bin,upperdir=/tmp/upper,workdir=/tmp/work "
           "/usr/bin || exit 97\n")


@pytest.mark.parametrize("shell", ["dash", "bash", "zsh", "busybox"])
def test_any_shell_runs_the_stop_commands(host, shell):
    if not shutil.which(shell, path="/usr/bin:/bin"):
        pytest.skip(f"{shell} is not installed")
    result = host(FLEET).run("-k", before=OVERLAY + f"rm /usr/bin/sh; ln -s {shell} /usr/bin/sh\n")
    assert result.status == 1
    assert sorted(result.commands()) == sorted(f"{BIN}/{name} -terminate" for name in DAEMONS)
    assert [name for name in DAEMONS if result.is_alive(name)] == []


def test_host_without_a_shell_has_its_daemons_killed(host):
    """No stop command can be run, which the log says of each. What is left after the wait gets SIGKILL, as ever."""
    result = host(FLEET).run("-k", before=OVERLAY + "rm /usr/bin/sh\n")
    assert result.status == 1 and result.commands() == []
    assert_ends(result.stdout, ALL)
    assert [name for name in DAEMONS if result.is_alive(name)] == []
    for name in DAEMONS:
        # 127, the status of a shell that cannot be started (system(3)).
        failed = f" Requesting termination of {BIN}/{name}. Return status={127 << 8}. Command={BIN}/{name} -terminate"
        assert failed in result.texts("terminateAllProcesses"), name
