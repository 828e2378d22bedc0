"""The tests' own Debian roots: one that the archive no longer has is skipped. Whatever else keeps one from being made is a
failure, and so is whatever keeps this system's own from it."""
import os

import pytest

import conftest
import test_harness
from archive import Unanswered, codename
from test_harness import mirror  # noqa: F401  the archive that these roots are made from

pytestmark = [pytest.mark.usefixtures("mirror"), pytest.mark.skipif(os.geteuid() != 0, reason="only root can make a Debian root")]
OTHER = "buster"
SKIPPED = pytest.skip.Exception


@pytest.fixture
def end_of(tmp_path, monkeypatch):
    """How a test that wants that Debian ends."""
    monkeypatch.setenv("no_proxy", "127.0.0.1")
    monkeypatch.setattr(conftest.archive, "TRUST", test_harness.SIGNED)

    def end(suite):
        with pytest.raises((AssertionError, Unanswered, SKIPPED)) as ended:
            conftest.debian(suite, tmp_path / "made")
        return ended.type

    return end


def test_debian_that_the_archive_has_not_is_skipped(end_of):
    assert end_of(OTHER) is SKIPPED


def test_debian_of_this_system_is_never_skipped(end_of):
    assert end_of(codename()) is AssertionError


@pytest.mark.parametrize("error", [403, 503])
def test_archive_that_refuses_is_a_failure(end_of, monkeypatch, error):
    monkeypatch.setattr(test_harness.Server, "error", error)
    assert end_of(OTHER) is Unanswered


def test_archive_that_is_not_reached_is_a_failure(end_of, monkeypatch):
    monkeypatch.setattr(conftest.archive, "mirror", lambda: "http://127.0.0.1:9")
    assert end_of(OTHER) is Unanswered


def test_debian_that_the_archive_has_and_that_is_not_made_is_a_failure(end_of, monkeypatch, mirror):  # noqa: F811
    """Nobody has signed it, which debootstrap refuses."""
    monkeypatch.setattr(test_harness, "SUITE", OTHER)
    mirror.publish("1.1")
    monkeypatch.setattr(conftest.archive, "TRUST", test_harness.TRUSTED)
    assert end_of(OTHER) is AssertionError
