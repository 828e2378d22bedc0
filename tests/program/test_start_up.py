"""The start-up ladder, the command line and bad input, as the caller of the program meets them."""
import json
import os
import re

import pytest

from box import ALL_SPECIFIED, BIN, CVSTOP, GATHERING, LOG, assert_ends

pytestmark = pytest.mark.sanitized
FLEET = f"{BIN}/momuhe\n"
USAGE = (f"Usage:\n {CVSTOP} [ -k | -kill [ -3 | -third_party ] [ -q | -quiet ] ]\n"
         f" {CVSTOP} -l | -list [ -3 | -third_party ]\n {CVSTOP} -h | -help\n")
CONFIRM = "Corvane software will be shut down.  This may cause backups to fail.\nDo you wish to proceed? (y/n) "
HOST_CONF = "/usr/quarn/corvane/host.conf"


def untouched(result):
    return result.is_alive("momuhe") and result.signals == []


@pytest.mark.skipif(os.geteuid() != 0, reason="an ordinary user's box knows no other user than root")
@pytest.mark.parametrize("arguments", [(), ("-k",), ("-h",), ("-x",)])
def test_not_root(host, arguments):
    command = " ".join(["setpriv --reuid 65534 --clear-groups", CVSTOP, *arguments])
    result = host(FLEET).run(command=command)
    assert (result.stdout, result.status) == ("Must be Administrator.\n", 132)
    assert untouched(result) and result.log == []


def test_log_directory_that_cannot_be_created(host):
    here = host(FLEET)
    (here.quarn / "corvane/logs").rmdir()
    here.write("/usr/quarn/corvane/logs", "a file stands in the way\n")
    result = here.run("-h")
    assert result.stdout == "Unable to create log file.  status=20.  Continuing without logging.\n" + USAGE
    assert result.status == 0


def test_log_directory_is_created_and_an_existing_one_left_alone(host):
    here = host(FLEET)
    assert here.run("-h").stdout == USAGE
    folder = here.quarn / "corvane/logs/cvstop"
    assert folder.stat().st_mode & 0o777 == 0o755
    folder.chmod(0o700)
    assert here.run("-h").stdout == USAGE
    assert folder.stat().st_mode & 0o777 == 0o700


@pytest.mark.parametrize("text", [
    None, b"", b"[host]\n", b"[host]\nrole = clown\n", b"[host\nrole = client\n", b"role = client\n",
    b"[host]\nrole = client\n[logging]\nverbosity = 5x\n", b"[host]\nrole = client\n[logging]\nverbosity = 100\n",
    b"[host]\nrole = client\n[logging]\nverbosity =\n", b"[host]\nrole = client\n[host]\nrole = client\n",
    b"[host]\nrole = client\nname = a b\n", b"[host]\nrole = client\n[telemetry]\nstatsd = localhost:8125\n",
    b"[host]\nrole = client\n[telemetry]\nstatsd = 127.0.0.1\n",
    b"[host]\nrole = client\n[telemetry]\nstatsd = 127.0.0.1:81x\n",
    b"[host]\nrole = client\n[telemetry]\nstatsd = 127.0.0.1:65536\n",
    b"[host]\nrole = client\x00\n", b"\x7fELF\x02\x01\x01" + bytes(range(256)) * 4, "directory"])
def test_configuration_that_cannot_be_read(host, text):
    here = host(FLEET)
    (here.quarn / "corvane/host.conf").unlink()
    if text == "directory":
        (here.quarn / "corvane/host.conf").mkdir()
    elif text is not None:
        here.write(HOST_CONF, text)
    result = here.run("-h")
    assert (result.stdout, result.status) == ("Failed to read Master Config.\n", 110)
    assert untouched(result)


# Stands in for the system's log: runs a command, and tells who sent what to /dev/log meanwhile (unix(7), SCM_CREDENTIALS).
LISTEN = """
import json, socket, struct, subprocess, sys
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
log.bind("/dev/log")
log.setblocking(False)
status = subprocess.run(sys.argv[1:], check=False).returncode
told = []
try:
    while True:
        text, ((_, _, sender),), *_ = log.recvmsg(65536, socket.CMSG_SPACE(12))
        told.append((struct.unpack("3i", sender)[0], text.decode()))
except BlockingIOError:
    pass
with open("/usr/quarn/sandbox/told", "w") as file:
    json.dump(told, file)
sys.exit(status)
"""


