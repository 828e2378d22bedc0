"""The archive's scripts for another system's root: they change that and nothing else, and leave to its packages what is theirs,
although its programs may not run here."""
import os
import shutil
import subprocess

import pytest

from conftest import run
from test_package import BIN, USAGE, configure, install
from test_tarball import CLEAN, INSTALL, REMOVE, lay_rpm, packaged, unpack  # noqa: F401  a fixture is among them

LOADERS = ("ld-linux*.so.*", "ld64.so.*")


@pytest.fixture
def unpacked(tarball, tmp_path):
    """The folder of the archive, outside the root."""
    run(["tar", "-xzf", tarball, "-C", tmp_path])
    folder, = tmp_path.glob("cvstop-*")
    return folder


def asked(script, *words, **options):
    """Status, and all that is said."""
    ended = subprocess.run([script, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    return ended.returncode, ended.stdout


def make_foreign(root):
    """Nothing that is linked with libc runs there then, as if it were another processor's."""
    for pattern in LOADERS:
        for loader in root.inside("/usr/lib").rglob(pattern):
            loader.unlink()
        for loader in root.path.glob(f"lib*/{pattern}"):
            loader.unlink()
    assert asked("chroot", root.path, "/usr/bin/true")[0] != 0


def everything(folder):
    return {path: path.read_bytes() for path in folder.rglob("*") if path.is_file() and not path.is_symlink()}


def test_relative_root_is_where_the_caller_stands(root, tarball):
    root.run("mkdir -p /srv/elsewhere/other\n" + unpack(root, tarball))
    root.run("cd /srv/elsewhere; CDPATH=/ " + INSTALL.replace("\n", " other\n"))
    assert root.inside(f"/srv/elsewhere/other{BIN}/cvstop").exists() and not root.inside(f"{BIN}/cvstop").exists()
    root.run(f"cd /srv/elsewhere; other{REMOVE} other")
    assert list(root.inside("/srv/elsewhere/other/usr").rglob("*cvstop*")) == []
    assert not root.inside("/srv/elsewhere/other/usr/quarn").exists()


@pytest.mark.parametrize("name", ["/srv/mistyped", "mistyped", "''", "/srv/file"])
def test_root_that_is_no_folder_is_told_and_not_made(root, tarball, name):
    root.run(unpack(root, tarball) + INSTALL + "touch /srv/file")
    before = root.contents("/usr/quarn")
    for script in (INSTALL.strip(), REMOVE):
        told = root.run(f"cd /srv; {script} {name} 2>&1 || echo refused\n")
        assert told == f"cvstop: there is no folder {name.strip(chr(39))}\nrefused\n"
    assert root.contents("/usr/quarn") == before and os.listdir(root.inside("/srv")) == ["file"]


@pytest.mark.parametrize("foreign", [False, True])
def test_another_system_is_installed_upgraded_and_removed(root, unpacked, foreign):
    if foreign:
        make_foreign(root)
    before = everything(root.path)
    for _ in "install", "upgrade":
        status, told = asked(unpacked / "install", root.path)
        assert (status, told) == (0, f"cvstop is installed: see {root.path}/usr/share/doc/cvstop, and man cvstop\n")
    if not foreign:
        configure(root)
        assert root.run("cvstop -h") == USAGE.format("cvstop")
        root.inside("/usr/quarn/corvane/host.conf").unlink()
    assert asked(root.inside(REMOVE), root.path) == (0, "")
    assert {path.name for path in set(everything(root.path)) - set(before)} <= {"cvstop", "cvstop.log"}


@pytest.mark.parametrize("foreign", [False, True])
def test_packages_of_another_system_are_left_to_it(root, unpacked, packaged, foreign):  # noqa: F811
    root.run(packaged[0])
    if foreign:
        make_foreign(root)
    before = everything(root.path)
    status, told = asked(unpacked / "install", root.path)
    assert status != 0 and told.startswith(f"cvstop: {root.path}{BIN}/cvstop belongs to a package")
    after = everything(root.path)
    assert {path for path in after if after[path] != before.get(path) and ".rpmdb" not in path.parts} == set()


@pytest.mark.parametrize("foreign", [False, True])
def test_removal_leaves_a_later_package_of_another_system(root, tarball, packaged, foreign):  # noqa: F811
    root.run(unpack(root, tarball) + INSTALL + CLEAN + packaged[0])
    before = root.contents("/usr/quarn/corvane/bin")
    if foreign:
        make_foreign(root)
    status, told = asked(root.inside(REMOVE), root.path)
    assert status == 0 and f"\n  {root.path}{BIN}/cvstop\n" in told
    assert not root.inside(REMOVE).exists() and REMOVE not in told
    assert root.contents("/usr/quarn/corvane/bin") == before


@pytest.mark.parametrize("folder", ["/var/lib/rpm", "/usr/lib/sysimage/rpm", "/usr/share/rpm"])
def test_rpm_database_is_asked_wherever_it_lies(root, unpacked, rpm, folder):
    lay_rpm(root)
    root.run(install(root, rpm, "cvstop.rpm").replace("dpkg -i", "rpm -i --nodeps")
             + f"rm -rf {folder}; mkdir -p {os.path.dirname(folder)}; mv /root/.rpmdb {folder}")
    for make in (lambda _: None, make_foreign):
        make(root)
        status, told = asked(unpacked / "install", root.path)
        assert status != 0 and "belongs to a package" in told


@pytest.mark.parametrize("database", ["var/lib/rpm/Packages", "var/lib/rpm/rpmdb.sqlite", "usr/lib/sysimage/rpm/Packages.db"])
def test_rpm_database_that_nothing_here_reads_is_told_and_nothing_is_changed(unpacked, tmp_path, database):
    root = tmp_path / "root"
    (root / database).parent.mkdir(parents=True)
    (root / database).write_bytes(b"another rpm's")
    installed = root / REMOVE.lstrip("/")
    installed.with_name("installed").parent.mkdir(parents=True)
    installed.with_name("installed").write_text(f"{BIN}/cvstop\n")
    (root / BIN.lstrip("/")).mkdir()
    (root / BIN.lstrip("/") / "cvstop").write_text("a package's")
    for script in ("install", "remove"):
        status, told = asked(unpacked / script, root)
        assert status != 0 and told.startswith("cvstop: cannot tell what belongs to a package: ")
    assert (root / BIN.lstrip("/") / "cvstop").read_text() == "a package's" and not installed.exists()


@pytest.mark.parametrize("folder", ["/usr/quarn", "/usr/share/man", "/usr/lib/cvstop"])
def test_link_out_of_the_root_is_told_and_nothing_is_changed(unpacked, tmp_path, folder):
    root, here = tmp_path / "root", tmp_path / "here"
    root.mkdir()
    assert asked(unpacked / "install", root)[0] == 0
    # Of an older archive, so that an upgrade would remove it.
    (root / "usr/lib/cvstop").mkdir(parents=True)
    (root / "usr/lib/cvstop/old").write_text("this system's own")
    with open((root / REMOVE.lstrip("/")).with_name("installed"), "a", encoding="ascii") as installed:
        installed.write("/usr/lib/cvstop/old\n")
    link = root / folder.lstrip("/")
    shutil.move(link, here)
    link.symlink_to(here)
    for file in everything(here):
        if file.name != "installed":
            file.write_text("this system's own")
    before = everything(tmp_path)
    for script in ("install", "remove"):
        status, told = asked(unpacked / script, root)
        assert status == 1 and told.startswith(f"cvstop: {link}") and f" leads to {here}" in told
        assert told.endswith(f", which is no folder below {root}; nothing was changed\n")
        assert everything(tmp_path) == before


@pytest.mark.parametrize("target", ["/srv/nowhere/at/all", "quarn"])
def test_link_in_the_root_that_leads_nowhere_is_told_and_nothing_is_changed(unpacked, tmp_path, target):
    (tmp_path / "root/usr").mkdir(parents=True)
    link = tmp_path / "root/usr/quarn"
    link.symlink_to(target)
    for script in ("install", "remove"):
        assert asked(unpacked / script, tmp_path / "root") == (
            1, f"cvstop: {link} leads to {target}, which is no folder below {tmp_path}/root; nothing was changed\n")
    assert sorted((tmp_path / "root").rglob("*")) == [tmp_path / "root/usr", link]


def test_list_that_was_damaged_does_not_lead_out_of_the_root(unpacked, tmp_path):
    root, installed = tmp_path / "root", tmp_path / "root" / REMOVE.lstrip("/").replace("remove", "installed")
    installed.parent.mkdir(parents=True)
    for line in "beside", "/../here/file":
        installed.write_text(line + "\n")
        for file in tmp_path / "rootbeside", tmp_path / "here/file":
            file.parent.mkdir(exist_ok=True)
            file.write_text("this system's own")
        before = everything(tmp_path)
        for script in ("install", "remove"):
            status, told = asked(unpacked / script, root)
            assert status == 1 and told.endswith("; nothing was changed\n") and everything(tmp_path) == before


@pytest.mark.parametrize("target", ["../data/quarn", "{root}/data/quarn"])
@pytest.mark.parametrize("named", ["root", "another"])
def test_link_that_stays_in_the_root_is_followed(unpacked, tmp_path, target, named):
    data = tmp_path / "root/data/quarn"
    data.mkdir(parents=True)
    (tmp_path / "root/usr").mkdir()
    (tmp_path / "root/usr/quarn").symlink_to(target.format(root=tmp_path / "root"))
    (tmp_path / "another").symlink_to("root")
    for _ in "install", "upgrade":
        assert asked(unpacked / "install", tmp_path / named)[0] == 0
    assert (data / "corvane/bin/cvstop").is_file()
    assert asked(unpacked / "remove", tmp_path / named) == (0, "")
    assert list(data.iterdir()) == [] and (tmp_path / "root/usr/quarn").is_symlink()
