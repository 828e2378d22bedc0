"""The role's decisions, on clients that are only programs: what runs, in which order, and what is kept of it."""
import json
import os
import re
import signal

import pytest
from clients import wait_for
from local import HALVD, Fleet
from test_fleet import recap


def test_nobody_is_left_and_the_rest_again_is_nobody(tmp_path):
    """An empty file after --limit @ would mean every client."""
    fleet = Fleet(tmp_path, one="", two="")
    fleet.set("two", "status", "55")
    assert fleet.shut_down("-e", "shutdown_max_fail_percentage=100").returncode == 2
    assert fleet.failed() == ["two"]
    (tmp_path / "two/state/status").unlink()
    assert fleet.shut_down("--limit", "@report/failed.txt").returncode == 0
    assert fleet.failed() is None
    again = fleet.shut_down("--limit", "@report/failed.txt")
    assert again.returncode != 0 and "Unable to find limit file" in again.stdout
    assert (fleet.shutdowns("one"), fleet.shutdowns("two")) == (1, 1)


@pytest.mark.parametrize("place, given", [
    ("hosts/inventory", ["hosts/inventory"]), ("hosts/inventory", ["hosts"]), ("hosts/inventory", ["hosts/"]),
    ("inventory", ["inventory", "hosts"]), ("hosts/inventory", ["other,", "hosts"])])
def test_the_report_is_never_in_a_folder_of_inventories(tmp_path, place, given):
    """Ansible would read it as an inventory, and it holds what clients have said."""
    fleet = Fleet(tmp_path, place, client="")
    (tmp_path / "hosts").mkdir(exist_ok=True)
    sources = [word for source in given[1:] for word in ("-i", source)]
    result = fleet.shut_down(*sources, "-e", "shutdown_hosts=client", inventory=given[0])
    assert result.returncode == 0, result.stdout
    there = [path.parent.relative_to(tmp_path) for path in tmp_path.rglob("client.json")]
    assert [str(path) for path in there] == ["hosts/report" if given == ["hosts/inventory"] else "report"]


def test_the_report_without_an_inventory_is_where_ansible_was_started(tmp_path):
    fleet = Fleet(tmp_path, client="")
    variables = dict(word.split("=") for word in (tmp_path / "inventory").read_text().split()[1:])
    (tmp_path / "inventory").unlink()
    assert fleet.shut_down(inventory="client,", variables=variables).returncode == 0
    assert fleet.outcomes() == {"client": "stopped"}


BAD_VARIABLES = {"exclude": "shutdown_exclude={}", "survivors": "shutdown_on_survivors=maybe", "async": "shutdown_async=soon",
                 "poll": "shutdown_poll=0"}


def test_clients_with_a_bad_variable_are_named_and_nobody_is_touched(tmp_path):
    fleet = Fleet(tmp_path, good="", **BAD_VARIABLES)
    result = fleet.shut_down()
    assert result.returncode == 2 and "Ansible gave these up: exclude, survivors, async, poll." in result.stdout, result.stdout
    assert fleet.outcomes() == {"good": "untouched", **dict.fromkeys(BAD_VARIABLES, "failed")}
    assert fleet.failed() == [*sorted(BAD_VARIABLES), "good"]
    assert not any(fleet.shutdowns(name) for name in fleet.outcomes())
    for shown in (fleet.play("shutdown", "--check"), fleet.play("preview")):
        assert shown.returncode == 2 and re.search(r"^good +running ", shown.stdout, re.M), shown.stdout
        for name in BAD_VARIABLES:
            assert re.search(rf"^{name} +failed ", shown.stdout, re.M), name
    assert fleet.shut_down("--limit", "good").returncode == 0 and fleet.shutdowns("good") == 1


OWN_TASK = """\
- hosts: all
  gather_facts: false
  tasks:
    - quarn.corvane.cvstop:
        executable: "{{ shutdown_executable }}"
        settle: 0
        on_survivors: "{{ on_survivors }}"
"""


