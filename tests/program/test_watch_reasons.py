"""Why a process is there when the shutdown is over: each reason named as it is. And who came back."""
import os
import pathlib
import re

import pytest

from box import BIN, LOG, WATCH, WATCHED, watch
from stuck_host import BEFORE, skip_without_file_server
from watching import Watched, assert_asked_as_logged, assert_outcomes

HERE = pathlib.Path(__file__).parent
INTERRUPT = (f"import os, signal, subprocess, sys, time\n"
             f"run = subprocess.Popen('{WATCH} --no-report --json {WATCHED} -- -k -q'.split(), start_new_session=True)\n"
             f"while not os.path.exists('{LOG}') or sys.argv[1] not in open('{LOG}').read(): time.sleep(0.01)\n"
             f"os.killpg(run.pid, signal.SIGINT)\nsys.exit(run.wait() + 2)\n")


def interrupted(here, before, text, after=""):
    """The shutdown up to that record, where Ctrl-C ends it: nobody is killed, and all who are left are survivors."""
    here.write("/opt/interrupt.py", INTERRUPT)
    result = here.run(before=before, command=f"/usr/bin/python3 /opt/interrupt.py '{text}'", after=after)
    assert (result.stderr, result.status) == ("", 0)
    seen = Watched(here.inside(WATCHED).read_text())
    assert_asked_as_logged(result, seen)
    return result, seen


def pid_of(name):
    return f"$(awk '$2 == \"ready\" && $4 == \"{name}\" {{ print $3 }}' /usr/quarn/sandbox/journal)"


def test_one_that_ignores_all(host):
    result, seen = interrupted(host(f"{BIN}/momuhe ignore=all\n"), "", "Waiting for")
    survivor = seen.named("momuhe")
    # It may still be at what its signal makes it do.
    assert survivor["outcome"] == "survived" and survivor["reason"]["state"] in ("sleeping", "running")
    assert survivor["reason"]["tracer"] is None and 0 < survivor["reason"]["age"] < 120
    assert survivor["parent"]["pid"] == 1
    # It takes each signal and does no more: of that the kernel knows nothing.
    assert survivor["reason"]["ignores"] == survivor["reason"]["blocks"] == []


def test_one_that_ignores_what_it_is_asked_with(host):
    here = host()
    here.install("/usr/bin/python3", f"{BIN}/strayd")
    here.write("/opt/deaf.py", "import signal\nfor number in (signal.SIGHUP, signal.SIGINT, signal.SIGTERM):\n"
               "    signal.signal(number, signal.SIG_IGN)\nsignal.signal(signal.SIGQUIT, print)\n"
               "open('/opt/deaf', 'w').close()\nwhile True: signal.pause()\n")
    before = (f"PYTHONHOME=/usr {BIN}/strayd /opt/deaf.py >/dev/null 2>&1 &\n"
              "until test -e /opt/deaf; do kill -0 $! || exit 96; done\n")
    _, seen = interrupted(here, before, "Waiting for")
    survivor = seen.named("strayd")
    assert survivor["reason"]["ignores"] == ["SIGINT", "SIGTERM"] and survivor["reason"]["blocks"] == []


def test_stopped(host):
    _, seen = interrupted(host(f"{BIN}/momuhe\n"), f"kill -STOP {pid_of('momuhe')}\n", "Waiting for")
    assert seen.named("momuhe")["reason"]["state"] == "stopped"


def test_traced(host):
    here = host(f"{BIN}/momuhe\n")
    tracing = (f"strace -o /dev/null -p {pid_of('momuhe')} >/dev/null 2>&1 & tracer=$!; echo $tracer >/opt/tracer\n"
               f"until grep -q 'TracerPid:.*[1-9]' /proc/{pid_of('momuhe')}/status; do kill -0 $tracer || exit 96; done\n"
               f"kill -STOP $tracer; kill -STOP {pid_of('momuhe')}\n")
    _, seen = interrupted(here, tracing, "Waiting for")
    reason = seen.named("momuhe")["reason"]
    assert reason["tracer"] == {"pid": int(here.inside("/opt/tracer").read_text()), "name": "strace"}


def test_zombie_that_its_parent_does_not_reap(host):
    here = host(f"{BIN}/momuhe survive=zombie parent=/opt/keeper/keep\n")
    result, seen = watch(here, "-k", "-q")
    zombie = seen.named("momuhe")
    # It has ended for a pidfd, and is there for signal 0: the program waited for it to the end, and sent it SIGKILL as well.
    assert zombie["outcome"] == "survived" and zombie["reason"]["state"] == "zombie"
    wait, = (stage for stage in seen.stages if stage["kind"] == "wait")
    assert zombie["ended"] < wait["begin"] + 9
    assert zombie["parent"]["name"] == "keep"
    assert wait["waited_for"] == [result.pid("momuhe")] and wait["end"] - wait["begin"] > 28
    assert_asked_as_logged(result, seen)


