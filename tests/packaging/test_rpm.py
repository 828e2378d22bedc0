"""The .rpm in a root that has nothing else: upgraded, cut short, on a read-only /usr. Nothing is lost."""
import os
import subprocess

import pytest

from conftest import PROCESSOR, only, run
from test_package import BIN, EXCLUDE_LIST, HOST_CONF, USAGE


ROTATION = "/etc/logrotate.d/cvstop"
MINE = {HOST_CONF: "[host]\nrole = client\nname = mine\n", EXCLUDE_LIST: f"{BIN}/momuhe\n", ROTATION: "# mine\n"}


def as_root_of(folder, *words):
    """Runs one program in a root where there is no other, not even a shell."""
    return subprocess.run(["bwrap", "--bind", folder, "/", "--dev", "/dev", "--proc", "/proc", "--unshare-pid", "--unshare-net",
                           "--cap-add", "ALL", "--die-with-parent", "--clearenv", *words],
                          capture_output=True, text=True, check=False)


class RpmRoot:
    def __init__(self, path):
        self.path = path

    def inside(self, path):
        return self.path / path.lstrip("/")

    def rpm(self, *words, around=()):
        return subprocess.run([*around, "rpm", "--root", self.path, *words], capture_output=True, text=True, check=False)

    def rpm_with_read_only_usr(self, *words):
        usr = self.inside("/usr")
        return self.rpm(*words, around=("bwrap", "--dev-bind", "/", "/", "--ro-bind", usr, usr))

    def run(self, *words):
        shown = as_root_of(self.path, *words)
        return shown.returncode, shown.stdout

    def contents(self):
        return {path: path.read_bytes() for folder in ("etc", "usr") for path in (self.path / folder).rglob("*")
                if path.is_file() and not path.is_symlink() and "logs" not in path.parts}


@pytest.fixture
def empty_root(tmp_path):
    if os.geteuid() != 0:
        pytest.skip("only root can install a package")
    for folder in ("dev", "proc"):
        (tmp_path / "root" / folder).mkdir(parents=True)
    return RpmRoot(tmp_path / "root")


@pytest.fixture
def installed(empty_root, rpm):
    """A root where it is installed, and where an administrator wrote files."""
    assert empty_root.rpm("-i", rpm).returncode == 0
    for path, text in MINE.items():
        empty_root.inside(path).write_text(text)
    return empty_root


@pytest.fixture(scope="module")
def newer(packages, tmp_path_factory):
    """The same package as a later release."""
    folder = tmp_path_factory.mktemp("newer")
    run(["cpack", "--config", packages / "tree" / PROCESSOR / "CPackConfig.cmake", "-G", "RPM", "-D",
         "CPACK_PACKAGE_VERSION=9.0", "-D", "CPACK_RPM_PACKAGE_VERSION=9.0", "-B", folder])
    return only(folder, "*.rpm")


def assert_nothing_is_lost(root, before):
    assert root.contents() == before
    assert root.rpm("-q", "cvstop").stdout.startswith("cvstop-1.")
    program = f"{BIN}/cvstop"
    assert root.run(program, "-h") == (0, USAGE.format(program))


def test_installed_run_and_removed(empty_root, rpm):
    root, program = empty_root, f"{BIN}/cvstop"
    # Whatever else is installed: nothing is.
    assert root.rpm("-i", rpm).returncode == 0
    assert root.rpm("-V", "cvstop").stdout == ""
    assert root.run(program, "-h")[0] == 110
    root.inside(HOST_CONF).write_bytes(root.inside(HOST_CONF + ".example").read_bytes())
    assert root.run(program, "-h") == (0, USAGE.format(program))
    assert root.run(program, "-l") == (0, "")
    assert root.rpm("-e", "cvstop").returncode == 0
    assert not root.inside(program).exists() and root.inside(HOST_CONF).exists()


def test_upgrade_keeps_what_the_administrator_wrote(installed, newer):
    assert installed.rpm("-U", newer).returncode == 0
    assert installed.rpm("-q", "cvstop").stdout.startswith("cvstop-9.0-")
    assert {path: installed.inside(path).read_text() for path in MINE} == MINE


@pytest.mark.parametrize("share", [0.1, 0.5, 0.99])
def test_package_that_was_cut_short_is_refused_and_nothing_is_lost(installed, newer, tmp_path, share):
    before = installed.contents()
    whole, short = newer.read_bytes(), tmp_path / "short.rpm"
    short.write_bytes(whole[:int(len(whole) * share)])
    refused = installed.rpm("-U", short)
    assert refused.returncode != 0 and "digest: BAD" in refused.stderr
    assert_nothing_is_lost(installed, before)


# rpm itself takes a read-only file system for a full one.
@pytest.mark.parametrize("options, told", [([], "more space on the"), (["--ignoresize"], "Read-only file system")])
def test_read_only_usr_is_told_and_nothing_is_lost(installed, newer, options, told):
    before = installed.contents()
    refused = installed.rpm_with_read_only_usr("-U", *options, newer)
    assert refused.returncode != 0 and told in refused.stderr
    assert_nothing_is_lost(installed, before)
