"""What the shipped program is made of, and what it hands on to the commands that it runs."""
import importlib.util
import subprocess

import box
from box import BIN, CVSTOP

SPEC = importlib.util.spec_from_file_location("check", box.REPO / "packaging/check.py")
check = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(check)

PROGRAMS = ("src/cvstop", "watch/cvstop-watch")


def test_programs_are_hardened_and_need_no_library():
    """As scripts/package asks of what it packs."""
    processor = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True, check=True).stdout.strip()
    assert sum((check.faults_of_program(box.BUILD / program, processor) for program in PROGRAMS), []) == []
    assert sum((check.faults_of_objects(box.BUILD / folder) for folder in ("platform", "src", "watch")), []) == []


def test_opens_no_library(host):
    """Not at its start, and not because of what the host has set up, either."""
    here = host(f"{BIN}/halvd\n")
    # What its stop commands open is their own: they are let go when they execute their programs.
    here.run(command=f"strace -f -b execve -e trace=%file -o /opt/trace {CVSTOP} -k -3")
    opened = here.inside("/opt/trace").read_text().splitlines()
    first = opened[0].split()[0]
    assert any("host.conf" in line for line in opened if line.split()[0] == first), "it was traced"
    assert any('"maps"' in line for line in opened if line.split()[0] != first), "and so was the thread that looks at others"
    assert [line for line in opened if ".so" in line or "nsswitch" in line or "gconv" in line] == []


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