@pytest.mark.parametrize("text, fault", [
    ("[host]\nrole = clown\n", "[host] role: bad value 'clown'"), ("[host\nrole = client\n", "line 1: "), (None, "No such file")])
def test_bad_configuration_is_told_to_the_system_log(host, text, fault):
    """The debug log is not open yet, and the message on the terminal says only that it is bad."""
    here = host(FLEET)
    (here.quarn / "corvane/host.conf").unlink()
    if text:
        here.write(HOST_CONF, text)
    here.write("/opt/listen.py", LISTEN)
    result = here.run(command=f"/usr/bin/python3 /opt/listen.py {CVSTOP} -k")
    assert (result.stdout, result.status) == ("Failed to read Master Config.\n", 110)
    (sender, told), = json.loads(here.file("told"))
    # 11 is LOG_USER and LOG_ERR.
    assert re.match(rf"<11>\w{{3}} [ \d]\d [\d:]{{8}} cvstop\[{sender}\]: {re.escape(f'{HOST_CONF}: {fault}')}", told), told
    assert untouched(result)


def test_good_configuration_is_not_worth_a_word(host):
    here = host(FLEET)
    here.write("/opt/listen.py", LISTEN)
    assert here.run(command=f"/usr/bin/python3 /opt/listen.py {CVSTOP} -h").stdout == USAGE
    assert json.loads(here.file("told")) == []


def test_configuration_with_every_key_and_one_more(host):
    here = host(FLEET)
    here.write(HOST_CONF, "# all there is\n[host]\nrole = client\nname = client\nrack = 7\n; and\n[logging]\nverbosity = 99\n"
                          "[telemetry]\nstatsd = [::1]:65535\n")
    result = here.run("-h")
    assert (result.stdout, result.status) == (USAGE, 0)
    assert result.texts("CV_read_master_config", "warning") == [f"Ignoring unknown key in {HOST_CONF}: [host] rack"]


def test_configuration_of_64_kilobytes(host):
    here = host(FLEET)
    text = b"[host]\nrole = client\n"
    here.write(HOST_CONF, text.ljust(65536, b"#"))
    assert here.run("-h").stdout == USAGE
    here.write(HOST_CONF, text.ljust(65537, b"#"))
    assert here.run("-h").stdout == "Failed to read Master Config.\n"


def test_server_host_ends_before_the_question(host):
    here = host(FLEET)
    here.write(HOST_CONF, "[host]\nrole = server\n")
    result = here.run()
    assert (result.stdout, result.status) == ("Currently only supported on clients.\n", 55)
    assert result.texts("Initialize", "error") == ["Attempt to run cvstop on a server, clients support only"]
    assert untouched(result)


@pytest.mark.parametrize("answer", ["n\n", "", "\n", " y\n", "ok\n", "No\n"])
def test_declined_confirmation(host, answer):
    here = host(FLEET)
    result = here.run(stdin=here.write("/usr/quarn/sandbox/answer", answer))
    assert (result.stdout, result.status) == (CONFIRM + "Shutdown aborted.\n", 0)
    assert untouched(result)


@pytest.mark.parametrize("answer", ["y\n", "Yes", "Yup, all of it\n"])
def test_confirmed_shutdown(host, answer):
    here = host(FLEET)
    result = here.run(stdin=here.write("/usr/quarn/sandbox/answer", answer))
    assert result.stdout.startswith(CONFIRM + GATHERING)
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert not result.is_alive("momuhe")


