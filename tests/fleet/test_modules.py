"""The modules as Ansible starts them on a client, against a program that answers as the real one does."""
import ast
import importlib.util
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import pytest
import yaml
from ansible_collections.quarn.corvane.plugins.module_utils import listing, program, verdict
from clients import wait_for
from conftest import REPO

COLLECTION = REPO / "fleet/ansible_collections/quarn/corvane"
CLIENT_SIDE = sorted([*(COLLECTION / "plugins/modules").glob("*.py"), *(COLLECTION / "plugins/module_utils").glob("*.py")])
B = "/usr/quarn/corvane/bin"


class Client:
    """A client that is only a program and its state."""

    def __init__(self, folder):
        self.folder = folder
        self.state = folder / "state"
        self.state.mkdir()
        self.program = folder / "cvstop"
        shutil.copy(REPO / "tests/fleet/program.py", self.program)

    def runs(self, *rows):
        """What runs: (path, pid, what becomes of it[, category])."""
        text = "".join(f"{os.path.basename(path)}\t{path}\t{pid}\t{word[0] if word else 'Corvane'}\t{fate}\n"
                       for path, pid, fate, *word in rows)
        (self.state / "processes").write_text(text)
        return self

    def set(self, name, text):
        (self.state / name).write_text(text)
        return self

    def program_at(self, name, script):
        """Another program of the client."""
        path = self.folder / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)
        return str(path)

    @property
    def calls(self):
        path = self.state / "calls"
        return path.read_text().splitlines() if path.exists() else []

    def call(self, module, check=False, user=None, **options):
        arguments = {"executable": str(self.program), "_ansible_check_mode": check, "_ansible_diff": True,
                     "_ansible_remote_tmp": str(self.folder), "_ansible_tmpdir": str(self.folder), **options}
        if module == "cvstop":
            arguments = {"settle": 0, "watch": "false", **arguments}
        command = [sys.executable, COLLECTION / f"plugins/modules/{module}.py"]
        if user is not None:
            command = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", *command]
        run = subprocess.run(
            command, input=json.dumps({"ANSIBLE_MODULE_ARGS": arguments}), capture_output=True, text=True, check=False,
            env={**os.environ, "PYTHONPATH": str(REPO / "fleet"), "PYTHONDONTWRITEBYTECODE": "1", "LC_ALL": "C.UTF-8"})
        assert run.stdout.startswith("\n{") or run.stdout.startswith("{"), run.stdout + run.stderr
        return json.loads(run.stdout)


@pytest.fixture
def client(tmp_path):
    return Client(tmp_path)


def names(processes):
    return [process["name"] for process in processes]


def test_a_listing(client):
    client.runs((f"{B}/koka", 812, "ends"), ("/opt/x/mapper", 900, "ends", "Third Party"))
    assert client.call("cvstop_info")["processes"] == [
        {"name": "koka", "path": f"{B}/koka", "pid": 812, "category": "product", "excluded": False}]
    both = client.call("cvstop_info", third_party=True)
    assert [(process["name"], process["category"]) for process in both["processes"]] == [
        ("koka", "product"), ("mapper", "third_party")]
    assert client.calls == ["-l LC_ALL=C", "-l -3 LC_ALL=C"]


def test_nothing_runs(client):
    client.runs()
    result = client.call("cvstop")
    assert (result["changed"], result["outcome"], client.calls) == (False, "nothing", ["-l LC_ALL=C"])


def test_all_of_it_is_stopped_and_a_second_run_changes_nothing(client):
    client.runs((f"{B}/koka", 812, "ends"), (f"{B}/halvd", 813, "ends"))
    result = client.call("cvstop")
    assert (result["changed"], result["outcome"], result["rc"]) == (True, "stopped", 1)
    assert names(result["stopped"]) == ["koka", "halvd"] and not result["survivors"]
    assert result["output"][0] == "Gathering process information."
    assert result["diff"]["before"] == f"812 {B}/koka\n813 {B}/halvd\n" and result["diff"]["after"] == ""
    assert [call.split()[0] for call in client.calls] == ["-l", "-k", "-l"]
    assert client.call("cvstop")["changed"] is False


