"""Scripts of the product and their interpreters, as a host has them: what an option is goes by the interpreter. An interpreter
that is not installed here skips its tests."""
import os
import shlex
import shutil

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, assert_ends, rows_of_listing

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="in a user namespace no interpreter belongs to root: none is trusted")

WITNESS = (f"{BIN}/momuhe", "Corvane")
WORKER = f"{BIN}/worker"
# What each says when it has come to its code, and how it goes on then, without a second process of the same script.
READY = "/tmp/ready"
SHELL = f": >{READY}\nread line </tmp/fifo\n"
PERL = f"open(my $file, '>', '{READY}'); close($file); sleep\n"
PYTHON = f"import signal; open('{READY}', 'w').close(); signal.pause()\n"
RUBY = f"File.write('{READY}', ''); sleep\n"
TCL = f"close [open {READY} w]; vwait forever\n"
LUA = f"io.open('{READY}', 'w'):close() io.open('/tmp/fifo'):read()\n"
PHP = f"touch('{READY}'); sleep(600);\n"
AWK = f'BEGIN {{ printf "" >"{READY}"; close("{READY}"); getline <"/tmp/fifo" }}\n'

# A script's first line, and what follows it. Each is started by the kernel.
SCRIPTS = [
    ("#!/bin/sh", SHELL), ("#!/bin/sh -e", SHELL), ("#!/bin/bash -eu", SHELL), ("#!/usr/bin/env -S bash -o pipefail", SHELL),
    ("#!/usr/bin/env bash", SHELL), ("#!/bin/dash -x", SHELL), ("#!/usr/bin/ksh -e", SHELL), ("#!/usr/bin/mksh -e", SHELL),
    ("#!/usr/bin/zsh -f", SHELL), ("#!/usr/bin/busybox sh", SHELL), ("#!/usr/bin/perl", PERL), ("#!/usr/bin/perl -w", PERL),
    ("#!/usr/bin/env -S perl -w -I /opt", PERL), ("#!/usr/bin/python3 -u", PYTHON),
    ("#!/usr/bin/env -S python3 -u -W ignore", PYTHON),
    ("#!/usr/bin/ruby -w", RUBY), ("#!/usr/bin/tclsh", TCL), ("#!/usr/bin/lua", LUA), ("#!/usr/bin/lua -i", LUA),
    ("#!/usr/bin/php", f"<?php {PHP}"), ("#!/usr/bin/mawk -f", AWK), ("#!/usr/bin/gawk -f", AWK)]

# How a script is started by hand, which interpreter it names, and in which folder.
COMMANDS = [
    ("sh -- WORKER", "/bin/sh", SHELL, "/"), ("sh -eu WORKER", "/bin/sh", SHELL, "/"),
    ("sh -o errexit WORKER", "/bin/sh", SHELL, "/"), ("busybox sh -e WORKER", "/usr/bin/busybox", SHELL, "/"),
    ("bash -o pipefail WORKER", "/bin/bash", SHELL, "/"), ("bash +x WORKER", "/bin/bash", SHELL, "/"),
    ("bash -O extglob WORKER", "/bin/bash", SHELL, "/"), ("bash --norc -eu WORKER -c what", "/bin/bash", SHELL, "/"),
    ("bash --rcfile /opt/rc WORKER", "/bin/bash", SHELL, "/"), ("zsh -o nobeep WORKER", "/usr/bin/zsh", SHELL, "/"),
    ("perl -I /opt -w WORKER -e", "/usr/bin/perl", PERL, "/"), ("perl -Mstrict WORKER", "/usr/bin/perl", PERL, "/"),
    ("python3 -u -W ignore WORKER", "/usr/bin/python3", PYTHON, "/"),
    ("python3 -X utf8 WORKER -m what", "/usr/bin/python3", PYTHON, "/"),
    ("ruby -I /opt WORKER", "/usr/bin/ruby", RUBY, "/"), ("lua -e x=1 WORKER", "/usr/bin/lua", LUA, "/"),
    ("php -d precision=9 -f WORKER", "/usr/bin/php", f"<?php {PHP}", "/"), ("mawk -F : -f WORKER", "/usr/bin/mawk", AWK, "/"),
    ("sh worker", "/bin/sh", SHELL, BIN), ("sh ./worker", "/bin/sh", SHELL, BIN),
    ("sh bin/worker", "/bin/sh", SHELL, "/usr/quarn/corvane"),
    ("python3 ../bin/worker", "/usr/bin/python3", PYTHON, f"{BIN}/../logs")]

