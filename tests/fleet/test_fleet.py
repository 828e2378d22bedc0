"""Real clients, a dozen at once, each a box with an sshd of its own: what the report says of each is what its journal says."""
import json
import os
import re
import signal
import subprocess

import pytest
from clients import WATCH, WATCHED, Fleet, wait_for
from conftest import REPO

import box

B = "/usr/quarn/corvane/bin"
QUICK = ["-e", "shutdown_confirmed=true", "-e", "shutdown_poll=1", "-e", "shutdown_settle=2"]
# None of it ends by itself in the meantime.
WHOLE_TABLE = re.sub(r"life=\d+", "life=900", (REPO / "sandbox/fleets/whole-table.fleet").read_text())
HOSTILE = "/opt/x/<b>{{7*7}}&amp;\x1b[31m"
# The supervisor is no process of the product; what it starts is, again and again.
SUPERVISOR = f"cp /usr/bin/sleep {B}/phoenix; (while :; do {B}/phoenix 1000; done) </dev/null >/dev/null 2>&1 &"
NO_PYTHON = ("mkdir /tmp/upper /tmp/work && mount -t overlay -o lowerdir=/usr/bin,upperdir=/tmp/upper,workdir=/tmp/work overlay "
             "/usr/bin && rm /usr/bin/python3*")
FULL_DISK = "mount -t tmpfs -o size=16k tmpfs /root && head -c 1m /dev/zero >/root/full; true"
IN_WAVES = json.dumps({"shutdown_serial": [1, "100%"], "shutdown_max_fail_percentage": 60})


@pytest.fixture(scope="module")
def make_fleet(boxes, tmp_path_factory):
    """Makes fleets below the build folder, and ends their boxes."""
    made = []

    def make(name):
        folder = box.BUILD / "sandbox-trees" / f"fleet-{name}-{tmp_path_factory.getbasetemp().name}-{len(made)}"
        subprocess.run(["rm", "-rf", folder], check=True)
        made.append(Fleet(folder))
        return made[-1]

    yield make
    for fleet in made:
        fleet.stop()
        subprocess.run(["rm", "-rf", fleet.folder], check=True)


def recap(output):
    """The counts of each client in what Ansible says at the end."""
    return {line.split()[0]: dict(pair.split("=") for pair in line.split()[2:])
            for line in output.split("PLAY RECAP")[1].splitlines() if " : ok=" in line}


def records(fleet):
    folder = fleet.folder / "report"
    return {path.stem: json.loads(path.read_text()) for path in folder.glob("*.json")}


def names(processes):
    return sorted(process["name"] for process in processes)


def files(client):
    """Every file of the client that a run could leave behind."""
    found = subprocess.run(
        ["nsenter", "--target", str(client.inside), "--mount", "--pid", "--root", "find", "/tmp", "/root", "/run", "/opt",
         "/usr/quarn", "-not", "-path", "/usr/quarn/*/logs/*", "-printf", "%p %s\n"],
        capture_output=True, text=True, check=True)
    return found.stdout


def left_behind(client, before):
    """The paths that were not there before."""
    new = {line.rsplit(" ", 1)[0] for line in files(client).splitlines()} - {
        line.rsplit(" ", 1)[0] for line in before.splitlines()}
    known = re.compile(r"/usr/quarn/sandbox/|/root/\.ansible_async$|/root/\.ansible/tmp$|/run/sshd")
    return [path for path in new if not known.match(path)]


def cut_in_the_middle(client):
    """Cuts a client's line once its shutdown has sent something, and mends it when the shutdown has ended unseen."""
    wait_for(client.touched, f"the shutdown of {client.name}")
    client.cut()
    wait_for(lambda: not client.running(), f"the daemons of {client.name} to end")
    wait_for(client.was_refused, f"the controller to ask {client.name}")
    client.mend()