def test_check_mode_only_lists(client):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", check=True)
    assert (result["changed"], result["outcome"]) == (True, "running")
    assert result["diff"]["before"] == f"812 {B}/koka\n" and result["diff"]["after"] == ""
    assert client.calls == ["-l LC_ALL=C"]
    assert {path.name for path in client.folder.iterdir()} == {"cvstop", "state"}


def test_survivors_are_a_failure(client):
    client.runs((f"{B}/koka", 812, "ends"), (f"{B}/momuhe", 815, "stays"))
    result = client.call("cvstop")
    assert result["failed"] and result["changed"] and result["outcome"] == "survivors"
    assert result["msg"] == "Still running: momuhe (815)."
    assert (names(result["stopped"]), names(result["survivors"])) == (["koka"], ["momuhe"])
    assert result["survivors"][0]["new"] is False


def test_survivors_are_a_warning_if_so_wished(client):
    client.runs((f"{B}/momuhe", 815, "stays"))
    result = client.call("cvstop", on_survivors="warn")
    assert not result.get("failed") and result["warnings"] == ["Still running: momuhe (815)."]


def test_what_a_supervisor_starts_again_is_said_to_be_new(client):
    client.runs((f"{B}/koka", 812, "ends"))
    again = f"koka\\t{B}/koka\\t990\\tCorvane\\tstays\\n"
    wrapper = client.program_at("wrapper", f'"{client.program}" "$@"; s=$?; [ "$1" = -l ] || printf "{again}" '
                                           f'>"{client.state}/processes"; exit $s')
    result = client.call("cvstop", executable=wrapper)
    assert result["msg"] == "Still running: koka (990), started again."
    assert result["survivors"][0]["new"] is True and names(result["stopped"]) == ["koka"]


def test_it_lists_again_until_a_stop_command_has_ended(client):
    client.runs((f"{B}/koka", 812, "ends"))
    # The third listing is the first without the stop command.
    late = client.program_at(
        "late", f'n=$(grep -c "^-l" "{client.state}/calls" 2>/dev/null); [ "$1 $n" = "-l 1" ] && '
        f'printf "tool\\t{B}/tool\\t99\\tCorvane\\tends\\n" >"{client.state}/processes"; "{client.program}" "$@"; s=$?; '
        f'[ "$1 $n" = "-l 1" ] && : >"{client.state}/processes"; exit $s')
    result = client.call("cvstop", executable=late, settle=30)
    assert (result["outcome"], [call.split()[0] for call in client.calls]) == ("stopped", ["-l", "-k", "-l", "-l"])


def test_excluded_by_a_list_of_paths(client):
    kept, other = client.program_at("kept", ""), client.program_at("other", "")
    client.runs((kept, 812, "stays"), (other, 813, "ends"))
    result = client.call("cvstop", exclude=[kept, "/opt/not/there"])
    assert (result["outcome"], names(result["spared"]), names(result["stopped"])) == ("stopped", ["kept"], ["other"])
    assert re.match(r"-k -b \S+/exclude-\S+ LC_ALL=C$", client.calls[1])
    assert not list(client.folder.glob("exclude-*")), "the list is left behind"
    second = client.call("cvstop", exclude=[kept])
    assert (second["changed"], second["outcome"], names(second["spared"])) == (False, "nothing", ["kept"])


def test_excluded_by_a_file_and_by_another_name_of_the_executable(client):
    kept = client.program_at("kept", "")
    os.link(kept, client.folder / "alias")
    (client.folder / "list").write_text(f"# kept\n  {client.folder}/alias\t\n{kept} # not an entry\n")
    client.runs((kept, 812, "stays"))
    result = client.call("cvstop", exclude_file=str(client.folder / "list"))
    assert (result["changed"], names(result["spared"])) == (False, ["kept"])
    assert client.calls == [f"-l -b {client.folder}/list LC_ALL=C"]
    assert client.call("cvstop_info", exclude_file=str(client.folder / "list"))["processes"][0]["excluded"] is True


def test_excluded_by_a_path_from_the_root_folder(client):
    """The program runs there, whatever folder Ansible starts the module in."""
    kept = client.program_at("kept", "")
    (client.folder / "list").write_text(f"{kept[1:]}\n")
    client.runs((kept, 812, "stays"))
    assert names(client.call("cvstop", exclude_file=str(client.folder / "list"))["spared"]) == ["kept"]


