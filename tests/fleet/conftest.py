"""Fixtures of the fleet's tests: the collection as Ansible sees it, and a client that is only a program."""
import os
import pathlib
import random
import signal
import subprocess
import sys
import tempfile

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(REPO / "fleet"), str(REPO / "tests/program"), str(pathlib.Path(__file__).parent)]

import box  # noqa: E402  (found through the path above)


def pytest_collection_modifyitems(items):
    """Tests may run in any order; CVSTOP_TEST_SEED chooses one."""
    if seed := os.environ.get("CVSTOP_TEST_SEED"):
        random.Random(seed).shuffle(items)


@pytest.fixture
def seed():
    return int(os.environ.get("CVSTOP_TEST_SEED", random.randrange(1 << 30)))


def pytest_configure(config):
    # A shell starts background jobs with this signal ignored, and so would be what they start.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    config.addinivalue_line("markers", "sanitized: also run with the program that was built with sanitizers")


@pytest.fixture(scope="session")
def boxes():
    """Skips, and so counts, where a client host in a box cannot be had."""
    if os.geteuid() != 0:
        pytest.skip("only root enters a box from outside")
    with tempfile.TemporaryDirectory(dir=box.BUILD) as folder:
        for name in ("quarn", "opt"):
            (pathlib.Path(folder) / name).mkdir()
        probe = subprocess.run([REPO / "sandbox/box", "--tree", folder, "--", "true"], capture_output=True, check=False)
    if probe.returncode == box.CANNOT_BOX:
        pytest.skip(f"there are no boxes here: {probe.stderr.decode()}")
