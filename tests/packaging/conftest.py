"""Fixtures of the packaging tests: the packages, and a Debian root of their own to install them in."""
import contextlib
import fcntl
import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

REPO = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(REPO / "tests/program"))
# Last: there is a conftest, too.
sys.path.append(str(REPO / "tests/hosts"))

import archive  # noqa: E402
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


PROCESSOR = subprocess.run(["dpkg", "--print-architecture"], capture_output=True, text=True, check=True).stdout.strip()
MACHINE = os.uname().machine
# Its byte order is the other one, where this machine is none of its kind.
FOREIGN, FOREIGN_MACHINE = ("s390x", "s390x") if PROCESSOR != "s390x" else ("amd64", "x86_64")
PROGRAMS = ("/usr/quarn/corvane/bin/cvstop", "/usr/sbin/cvstop-watch")


@contextlib.contextmanager
def alone(name):
    """While other processes of this run of the tests wait."""
    (REPO / "build").mkdir(exist_ok=True)
    with open(REPO / f"build/{name}.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


@pytest.fixture(scope="session")
def once(tmp_path_factory, testrun_uid):
    """Does something in the first process of this run that wants it; the others wait."""
    def do(name, work):
        done = tmp_path_factory.getbasetemp().parent / f"{name}-{testrun_uid}"
        with alone(name):
            if not done.exists():
                work()
                done.touch()
    return do


TREE = REPO / f"build/package/tree/{PROCESSOR}"


def link(static):
    """Links the programs in the tree of the packages, whose objects are the same either way."""
    run(["cmake", f"-DCVSTOP_STATIC={static}", TREE])
    run(["cmake", "--build", TREE])


def build_packages():
    run(["bash", "-ec", step("package")], cwd=REPO)
    # What an earlier version left, or one that was refused, is no package of this one.
    (REPO / f"build/package/tree/{PROCESSOR}/packed/cvstop_0.9.9_{PROCESSOR}.deb").write_text("an earlier one")
    run(["scripts/package", "--no-lint", "--objects", PROCESSOR, FOREIGN], cwd=REPO)
    link(static="OFF")
    dynamic = REPO / "build/package/dynamic"
    shutil.rmtree(dynamic, ignore_errors=True)
    run(["cpack", "--config", TREE / "CPackConfig.cmake", "-G", "DEB", "-B", dynamic])
    link(static="ON")


@pytest.fixture(scope="session")
def packages(once):
    """The folder of the packages, which the README's command builds; with those for a foreign processor."""
    once("packages", build_packages)
    return REPO / "build/package"


def only(packages, pattern):
    (package,) = packages.glob(pattern)
    return package


@pytest.fixture(scope="session")
def deb(packages):
    return only(packages, f"cvstop_*_{PROCESSOR}.deb")


@pytest.fixture(scope="session")
def rpm(packages):
    return only(packages, f"cvstop-*.{MACHINE}.rpm")


@pytest.fixture(scope="session")
def tarball(packages):
    return only(packages, f"cvstop-*-linux-{MACHINE}.tar.gz")


@pytest.fixture(scope="session")
def dynamic_deb(packages):
    """The same program, linked with the libc of the host."""
    return only(packages / "dynamic", "*.deb")


def skip_if_missing(codename):
    """Debootstrap says the same of what the archive does not have and of an archive that does not answer. This system's own
    Debian is always there."""
    if codename != archive.codename():
        try:
            archive.Archive(codename, PROCESSOR).look()
        except archive.Missing as missing:
            pytest.skip(f"the archive has no {codename} any more: {missing}")


def bootstrap(codename, folder, options):
    shutil.rmtree(folder, ignore_errors=True)
    return subprocess.run(["debootstrap", "--variant=minbase", *options, codename, folder / "root", archive.mirror()],
                          capture_output=True, text=True, check=False)


def debian(codename, folder, *options):
    """A root of that Debian, made once; a test that wants one which the archive no longer has is skipped."""
    if os.geteuid() != 0:
        pytest.skip("only root can make a Debian root, and install a package there")
    done = folder / "done"
    with alone(folder.name):
        if not done.exists():
            made = bootstrap(codename, folder, options)
            if made.returncode != 0:
                skip_if_missing(codename)
                # It does not ask again where a name was not resolved, or a connection refused for a moment.
                made = bootstrap(codename, folder, options)
            assert made.returncode == 0, made.stdout[-3000:] + made.stderr[-3000:]
            done.touch()
    return folder / "root"


@pytest.fixture(scope="session")
def base():
    return debian(archive.codename(), BASE, f"--include={INCLUDED}")


def mount_over(base, path):
    """Mounts a folder that shows the base, and keeps what is changed for itself. False where that is not allowed."""
    layers = [path.with_name(f"{path.name}-{layer}") for layer in ("changes", "work")]
    for folder in (path, *layers):
        folder.mkdir()
    options = "lowerdir={},upperdir={},workdir={}".format(base, *layers)
    mounted = subprocess.run(["mount", "-t", "overlay", "-o", options, "overlay", path], capture_output=True, check=False)
    return mounted.returncode == 0


class Root:
    """A Debian root, in which a command sees no process but its own. A copy of 200 MB takes longer than most tests."""

    def __init__(self, base, path):
        self.path = path
        self.is_mounted = mount_over(base, path)
        if not self.is_mounted:
            run(["cp", "-a", "--reflink=auto", f"{base}/.", path])
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

    def contents(self, folder):
        """What lies below a folder, logs apart."""
        top = self.inside(folder)
        return {str(path.relative_to(top)): path.read_bytes() for path in top.rglob("*")
                if path.is_file() and "logs" not in path.parts}

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

    def remove(self):
        if not self.is_mounted:
            shutil.rmtree(self.path.parent, ignore_errors=True)
            return
        run(["umount", "--lazy", self.path])
        # The folder itself stays. To remove it would take the mount away from every namespace (rmdir(2), "EBUSY"), and a box
        # that is being made beside this test has just copied all mounts of this machine, to mount each once more.
        for entry in self.path.parent.iterdir():
            if entry.is_dir() and entry != self.path:
                shutil.rmtree(entry, ignore_errors=True)


@pytest.fixture
def root(base, tmp_path):
    made = Root(base, tmp_path / "root")
    yield made
    made.remove()