@pytest.mark.parametrize("path", ["koka", "/opt/a\n/opt/b", "/opt/blank "])
def test_paths_that_a_list_cannot_hold(client, path):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", exclude=[path])
    assert result["failed"] and result["msg"].startswith("exclude: ") and client.calls == []


@pytest.mark.parametrize("module", ["cvstop", "cvstop_info"])
def test_an_exclude_file_that_is_no_absolute_path(client, module):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call(module, exclude_file="etc/keep.conf")
    assert result["failed"] and result["msg"] == "exclude_file: etc/keep.conf is no absolute path." and client.calls == []


def test_third_parties_that_are_never_signalled(client):
    client.runs(("/opt/x/mapper", 900, "ends", "Third Party"), ("/opt/x/editor", 901, "listed", "Third Party"),
                ("/opt/x/holder", 902, "stays", "Third Party"))
    result = client.call("cvstop", third_party=True)
    assert names(result["stopped"]) == ["mapper"]
    assert names(result["listed_only"]) == ["editor"] and names(result["survivors"]) == ["holder"]


@pytest.mark.parametrize("said, left, listed_only", [
    # Such a line names no pid.
    ("Signaling process /opt/x/mapper\n", {901: False}, []),
    ("Terminating third party process, mapper pid-900\nSignaling process /opt/x/mapper\n", {901: False}, [901]),
    ("Terminating third party process, mapper pid-900\nSignaling process /opt/x/mapper\n", {900: False, 901: False}, [901]),
    # A supervisor started it again: what the signal was for is known only of those that were there.
    ("Terminating third party process, mapper pid-900\nSignaling process /opt/x/mapper\n", {901: False, 990: True}, [901])])
def test_third_parties_of_one_path_are_told_apart(said, left, listed_only):
    def mapper(pid):
        return listing.Process(b"mapper", b"/opt/x/mapper", pid, listing.THIRD_PARTY)
    result = verdict.Verdict([mapper(900), mapper(901)], [mapper(pid) for pid in left], [], said.encode()).result()
    assert [process["pid"] for process in result["listed_only"]] == listed_only
    assert {process["pid"]: process["new"] for process in result["survivors"]} == {
        pid: new for pid, new in left.items() if pid not in listed_only}


def test_only_such_third_parties_are_no_change(client):
    client.runs(("/opt/x/editor", 901, "listed", "Third Party"))
    result = client.call("cvstop", third_party=True)
    assert (result["changed"], result["outcome"]) == (False, "nothing")


def plain(text):
    """A text of the manual without its markup."""
    return " ".join(re.sub(r"[*_\\]", "", text).split())


@pytest.mark.parametrize("status", [16, 20, 55, 110, 130, 132, 134])
def test_other_statuses_fail_with_the_manuals_words(client, status):
    client.runs((f"{B}/koka", 812, "ends")).set("status", str(status)).set("says", "What the program says.\n")
    result = client.call("cvstop")
    assert result["failed"] and result["rc"] == status and client.calls == ["-l LC_ALL=C"]
    assert program.WORDS[status] in result["msg"] and "What the program says." in result["msg"]
    for sentence in re.split(r"(?<=[.:;]) (?=[A-Z\"])", program.WORDS[status]):
        assert plain(sentence) in plain((REPO / "packaging/man/cvstop.8.scd").read_text()), "the manual does not say so"


def test_every_status_of_the_manual_has_its_words():
    statuses = re.findall(r"^\*(\d+)\*$", (REPO / "packaging/man/cvstop.8.scd").read_text(), re.M)
    assert {int(status) for status in statuses} == {0, 1, *program.WORDS}


def test_a_program_that_dies_by_a_signal(client):
    assert client.call("cvstop", executable=client.program_at("dies", "kill -ABRT $$"))["rc"] == 134


def test_a_shutdown_that_fails_is_told_with_what_was_found(client):
    client.runs((f"{B}/koka", 812, "ends"))
    bad = client.program_at("bad", f'[ "$1" = -l ] || {{ echo "halfway"; exit 16; }}; exec "{client.program}" "$@"')
    result = client.call("cvstop", executable=bad)
    assert result["failed"] and result["rc"] == 16 and names(result["found"]) == ["koka"] and result["output"] == ["halfway"]


