"""The packages for other processors: refused where they do not belong. And what scripts/package asks of each package before it
goes on: that its programs are hardened, need no library, and are small."""
import importlib.util
import os
import re
import subprocess

import pytest

from conftest import FOREIGN, FOREIGN_MACHINE, PROCESSOR, REPO, only, run


CHECK = REPO / "packaging/check.py"
SPEC = importlib.util.spec_from_file_location("check", CHECK)
check = importlib.util.module_from_spec(SPEC)
SPEC.loader.exec_module(check)


@pytest.fixture
def foreign_deb(packages):
    return only(packages, f"cvstop_*_{FOREIGN}.deb")


@pytest.fixture
def foreign_rpm(packages):
    return only(packages, f"cvstop-*.{FOREIGN_MACHINE}.rpm")


def test_packages_may_be_handed_out(packages):
    """All that were built: at least this machine's, and one whose byte order is another."""
    built = {re.search(r"_(\w+)\.deb$", deb.name)[1]: deb for deb in packages.glob("*.deb")}
    assert {PROCESSOR, FOREIGN} <= set(built)
    for processor, deb in built.items():
        run([CHECK, processor, deb, packages / "tree" / processor])


def link(folder, *options):
    """A program that is hardened but for what the options say."""
    (folder / "main.cpp").write_text('#ifdef WRITABLE\nasm(".section .code,\\"awx\\"\\n.byte 0\\n.previous");\n#endif\n'
                                     "int main() { return 0; }\n")
    run(["g++", "-fPIE", "-static-pie", "-Wl,-z,relro,-z,now,-z,noexecstack", *options, "-o", folder / "program",
         folder / "main.cpp"])
    return folder / "program"


@pytest.mark.parametrize("options, fault", [
    ([], None), (["-static", "-no-pie"], "is not position-independent"), (["-pie"], "needs a loader"),
    (["-pie"], "needs a library"), (["-Wl,-z,norelro"], "can have its relocations written over"),
    (["-Wl,-z,execstack"], "has an executable stack"), (["-Wl,-z,lazy"], "binds what it calls later"),
    (["-DWRITABLE"], "has code that can be written over")])
def test_program_that_is_not_hardened_is_refused(tmp_path, options, fault):
    faults = check.faults_of_program(link(tmp_path, *options), PROCESSOR)
    assert [text.partition(": ")[2] for text in faults if fault is None or fault in text] == ([fault] if fault else []), faults


def test_program_for_another_processor_is_refused(tmp_path):
    assert any("is for another processor" in fault for fault in check.faults_of_program(link(tmp_path), FOREIGN))


@pytest.mark.parametrize("processor", check.LARGEST_PAGE)
def test_program_that_does_not_load_where_pages_are_large_is_refused(tmp_path, monkeypatch, processor):
    monkeypatch.setitem(check.MACHINES, processor, check.MACHINES[PROCESSOR])
    for page, expected in (("0x1000", 1), ("0x10000", 0)):
        faults = check.faults_of_program(link(tmp_path, f"-Wl,-z,max-page-size={page}"), processor)
        assert sum("where pages are large" in fault for fault in faults) == expected, (page, faults)


@pytest.mark.parametrize("options, fault", [
    (["-O2", "-fstack-protector-strong", "-D_FORTIFY_SOURCE=2"], []),
    (["-O2", "-fno-stack-protector", "-D_FORTIFY_SOURCE=2"], ["no stack protector"]),
    (["-O2", "-fstack-protector-strong", "-U_FORTIFY_SOURCE"], ["no fortification"])])
def test_code_that_is_not_protected_is_noticed(tmp_path, options, fault):
    (tmp_path / "code.cpp").write_text(
        "#include <unistd.h>\nlong take(int fd, char* to, unsigned long size);\n"
        "long take(int fd, char* to, unsigned long size) {\n"
        "    char part[16];\n    const long got = read(fd, part, size);\n    *to = part[got & 15];\n    return got;\n}\n")
    run(["g++", *options, "-c", "-o", tmp_path / "code.o", tmp_path / "code.cpp"])
    assert [text.partition(": ")[2] for text in check.faults_of_objects(tmp_path)] == fault


def test_package_that_is_too_large_is_refused(packages, deb, tmp_path):
    run(["dpkg-deb", "-R", deb, tmp_path / "tree"])
    (tmp_path / "tree/usr/share/doc/cvstop/noise").write_bytes(os.urandom(check.LARGEST))
    run(["dpkg-deb", "--root-owner-group", "-b", tmp_path / "tree", tmp_path / "large.deb"])
    refused = subprocess.run([CHECK, PROCESSOR, tmp_path / "large.deb", packages / "tree" / PROCESSOR], capture_output=True,
                             text=True, check=False)
    assert refused.returncode == 1 and f"which is more than {check.LARGEST}" in refused.stderr


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