SHELLS = ["sh", "bash", "dash", "ksh", "mksh", "zsh", "busybox sh"]

# A file of the product is among the arguments, and is not what is run.
STRANGERS = [
    ["sh", "-c", SHELL, WORKER], ["sh", "-ec", SHELL, WORKER], ["bash", "-eu", "-o", "pipefail", "-c", SHELL, WORKER],
    ["bash", "-uec", SHELL, WORKER], ["zsh", "-fc", SHELL, WORKER], ["ksh", "-c", SHELL, WORKER], ["mksh", "-ec", SHELL, WORKER],
    ["busybox", "sh", "-c", SHELL, WORKER], ["sh", "/opt/script", WORKER], ["bash", "--norc", "/opt/script", WORKER],
    ["bash", "--rcfile", WORKER, "/opt/script"], ["sh", "-o", "errexit", "/opt/script", WORKER],
    ["perl", "-e", PERL, WORKER], ["perl", "-ne", PERL, WORKER], ["perl", "-we", PERL, WORKER], ["perl", "-E", PERL, WORKER],
    ["python3", "-c", PYTHON, WORKER], ["python3", "-uc", PYTHON, WORKER], ["python3", "-m", "stay", WORKER],
    ["python3", "-Bmstay", WORKER], ["python3", "-W", "ignore", "-m", "stay", WORKER], ["python3", "/opt/stay.py", WORKER],
    ["ruby", "-e", RUBY, WORKER], ["php", "-r", PHP, "--", WORKER], ["mawk", AWK, WORKER], ["gawk", AWK, WORKER],
    ["mawk", "-f", "/opt/awk", WORKER], ["gawk", "-v", f"file={WORKER}", AWK], ["tclsh", "/opt/tcl", WORKER],
    ["lua", "/opt/lua", WORKER]]
# The same, of what comes from standard input, which is the last word.
FED = [["sh", "-s", WORKER, "/opt/script"], ["bash", "-es", WORKER, "/opt/script"], ["python3", "-", WORKER, "/opt/stay.py"],
       ["perl", "-", WORKER, "/opt/perl"], ["ruby", "-", WORKER, "/opt/ruby"]]


def interpreter_of(first_line):
    """Its path, or its name behind env."""
    words = first_line[2:].split()
    return next(word for word in words[1:] if word[0] != "-") if words[0].endswith("/env") else words[0]


def need(interpreter):
    if shutil.which(interpreter, path="/usr/bin:/bin") is None:
        pytest.skip(f"{interpreter} is not installed")


def running(command, folder="/"):
    """Starts a command in the background, in a folder, and waits until it has come to its code; without it, no test goes on."""
    return (f"chmod 1777 /tmp; mkfifo /tmp/fifo; (cd {folder} && exec {command}) & echo $! >/usr/quarn/sandbox/worker\n"
            f"until test -e {READY}; do kill -0 $! || exit 98; done\n")


def make_host(host, worker):
    here = host(f"{BIN}/momuhe\n")
    here.write(WORKER, worker)
    here.inside(WORKER).chmod(0o755)
    return here


def list_and_stop(here, before):
    """What is listed, and what a shutdown then leaves; the worker's pid."""
    result = here.run("-k", before=before + f"{CVSTOP} -l >/usr/quarn/sandbox/listing || exit 97\n")
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert (result.status, result.stderr) == (1, "")
    assert not result.is_alive("momuhe")
    return rows_of_listing(here.file("listing")), result, int(here.file("worker"))


@pytest.mark.parametrize("first_line, code", SCRIPTS, ids=[line for line, _ in SCRIPTS])
def test_script_is_listed_and_stopped(host, first_line, code):
    need(interpreter_of(first_line))
    rows, result, worker = list_and_stop(make_host(host, f"{first_line}\n{code}"), running(WORKER))
    assert rows == [WITNESS, (WORKER, "Corvane")]
    assert worker not in result.alive