@pytest.mark.parametrize("on_survivors, failed", [("warn", []), ("fail", ["left"])])
def test_the_module_as_a_task_of_ones_own(tmp_path, on_survivors, failed):
    """Ansible takes a status other than 0 for a failure, and that of a shutdown is 1."""
    fleet = Fleet(tmp_path, client="", left="")
    fleet.set("left", "processes", HALVD.replace("ends", "stays"))
    (tmp_path / "own.yml").write_text(OWN_TASK)
    result = fleet.play("own.yml", "-e", f"on_survivors={on_survivors}")
    counts = recap(result.stdout)
    assert [name for name in counts if counts[name]["failed"] != "0"] == failed, result.stdout
    assert counts["client"]["changed"] == "1" and "Still running: halvd (801)." in result.stdout
    assert (fleet.shutdowns("client"), fleet.shutdowns("left")) == (1, 1)


LOST_IN_ITS_WAVE = """\
- import_playbook: quarn.corvane.shutdown
  vars:
    shutdown_async: "{{ undefined_for_one if inventory_hostname == 'one' and shutdown_seen is defined else 60 }}"
"""


def test_a_client_that_ansible_gives_up_in_its_wave_counts_and_is_reported(tmp_path):
    fleet = Fleet(tmp_path, one="", two="", three="")
    (tmp_path / "own.yml").write_text(LOST_IN_ITS_WAVE)
    result = fleet.play("own.yml", "-e", json.dumps({"shutdown_serial": [2, 1], "shutdown_confirmed": True}))
    assert result.returncode == 2, result.stdout
    assert fleet.outcomes() == {"one": "failed", "two": "stopped", "three": "untouched"} and fleet.failed() == ["one", "three"]
    assert "Ansible itself gave this client up" in fleet.records()["one"]["message"]


def test_a_run_whose_whole_wave_ansible_gives_up_is_reported(tmp_path):
    fleet = Fleet(tmp_path, one="", two="")
    (tmp_path / "own.yml").write_text(LOST_IN_ITS_WAVE)
    result = fleet.play("own.yml", "-e", "shutdown_confirmed=true")
    assert result.returncode == 2 and fleet.outcomes() == {"one": "failed", "two": "untouched"}, result.stdout
    message = fleet.records()["one"]["message"]
    assert message.startswith("Ansible itself gave this client up: ") and "undefined_for_one" in message
    table = result.stdout.split("CLIENT ")[-1]
    assert re.search(r"^one +failed ", table, re.M) and "Report: " in table and fleet.failed() == ["one", "two"]
    assert fleet.shutdowns("one") + fleet.shutdowns("two") == 0


def test_a_client_that_ansible_gives_up_counts_in_its_own_wave_alone(tmp_path):
    fleet = Fleet(tmp_path, one="", two="", three="", four="", five="")
    (tmp_path / "own.yml").write_text(LOST_IN_ITS_WAVE)
    fleet.set("three", "status", "55")
    # One of two in the first wave, and one of two in the second.
    variables = {"shutdown_serial": [2, 2, 1], "shutdown_max_fail_percentage": 50, "shutdown_confirmed": True}
    result = fleet.play("own.yml", "-e", json.dumps(variables))
    assert fleet.outcomes() == {
        "one": "failed", "two": "stopped", "three": "failed", "four": "stopped", "five": "stopped"}, result.stdout
    assert fleet.failed() == ["one", "three"]


@pytest.mark.parametrize("first, others, outcome", [(60, 0, "stopped"), (0, 60, "untouched")])
def test_a_wave_goes_on_as_a_whole_by_the_limit_of_its_first_client(tmp_path, first, others, outcome):
    limits = {"first": first, "second": others, "third": others}
    fleet = Fleet(tmp_path, **{name: f"shutdown_max_fail_percentage={limit}" for name, limit in limits.items()})
    fleet.set("third", "status", "55")
    result = fleet.shut_down("-e", json.dumps({"shutdown_serial": ["100%"]}))
    assert fleet.outcomes() == {"first": outcome, "second": outcome, "third": "failed"}, result.stdout


