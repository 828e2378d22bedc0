"""The newcomer's way, as the README tells it: each marked command block is run as it stands."""
import os
import re
import subprocess

import pytest
from box import until_ended
from conftest import REPO, step

BIN = "/usr/quarn/corvane/bin"
README = (REPO / "README.md").read_text()
# The fleet's is run by tests/fleet.
STEPS = ("demo", "test", "fleet", "package", "install", "first-shutdown", "what-is-left")


def test_every_step_is_there_once_and_no_other():
    assert re.findall(r"<!-- run: (.*?) -->", README) == list(STEPS)


def on_this_machine(name):
    return subprocess.run(["bash", "-ec", step(name)], cwd=REPO, capture_output=True, text=True, errors="replace", check=False,
                          env={**os.environ, "LC_ALL": "C.UTF-8"})


def test_demo(tmp_path):
    shown = on_this_machine("demo")
    assert shown.returncode == 0, shown.stdout[-3000:] + shown.stderr[-3000:]
    picture = subprocess.run([REPO / "scripts/picture", "--compare"], input=shown.stdout, capture_output=True, text=True,
                             check=False)
    assert picture.returncode == 0, picture.stdout + picture.stderr


@pytest.mark.skipif(os.environ.get("CVSTOP_RAN") == step("test").strip(), reason="scripts/test has run it itself")
def test_a_passing_test():
    shown = on_this_machine("test")
    assert shown.returncode == 0 and "100% tests passed" in shown.stdout, shown.stdout[-3000:] + shown.stderr[-3000:]


def test_from_the_package_to_a_first_shutdown(root, packages):
    root.lay_fleet(f"{BIN}/koka\n{BIN}/halvd\n{BIN}/momuhe count=2\n")
    folder = root.inside("/src/build/package")
    folder.mkdir(parents=True)
    for package in packages.glob("*.deb"):
        (folder / package.name).write_bytes(package.read_bytes())
    root.run(step("install"))
    moment = until_ended(f"{BIN}/halvd")  # its stop command, too, runs that file
    output = root.run("/opt/starter/start --start /usr/quarn/sandbox/fleet\n" + step("first-shutdown") + moment
                      + step("what-is-left"))
    before, after = output.split("Gathering process information.\n")
    assert [line.split()[0] for line in before.splitlines()[2:]] == ["koka", "halvd", "momuhe", "momuhe"]
    told, listed = after.split("All Corvane specified processes terminated normally.\n")
    assert told.count("Signaling process") == 2 and told.count("Requesting termination") == 1
    assert [line.split()[0] for line in listed.splitlines()[2:]] == ["koka"]