@pytest.mark.parametrize("path", ["/nowhere/cvstop", "/usr"])
def test_without_the_program(client, path):
    assert "is the package installed" in client.call("cvstop", executable=path)["msg"]


def test_an_old_program_is_refused(client):
    client.set("says", "PID  NAME\n812  koka\n")
    for module in ("cvstop", "cvstop_info"):
        result = client.call(module)
        assert result["failed"] and "Is it an old release?" in result["msg"] and "no row of dashes" in result["msg"]
    assert {call.split()[0] for call in client.calls} == {"-l"}


def test_names_of_any_bytes_come_through(client):
    name = b"we\x1b[31m\xff<b>\xe2\x80\xae"
    (client.state / "processes").write_bytes(name + b"\t/opt/x/" + name + b"\t900\tCorvane\tstays\n")
    process = client.call("cvstop_info")["processes"][0]
    shown = r"we\x1b[31m\xff<b>\u202e"
    assert (process["name"], process["path"]) == (shown, "/opt/x/" + shown)
    result = client.call("cvstop", on_survivors="warn")
    assert result["warnings"] == [f"Still running: {shown} (900)."] and "\x1b" not in json.dumps(result, ensure_ascii=False)


@pytest.mark.skipif(os.geteuid() != 0, reason="only root becomes another user")
def test_no_folder_for_the_exclude_list(client):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", exclude=["/opt/kept"], _ansible_tmpdir="/nowhere/at-all", _ansible_remote_tmp="/proc/none")
    assert result["failed"] and "Nothing was touched" in result["msg"] and client.calls == []


REPORT = {"version": 1, "processes": [{"pid": 812, "name": "koka", "outcome": "ended"}], "stages": []}


def watch(client, script):
    """A cvstop-watch: $2 is the file of its report, $3 --no-report; the program and its arguments follow."""
    return dict(watch="auto", watch_executable=client.program_at("cvstop-watch", script))


def test_under_cvstop_watch(client):
    client.runs((f"{B}/koka", 812, "ends"))
    reporting = f"report=$2; shift 3; \"$@\"; s=$?; echo '{json.dumps(REPORT)}' >$report; exit $s"
    result = client.call("cvstop", **watch(client, reporting))
    assert (result["outcome"], result["watch"], result["rc"]) == ("stopped", REPORT, 1)
    assert [call.split()[0] for call in client.calls] == ["-l", "-k", "-l"]
    assert not (client.folder / "watch.json").exists()


@pytest.mark.parametrize("script", ["exit 3", "kill -SEGV $$", "echo '[1]' >$2; exit 0", "echo '{' >$2; exit 1"])
def test_a_cvstop_watch_that_fails_before_the_shutdown(client, script):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", **watch(client, script))
    assert result["outcome"] == "stopped" and "watch" not in result
    assert "left no report" in result["warnings"][0]


def test_a_cvstop_watch_that_fails_after_the_shutdown(client):
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", **watch(client, 'shift 3; "$@"; exit $?'))
    assert result["outcome"] == "stopped" and [call.split()[0] for call in client.calls].count("-k") == 1


def test_a_cvstop_watch_that_dies_after_the_shutdown(client):
    """Its status is none of the program's, and no reason to fail the client."""
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", **watch(client, 'shift 3; "$@"; kill -SEGV $$'))
    assert (result["outcome"], result["rc"], names(result["stopped"])) == ("stopped", 0, ["koka"])
    assert "left no report" in result["warnings"][0] and f"Signaling process {B}/koka" in result["output"]


# A program whose first shutdown ends late: when a second has begun, or after a while without.
LATE = """[ "$1" = -k ] || exec {program} "$@"
echo begin >>{log}
tries=0
while [ "$(grep -c begin {log})" = 1 ] && [ $tries -lt 30 ]; do tries=$((tries + 1)); sleep 0.1; done
{program} "$@"
status=$?
echo end >>{log}
exit $status"""


