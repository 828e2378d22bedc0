"""Fixtures of the packaging tests: the packages, and a Debian root of their own to install them in."""
import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPO / "tests/program"))

from box import BUILD, lay_tree  # noqa: E402

BASE = REPO / "build/package-root"
INCLUDED = "man-db,bash-completion,logrotate"


def step(name):
    """The command block of the README that is marked so."""
    readme = (REPO / "README.md").read_text()
    block = re.search(rf"<!-- run: {name} -->\n( *)```sh\n(.*?)```", readme, re.S)
    return re.sub(rf"^{block[1]}", "", block[2], flags=re.M)


def run(command, **options):
    result = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False, **options)
    assert result.returncode == 0, result.stdout[-3000:] + result.stderr[-3000:]
    return result


@pytest.fixture(scope="session")
def packages():
    """The folder of the packages, which the README's command builds."""
    run(["bash", "-ec", step("package")], cwd=REPO)
    return REPO / "build/package"


@pytest.fixture(scope="session")
def deb(packages):
    (package,) = packages.glob("*.deb")
    return package


def _archive():
    """Where apt gets this system's own packages from."""
    codename = re.search(r"^VERSION_CODENAME=(\S+)", pathlib.Path("/etc/os-release").read_text(), re.M)[1]
    targets = run(["apt-get", "indextargets", "--format", "$(RELEASE) $(REPO_URI)", "Created-By: Packages"]).stdout
    uris = [line.split()[1] for line in targets.splitlines() if line.split()[0] == codename]
    return codename, uris[0]


@pytest.fixture(scope="session")
def base():
    if os.geteuid() != 0:
        pytest.skip("only root can make a Debian root, and install a package there")
    done = BASE / "done"
    if not done.exists():
        shutil.rmtree(BASE, ignore_errors=True)
        codename, archive = _archive()
        run(["debootstrap", "--variant=minbase", f"--include={INCLUDED}", codename, BASE / "root", archive])
        done.touch()
    return BASE / "root"


class Root:
    """A Debian root, in which a command sees no process but its own."""

    def __init__(self, base, path):
        self.path = path
        run(["cp", "-a", "--reflink=auto", base, path])
        (path / "src").mkdir()

    def inside(self, path):
        return self.path / path.lstrip("/")

    def run(self, script, status=0, **env):
        settings = [word for name, value in env.items() for word in ("--setenv", name, value)]
        result = subprocess.run(
            ["bwrap", "--bind", self.path, "/", "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/run", "--unshare-pid",
             "--unshare-net", "--unshare-ipc", "--unshare-uts", "--cap-add", "ALL", "--die-with-parent", "--chdir", "/src",
             "--clearenv", "--setenv", "PATH", "/usr/sbin:/usr/bin:/sbin:/bin:/usr/quarn/corvane/bin", "--setenv", "HOME",
             "/root", "--setenv", "DEBIAN_FRONTEND", "noninteractive", *settings, "timeout", "200", "bash", "-ec", script],
            capture_output=True, text=True, errors="replace", check=False)
        assert result.returncode == status, result.stdout[-3000:] + result.stderr[-3000:]
        return result.stdout

    def lay_fleet(self, text):
        """Puts sample daemons into the product's tree, as the product's own installer would."""
        tree = lay_tree(BUILD, text, self.path / "tmp/tree")
        (tree / "quarn/corvane/bin/cvstop").unlink()
        (tree / "quarn/corvane/host.conf").unlink()
        shutil.rmtree(tree / "quarn/corvane/locale", ignore_errors=True)
        shutil.copytree(tree / "quarn", self.path / "usr/quarn", dirs_exist_ok=True)
        shutil.copytree(tree / "opt", self.path / "opt", dirs_exist_ok=True)
        shutil.rmtree(tree)

    def journal(self, kind):
        events = [line.split("\t") for line in self.inside("/usr/quarn/sandbox/journal").read_text().splitlines()]
        return [event[2:] for event in events if event[1] == kind]


@pytest.fixture
def root(base, tmp_path):
    made = Root(base, tmp_path / "root")
    yield made
    shutil.rmtree(made.path, ignore_errors=True)