def test_zombie_that_its_parent_takes_late(host):
    """The wait is for a process that has ended long ago."""
    here = host(f"{BIN}/momuhe survive=zombie parent=/opt/keeper/keep\n")
    late = (f"zombie={pid_of('momuhe')}; keeper=$(cut -d ' ' -f 4 /proc/$zombie/stat)\n"
            f"(until grep -qs 'Waiting for' {LOG}; do sleep 0.1; done; kill -KILL $keeper) >/dev/null 2>&1 &\n")
    result, seen = watch(here, "-k", "-q", before=late, options=("--svg", "/opt/watch/run.svg"))
    zombie = seen.named("momuhe")
    assert zombie["outcome"] == "ended" and zombie["reason"] is None
    assert zombie["ended"] - zombie["asked"][0]["time"] < 5 and zombie["gone"] - zombie["ended"] > 3
    assert seen.stages[-1]["waited_for"] == [result.pid("momuhe")] and seen.stages[-1]["end"] >= zombie["gone"] - 1
    took, until = re.search(r"^  momuhe \(\d+\) +(\S+) s .*  SIGTERM, zombie until (\S+) s$", result.stderr, re.M).groups()
    assert float(took) > 3 and abs(float(until) - zombie["gone"]) < 0.1
    assert '<path class="zombie" d="M' in here.inside("/opt/watch/run.svg").read_text()
    assert_asked_as_logged(result, seen)
    assert_outcomes(result, seen)


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box mounts no file server")
def test_uninterruptible_sleep(host):
    """It waits for a page of a file that its server never hands out. The first signal that it has a handler for makes the wait
    uninterruptible (request_wait_answer, fs/fuse/dev.c)."""
    here = host()
    here.install(HERE / "stuckfs.py", "/opt/stuckfs.py")
    here.install("/usr/bin/python3", f"{BIN}/momuhe")
    here.write("/opt/touch.py", "import mmap, signal\nsignal.signal(signal.SIGTERM, print)\n"
               "with open('/tmp/stuck/silent', 'rb') as file:\n"
               "    print(mmap.mmap(file.fileno(), 4096, prot=mmap.PROT_READ)[0])\n")
    before = f"""
mkdir /tmp/stuck
/usr/bin/python3 /opt/stuckfs.py /tmp/stuck /opt/starter/start >/tmp/mounted 2>&1 &
server=$!
until test -s /tmp/mounted || ! kill -0 $server; do sleep 0.01; done
grep -q mounted /tmp/mounted || {{ cp /tmp/mounted /usr/quarn/sandbox/unmountable; exit 0; }}
PYTHONHOME=/usr {BIN}/momuhe /opt/touch.py >/dev/null 2>&1 &
stuck=$!
until grep -q request_wait_answer /proc/$stuck/wchan; do kill -0 $stuck || exit 96; done
"""
    here.write("/opt/interrupt.py", INTERRUPT)
    here.run(before=before, command="/usr/bin/python3 /opt/interrupt.py 'Waiting for'", after="kill $server\n")
    skip_without_file_server(here)
    survivor = Watched(here.inside(WATCHED).read_text()).named("momuhe")
    assert survivor["outcome"] == "survived" and survivor["reason"]["state"] == "sleeping uninterruptibly"
    assert survivor["reason"]["function"] == "request_wait_answer"


def test_who_came_back(host):
    """A supervisor starts its daemon again: it is not the one that was stopped."""
    here = host(f"{BIN}/momuhe\n{BIN}/kuror stop=3\n")
    here.write("/opt/x/supervise", f"#!/bin/sh\nuntil grep -qs 'momuhe (1)' {LOG}; do sleep 0.01; done\n"
               f"{BIN}/late --serve 1 >/dev/null & echo $$ $! >/opt/back; wait\n")
    here.inside("/opt/x/supervise").chmod(0o755)
    here.install(here.inside("/opt/starter/start"), f"{BIN}/late")
    _, seen = watch(here, "-k", "-q", before="/opt/x/supervise >/dev/null 2>&1 &\n")
    supervisor, late = map(int, here.inside("/opt/back").read_text().split())
    back, = seen.json["came_back"]
    assert (back["pid"], back["name"], back["path"]) == (late, "late", f"{BIN}/late")
    assert back["parent"] == {"pid": supervisor, "name": "supervise"} and back["start"] > 0


def test_stop_command_that_is_still_at_work_has_not_come_back(host):
    """Nor has the product's process that it uses."""
    here = host(f"{BIN}/dbsrv17\n")
    here.install("/bin/sleep", f"{BIN}/helper")
    here.write(f"{BIN}/duzahi_start_stop", f"#!/bin/sh\nkill -USR1 {pid_of('dbsrv17')}\n{BIN}/helper 30\n:\n")
    here.inside(f"{BIN}/duzahi_start_stop").chmod(0o755)
    result, seen = watch(here, "-k", "-q")
    assert seen.asked("dbsrv17") == [f"{BIN}/duzahi_start_stop stop"]
    assert result.status == 1 and seen.json["came_back"] == []


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box mounts no file server")
def test_survivor_that_cannot_be_asked_for_its_arguments(host):
    """A reader of its command line never comes back."""
    here = host()
    here.install(HERE / "stuckfs.py", "/opt/stuckfs.py")
    here.install(HERE / "stuck.py", "/opt/stuck.py")
    here.install("/usr/bin/python3", f"{BIN}/momuhe")
    here.write(f"{BIN}/excludelist.conf", f"{BIN}/momuhe\n")
    before = (f"{BEFORE}PYTHONHOME=/usr {BIN}/momuhe /opt/stuck.py /tmp/stuck/silent & stuck=$!\n"
              "until is_stuck $stuck; do kill -0 $stuck || exit 98; done\n")
    command = f"timeout -s KILL 20 {WATCH} --no-report --json {WATCHED} -- -k -q"
    result = here.run(before=before, command=command, after="kill $server\n")
    skip_without_file_server(here)
    assert (result.status, result.stderr) == (1, "")
    seen = Watched(here.inside(WATCHED).read_text())
    assert seen.outcomes() == {"momuhe": "spared"} and seen.json["came_back"] == [] and seen.run["notes"] == []
