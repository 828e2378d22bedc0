"""Fixtures of the program tests: the real program in a box with real processes."""
import os
import random
import subprocess
import uuid

import pytest

import box


def pytest_configure(config):
    config.addinivalue_line("markers", "sanitized: also run with the program that was built with sanitizers")


# What measures the process that the test starts, and would measure the watcher.
NOT_THROUGH = {
    "test_binary": "looks at the file of the program, and at the calls of one process",
    "test_box": "is about the box",
    "test_faults": "makes calls of one process fail",
    "test_kernel_that_cannot_tell_the_mount_of_a_file_is_told_apart": "makes calls of one process fail",
    "test_filter_that_lets_no_thread_begin_leaves_the_table_unread": "refuses calls of one process",
    "test_stuck": "gives the program the time of one listing",
    "test_watch": "is about the watcher already",
    "test_little_memory_is_an_end_or_a_whole_listing": "limits the memory of the process that it starts",
    "test_few_descriptors_are_an_error_or_a_whole_listing": "leaves fewer descriptors than two programs need",
    "test_stranger_costs_one_system_call": "counts the calls of one process",
    "test_interpreters_that_have_erased_their_arguments_hold_up_nobody": "counts the calls of one process",
}


def _reason_not_through(item):
    return next((reason for name, reason in NOT_THROUGH.items()
                 if name == item.originalname or item.path.stem.startswith(name)), None)


def pytest_collection_modifyitems(items):
    """Tests may run in any order; CVSTOP_TEST_SEED chooses one."""
    if box.THROUGH:
        for item in items:
            if reason := _reason_not_through(item):
                item.add_marker(pytest.mark.skip(reason=reason))
    if seed := os.environ.get("CVSTOP_TEST_SEED"):
        random.Random(seed).shuffle(items)


def _sandbox_fault():
    folder = box.BUILD / "sandbox-trees" / f"probe-{uuid.uuid4().hex}"
    for name in ("quarn", "opt"):
        (folder / name).mkdir(parents=True)
    probe = subprocess.run([box.REPO / "sandbox/box", "--tree", folder, "--", "true"], capture_output=True, check=False)
    subprocess.run(["rm", "-rf", folder], check=True)
    return probe.stderr.decode() if probe.returncode == box.CANNOT_BOX else None


@pytest.fixture(scope="session")
def sandbox():
    fault = _sandbox_fault()
    if fault is None:
        return
    if os.environ.get("CVSTOP_ALLOW_SANDBOX_SKIP") == "1":
        pytest.skip(f"the sandbox cannot be built here: {fault}")
    pytest.fail(f"the sandbox cannot be built here (CVSTOP_ALLOW_SANDBOX_SKIP=1 skips these tests): {fault}")


@pytest.fixture
def host(sandbox, request):
    """Makes client hosts for a test, each in a tree of its own below the build folder."""
    made = []

    def make(fleet=""):
        name = "".join(c if c.isalnum() else "-" for c in request.node.name)[:60]
        made.append(box.BUILD / "sandbox-trees" / f"{name}-{uuid.uuid4().hex[:8]}")
        return box.Host(made[-1], fleet)

    yield make
    failed = getattr(request.node, "failed", False)
    for tree in made:
        counts = tree / "opt/coverage"
        if counts.is_dir():
            runs = box.BUILD.with_name(f"{box.BUILD.name}-runs")
            runs.mkdir(exist_ok=True)
            counts.rename(runs / tree.name)
        if not failed:
            subprocess.run(["rm", "-rf", tree], check=True)


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    # The tree of a failed test stays, for whoever looks into it.
    if call.when == "call" and outcome.get_result().failed:
        item.failed = True
