"""The gauges, as a StatsD server on the host gets them."""
import ast
import shlex

import pytest

from box import BIN, CVSTOP

pytestmark = pytest.mark.sanitized
# Runs the program while it listens. On the loopback a datagram is there once it was sent: nothing has to be waited for.
LISTEN = """
import socket, subprocess, sys
family, address, *command = sys.argv[1:]
server = socket.socket(socket.AddressFamily[family], socket.SOCK_DGRAM)
server.bind((address, 8125))
subprocess.run(command, stdout=subprocess.DEVNULL)
server.setblocking(False)
gauges = []
try:
    while True:
        gauges.append(server.recv(1000).decode())
except BlockingIOError:
    print(gauges)
"""


def gauges(host, arguments, family="AF_INET", address="127.0.0.1", statsd="127.0.0.1:8125", answer="n"):
    here = host(f"{BIN}/momuhe\n")
    here.write("/usr/quarn/corvane/host.conf", f"[host]\nrole = client\n[telemetry]\nstatsd = {statsd}\n")
    here.write("/opt/listen.py", LISTEN)
    result = here.run(stdin=here.write("/usr/quarn/sandbox/answer", answer),
                      command=shlex.join(["/usr/bin/python3", "/opt/listen.py", family, address, CVSTOP, *arguments]))
    assert (result.stderr, result.status) == ("", 0)
    return ast.literal_eval(result.stdout)


@pytest.mark.parametrize("arguments, names", [
    (("-h",), ["help"]), (("-l", "-3"), ["list", "third_party"]), (("-k", "-Quiet"), ["kill", "quiet"]),
    (("-b", "/nowhere"), []), (("-l", "-q"), ["list"]), (("-x",), [])])
def test_options_are_counted(host, arguments, names):
    assert gauges(host, arguments) == [f"cvstop.{name}:1|g" for name in names]


@pytest.mark.parametrize("answer, names", [("y", ["default"]), ("n", [])])
def test_confirmed_shutdown_is_counted(host, answer, names):
    assert gauges(host, (), answer=answer) == [f"cvstop.{name}:1|g" for name in names]


def test_server_may_have_an_address_of_version_6(host):
    assert gauges(host, ("-h",), "AF_INET6", "::1", "[::1]:8125") == ["cvstop.help:1|g"]
