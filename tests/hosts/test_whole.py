"""A whole Debian 12 under systemd, among whose services the product's are hardened as such services are."""
import dataclasses
import json
import os
import re

import pytest

import whole_image
from box import BIN, CVSTOP, rows_of_listing
from whole_image import HOST, KEPT, PRODUCT, STRANGERS

SECONDS = 600
OWN = {"cron.service", "dbus.service", "redis-server.service", "ssh.service", "systemd-journald.service",
       "systemd-logind.service", "systemd-udevd.service"}
PATHS = {f"{name}.service": f"{BIN}/{daemon}" for name, (daemon, _) in PRODUCT.items()}

pytestmark = [pytest.mark.xdist_group(HOST.name), pytest.mark.skipif(os.geteuid() != 0, reason="only root can make a Debian")]


@dataclasses.dataclass
class Told:
    """What the host has told of itself: its files, and its services before and after the shutdown."""
    host: str
    files: dict

    def services(self, when):
        blocks = [dict(line.split("=", 1) for line in block.splitlines()) for block in self.files[when].split("\n\n")]
        return {block["Id"]: block for block in blocks}

    def pids(self, when):
        return {name: int(block["MainPID"]) for name, block in self.services(when).items() if block["ActiveState"] == "active"}

    def paths(self, listing):
        """Path by pid, and category."""
        lines = self.files[listing].splitlines()[2:]
        return {int(line.split()[2]): path for line, path in zip(lines, rows_of_listing(self.files[listing]))}

    @property
    def watched(self):
        return json.loads(self.files["watched"])

    def lives(self):
        """What the watcher tells of each process, by pid."""
        return {process["pid"]: process for process in self.watched["processes"]}


@pytest.fixture(scope="module")
def host(boot, build_folder):
    machine = boot(HOST, lambda: whole_image.build(build_folder(HOST)))
    try:
        _, archive = machine.answer(SECONDS)
        with archive:
            return Told(str(machine), {member.name.rsplit("/", 1)[1]: archive.extractfile(member).read().decode()
                                       for member in archive if member.isfile()})
    finally:
        machine.close()


@pytest.fixture
def told(host, request):
    request.node.user_properties.append(("host", host.host))
    return host


def test_host_is_whole(told):
    assert told.files["failed"] == ""
    assert OWN | set(PATHS) | {f"{name}.service" for name in STRANGERS} <= set(told.pids("before"))


def test_each_hardened_service_is_the_products_and_nothing_else(told):
    pids = told.pids("before")
    listing = told.paths("listing")
    kept, = set(listing) - set(pids.values())
    assert listing == {kept: (KEPT[1], "Corvane"), **{pids[name]: (path, "Corvane") for name, path in PATHS.items()}}


def test_service_with_a_library_or_in_the_tree_of_the_product_is_a_third_party(told):
    pids = told.pids("before")
    strangers = {pid: row for pid, row in told.paths("third").items() if row[1] != "Corvane"}
    assert strangers == {pids[f"stranger-{name}.service"]: ("/usr/bin/sleep", "Third Party")
                         for name in ("preloaded", "holding")}


def test_shutdown_stops_them_all(told):
    assert told.files["status"] == "1\n"
    before, after = told.pids("before"), told.pids("after")
    assert set(PATHS) & set(after) == {"product-restarted.service"}
    # Its supervisor has started it again: it was stopped, as the others.
    assert after["product-restarted.service"] != before["product-restarted.service"]
    assert "stranger-preloaded.service" not in after
    assert told.paths("left") == {after["product-restarted.service"]: (PATHS["product-restarted.service"], "Corvane")}


def test_every_service_of_the_hosts_own_is_still_what_it_was(told):
    before, after = told.pids("before"), told.pids("after")
    gone = {*PATHS, "stranger-preloaded.service"}
    assert {name: pid for name, pid in before.items() if name not in gone} == {
        name: pid for name, pid in after.items() if name not in gone}


def test_daemons_were_asked_as_the_table_says(told):
    commands = sorted(line.split("\t")[3:] for line in told.files["journal"].splitlines() if line.split("\t")[1] == "start"
                      and "--serve" not in line)
    assert commands == [[f"{BIN}/halvd", "-terminate"]]
    assert CVSTOP not in told.files["listing"]


def test_watcher_tells_who_came_back_and_of_which_unit(told):
    name = "product-restarted.service"
    back, = told.watched["came_back"]
    assert (back["name"], back["path"], back["category"]) == ("ndmpgumad", PATHS[name], 1)
    assert (back["parent"], back["unit"]) == ({"pid": 1, "name": "systemd"}, name)
    assert back["pid"] == told.pids("after")[name]
    former = told.lives()[told.pids("before")[name]]
    assert former["outcome"] == "ended" and former["ended"] < back["start"] < told.watched["run"]["end"]
    row = rf"^  ndmpgumad \({back['pid']}\) +at [\d.]+ s, parent systemd \(1\), unit {re.escape(name)}$"
    assert re.search(row, told.files["report"].split("\n  came back\n")[1], re.M)


def test_watcher_tells_the_units_of_all_who_are_services(told):
    pids, lives = told.pids("before"), told.lives()
    services = [*PATHS, "stranger-preloaded.service", "stranger-holding.service"]
    assert {name: lives[pids[name]]["unit"] for name in services} == {name: name for name in services}
    assert {lives[pids[name]]["outcome"] for name in PATHS} == {"ended"}


def test_watcher_names_the_unit_of_the_survivor_and_of_the_holder(told):
    pids = told.pids("before")
    keeper = pids[f"{KEPT[0]}.service"]
    survivor, = (process for process in told.lives().values() if process["outcome"] == "survived")
    assert (survivor["path"], survivor["unit"]) == (KEPT[1], f"{KEPT[0]}.service")
    assert survivor["reason"]["state"] == "zombie" and survivor["parent"] == {"pid": keeper, "name": "keep"}
    holder = told.lives()[pids["stranger-holding.service"]]
    assert (holder["category"], holder["outcome"], holder["unit"]) == (4, "spared", "stranger-holding.service")
    report = told.files["report"]
    why = rf"zombie: ended, but its parent does not take its status, .+, parent keep \({keeper}\), unit product-kept.service"
    assert re.search(rf"^  koka \({survivor['pid']}\) +{why}$", report, re.M)
    left_alone = rf"^  sleep \({holder['pid']}\) +only listed, parent systemd \(1\), unit stranger-holding.service$"
    assert re.search(left_alone, report, re.M)
