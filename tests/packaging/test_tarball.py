"""The archive for hosts without a package of ours: installed, used, upgraded, removed. It stops nothing and loses nothing, and
what is damaged changes nothing. And the archive of object files, which makes the programs again."""
import os
import re
import shutil
import subprocess

import pytest

from box import ALL, LOG, until_logged
from conftest import MACHINE, PROGRAMS, only, run
from test_package import (BIN, EXCLUDE_LIST, FLEET, HOST_CONF, READ_ONLY_USR, RUNNING, START, USAGE, configure, files_of_deb,
                          install)


ROTATION = "/etc/logrotate.d/cvstop"
REMOVE = "/usr/quarn/corvane/share/cvstop/remove"


def unpack(root, tarball, data=None):
    """Shell text that unpacks as the README of the archive says."""
    root.inside("/src/cvstop.tar.gz").write_bytes(data or tarball.read_bytes())
    return "mkdir -p /usr/quarn; tar -xzf cvstop.tar.gz -C /usr/quarn\n"


INSTALL = "/usr/quarn/cvstop-*/install\n"
CLEAN = "rm -r /usr/quarn/cvstop-*\n"


def test_lays_out_what_the_package_does(root, tarball, deb):
    root.run(unpack(root, tarball) + INSTALL + CLEAN)
    shared = {path for path in files_of_deb(deb)
              if not any(part in path for part in ("lintian", "vendor-completions", "changelog.gz"))}
    assert {path for path in shared if not root.inside(path).is_file()} == set()
    configure(root)
    assert root.run("cvstop -h; man -w cvstop") == USAGE.format("cvstop") + "/usr/share/man/man8/cvstop.8.gz\n"
    assert root.inside(f"{BIN}/cvstop").stat().st_mode & 0o7777 == 0o755
    assert not list(root.inside("/usr").rglob("*.cvstop-new"))


def test_upgrade_stops_nothing_and_keeps_what_the_administrator_wrote(root, tarball):
    root.lay_fleet(FLEET)
    root.run(unpack(root, tarball) + INSTALL)
    configure(root)
    mine = {HOST_CONF: root.inside(HOST_CONF).read_text(), EXCLUDE_LIST: f"{BIN}/momuhe\n", ROTATION: "# mine\n"}
    for path, text in mine.items():
        root.inside(path).write_text(text)
    root.inside(f"{BIN}/cvstop").write_text("an older one")
    assert root.run(START + INSTALL.replace("\n", " >/dev/null\n") + RUNNING + "cvstop -h") == "3\n" + USAGE.format("cvstop")
    assert root.journal("signal") == []
    assert {path: root.inside(path).read_text() for path in mine} == mine


def test_upgrade_in_the_middle_of_a_shutdown(root, tarball):
    """The one that runs goes on to its end, and the new one takes it for nothing to stop."""
    root.lay_fleet(f"{BIN}/momuhe ignore=all\n")
    root.run(unpack(root, tarball) + INSTALL)
    configure(root)
    before = root.inside(f"{BIN}/cvstop").stat().st_ino
    output = root.run(START + "cvstop -k & shutdown=$!\n" + until_logged("Waiting for") + INSTALL.replace("\n", " >/dev/null\n")
                      + "cvstop -l | grep -v momuhe || true\n" + "wait $shutdown || echo $?\n" + RUNNING)
    assert ALL + "1\n0\n" in output
    assert f"{BIN}/cvstop" not in output and root.inside(f"{BIN}/cvstop").stat().st_ino != before


def test_upgrade_removes_what_the_newer_archive_has_no_longer(root, tarball):
    root.run(unpack(root, tarball) + INSTALL)
    installed = root.inside(REMOVE).with_name("installed")
    before = installed.read_text()
    gone = ("/usr/quarn/corvane/old/folder/file", "/usr/share/man/man8/cvstop-old.8.gz")
    for path in (*gone, f"{BIN}/ours", "/etc/cvstop-old"):
        root.inside(path).parent.mkdir(parents=True, exist_ok=True)
        root.inside(path).write_text("an older one's")
    installed.write_text("\n".join((*gone, "/etc/cvstop-old", before)))
    root.run(INSTALL)
    assert [path for path in gone if root.inside(path).exists()] == []
    assert not root.inside("/usr/quarn/corvane/old").exists()
    assert root.inside("/etc/cvstop-old").exists() and root.inside(f"{BIN}/ours").exists()
    assert sorted(installed.read_text().split()) == sorted(["/etc/cvstop-old", *before.split()])
    assert [path for path in before.split() if not root.inside(path).exists()] == []


