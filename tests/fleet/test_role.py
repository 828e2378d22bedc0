"""The role's decisions, on clients that are only programs: what runs, in which order, and what is kept of it."""
import json
import os
import signal

import pytest
from clients import wait_for
from local import HALVD, Fleet


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


@pytest.mark.parametrize("bad", ["shutdown_exclude={}", "shutdown_on_survivors=maybe", "shutdown_async=soon", "shutdown_poll=0"])
def test_a_client_with_a_bad_variable_is_named_and_nobody_is_touched(tmp_path, bad):
    fleet = Fleet(tmp_path, good="", bad=bad)
    result = fleet.shut_down()
    assert result.returncode == 2 and "Ansible gave these up: bad." in result.stdout, result.stdout
    assert fleet.outcomes() == {"good": "untouched", "bad": "failed"} and fleet.failed() == ["bad", "good"]
    assert (fleet.shutdowns("good"), fleet.shutdowns("bad")) == (0, 0)
    check = fleet.play("shutdown", "--check")
    assert check.returncode == 2 and "\nbad     failed" in check.stdout
    only = fleet.play("preview")
    assert only.returncode == 2 and "\nbad     failed" in only.stdout and "\ngood    running" in only.stdout
    assert fleet.shut_down("--limit", "good").returncode == 0 and fleet.shutdowns("good") == 1


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


def test_a_client_where_nothing_can_start_is_given_up(tmp_path):
    """Its temporary folder cannot be made: Ansible calls that unreachable, while the connection itself is fine."""
    fleet = Fleet(tmp_path, full="ansible_remote_tmp=/proc/none")
    result = fleet.shut_down()
    assert fleet.outcomes() == {"full": "unreachable"}, result.stdout
    assert "Failed to create temporary directory" in fleet.records()["full"]["message"]
    assert result.stdout.count("TASK [quarn.corvane.shutdown : Start the shutdown]") == 4
    assert fleet.shutdowns("full") == 0


def test_a_controller_that_ends_in_the_middle_has_told_who_is_stopping(tmp_path):
    fleet = Fleet(tmp_path, first="", second="")
    fleet.set("first", "takes", "10")
    process = fleet.start("shutdown", "-e", "shutdown_confirmed=true")
    try:
        wait_for(lambda: fleet.shutdowns("first"), "the shutdown to begin")
    finally:
        os.killpg(process.pid, signal.SIGINT)
        process.communicate()
    assert fleet.outcomes() == {"first": "unfinished", "second": "untouched"}
    page = (tmp_path / "report/index.html").read_text()
    assert page.count("still stopping</td>") == 1 and page.count("not touched</td>") == 1
    assert fleet.failed() == ["first", "second"]


def test_a_result_that_was_never_written_is_asked_of_the_listing(tmp_path):
    fleet = Fleet(tmp_path, down="shutdown_async=4", stuck="shutdown_async=4", lost="shutdown_async=4")
    for name, how in (("down", "spoils"), ("stuck", "spoils"), ("lost", "removes")):
        (tmp_path / name / "jobs").mkdir()
        fleet.set(name, how, str(tmp_path / name / "jobs"))
    fleet.set("stuck", "processes", HALVD.replace("ends", "stays"))
    result = fleet.shut_down("-e", json.dumps({"shutdown_serial": ["100%"]}))
    assert fleet.outcomes() == {"down": "stopped", "stuck": "unfinished", "lost": "stopped"}, result.stdout
    for name in ("down", "lost"):
        assert fleet.records()[name]["message"].startswith("The client kept no result")
