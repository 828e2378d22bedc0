"""The packages where they are meant to run: in the user lands of several Debians, and in a root that has nothing at all.

CVSTOP_USERLANDS names the Debians, all of them where it says "all"; by default it is the one that this machine runs."""
import os
import subprocess

import pytest

from box import until_ended
from conftest import REPO, Root, archive_of_this_system, debian
from test_package import BIN, HOST_CONF, START, USAGE, install

pytestmark = pytest.mark.xdist_group("packages")

DEBIANS = {"bullseye": "11", "bookworm": "12", "trixie": "13"}


def wanted():
    names = os.environ.get("CVSTOP_USERLANDS", archive_of_this_system()[0]).split()
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


def in_empty_root(folder, *words):
    """Runs one program in a root where there is no other, not even a shell."""
    return subprocess.run(["bwrap", "--bind", folder, "/", "--dev", "/dev", "--proc", "/proc", "--unshare-pid", "--unshare-net",
                           "--cap-add", "ALL", "--die-with-parent", "--clearenv", *words],
                          capture_output=True, text=True, check=False)


def test_rpm_in_an_empty_root(rpm, tmp_path):
    if os.geteuid() != 0:
        pytest.skip("only root can install a package")

    def ask(*words):
        return subprocess.run(["rpm", "--root", tmp_path, *words], capture_output=True, text=True, check=False)

    refused = ask("-i", rpm)
    assert "logrotate is needed by" in refused.stderr and not (tmp_path / "usr/quarn").exists()
    assert ask("-i", "--nodeps", rpm).returncode == 0
    assert ask("-V", "--nodeps", "cvstop").stdout == ""
    for folder in ("dev", "proc"):
        (tmp_path / folder).mkdir(exist_ok=True)
    program = f"{BIN}/cvstop"
    assert in_empty_root(tmp_path, program, "-h").returncode == 110
    example = tmp_path / f"{HOST_CONF}.example".lstrip("/")
    example.with_suffix("").write_bytes(example.read_bytes())
    shown = in_empty_root(tmp_path, program, "-h")
    assert (shown.returncode, shown.stdout) == (0, USAGE.format(program))
    listed = in_empty_root(tmp_path, program, "-l")
    assert (listed.returncode, listed.stdout) == (0, "")
    assert ask("-e", "cvstop").returncode == 0
    assert not (tmp_path / program.lstrip("/")).exists() and example.with_suffix("").exists()
