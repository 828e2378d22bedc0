"""The tests of the tests that boot: what the archive does not have is told from an archive that does not answer, and a run with a
program that does nothing from a host that does not boot."""
import functools
import hashlib
import http.server
import os
import pathlib
import shutil
import subprocess
import sys
import threading

import pytest

import archive
import inventory
from archive import Archive, Missing, Unanswered

HERE = pathlib.Path(__file__).parent
# As the real archive is trusted, and as one that nobody has signed can be.
SIGNED, TRUSTED = archive.TRUST, "trusted=yes"
SUITE, PACKAGE, METAPACKAGE = "bookworm", "linux-image-1", "linux-image-any"


class Server(http.server.SimpleHTTPRequestHandler):
    """What is there, and 404 for the rest; or one error for everything."""
    error = 0

    def send_head(self):
        if not self.error:
            return super().send_head()
        self.send_error(self.error)
        return None

    def log_message(self, *_):
        pass


def build(folder, package, version, needs=""):
    tree = folder / "tree"
    (tree / "DEBIAN").mkdir(parents=True)
    (tree / "boot").mkdir()
    (tree / "boot" / f"vmlinuz-{version}").write_text(version)
    (tree / "DEBIAN/control").write_text(
        f"Package: {package}\nVersion: {version}\nArchitecture: all\nMaintainer: tests <tests@example.invalid>\n"
        f"{needs}Description: for tests\n")
    deb = folder / f"{package}_{version}_all.deb"
    subprocess.run(["dpkg-deb", "-b", tree, deb], check=True, capture_output=True)
    shutil.rmtree(tree)
    control = subprocess.run(["dpkg-deb", "-f", deb], capture_output=True, text=True, check=True).stdout
    return (f"{control}Filename: {deb.name}\nSize: {deb.stat().st_size}\n"
            f"SHA256: {hashlib.sha256(deb.read_bytes()).hexdigest()}\n")


class Mirror:
    """An archive of one suite, and who asks it."""

    def __init__(self, folder, processor):
        self.folder, self.processor = folder, processor
        self.time = 1_700_000_000

    def publish(self, version):
        """Has this version alone."""
        for old in self.folder.glob("*.deb"):
            old.unlink()
        index = "\n".join((build(self.folder, PACKAGE, version),
                           build(self.folder, METAPACKAGE, version, f"Depends: {PACKAGE}\n"))).encode()
        suite = self.folder / "dists" / SUITE
        packages = suite / f"main/binary-{self.processor}/Packages"
        packages.parent.mkdir(parents=True, exist_ok=True)
        packages.write_bytes(index)
        (suite / "Release").write_text(
            f"Suite: {SUITE}\nCodename: {SUITE}\nArchitectures: {self.processor}\nComponents: main\nSHA256:\n"
            f" {hashlib.sha256(index).hexdigest()} {len(index)} {packages.relative_to(suite)}\n")
        # Asked for what is newer than what is kept, the server looks at seconds.
        self.time += 60
        os.utime(suite / "Release", (self.time, self.time))

    def ask(self, package=PACKAGE, suite=SUITE, **how):
        folder, version = Archive(suite, self.processor).unpacked(package, **how)
        return (folder / "boot" / f"vmlinuz-{version}").read_text()


@pytest.fixture
def mirror(tmp_path, monkeypatch):
    folder = tmp_path / "mirror"
    folder.mkdir()
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Server, directory=folder))
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    # Whatever this machine asks its own archive through.
    (tmp_path / "apt.conf").write_text('Acquire::http::Proxy::127.0.0.1 "DIRECT";\nAcquire::Retries "0";\n')
    monkeypatch.setenv("APT_CONFIG", str(tmp_path / "apt.conf"))
    monkeypatch.setattr(archive, "FOLDER", tmp_path / "kept")
    monkeypatch.setattr(archive, "TRUST", TRUSTED)
    monkeypatch.setattr(archive, "mirror", lambda: f"http://127.0.0.1:{server.server_port}")
    made = Mirror(folder, archive.native())
    made.publish("1.0")
    yield made
    server.shutdown()
    server.server_close()
    thread.join()


def test_package_is_taken_from_the_archive_once(mirror, monkeypatch):
    assert mirror.ask() == "1.0"
    monkeypatch.setattr(Server, "error", 503)
    assert mirror.ask() == "1.0"


def test_next_point_release_is_found_although_the_index_was_read_before(mirror):
    assert mirror.ask(METAPACKAGE) == "1.0"
    mirror.publish("1.1")
    # What is kept is kept; what is not leads to a fresh index.
    assert mirror.ask(METAPACKAGE) == "1.0"
    assert mirror.ask(METAPACKAGE, dependency="linux-image-") == "1.1"