@pytest.mark.parametrize("command, interpreter, code, folder", COMMANDS, ids=[command for command, *_ in COMMANDS])
def test_script_that_was_started_by_hand_is_listed_and_stopped(host, command, interpreter, code, folder):
    need(interpreter)
    here = make_host(host, f"#!{interpreter}\n{code}")
    rows, result, worker = list_and_stop(here, running(command.replace("WORKER", WORKER), folder))
    assert rows == [WITNESS, (WORKER, "Corvane")]
    assert worker not in result.alive


def check_stranger(host, interpreter, command):
    """The file is a script of that very interpreter: only what its arguments mean keeps it from being one that runs."""
    need(interpreter)
    here = make_host(host, f"#!{shutil.which(interpreter, path='/usr/bin:/bin')}\n")
    codes = {"script": SHELL, "stay.py": PYTHON, "perl": PERL, "ruby": RUBY, "awk": AWK, "tcl": TCL, "lua": LUA}
    for name, code in codes.items():
        here.write(f"/opt/{name}", code)
    rows, result, worker = list_and_stop(here, running(f"env PYTHONPATH=/opt {command}"))
    assert rows == [WITNESS]
    assert worker in result.alive


@pytest.mark.parametrize("command", STRANGERS, ids=[" ".join(command[:3]).split("\n")[0] for command in STRANGERS])
def test_interpreter_of_something_else_is_left_alone(host, command):
    check_stranger(host, command[0], shlex.join(command))


@pytest.mark.parametrize("command", FED, ids=[command[0] for command in FED])
def test_interpreter_of_standard_input_is_left_alone(host, command):
    check_stranger(host, command[0], shlex.join(command[:-1]) + f" <{command[-1]}")


def test_relative_script_of_an_ordinary_user_is_left_alone(host):
    here = make_host(host, f"#!/bin/sh\n{SHELL}")
    rows, result, worker = list_and_stop(
        here, running("setpriv --reuid 65534 --regid 65534 --clear-groups sh worker", BIN))
    assert rows == [WITNESS]
    assert worker in result.alive


@pytest.mark.parametrize("shell", SHELLS)
def test_script_of_another_folder_that_went_to_the_tree_is_left_alone(host, shell):
    """There is one of its name, of this very shell."""
    need(shell.split()[0])
    here = make_host(host, f"#!{shutil.which(shell.split()[0], path='/usr/bin:/bin')}\n")
    here.write("/opt/worker", f"cd {BIN}\n{SHELL}")
    rows, result, worker = list_and_stop(here, running(f"{shell} worker", "/opt"))
    assert rows == [WITNESS]
    assert worker in result.alive
    assert any(str(worker) in text for text in result.texts("find_processes_CV", "warning"))


@pytest.mark.parametrize("shell", SHELLS)
def test_subshell_of_a_relative_script_is_listed_and_stopped(host, shell):
    need(shell.split()[0])
    subshell = f"(echo >/tmp/begun; read line </tmp/fifo; :) &\nuntil test -s /tmp/begun; do :; done\n{SHELL}"
    here = make_host(host, f"#!{shutil.which(shell.split()[0], path='/usr/bin:/bin')}\n{subshell}")
    rows, result, worker = list_and_stop(here, running(f"{shell} worker", BIN))
    assert rows == [WITNESS, (WORKER, "Corvane"), (WORKER, "Corvane")]
    assert worker not in result.alive


def test_editor_of_a_script_is_left_alone(host):
    need("ed")
    here = make_host(host, f"#!/bin/sh\n{SHELL}")
    before = (f"tail -f /dev/null | ed {WORKER} >/dev/null & echo $! >/usr/quarn/sandbox/worker\n"
              "until test \"$(readlink /proc/$!/exe)\" = /usr/bin/ed; do kill -0 $! || exit 98; done\n")
    rows, result, worker = list_and_stop(here, before)
    assert rows == [WITNESS]
    assert worker in result.alive
