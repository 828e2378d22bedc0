"""The packages for other processors: refused where they do not belong, and their programs as hardened as this machine's."""
import re
import subprocess

import pytest

from conftest import FOREIGN, FOREIGN_MACHINE, PROCESSOR, PROGRAMS, only

pytestmark = pytest.mark.xdist_group("packages")

MACHINES = {"amd64": "Advanced Micro Devices X86-64", "arm64": "AArch64", "ppc64el": "PowerPC64", "s390x": "IBM S/390"}
# Where libc's static form can be loaded at any address.
POSITION_INDEPENDENT = ("amd64", "arm64")


@pytest.fixture
def foreign_deb(packages):
    return only(packages, f"cvstop_*_{FOREIGN}.deb")


@pytest.fixture
def foreign_rpm(packages):
    return only(packages, f"cvstop-*.{FOREIGN_MACHINE}.rpm")


def readelf(program, option):
    return subprocess.run(["readelf", "-W", option, program], capture_output=True, text=True, check=True).stdout


def assert_is_hardened(program, processor):
    header = readelf(program, "-h")
    assert MACHINES[processor] in header
    assert ("DYN (Position-Independent" if processor in POSITION_INDEPENDENT else "EXEC (Executable") in header
    segments = {line.split()[0]: line.split() for line in readelf(program, "-l").splitlines() if "0x" in line}
    assert "GNU_RELRO" in segments and "INTERP" not in segments
    assert segments["GNU_STACK"][6] == "RW", "the stack is not executable"
    assert not [line for line in readelf(program, "-l").splitlines() if re.search(r"LOAD .* RWE ", line)]
    assert "(NEEDED)" not in readelf(program, "-d")


def test_programs_are_hardened_and_need_no_library_on_any_processor(packages, tmp_path):
    seen = set()
    for package in packages.glob("*.deb"):
        processor = re.search(r"_(\w+)\.deb$", package.name)[1]
        seen.add(processor)
        subprocess.run(["dpkg-deb", "-x", package, tmp_path / processor], check=True)
        for program in PROGRAMS:
            assert_is_hardened(tmp_path / processor / program.lstrip("/"), processor)
    assert {PROCESSOR, FOREIGN} <= seen


def test_dpkg_refuses_a_foreign_package(root, foreign_deb):
    root.inside("/src/foreign.deb").write_bytes(foreign_deb.read_bytes())
    told = root.run("dpkg -i foreign.deb 2>&1 || echo refused")
    assert f"package architecture ({FOREIGN}) does not match system ({PROCESSOR})" in told and told.endswith("refused\n")
    assert not root.inside("/usr/quarn").exists()


def test_rpm_refuses_a_foreign_package(tmp_path, foreign_rpm):
    told = subprocess.run(["rpm", "--root", tmp_path, "--nodeps", "-i", foreign_rpm], capture_output=True, text=True,
                          check=False)
    assert told.returncode != 0 and "is intended for a different architecture" in told.stderr
    assert not (tmp_path / "usr/quarn").exists()


def test_install_refuses_a_foreign_archive(root, packages):
    archive = only(packages, f"cvstop-*-linux-{FOREIGN_MACHINE}.tar.gz")
    root.inside("/src/foreign.tar.gz").write_bytes(archive.read_bytes())
    told = root.run("mkdir /usr/quarn; tar -xzf foreign.tar.gz -C /usr/quarn; /usr/quarn/cvstop-*/install 2>&1 || echo refused")
    assert f"this archive is for {FOREIGN_MACHINE}, and this host is" in told and told.endswith("refused\n")
    assert not root.inside("/usr/quarn/corvane").exists()
