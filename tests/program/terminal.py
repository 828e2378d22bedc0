"""Runs in the box: a command with a terminal on all three streams, whose other end writes down what it shows.

    terminal.py SPEC COMMAND ARGUMENT...

SPEC is JSON: `size` [rows, columns]; `steps`, a list of [TEXT, ACTION, VALUE]: when the terminal has shown TEXT (since the step
before), it is resized to VALUE, VALUE is typed, or it goes away; or each process of the file VALUE is killed. /opt/shown gets the
bytes, /opt/ended the wait status, /opt/times the second of each read, and /opt/resizes how many bytes were there at each, and the
size.
"""
import fcntl
import json
import os
import pathlib
import pty
import signal
import struct
import sys
import termios
import time


def resize(terminal, rows, columns):
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))


def read(terminal):
    try:
        return os.read(terminal, 65536)
    except OSError:
        return b""


def kill(path):
    for exe in pathlib.Path("/proc").glob("[0-9]*/exe"):
        try:
            is_it = os.readlink(exe) == path
        except OSError:
            continue
        if is_it:
            os.kill(int(exe.parent.name), signal.SIGKILL)


def main():
    plan, command = json.loads(sys.argv[1]), sys.argv[2:]
    ready, go = os.pipe()
    pid, terminal = pty.fork()
    if pid == 0:
        os.read(ready, 1)
        os.close(ready)
        os.close(go)
        os.execv(command[0], command)
    resize(terminal, *plan["size"])
    os.write(go, b"g")
    steps, shown, since, times, resizes = plan.get("steps", []), b"", 0, [], []
    while data := read(terminal):
        shown += data
        times.append((time.monotonic(), len(shown)))
        while steps and (place := shown.find(steps[0][0].encode(), since)) >= 0:
            text, action, value = steps.pop(0)
            since = place + len(text.encode())
            if action == "resize":
                resize(terminal, *value)
                resizes.append((len(shown), value))
            elif action == "kill":
                kill(value)
            elif action == "type":
                os.write(terminal, value.encode())
            elif action == "leave":
                os.close(terminal)
                terminal = None
        if terminal is None:
            break
    with open("/opt/shown", "wb") as file:
        file.write(shown)
    with open("/opt/times", "w") as file:
        json.dump(times, file)
    with open("/opt/resizes", "w") as file:
        json.dump(resizes, file)
    with open("/opt/ended", "w") as file:
        file.write(str(os.waitpid(pid, 0)[1]))


main()
