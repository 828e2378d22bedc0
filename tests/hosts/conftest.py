"""Fixtures of the tests that boot a host: the program tests' own `host`, on a whole machine instead of in a box."""
import collections
import os
import pathlib
import shutil
import sys
import uuid

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPO / "tests/program"))
pytest.register_assert_rewrite("box", "test_attacks", "test_languages", "test_lister", "test_output", "test_whole_table")

import box  # noqa: E402
import image  # noqa: E402
from archive import Missing  # noqa: E402
from client import Client, store  # noqa: E402
from inventory import HOSTS, KERNELS, WHOLE  # noqa: E402
from machine import Machine  # noqa: E402

WANTED = os.environ.get("CVSTOP_HOSTS", " ".join(HOSTS)).split()
WANTED_KERNELS = [name for name in WANTED if name in KERNELS]
collect_ignore = ["test_whole.py"] * (WHOLE.name not in WANTED) + ["test_hosts.py"] * (not WANTED_KERNELS)
# The tests of the tests: in the program's place stands one that does nothing, and says that all went well.
IDLE = os.environ.get("CVSTOP_HOSTS_IDLE") == "1"
# How a test fails for which the program did not do what it should. A host that does not boot is something else.
FAILURES = (AssertionError, LookupError, RuntimeError, ValueError)
# Where a host that the archive does not have is a failure.
ALL_THERE = IDLE or os.environ.get("CVSTOP_HOSTS_ALL_THERE") == "1"


def build_of(kernel):
    """Where scripts/hosts has put what is shipped for that processor, and the sample daemons."""
    return REPO / "build/hosts" / kernel.processor.name


def pytest_configure(config):
    config.addinivalue_line("markers", "sanitized: of the program tests, which are also run with sanitizers")


def pytest_collection_modifyitems(items):
    if IDLE:
        for item in items:
            if "machine" in item.fixturenames:
                item.add_marker(pytest.mark.xfail(strict=True, raises=FAILURES, reason="the program does nothing"))


@pytest.fixture(scope="session")
def boot():
    """Boots a host with what a function makes of the archive's packages, if the archive has them."""
    def booted(host, made):
        try:
            return Machine(host, *made())
        except Missing as missing:
            (pytest.fail if ALL_THERE else pytest.skip)(f"the archive does not have what {host.name} takes: {missing}")

    return booted


@pytest.fixture(scope="session", ids=WANTED_KERNELS,
                params=[pytest.param(KERNELS[name], marks=pytest.mark.xdist_group(name)) for name in WANTED_KERNELS])
def machine(request, boot):
    kernel = request.param
    booted = boot(kernel, lambda: image.build(kernel, store(build_of(kernel))))
    yield booted
    booted.close()


@pytest.fixture(scope="session")
def build_folder():
    return build_of


@pytest.fixture
def host(machine, request):
    """Makes client hosts for a test, all of them the one that was booted."""
    request.node.user_properties.append(("host", str(machine)))
    made = []

    def make(fleet=""):
        made.append(REPO / "build/hosts/trees" / uuid.uuid4().hex)
        client = Client(machine, build_of(machine.host), made[-1], fleet)
        if IDLE:
            client.install(client.build / "sandbox/sleeper", box.CVSTOP)
        return client

    yield make
    for folder in made:
        shutil.rmtree(folder)


def pytest_terminal_summary(terminalreporter):
    """What each host took: a test that boots one has its time, too."""
    seconds, tests = collections.Counter(), collections.Counter()
    for reports in list(terminalreporter.stats.values()):
        for report in reports:
            name = dict(getattr(report, "user_properties", ())).get("host")
            if name:
                seconds[name] += report.duration
                tests[name] += report.when == "call"
    for name in sorted(tests):
        terminalreporter.write_line(f"{name}: {tests[name]} tests, {seconds[name]:.0f} s")
