"""Processes of the box that a dead file server protects: nobody can ask for their arguments, or for the file that these name."""
import pytest

SANDBOX = "/usr/quarn/sandbox"

SERVE = f"""
mkdir /tmp/stuck
/usr/bin/python3 /opt/stuckfs.py /tmp/stuck /opt/starter/start >/tmp/mounted 2>&1 &
server=$!
until test -s /tmp/mounted || ! kill -0 $server; do sleep 0.01; done
grep -q mounted /tmp/mounted || {{ cp /tmp/mounted {SANDBOX}/unmountable; exit 0; }}
"""

# A process is stuck when it waits for its own memory lock, and so does whatever asks for its arguments.
BEFORE = SERVE + f"""
is_stuck() {{
  test "$(sed 's/.*) //; s/ .*//' /proc/$1/stat)" = D && ! timeout 1 cat /proc/$1/cmdline >/dev/null
}}
start_stuck() {{
  "$1" /tmp/stuck/silent & until is_stuck $!; do kill -0 $! || exit 98; done; echo $! >>{SANDBOX}/stuck
}}
"""

# The shell has found its script, and whoever looks for it now waits for ever, for the server has taken the question: not even
# SIGKILL ends that, but the end of the server does. It is killed only where the test has failed.
UNFINDABLE = SERVE + f"""
mkfifo /tmp/fifo
ln -s /tmp/stuck/once /opt/link
sh SCRIPT & echo $! >>{SANDBOX}/stuck
until test -e /tmp/found; do kill -0 $! || exit 98; done
(timeout 20 tail -f /dev/null; kill -s KILL $server) &
"""


def skip_without_file_server(here):
    if (here.quarn / "sandbox/unmountable").exists():
        pytest.skip(f"no file server can be mounted here: {here.file('unmountable')}")
