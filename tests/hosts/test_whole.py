"""A whole Debian 12 under systemd, among whose services the product's are hardened as such services are."""
import dataclasses
import os

import pytest

import whole_image
from box import BIN, CVSTOP, rows_of_listing
from machine import Machine
from whole_image import HOST, PRODUCT, STRANGERS

SECONDS = 600
OWN = {"cron.service", "dbus.service", "redis-server.service", "ssh.service", "systemd-journald.service",
       "systemd-logind.service", "systemd-udevd.service"}
PATHS = {f"{name}.service": f"{BIN}/{daemon}" for name, (daemon, _) in PRODUCT.items()}

pytestmark = [pytest.mark.xdist_group(HOST.name), pytest.mark.skipif(os.geteuid() != 0, reason="only root can make a Debian")]


@dataclasses.dataclass
class Told:
    """What the host has told of itself: its files, and its services before and after the shutdown."""
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


@pytest.fixture(scope="module")
def told(build_folder):
    kernel, first, version, disk = whole_image.build(build_folder(HOST))
    machine = Machine(HOST, kernel, first, version, disk)
    try:
        _, archive = machine.answer(SECONDS)
        with archive:
            return Told({member.name.rsplit("/", 1)[1]: archive.extractfile(member).read().decode()
                         for member in archive if member.isfile()})
    finally:
        machine.close()
        disk.unlink()


def test_host_is_whole(told):
    assert told.files["failed"] == ""
    assert OWN | set(PATHS) | {f"{name}.service" for name in STRANGERS} <= set(told.pids("before"))


def test_each_hardened_service_is_the_products_and_nothing_else(told):
    pids = told.pids("before")
    assert told.paths("listing") == {pids[name]: (path, "Corvane") for name, path in PATHS.items()}


def test_service_with_a_library_of_the_product_is_a_third_party(told):
    preloaded = told.pids("before")["stranger-preloaded.service"]
    strangers = {pid: row for pid, row in told.paths("third").items() if row[1] != "Corvane"}
    assert strangers == {preloaded: ("/usr/bin/sleep", "Third Party")}


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