def test_what_the_archive_has_not_is_missing(mirror):
    with pytest.raises(Missing):
        mirror.ask("linux-image-2")
    mirror.ask()
    mirror.publish("1.1")
    (mirror.folder / f"{METAPACKAGE}_1.1_all.deb").unlink()
    with pytest.raises(Missing):
        mirror.ask(METAPACKAGE)


def test_suite_that_the_archive_has_not_is_missing(mirror, monkeypatch):
    monkeypatch.setattr(archive, "TRUST", SIGNED)
    with pytest.raises(Missing):
        mirror.ask(suite="buster")


@pytest.mark.parametrize("trust", [SIGNED, TRUSTED])
@pytest.mark.parametrize("error", [403, 503])
def test_archive_that_refuses_is_not_one_that_has_nothing(mirror, monkeypatch, trust, error):
    monkeypatch.setattr(archive, "TRUST", trust)
    monkeypatch.setattr(Server, "error", error)
    with pytest.raises(Unanswered):
        mirror.ask()


@pytest.mark.parametrize("trust", [SIGNED, TRUSTED])
def test_archive_that_is_not_reached_is_not_one_that_has_nothing(mirror, monkeypatch, trust):
    monkeypatch.setattr(archive, "TRUST", trust)
    monkeypatch.setattr(archive, "mirror", lambda: "http://127.0.0.1:9")
    with pytest.raises(Unanswered):
        mirror.ask()


def test_archive_that_nobody_has_signed_is_not_one_that_has_nothing(mirror, monkeypatch):
    monkeypatch.setattr(archive, "TRUST", SIGNED)
    with pytest.raises(Unanswered):
        mirror.ask()


def test_package_that_was_damaged_on_its_way_is_not_missing(mirror):
    deb = mirror.folder / f"{PACKAGE}_1.0_all.deb"
    deb.write_bytes(b"x" * deb.stat().st_size)
    with pytest.raises(Unanswered):
        mirror.ask()


# --- the run with a program that does nothing

RUN = """
import archive
import machine as hosts
import pytest


@pytest.fixture(scope="session")
def machine():
    {setup}


@pytest.fixture
def host(machine):
    return None


def test_something(host):
    {call}
"""


def run_pytest(folder, text, **settings):
    (folder / "test_run.py").write_text(text)
    environment = {**os.environ, "PYTHONPATH": str(HERE), "PYTEST_ADDOPTS": "", "CVSTOP_HOSTS": "debian11-amd64",
                   "CVSTOP_HOSTS_IDLE": "0", "CVSTOP_HOSTS_ALL_THERE": "0", **settings}
    return subprocess.run([sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", "-p", "conftest", "-c", "/dev/null",
                           "--rootdir", folder, folder], env=environment, capture_output=True, text=True, check=False)


@pytest.mark.parametrize("setup, call, passes", [
    ("pass", "assert False", True), ("pass", "raise RuntimeError('the box ended with 97')", True), ("pass", "pass", False),
    ("raise hosts.Broken('does not boot')", "assert False", False), ("pass", "raise hosts.Broken('ended')", False),
    ("raise archive.Unanswered('no')", "assert False", False), ("raise FileNotFoundError('qemu')", "assert False", False)])
def test_idle_run_passes_where_a_test_fails_and_not_where_a_host_does(tmp_path, setup, call, passes):
    run = run_pytest(tmp_path, RUN.format(setup=setup, call=call), CVSTOP_HOSTS_IDLE="1")
    assert (run.returncode == 0) == passes, run.stdout + run.stderr


# The fixtures are the real ones.
MISSING = """
import archive
import conftest
import image


def missing(*_):
    raise archive.Missing("no longer there")


image.build, conftest.store = missing, missing


def test_something(machine):
    pass
"""


@pytest.mark.parametrize("settings, passes", [({}, True), ({"CVSTOP_HOSTS_ALL_THERE": "1"}, False),
                                              ({"CVSTOP_HOSTS_IDLE": "1"}, False)])
def test_host_that_the_archive_has_not_is_skipped_unless_all_must_be_there(tmp_path, settings, passes):
    run = run_pytest(tmp_path, MISSING, **settings)
    assert (run.returncode == 0) == passes and ("1 skipped" in run.stdout) == passes, run.stdout + run.stderr


def test_idle_run_leaves_out_the_whole_host():
    assert inventory.idle(()) == tuple(inventory.KERNELS)
    assert inventory.idle(("debian11-amd64",)) == ("debian11-amd64",)
    with pytest.raises(SystemExit):
        inventory.idle(("debian11-amd64", inventory.WHOLE.name))


def test_whole_host_is_made_with_packages_that_the_others_do_not_need():
    assert inventory.packages([inventory.WHOLE]) == ("qemu-system-x86", "debootstrap", "e2fsprogs")
    assert "debootstrap" in inventory.packages(inventory.asked_for(()))
    assert inventory.packages(inventory.asked_for(("debian12-amd64", "debian11-amd64"))) == ("qemu-system-x86",)