def test_a_client_where_nothing_can_start_is_given_up(tmp_path):
    """Its temporary folder cannot be made: Ansible calls that unreachable, while the connection itself is fine."""
    fleet = Fleet(tmp_path, full="ansible_remote_tmp=/proc/none")
    result = fleet.shut_down()
    assert fleet.outcomes() == {"full": "unreachable"}, result.stdout
    assert "Failed to create temporary directory" in fleet.records()["full"]["message"]
    assert result.stdout.count("TASK [quarn.corvane.shutdown : Start the shutdown]") == 4
    assert fleet.shutdowns("full") == 0


def test_a_controller_that_ends_in_the_middle_has_told_who_is_stopping(tmp_path):
    """Even behind a client that has nothing to stop, the first of its wave."""
    fleet = Fleet(tmp_path, idle="", first="", second="")
    fleet.set("idle", "processes", "")
    fleet.set("first", "takes", "10")
    process = fleet.start("shutdown", "-e", json.dumps({"shutdown_confirmed": True, "shutdown_serial": [2, 1]}))
    try:
        wait_for(lambda: fleet.shutdowns("first"), "the shutdown to begin")
    finally:
        os.killpg(process.pid, signal.SIGINT)
        process.communicate()
    assert fleet.outcomes() == {"idle": "untouched", "first": "unfinished", "second": "untouched"}
    page = (tmp_path / "report/index.html").read_text()
    assert page.count("still stopping</td>") == 1 and page.count("not touched</td>") == 2
    assert fleet.failed() == ["first", "idle", "second"]


def test_a_result_that_was_never_written_is_asked_of_the_listing(tmp_path):
    fleet = Fleet(tmp_path, down="shutdown_async=15", stuck="shutdown_async=15", lost="shutdown_async=15")
    for name, how in (("down", "spoils"), ("stuck", "spoils"), ("lost", "removes")):
        (tmp_path / name / "jobs").mkdir()
        fleet.set(name, how, str(tmp_path / name / "jobs"))
    fleet.set("stuck", "processes", HALVD.replace("ends", "stays"))
    result = fleet.shut_down("-e", json.dumps({"shutdown_serial": ["100%"]}))
    assert fleet.outcomes() == {"down": "stopped", "stuck": "unfinished", "lost": "stopped"}, result.stdout
    for name in ("down", "lost"):
        assert fleet.records()[name]["message"].startswith("The client kept no result")


def test_what_another_run_has_stopped_is_stopped(tmp_path):
    """Or this run itself, where the answer to its start was lost. What is only listed is no reason to say so."""
    listed = "editor\t/opt/x/editor\t901\tThird Party\tlisted\n"
    fleet = Fleet(tmp_path, both="shutdown_third_party=true", whole="", only="shutdown_third_party=true")
    for name, processes in (("both", HALVD + listed), ("whole", HALVD), ("only", listed)):
        fleet.set(name, "processes", processes)
        # The preview's listing and that of its wave.
        fleet.set(name, "gone", "2")
    result = fleet.shut_down("-e", json.dumps({"shutdown_serial": ["100%"]}))
    assert fleet.outcomes() == {"both": "stopped", "whole": "stopped", "only": "nothing"}, result.stdout
    for name in ("both", "whole"):
        record = fleet.records()[name]
        assert [process["pid"] for process in record["stopped"]] == [801] and "another run stopped it" in record["message"]
    assert [process["name"] for process in fleet.records()["both"]["listed_only"]] == ["editor"]


@pytest.mark.parametrize("playbook", ["preview", "shutdown", "verify", "install"])
def test_ssh_is_called_as_the_user_has_it_and_with_a_limit_of_silence(tmp_path, playbook):
    ssh = tmp_path / "ssh"
    ssh.write_text(f'#!/bin/sh\necho "$@" >>{tmp_path}/called\nexit 255\n')
    ssh.chmod(0o755)
    own = "-o ForwardAgent=no -o ServerAliveCountMax=2"
    fleet = Fleet(tmp_path, client=f"ansible_connection=ssh ansible_ssh_executable={ssh} ansible_ssh_common_args='-o Port=2022' "
                                   f"ansible_ssh_extra_args='{own}'", plain="ansible_connection=ssh ansible_pipelining=false "
                                   f"ansible_ssh_executable={ssh}")
    assert fleet.play(playbook, "--limit", "client").returncode != 0
    called = (tmp_path / "called").read_text().splitlines()[0]
    for option in ("Compression=yes", "Port=2022", "ForwardAgent=no", "ServerAliveInterval=15", "ServerAliveCountMax=4"):
        assert f"-o {option} " in called
    assert called.index("ServerAliveCountMax=2") < called.index("ServerAliveCountMax=4"), "ssh takes the first"
    assert "mkdir" not in called
    (tmp_path / "called").unlink()
    assert fleet.play(playbook, "--limit", "plain").returncode != 0
    assert "mkdir" in (tmp_path / "called").read_text()