class Run:
    """One whole course: --check, shutdown, and the rest once more."""

    def __init__(self, fleet):
        self.fleet = fleet
        fleet.add("clean", f"{B}/halvd\n{B}/koka\n")
        fleet.add("busy", WHOLE_TABLE)
        fleet.add("stubborn", f"{B}/momuhe ignore=all\n{B}/halvd\n")
        fleet.add("keeping", f"{B}/koka\n{B}/halvd\n", variables=f"""shutdown_exclude='["{B}/koka"]'""")
        fleet.add("shared", f"{B}/halvd\n/opt/x/mapper map=/usr/quarn/corvane/lib/libsampled.so\n{HOSTILE} cwd={B}\n",
                  variables="shutdown_third_party=true")
        fleet.add("idle")
        fleet.add("server", f"{B}/halvd\n").host.write("/usr/quarn/corvane/host.conf", "[host]\nrole = server\n")
        fleet.add("gone", f"{B}/halvd\n", reachable=False)
        fleet.add("cut", f"{B}/halvd stop=4\n{B}/koka\n")
        fleet.add("bare", f"{B}/halvd\n", setup=NO_PYTHON)
        fleet.add("full", f"{B}/halvd\n", setup=FULL_DISK)
        fleet.add("phoenix", f"{B}/halvd\n", setup=SUPERVISOR)
        fleet.start()
        self.before = {name: files(client) for name, client in fleet.clients.items() if client.reachable}
        self.check = fleet.play("shutdown", "--check", "--diff", "-e", IN_WAVES)
        self.after_check = {name: files(client) for name, client in fleet.clients.items() if client.reachable}
        self.touched_by_check = {name: client.touched() for name, client in fleet.clients.items()}
        self.report_after_check = (fleet.folder / "report").exists()
        process = subprocess.Popen(fleet.command("shutdown", *QUICK, "-e", IN_WAVES), env=fleet.environment(), cwd=fleet.folder,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        cut_in_the_middle(fleet["cut"])
        self.output = process.communicate()[0]
        self.status = process.returncode
        self.records = records(fleet)
        self.page = (fleet.folder / "report/index.html").read_text()
        self.failed = (fleet.folder / "report/failed.txt").read_text().split()
        self.touched = {name: client.touched() for name, client in fleet.clients.items()}
        # Now: a later test brings one of them back, and stops it.
        self.running = {name: client.running() for name, client in fleet.clients.items()}


@pytest.fixture(scope="module")
def run(make_fleet):
    return Run(make_fleet("whole"))


@pytest.mark.xdist_group("course")
def test_check_touches_nobody(run):
    assert run.check.returncode == 2, run.check.stdout
    assert not any(run.touched_by_check.values())
    assert run.after_check == run.before and not run.report_after_check
    assert re.search(r"^stubborn +running +2 processes to stop$", run.check.stdout, re.M)
    assert f"{B}/momuhe" in run.check.stdout, "no diff is shown"
    assert recap(run.check.stdout)["idle"]["changed"] == "0"


@pytest.mark.xdist_group("course")
@pytest.mark.parametrize("name, outcome", [
    ("clean", "stopped"), ("busy", "stopped"), ("stubborn", "stopped"), ("keeping", "stopped"), ("shared", "stopped"),
    ("idle", "nothing"), ("server", "failed"), ("gone", "unreachable"), ("cut", "stopped"), ("bare", "failed"),
    ("full", "failed"), ("phoenix", "survivors")])
def test_each_outcome(run, name, outcome):
    record = run.records[name]
    assert record["outcome"] == outcome, record
    assert record["failed"] == (outcome not in ("stopped", "nothing"))
    assert (name in run.failed) == record["failed"]
    assert int(recap(run.output)[name]["failed"]) == record["failed"]


@pytest.mark.xdist_group("course")
@pytest.mark.parametrize("name", ["clean", "busy", "stubborn", "keeping", "shared", "cut"])
def test_the_outcome_is_what_the_journal_says(run, name):
    client, record = run.fleet[name], run.records[name]
    ready = sorted(words[3] for words in client.journal() if words[1] == "ready")
    left = sorted(client.running().elements())
    assert [line for line in client.journal() if line[1] == "signal"] or client.touched()
    shown = {HOSTILE.rsplit("/", 1)[1]: "<b>{{7*7}}&amp;?[31m"}
    assert sorted(names(record["stopped"]) + [shown.get(x, x) for x in left]) == sorted(shown.get(x, x) for x in ready)
    assert names(record["spared"] + record["listed_only"]) == [shown.get(x, x) for x in left]
    assert record["rc"] == 1 and record["survivors"] == []


@pytest.mark.xdist_group("course")
def test_the_outcome_where_nothing_runs_and_where_something_comes_back(run):
    assert run.touched["idle"] == [] and run.records["idle"]["found"] == []
    client, record = run.fleet["phoenix"], run.records["phoenix"]
    assert client.ended() == {"halvd": 1} and not client.running()
    # What comes back is no daemon of the box and keeps no journal.
    assert names(record["stopped"]) == ["halvd", "phoenix"]
    assert [(process["name"], process["new"]) for process in record["survivors"]] == [("phoenix", True)]


@pytest.mark.xdist_group("course")
def test_what_was_spared(run):
    assert names(run.records["keeping"]["spared"]) == ["koka"]
    assert run.fleet["keeping"].running() == {"koka": 1}
    assert not [words for words in run.touched["keeping"] if words[3] == "koka" and words[1] != "start"]


@pytest.mark.xdist_group("course")
def test_third_parties(run):
    assert names(run.records["shared"]["stopped"]) == ["halvd", "mapper"]
    assert names(run.records["shared"]["listed_only"]) == ["<b>{{7*7}}&amp;?[31m"]
    assert not [words for words in run.touched["shared"] if words[3] == HOSTILE.rsplit("/", 1)[1]]


@pytest.mark.xdist_group("course")
@pytest.mark.parametrize("name", ["server", "gone", "bare", "full"])
def test_who_could_not_be_stopped_is_untouched(run, name):
    assert run.touched[name] == [] and run.running[name] == {"halvd": 1}


@pytest.mark.xdist_group("course")
def test_what_went_wrong_is_said(run):
    said = {name: record["message"] for name, record in run.records.items()}
    assert "The host is a server of the product; use the server's own tools." in said["server"]
    assert "python3" in said["bare"] and "not found" in said["bare"]
    assert "No space left on device" in said["full"]
    assert re.match(r"Still running: phoenix \(\d+\), started again\.$", said["phoenix"])


@pytest.mark.xdist_group("course")
def test_a_stop_goes_on_without_its_connection(run):
    assert names(run.records["cut"]["stopped"]) == ["halvd", "koka"]
    assert "Wait for the connection to come back" in run.output
    assert "Wait for the daemons of each client to end" in run.output, "it does not say what it waits for"


@pytest.mark.xdist_group("course")
def test_the_table(run):
    table = run.output.split("CLIENT ")[-1].split("Report: ")[0]
    rows = [line.split()[0] for line in table.splitlines()[1:] if line and not line.startswith("7 clients")]
    assert rows == ["phoenix", "bare", "full", "server", "gone"]
    assert re.search(r"^7 clients down: 6 stopped \(the slowest, \w+, in [0-9.]+ s\), 1 with nothing to stop, "
                     r"1 with processes that an exclude list names\.$", table, re.M)
    assert run.status == 2


@pytest.mark.xdist_group("course")
def test_hostile_names_are_harmless(run):
    for text in (run.page, run.output, run.check.stdout):
        assert "\x1b" not in text
    assert "&lt;b&gt;{{7*7}}&amp;amp;?[31m" in run.page and "<b>{{" not in run.page and "<b>49" not in run.page


@pytest.mark.xdist_group("course")
def test_nothing_is_left_behind_on_the_clients(run):
    for name in ("clean", "busy", "keeping"):
        # What started the job looks every five seconds whether it may remove its folder.
        wait_for(lambda client=run.fleet[name], before=run.before[name]: not left_behind(client, before),
                 f"{name} to have nothing left behind", 30)


@pytest.mark.xdist_group("course")
def test_the_rest_again(run):
    """The last of the course: what was unreachable is back, and only what failed is asked again."""
    fleet = run.fleet
    fleet["gone"].reachable = True
    fleet["gone"].await_start()
    again = fleet.play("shutdown", *QUICK, "-e", json.dumps({"shutdown_serial": ["100%"], "shutdown_max_fail_percentage": 60}),
                       "--limit", "@report/failed.txt")
    now = records(fleet)
    assert now["gone"]["outcome"] == "stopped" and not fleet["gone"].running(), again.stdout
    assert set(recap(again.stdout)) == set(run.failed)
    assert {name: record for name, record in now.items() if name not in run.failed} == {
        name: record for name, record in run.records.items() if name not in run.failed}
    assert (fleet.folder / "report/failed.txt").read_text().split() == [name for name in run.failed if name != "gone"]
    once_more = fleet.play("shutdown", *QUICK, "--limit", "clean,busy,stubborn,keeping,idle,gone,cut,shared")
    assert once_more.returncode == 0, once_more.stdout
    assert {counts["changed"] for counts in recap(once_more.stdout).values()} == {"0"}
    verified = fleet.play("verify", "--limit", "clean,busy,keeping,phoenix")
    assert {name: counts["failed"] for name, counts in recap(verified.stdout).items()} == {
        "clean": "0", "busy": "0", "keeping": "0", "phoenix": "1"}
    assert "Still running: phoenix." in verified.stdout


def test_no_wave_behind_a_broken_limit(make_fleet):
    fleet = make_fleet("limit")
    for name in ("first", "second", "third", "fourth"):
        fleet.add(name, f"{B}/halvd\n")
    fleet["second"].reachable = False
    fleet.start()
    limit = json.dumps({"shutdown_serial": [1, 2, 1], "shutdown_max_fail_percentage": 40})
    result = fleet.play("shutdown", *QUICK, "-e", limit)
    assert result.returncode == 2, result.stdout
    assert {name: record["outcome"] for name, record in records(fleet).items()} == {
        "first": "stopped", "second": "unreachable", "third": "untouched", "fourth": "untouched"}
    assert {name: bool(client.touched()) for name, client in fleet.clients.items()} == {
        "first": True, "second": False, "third": False, "fourth": False}
    assert (fleet.folder / "report/failed.txt").read_text().split() == ["second", "fourth", "third"]
    higher = json.dumps({"shutdown_serial": [1, 2, 1], "shutdown_max_fail_percentage": 50})
    result = fleet.play("shutdown", *QUICK, "-e", higher)
    assert {name: bool(client.touched()) for name, client in fleet.clients.items()} == {
        "first": True, "second": False, "third": True, "fourth": True}, result.stdout


def test_without_confirmation_nothing_happens(make_fleet):
    fleet = make_fleet("confirm")
    client = fleet.add("client", f"{B}/halvd\n")
    fleet.start()
    result = fleet.play("shutdown")
    assert result.returncode == 2 and "run it again with -e shutdown_confirmed=true" in result.stdout
    assert client.touched() == [] and not (fleet.folder / "report").exists()


OWN_PLAY = """\
- hosts: all
  gather_facts: false
  serial: 1
  max_fail_percentage: 0
  roles:
    - role: quarn.corvane.shutdown
      vars: {shutdown_confirmed: true, shutdown_poll: 1, shutdown_report_dir: "%s/own"}
"""


def test_the_role_in_a_play_of_ones_own(make_fleet):
    fleet = make_fleet("own")
    for name in ("first", "second", "third"):
        fleet.add(name, f"{B}/halvd\n")
    fleet["second"].host.write("/usr/quarn/corvane/host.conf", "[host]\nrole = server\n")
    fleet.start()
    (fleet.folder / "own.yml").write_text(OWN_PLAY % fleet.folder)
    run = subprocess.run(["ansible-playbook", "own.yml"], env=fleet.environment(), cwd=fleet.folder, capture_output=True,
                         text=True, check=False)
    assert run.returncode == 2 and "server of the product" in run.stdout, run.stdout
    assert {name: bool(client.touched()) for name, client in fleet.clients.items()} == {
        "first": True, "second": False, "third": False}
    assert (fleet.folder / "own/failed.txt").read_text() == "second\n"


def stop_commands(client, name):
    return [words for words in client.touched() if words[1] == "start" and words[3].endswith(f"/{name}")]


def test_two_controllers_at_once(make_fleet):
    fleet = make_fleet("two")
    client = fleet.add("client", f"{B}/halvd stop=3\n{B}/koka\n")
    fleet.start()
    reports = [["-e", f"shutdown_report_dir={fleet.folder}/{name}"] for name in ("one", "two")]
    runs = [subprocess.Popen(fleet.command("shutdown", *QUICK, *report), env=fleet.environment(), cwd=fleet.folder, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT) for report in reports]
    outputs = [process.communicate()[0] for process in runs]
    assert [process.returncode for process in runs] == [0, 0], outputs
    assert len(stop_commands(client, "halvd")) == 1 and not client.running()


def test_ctrl_c_on_the_controller(make_fleet):
    fleet = make_fleet("interrupt")
    client = fleet.add("client", f"{B}/halvd stop=3\n{B}/koka\n")
    fleet.start()
    process = subprocess.Popen(fleet.command("shutdown", *QUICK), env=fleet.environment(), cwd=fleet.folder, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
    wait_for(client.touched, "the shutdown to begin")
    # As a terminal does: to Ansible, to its workers, and to ssh.
    os.killpg(process.pid, signal.SIGINT)
    output = process.communicate()[0]
    assert "User interrupted execution" in output and process.returncode == 99
    assert records(fleet)["client"]["outcome"] == "unfinished"
    wait_for(lambda: not client.running(), "the daemons to end")
    again = fleet.play("shutdown", *QUICK)
    assert again.returncode == 0, again.stdout
    assert records(fleet)["client"]["outcome"] in ("nothing", "stopped") and recap(again.stdout)["client"]["failed"] == "0"
    assert len(stop_commands(client, "halvd")) == 1


def test_without_become(make_fleet):
    fleet = make_fleet("become")
    client = fleet.add("client", f"{B}/halvd\n", setup="mount -t tmpfs tmpfs /var/tmp")
    fleet.start()
    nobody = {"ansible_become_method": "su", "ansible_become_user": "nobody", "ansible_become_flags": "-s /bin/sh"}
    result = fleet.play("preview", "-e", json.dumps(nobody))
    assert "Must be Administrator" in result.stdout and "Set become: true." in result.stdout
    assert client.touched() == []


# Dies once the program that it watches has sent something.
DYING = r"""#!/bin/sh
/opt/watch/cvstop-watch "$@" &
until grep -q "signal" /usr/quarn/sandbox/journal; do sleep 0.05; done
kill -KILL $!
exit 137
"""


@pytest.mark.skipif(not WATCH.exists(), reason="cvstop-watch is not built")
def test_a_watcher_that_dies_in_the_middle(make_fleet):
    """Its shutdown goes on, and is waited for: no stop command is run twice."""
    fleet = make_fleet("orphaned")
    client = fleet.add("client", f"{B}/halvd stop=3\n{B}/momuhe ignore=all\n",
                       setup=f"{WATCHED} && cp /opt/watch/dying /usr/sbin/cvstop-watch")
    client.host.write("/opt/watch/dying", DYING)
    client.host.inside("/opt/watch/dying").chmod(0o755)
    fleet.start()
    result = fleet.play("shutdown", *QUICK)
    assert result.returncode == 0, result.stdout
    record = records(fleet)["client"]
    assert record["outcome"] == "stopped" and names(record["stopped"]) == ["halvd", "momuhe"]
    assert len(stop_commands(client, "halvd")) == 1 and not client.running()
    assert record["warnings"][0].startswith("cvstop-watch ended with status 137 and left no report")


@pytest.mark.skipif(not WATCH.exists(), reason="cvstop-watch is not built")
def test_who_held_a_stop_up(make_fleet):
    fleet = make_fleet("watched")
    for name, setup in (("watched", WATCHED), ("broken", WATCHED + " && echo exit 3 >/usr/sbin/cvstop-watch")):
        fleet.add(name, f"{B}/halvd stop=3\n{B}/momuhe ignore=all\n{B}/koka\n", setup=setup)
    fleet.start()
    result = fleet.play("shutdown", *QUICK, "-e", json.dumps({"shutdown_serial": ["100%"]}))
    assert result.returncode == 0, result.stdout
    made = records(fleet)
    seen = {entry["name"]: entry for entry in made["watched"]["watch"]["processes"]}
    assert {name: entry["outcome"] for name, entry in seen.items()} == {"halvd": "ended", "momuhe": "killed", "koka": "ended"}
    assert 2 < seen["halvd"]["ended"] - seen["halvd"]["asked"][0]["time"] < 20
    page = (fleet.folder / "report/index.html").read_text()
    assert page.count("<svg") == 1 and "3 processes were asked to end" in page and "momuhe took longest" in page
    assert made["broken"]["outcome"] == "stopped" and "watch" not in made["broken"]
    assert made["broken"]["warnings"] == ["cvstop-watch cannot be started: Exec format error"]