def test_removal_leaves_logs_and_configuration_and_stops_nothing(root, tarball):
    root.lay_fleet(FLEET)
    before = {path for path in root.path.rglob("*") if "src" not in path.parts}
    root.run(unpack(root, tarball) + INSTALL + CLEAN)
    configure(root)
    assert root.run(START + f"cvstop -l >/dev/null; {REMOVE}\n" + RUNNING) == "3\n"
    assert root.journal("signal") == []
    for path in (HOST_CONF, LOG, ROTATION):
        assert root.inside(path).exists(), path
    left = {"/" + str(path.relative_to(root.path)) for path in root.path.rglob("*") if path not in before and path.is_file()}
    assert {path for path in left if "cvstop" in path and not path.startswith("/src/")} == {LOG, ROTATION}
    assert "nothing was installed from an archive" in root.run(
        "cp /src/cvstop.tar.gz /tmp; cd /tmp; tar -xzf cvstop.tar.gz; /tmp/cvstop-*/remove 2>&1 || true")


# The least leaves a part of the script itself.
@pytest.mark.parametrize("missing", [200, 600, 2000, 400_000])
def test_archive_that_was_cut_short_changes_nothing(root, tarball, missing):
    root.run(unpack(root, tarball) + INSTALL + CLEAN)
    configure(root)
    before = root.contents("/usr/quarn/corvane")
    told = root.run(unpack(root, tarball, tarball.read_bytes()[:-missing]).replace("\n", " 2>&1 || true\n")
                    + INSTALL.replace("\n", " 2>&1 || echo refused\n"))
    assert "unexpected end of file" in told and told.endswith("refused\n")
    assert root.contents("/usr/quarn/corvane") == before
    assert root.run("cvstop -h") == USAGE.format("cvstop")


def test_script_that_was_cut_between_two_functions_is_refused(root, tarball):
    root.run(unpack(root, tarball))
    script, = root.inside("/usr/quarn").glob("cvstop-*/install")
    functions = script.read_text().split("\n}\n\n")
    for count in range(1, len(functions)):
        script.write_text("".join(function + "\n}\n\n" for function in functions[:count]))
        assert root.run(f"{INSTALL.strip()} 2>&1 || echo refused").endswith("refused\n"), count
    assert len(functions) > 5 and not root.inside("/usr/quarn/corvane").exists()


def test_damaged_archive_changes_nothing(root, tarball):
    damage = "printf x | dd of=$(ls /usr/quarn/cvstop-*/files/usr/quarn/corvane/bin/cvstop) bs=1 seek=70000 conv=notrunc 2>&1\n"
    told = root.run(unpack(root, tarball) + damage + INSTALL.replace("\n", " 2>&1 || echo refused\n"))
    assert "this archive is damaged" in told and told.endswith("refused\n")
    assert not root.inside("/usr/quarn/corvane").exists()


def test_read_only_usr_is_told_and_nothing_is_lost(root, tarball):
    root.run(unpack(root, tarball) + INSTALL)
    configure(root)
    before = root.contents("/usr/quarn")
    told = root.run(READ_ONLY_USR + f"{INSTALL.strip()} 2>&1 || echo refused; {REMOVE} 2>&1 || echo refused\n")
    assert told.count("Read-only file system") >= 2 and told.count("refused\n") == 2 and "nothing was changed" in told
    assert root.contents("/usr/quarn") == before


def everything(root):
    """All folders and files but those of /src, where the archive is."""
    return {str(path.relative_to(root.path)) for path in root.path.rglob("*") if path.relative_to(root.path).parts[0] != "src"}


@pytest.mark.parametrize("folder", ["/etc", "/usr/share"])
def test_install_that_cannot_lay_out_everything_leaves_nothing(root, tarball, folder):
    root.run(unpack(root, tarball).replace("/usr/quarn", "/src/unpacked"))
    before = everything(root)
    told = root.run(f"mount --bind {folder} {folder}; mount -o remount,bind,ro {folder}\n"
                    "/src/unpacked/cvstop-*/install 2>&1 || echo refused\n")
    assert "Read-only file system" in told and told.endswith("cvstop: nothing was changed\nrefused\n")
    assert everything(root) == before


def test_folder_in_the_place_of_a_file_is_told_and_nothing_is_changed(root, tarball):
    page = "/usr/share/man/man8/cvstop.8.gz"
    root.run(f"mkdir -p {page} /src/unpacked; " + unpack(root, tarball).replace("/usr/quarn", "/src/unpacked"))
    before = everything(root)
    told = root.run("/src/unpacked/cvstop-*/install 2>&1 || echo refused\n")
    assert told == f"cvstop: {page} is a folder\ncvstop: nothing was changed\nrefused\n"
    assert everything(root) == before


def test_install_that_ends_half_way_says_so_and_can_be_repeated(root, tarball):
    """Onto a file that is a mount nothing is renamed (rename(2), EBUSY)."""
    page = root.inside("/usr/share/man/man8/cvstop.8.gz")
    root.run(unpack(root, tarball))
    page.parent.mkdir(parents=True, exist_ok=True)
    page.write_text("in the way")
    told = root.run(f"mount --bind /src/cvstop.tar.gz /usr/share/man/man8/cvstop.8.gz\n{INSTALL.strip()} 2>&1 || echo refused\n")
    assert told.endswith("only a part of it is installed: run this again when that is mended\nrefused\n")
    assert "cvstop is installed" in root.run(INSTALL)
    configure(root)
    assert root.run("cvstop -h") == USAGE.format("cvstop")
    assert page.read_bytes() != b"in the way" and not list(root.inside("/usr").rglob("*.cvstop-new"))