def test_a_preview_writes_nothing_even_if_a_shutdown_is_confirmed(tmp_path):
    fleet = Fleet(tmp_path, client="")
    result = fleet.play("preview", "-e", "shutdown_confirmed=true")
    assert result.returncode == 0 and "1 process to stop" in result.stdout
    assert not (tmp_path / "report").exists() and not (tmp_path / "client/tmp").exists()


def test_records_of_earlier_runs_are_marked_and_not_for_the_next_run(tmp_path):
    fleet = Fleet(tmp_path, mended="", other="")
    fleet.set("mended", "status", "55")
    fleet.set("other", "status", "55")
    assert fleet.shut_down("-e", "shutdown_max_fail_percentage=100").returncode == 2
    assert fleet.failed() == ["mended", "other"]
    (tmp_path / "mended/state/status").unlink()
    result = fleet.shut_down("--limit", "mended")
    assert result.returncode == 0 and fleet.failed() is None
    day = fleet.records()["other"]["time"][:10]
    assert f"in an earlier run, {day} " in result.stdout and "--limit @" not in result.stdout
    page = (tmp_path / "report/index.html").read_text()
    assert page.count("<small>Earlier run: ") == 1 and page.count(f"<small>{day} ") == 1


def test_survivors_that_are_only_a_warning(tmp_path):
    """Nobody is called back to them by failed.txt, and the next wave begins."""
    fleet = Fleet(tmp_path, canary="", second="")
    fleet.set("canary", "processes", HALVD.replace("ends", "stays"))
    result = fleet.shut_down("-e", "shutdown_on_survivors=warn")
    assert result.returncode == 0, result.stdout
    assert fleet.outcomes() == {"canary": "survivors", "second": "stopped"} and fleet.failed() is None
    assert "Still running: halvd (801)." in result.stdout


def test_a_watcher_that_must_be_there(tmp_path):
    """Where cvstop-watch is installed on this machine there is nothing to see."""
    if any(os.access(f"{folder}/cvstop-watch", os.X_OK) for folder in ["/usr/sbin", *os.environ["PATH"].split(":")]):
        pytest.skip("cvstop-watch is installed here")
    fleet = Fleet(tmp_path, client="")
    result = fleet.shut_down("-e", "shutdown_watch=true")
    assert result.returncode == 2 and fleet.outcomes() == {"client": "failed"}, result.stdout
    assert "There is no cvstop-watch on this client" in fleet.records()["client"]["message"]
    assert fleet.shutdowns("client") == 0 and fleet.failed() == ["client"]


@pytest.mark.parametrize("what, text, outcome", [
    ("processes", HALVD.replace("ends", "stays"), "survivors"), ("status", "55", "failed"),
    # What a release may print that knows no columns.
    ("says", "koka 812\n", "failed")])
def test_a_canary_that_fails_ends_the_run(tmp_path, what, text, outcome):
    fleet = Fleet(tmp_path, canary="", second="", third="")
    fleet.set("canary", what, text)
    result = fleet.shut_down()
    assert result.returncode == 2
    assert fleet.outcomes() == {"canary": outcome, "second": "untouched", "third": "untouched"}
    assert fleet.failed() == ["canary", "second", "third"]
    assert fleet.shutdowns("canary") == (outcome == "survivors") and fleet.shutdowns("second") + fleet.shutdowns("third") == 0
    message = fleet.records()["canary"]["message"]
    assert {"processes": "Still running: halvd (801).", "status": "is a server of the product",
            "says": "Is it an old release?"}[what] in message
    assert message[:60] in result.stdout and "not touched</td>" in (tmp_path / "report/index.html").read_text()
