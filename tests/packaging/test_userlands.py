"""The .deb where it is meant to run: in the user lands of several Debians. (test_rpm.py has a root with nothing at all.)

CVSTOP_USERLANDS names the Debians, all of them where it says "all"; by default it is the one that this machine runs."""
import os

import pytest

from box import until_ended
from conftest import REPO, Root, archive, debian
from test_package import BIN, HOST_CONF, START, USAGE, install


DEBIANS = {"bullseye": "11", "bookworm": "12", "trixie": "13"}


def wanted():
    names = os.environ.get("CVSTOP_USERLANDS", archive.codename()).split()
    return list(DEBIANS) if names == ["all"] else names


@pytest.fixture(params=wanted())
def userland(request, tmp_path):
    made = Root(debian(request.param, REPO / "build/userlands" / request.param), tmp_path / "root")
    yield made, request.param
    made.remove()


def test_installed_run_and_removed(userland, deb):
    root, name = userland
    assert root.run("cat /etc/debian_version").startswith(DEBIANS[name])
    root.lay_fleet(f"{BIN}/koka\n{BIN}/halvd\n")
    root.run(install(root, deb) + f"cp {HOST_CONF}.example {HOST_CONF}; echo {BIN}/koka >{BIN}/excludelist.conf")
    assert root.run("cvstop -h") == USAGE.format("cvstop")
    left = root.run(START + "cvstop -k >/dev/null || echo $?\n" + until_ended(f"{BIN}/halvd") + "cvstop -l")
    assert left.startswith("1\n") and [line.split()[0] for line in left.splitlines()[3:]] == ["koka"]
    root.run("dpkg -r cvstop >/dev/null")
    assert not root.inside(f"{BIN}/cvstop").exists() and root.inside(HOST_CONF).exists()