@pytest.mark.parametrize("arguments, stdout, status", [
    (("-h",), USAGE, 0), (("-HELP", "-x"), USAGE, 0), (("-k", "-h"), USAGE, 0),
    (("-x",), "Unknown option [-x]\n" + USAGE, 20), (("-K",), "Unknown option [-K]\n" + USAGE, 20),
    (("",), "Unknown option []\n" + USAGE, 20),
    (("-q",), "Invalid argument. Quiet must be combined with kill.\n", 20),
    (("-3",), "Invalid argument. Third party must be combined with -k or -l.\n", 20),
    (("-q", "-3"), "Invalid argument. Third party must be combined with -k or -l.\n", 20),
    (("-l", "-q"), "Invalid argument. List cannot be combined with quiet\n", 20),
    (("-q", "-l"), "Invalid argument. List cannot be combined with quiet\n", 20),
    (("-k", "-b"), "Exclude-list file not specified with -b or -e (-excludelist) option\n", 20)])
def test_command_line(host, arguments, stdout, status):
    result = host(FLEET).run(*arguments)
    assert (result.stdout, result.stderr, result.status) == (stdout, "", status)
    assert untouched(result)


def test_argument_of_100_kilobytes(host):
    here = host(FLEET)
    here.write("/usr/quarn/sandbox/long", "x" * 100_000)
    result = here.run(command=f"{CVSTOP} \"$(cat /usr/quarn/sandbox/long)\"")
    assert result.status == 20
    assert result.stdout == ("Unknown option [" + "x" * 100_000)[:1023] + USAGE
    assert untouched(result)
    record, = (line for line in here.inside(LOG).read_bytes().splitlines(True) if b"Arguments::parse: Unknown" in line)
    assert len(record) == 4000 and record.endswith(b"xxx [cut]\n")


@pytest.mark.parametrize("mode", ["-k", "-l"])
def test_exclude_list_that_cannot_be_opened(host, mode):
    result = host(FLEET).run(mode, "-b", "/nowhere")
    assert result.stdout == {"-k": GATHERING, "-l": ""}[mode] + (
        "Failed to load user-specified exclude list: /nowhere\n")
    assert result.status == 130
    assert result.texts("Main", "error") == ["Exception-Failed to load user specified exclude list."]
    assert untouched(result)


@pytest.mark.parametrize("content", [b"", b"\x00\xff\n" * 1000, b"no newline and no path", "directory"])
def test_odd_exclude_lists_load_as_empty(host, content):
    here = host(FLEET)
    path = "/usr/quarn/sandbox/list"
    if content == "directory":
        (here.quarn / "sandbox/list").mkdir()
    else:
        here.write(path, content)
    result = here.run("-l", "-b", path)
    assert result.status == 0 and "momuhe" in result.stdout
    assert any(text.startswith("Succesfully parsed exclude list file.(UserList:") for text in result.texts())


def test_exclude_list_of_100_megabytes(host):
    here = host(FLEET)
    here.write("/usr/quarn/sandbox/list", b"/x" * 50_000_000 + b"\n" + f"{BIN}/momuhe".encode())
    result = here.run("-k", "-b", "/usr/quarn/sandbox/list")
    assert untouched(result) and result.status == 1


def test_process_table_that_is_not_whole(host):
    """Without CAP_SYS_PTRACE a process that has it is denied: the program must not say that nothing runs."""
    result = host(FLEET).run(command=f"setpriv --bounding-set -sys_ptrace --inh-caps -sys_ptrace {CVSTOP} -k")
    assert result.stdout == GATHERING + "find_process_CV failed with status 13\n"
    assert result.status == 130
    assert result.texts("Processes::getProcesses", "error") == ["find_processes_CV failed with status 13"]
    assert untouched(result)


def test_records_are_dated_with_the_local_time(host):
    def note(name):
        return f"date +%Y-%m-%dT%H:%M:%S.%6N%:z >/usr/quarn/sandbox/{name}\n"

    here = host(FLEET)
    result = here.run("-l", before=note("begun"), after=note("ended"), env={"TZ": "CET-1"})
    times = [here.file("begun").strip(), *(record.time for record in result.log), here.file("ended").strip()]
    assert len(times) > 3 and times == sorted(times)


def test_start_banner_and_arguments_are_logged(host):
    result = host(FLEET).run("-l", "-3")
    assert result.texts("Main")[0] == "********************cvstop initiated********************"
    assert any("-l" in r.text and "-3" in r.text for r in result.log)