def test_a_cvstop_watch_that_dies_in_the_middle_of_the_shutdown(client):
    """The shutdown goes on without it, and no other one beside it."""
    client.runs((f"{B}/koka", 812, "ends"))
    log = client.folder / "log"
    late = client.program_at("late", LATE.format(program=client.program, log=log))
    dying = f'shift 3; "$@" & while ! [ -e {log} ]; do sleep 0.01; done; kill -KILL $$'
    result = client.call("cvstop", executable=late, **watch(client, dying))
    assert (result["outcome"], names(result["stopped"])) == ("stopped", ["koka"])
    assert log.read_text().split() == ["begin", "end", "begin", "end"]


def test_whether_a_command_runs(client):
    """Another command, or this one with other arguments, is none of its shutdowns."""
    waiting = client.program_at("waiting", "read line")
    with subprocess.Popen(["env", waiting, "-k", "-3"], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        wait_for(lambda: program.is_running([waiting, "-k", "-3"]), "the command to start")
        assert not program.is_running([waiting, "-k"]) and not program.is_running([waiting[1:], "-k", "-3"])
        process.communicate(b"\n")
    assert not program.is_running([waiting, "-k", "-3"])


def test_a_cvstop_watch_or_a_program_for_another_processor(client):
    client.runs((f"{B}/koka", 812, "ends"))
    alien = client.program_at("alien", "")
    pathlib.Path(alien).write_bytes(b"\x7fELF\x02\x01\x01" + bytes(57))
    result = client.call("cvstop", watch="auto", watch_executable=alien)
    assert result["outcome"] == "stopped" and result["warnings"] == ["cvstop-watch cannot be started: Exec format error"]
    assert "cannot be started: Exec format error" in client.call("cvstop_info", executable=alien)["msg"]


def test_without_cvstop_watch(client):
    client.runs((f"{B}/koka", 812, "ends"))
    assert client.call("cvstop", watch="auto", watch_executable="/nowhere")["outcome"] == "stopped"
    client.runs((f"{B}/koka", 812, "ends"))
    result = client.call("cvstop", watch="true", watch_executable="/nowhere")
    assert result["failed"] and "Nothing was touched" in result["msg"]


@pytest.mark.skipif(os.geteuid() != 0, reason="only root keeps others out")
def test_two_at_once_wait_for_each_other(client):
    client.runs((f"{B}/koka", 812, "ends")).set("takes", "0.5")
    options = {"executable": str(client.program), "watch": "false", "_ansible_tmpdir": str(client.folder)}
    runs = [subprocess.Popen([sys.executable, COLLECTION / "plugins/modules/cvstop.py"], stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, env={**os.environ, "PYTHONPATH": str(REPO / "fleet")}) for _ in range(2)]
    for run in runs:
        run.stdin.write(json.dumps({"ANSIBLE_MODULE_ARGS": options}).encode())
        run.stdin.close()
    results = [json.loads(run.stdout.read()) for run in runs]
    for run in runs:
        assert run.wait() == 0
    assert sorted(result["outcome"] for result in results) == ["nothing", "stopped"]
    assert [call.split()[0] for call in client.calls] == ["-l", "-k", "-l", "-l"]
    assert not list(pathlib.Path("/run").glob("quarn.corvane" + str(client.program).replace("/", "-") + "*"))


@pytest.mark.skipif(os.geteuid() != 0, reason="only root becomes another user")
def test_without_become():
    with tempfile.TemporaryDirectory() as folder:
        client = Client(pathlib.Path(folder)).set("says", "Must be Administrator.\n").set("status", "132")
        for path in (client.folder, client.state):
            path.chmod(0o777)
        result = client.call("cvstop", user=65534)
    assert result["failed"] and result["rc"] == 132 and "Set become: true." in result["msg"]


# What the standard library has got after Python 3.6.
NEWER = {"contextvars", "dataclasses", "graphlib", "tomllib", "zoneinfo"}
NEWER_WITHIN = {"asyncio.exceptions", "asyncio.runners", "asyncio.taskgroups", "asyncio.timeouts", "importlib.metadata",
                "importlib.resources", "multiprocessing.shared_memory", "unittest.async_case"}


def modules_of(tree):
    """The modules that a file imports, also those that it imports from a package."""
    found = {alias.name for node in ast.walk(tree) if isinstance(node, ast.Import) for alias in node.names}
    for node in ast.walk(tree):
        if isinstance(node, ast.ImportFrom):
            found |= {node.module, *(f"{node.module}.{alias.name}" for alias in node.names)}
    return found


def test_what_is_newer_than_python_3_6_is_seen():
    tree = ast.parse("import importlib.metadata as a, os.path\nfrom importlib import resources\nfrom dataclasses import field\n")
    assert modules_of(tree) & NEWER_WITHIN == {"importlib.metadata", "importlib.resources"}
    assert {"os.path", "dataclasses"} <= modules_of(tree)


@pytest.mark.parametrize("path", CLIENT_SIDE, ids=lambda path: path.name)
def test_what_runs_on_clients_is_python_3_6_and_its_standard_library(path):
    tree = ast.parse(path.read_text(), feature_version=(3, 6))
    roots = {module.split(".")[0] for module in modules_of(tree)}
    foreign = roots - {"ansible", "ansible_collections", "__future__"} - (set(sys.stdlib_module_names) - NEWER)
    assert not foreign
    assert not modules_of(tree) & NEWER_WITHIN
    for node in ast.walk(tree):
        if isinstance(node, ast.ImportFrom) and node.module.startswith("ansible."):
            assert node.module == "ansible.module_utils.basic"


@pytest.mark.parametrize("path", sorted((COLLECTION / "plugins").rglob("*.py")), ids=lambda path: path.name)
def test_no_shell_anywhere(path):
    tree = ast.parse(path.read_text())
    called = {ast.unparse(node.func) for node in ast.walk(tree) if isinstance(node, ast.Call)}
    assert not called & {"os.system", "os.popen", "subprocess.run", "subprocess.Popen", "subprocess.call", "eval", "exec"}
    assert not [node for node in ast.walk(tree) if isinstance(node, ast.keyword) and node.arg in ("use_unsafe_shell", "shell")]


def tasks_in(value):
    """Every dictionary in a file of YAML."""
    if isinstance(value, dict):
        yield value
    for entry in value.values() if isinstance(value, dict) else value if isinstance(value, list) else []:
        yield from tasks_in(entry)


@pytest.mark.parametrize("path", sorted([*COLLECTION.glob("playbooks/*.yml"), *COLLECTION.glob("roles/*/tasks/*.yml")]),
                         ids=lambda path: "/".join(path.parts[-3:]))
def test_no_shell_in_tasks_either(path):
    tasks = list(tasks_in(yaml.safe_load(path.read_text())))
    assert not [task for task in tasks for key in task if key.rsplit(".", 1)[-1] in ("shell", "raw", "script", "expect")]
    assert all(set(task[key]) == {"argv"} for task in tasks for key in task if key.rsplit(".", 1)[-1] == "command")


def test_documentation_and_arguments_agree():
    for name in ("cvstop", "cvstop_info"):
        path = COLLECTION / f"plugins/modules/{name}.py"
        spec = importlib.util.spec_from_file_location(name, path)
        module = importlib.util.module_from_spec(spec)
        spec.loader.exec_module(module)
        arguments = getattr(module, "ARGUMENTS", program.ARGUMENTS)
        documented = yaml.safe_load(module.DOCUMENTATION)["options"]
        assert documented.keys() == arguments.keys()
        for option, rules in arguments.items():
            assert all(documented[option].get(key) == value for key, value in rules.items()), option


@pytest.mark.parametrize("kind, names", [
    ("module", ["cvstop", "cvstop_info", "shutdown_record", "shutdown_report"]), ("role", ["install", "shutdown"])])
def test_ansible_doc_reads_it(tmp_path, kind, names):
    environment = {**os.environ, "ANSIBLE_COLLECTIONS_PATH": str(REPO / "fleet"), "HOME": str(tmp_path), "LC_ALL": "C.UTF-8"}
    for name in names:
        run = subprocess.run(["ansible-doc", "-t", kind, "-j", f"quarn.corvane.{name}"], env=environment, capture_output=True,
                             text=True, check=True)
        described = json.loads(run.stdout)[f"quarn.corvane.{name}"]
        if kind == "module":
            assert described["doc"]["options"] and described["examples"] and described["return"]
        else:
            assert described["entry_points"]["main"]["options"]