# Renames as mv does; the first time it sends its parent a signal before.
SIGNALLING_MV = """#!/bin/sh
[ -e /src/early/sent ] || { touch /src/early/sent; kill -$SIGNAL $PPID; }
exec /usr/bin/mv "$@"
"""


@pytest.mark.parametrize("signal", ["HUP", "INT", "TERM"])
def test_signal_does_not_end_it_half_way(root, tarball, signal):
    root.run(unpack(root, tarball) + "mkdir early")
    root.inside("/src/early/mv").write_text(SIGNALLING_MV)
    told = root.run(f"chmod 755 early/mv; PATH=/src/early:$PATH SIGNAL={signal} {INSTALL}")
    assert told.startswith("cvstop is installed") and root.inside("/src/early/sent").exists()
    configure(root)
    assert root.run("cvstop -h; man -w cvstop") == USAGE.format("cvstop") + "/usr/share/man/man8/cvstop.8.gz\n"
    assert root.inside(REMOVE).with_name("installed").exists() and not list(root.inside("/usr").rglob("*.cvstop-new"))


def lay_rpm(root):
    """Puts this machine's rpm into a root of the same Debian."""
    libraries = re.findall(r"(/\S+) \(0x", run(["ldd", "/usr/bin/rpm"]).stdout)
    for file in ["/usr/bin/rpm", *libraries]:
        target = root.inside(file)
        if not target.exists():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, target)
    shutil.copytree("/usr/lib/rpm", root.inside("/usr/lib/rpm"), dirs_exist_ok=True)


@pytest.fixture(params=["deb", "rpm"])
def packaged(request, root):
    """Shell text that installs the package, and text that fails where a file of its is missing or changed."""
    package = request.getfixturevalue(request.param)
    if request.param == "deb":
        return install(root, package), "dpkg -V cvstop\n"
    lay_rpm(root)
    return install(root, package, "cvstop.rpm").replace("dpkg -i", "rpm -i --nodeps"), "rpm -V --nodeps cvstop\n"


@pytest.mark.parametrize("where", ["", " /"])
def test_host_with_a_package_is_left_to_its_package_manager(root, tarball, packaged, where):
    told = root.run(packaged[0] + unpack(root, tarball) + INSTALL.replace("\n", f"{where} 2>&1 || echo refused\n"))
    assert "belongs to a package" in told and told.endswith("refused\n")
    assert not root.inside("/usr/quarn/corvane/share").exists()


def test_removal_leaves_the_files_of_a_later_package(root, tarball, packaged):
    root.run(unpack(root, tarball) + INSTALL + CLEAN + packaged[0])
    configure(root)
    told = root.run(REMOVE)
    assert "these files belong to a package now, and stay:\n" in told and f"\n  {BIN}/cvstop\n" in told
    assert not root.inside(REMOVE).exists() and REMOVE not in told
    assert root.run(packaged[1] + "cvstop -h") == USAGE.format("cvstop")


@pytest.fixture
def linker(packages, tmp_path):
    """The script that links the object files."""
    archive = only(packages, f"cvstop-*-linux-{MACHINE}-objects.tar.gz")
    run(["tar", "-xzf", archive, "-C", tmp_path])
    return tmp_path / archive.name.removesuffix(".tar.gz") / "link"


def test_programs_can_be_linked_again(root, linker, deb, tmp_path):
    again = tmp_path / "again"
    again.mkdir()
    run([linker, "again"], cwd=tmp_path)
    root.run(install(root, deb))
    configure(root)
    for shipped in PROGRAMS:
        program, made = root.inside(shipped), again / shipped.rpartition("/")[2]
        assert made.read_bytes() != program.read_bytes()
        program.write_bytes(made.read_bytes())
    assert root.run("cvstop -h") == USAGE.format("cvstop")
    assert root.run("cvstop-watch --no-report cvstop -h") == USAGE.format("cvstop")


def test_programs_can_be_linked_again_where_the_compiler_has_another_name(linker, tmp_path):
    """Not everyone calls it by processor, as Debian does."""
    folders = tools, named, found = [tmp_path / name for name in ("tools", "named", "found")]
    for folder in folders:
        folder.mkdir()
    for tool in ("dirname", "uname", "g++", "ld"):
        (tools / tool).symlink_to(shutil.which(tool))
    elsewhere = {"PATH": str(tools)}
    run([linker, named])
    run([linker, found], env=elsewhere)
    for program in map(os.path.basename, PROGRAMS):
        assert (named / program).read_bytes() == (found / program).read_bytes()
    # What was chosen is not replaced, nor is one that is for another processor.
    (tools / "uname").unlink()
    (tools / "uname").write_text("#!/bin/sh\necho another\n")
    (tools / "uname").chmod(0o755)
    for chosen in ({"CXX": "another-g++"}, {}):
        assert subprocess.run([linker, found], env=elsewhere | chosen, capture_output=True, check=False).returncode == 127
