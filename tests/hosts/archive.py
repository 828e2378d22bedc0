"""Packages of any suite and processor, from the archive that this machine gets its own from. Nothing is installed."""
import contextlib
import fcntl
import functools
import os
import pathlib
import re
import subprocess

REPO = pathlib.Path(__file__).resolve().parents[2]
FOLDER = REPO / "build/hosts/archive"
TRUST = "signed-by=/usr/share/keyrings/debian-archive-keyring.gpg"
# How apt says that the archive answered, and does not have the suite, the package or the file.
ABSENT = re.compile(r"Unable to locate package|No packages found|does not have a Release file|Failed to fetch \S+  404 ")


class Missing(Exception):
    """The archive does not have it, or has it no longer."""


class Unanswered(Exception):
    """The archive did not answer, or not as it should: nothing is known of what it has."""


def _run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, "LC_ALL": "C"}, **options)


@functools.cache
def codename():
    """This system's, as the archive names its suites."""
    return re.search(r"^VERSION_CODENAME=(\S+)", pathlib.Path("/etc/os-release").read_text(), re.M)[1]


@functools.cache
def mirror():
    """Where apt gets this system's own packages from."""
    targets = _run(["apt-get", "indextargets", "--format", "$(RELEASE) $(REPO_URI)", "Created-By: Packages"]).stdout
    return next(uri for release, uri in map(str.split, targets.splitlines()) if release == codename())


@functools.cache
def native():
    """This machine's processor, as Debian names it."""
    return _run(["dpkg", "--print-architecture"]).stdout.strip()


@contextlib.contextmanager
def locked(folder):
    """Two runs at once want the same files."""
    folder.mkdir(parents=True, exist_ok=True)
    with open(folder / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


class Archive:
    """The packages of one suite for one processor."""

    def __init__(self, suite, processor):
        self.suite = suite
        self.folder = FOLDER / f"{suite}-{processor}"
        self.options = [word for setting in (
            f"Dir::Etc::sourcelist={self.folder}/sources.list", "Dir::Etc::sourceparts=/dev/null", f"Dir::State={self.folder}",
            f"Dir::State::lists={self.folder}/lists", f"Dir::State::status={self.folder}/status",
            f"Dir::Cache={self.folder}/cache", f"APT::Architecture={processor}", f"APT::Architectures::={processor}",
            "Acquire::Languages=none", "APT::Sandbox::User=root") for word in ("-o", setting)]

    def _apt(self, *command, **options):
        result = _run([command[0], *self.options, *command[1:]], **options)
        if result.returncode != 0:
            said = result.stderr.strip().replace(mirror(), "…")
            raise (Missing if ABSENT.search(said) else Unanswered)(f"{self.suite}: {' '.join(command)}: {said[-500:]}")
        return result.stdout

    def _update(self):
        """Reads the archive's index."""
        for name in ("lists/partial", "cache/archives/partial"):
            (self.folder / name).mkdir(parents=True, exist_ok=True)
        (self.folder / "status").touch()
        (self.folder / "sources.list").write_text(f"deb [{TRUST}] {mirror()} {self.suite} main\n")
        self._apt("apt-get", "-qq", "update", "--error-on=any")
        (self.folder / "ready").touch()

    def look(self):
        """Asks whether the suite is there: it is Missing, or the archive Unanswered, or all is well."""
        with locked(self.folder):
            self._update()

    def _dependency(self, package, beginning):
        """The name of the package that one needs directly and that begins so."""
        needed = re.findall(r"^ *Depends: (\S+)", self._apt("apt-cache", "depends", package), re.M)
        (name,) = (name for name in needed if name.startswith(beginning))
        return name

    def _unpack(self, package):
        version = re.search(r"^Version: (\S+)", self._apt("apt-cache", "show", "--no-all-versions", package), re.M)[1]
        target = self.folder / f"{package}_{version}"
        if not target.exists():
            self._apt("apt-get", "-qq", "download", package, cwd=self.folder)
            (deb,) = self.folder.glob(f"{package}_*.deb")
            subprocess.run(["dpkg-deb", "-x", deb, target.with_suffix(".part")], check=True)
            target.with_suffix(".part").rename(target)
            deb.unlink()
        return target, version

    def unpacked(self, package, dependency=None):
        """A folder with the files of the package, or of the one that it needs whose name begins so; and the version. The index
        that was read once is asked first; what is missing is missing by a fresh one."""
        def unpack():
            return self._unpack(self._dependency(package, dependency) if dependency else package)

        with locked(self.folder):
            if (self.folder / "ready").exists():
                with contextlib.suppress(Missing):
                    return unpack()
            self._update()
            return unpack()
