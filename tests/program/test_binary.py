"""What the shipped program is made of, and what it hands on to the commands that it runs."""
import subprocess

import box
from box import BIN, CVSTOP


def readelf(option):
    return subprocess.run(["readelf", "-W", option, box.BUILD / "src/cvstop"], capture_output=True, text=True, check=True).stdout


def test_needs_no_library_and_no_loader():
    assert "(NEEDED)" not in readelf("-d")
    assert " INTERP " not in readelf("-l")


def test_opens_no_library(host):
    """Not at its start, and not because of what the host has set up, either."""
    here = host(f"{BIN}/halvd\n")
    here.run(command=f"strace -f -e trace=%file -o /opt/trace {CVSTOP} -k -3")
    opened = here.inside("/opt/trace").read_text()
    assert "host.conf" in opened, "it was traced"
    # What its stop commands open is their own.
    own = [line for line in opened.splitlines() if line.split()[0] == opened.split()[0]]
    assert [line for line in own if ".so" in line or "nsswitch" in line or "gconv" in line] == []


def test_is_hardened():
    assert "DYN (Position-Independent Executable file)" in readelf("-h")
    segments = {line.split()[0]: line for line in readelf("-l").splitlines() if line.strip().startswith("GNU_")}
    assert "GNU_RELRO" in segments
    assert " RW " in segments["GNU_STACK"], "the stack is not executable"
    assert "BIND_NOW" in readelf("-d") or "NOW" in readelf("-d")
    symbols = readelf("--symbols")
    assert "__stack_chk_fail" in symbols and "__vsnprintf_chk" in symbols, "stack protector and fortification"


def test_stop_commands_inherit_no_descriptor_and_the_default_signals(host):
    """The daemon is upgraded under its process: what stands at its path now is asked to stop it, and looks around."""
    here = host(f"{BIN}/halvd stop=never\n")
    here.write("/usr/quarn/sandbox/look", "#!/bin/sh\n"
               "ls /proc/self/fd >/usr/quarn/sandbox/fds\n"
               "grep -E '^Sig(Ign|Blk)' /proc/self/status >/usr/quarn/sandbox/masks\n")
    here.run("-k", "-q", before=f"rm {BIN}/halvd; cp /usr/quarn/sandbox/look {BIN}/halvd; chmod 755 {BIN}/halvd")
    # ls itself opens the folder as the lowest free number.
    assert here.file("fds").split() == ["0", "1", "2", "3"]
    masks = dict(line.split() for line in here.file("masks").splitlines())
    ignored, blocked = (int(masks[key], 16) for key in ("SigIgn:", "SigBlk:"))
    assert ignored & (1 << 0) == 0, "SIGHUP"
    assert ignored & (1 << 12) == 0, "SIGPIPE"
    assert blocked == 0
