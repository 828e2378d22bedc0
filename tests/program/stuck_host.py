"""What makes a process of the box one that nobody can ask for its arguments."""
import pytest

SANDBOX = "/usr/quarn/sandbox"

# A process is stuck when it waits for its own memory lock, and so does who asks for its arguments.
BEFORE = f"""
mkdir /tmp/stuck
/usr/bin/python3 /opt/stuckfs.py /tmp/stuck /opt/starter/start >/tmp/mounted 2>&1 &
server=$!
until test -s /tmp/mounted || ! kill -0 $server; do :; done
grep -q mounted /tmp/mounted || {{ cp /tmp/mounted {SANDBOX}/unmountable; exit 0; }}
is_stuck() {{
  test "$(sed 's/.*) //; s/ .*//' /proc/$1/stat)" = D && ! timeout 1 cat /proc/$1/cmdline >/dev/null
}}
start_stuck() {{
  "$1" /tmp/stuck/silent & until is_stuck $!; do kill -0 $! || exit 98; done; echo $! >>{SANDBOX}/stuck
}}
"""


def skip_without_file_server(here):
    if (here.quarn / "sandbox/unmountable").exists():
        pytest.skip(f"no file server can be mounted here: {here.file('unmountable')}")
