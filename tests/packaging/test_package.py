"""The packages on a clean Debian: installed, used, upgraded under running daemons, removed, purged. Nothing is ever stopped,
and nobody's configuration lost."""
import gettext
import re
import subprocess

import pytest

from box import ALL, ALL_SPECIFIED, LOG, assert_ends, until_ended, until_logged


BIN = "/usr/quarn/corvane/bin"
HOST_CONF = "/usr/quarn/corvane/host.conf"
EXCLUDE_LIST = f"{BIN}/excludelist.conf"
START = "/opt/starter/start --start /usr/quarn/sandbox/fleet\n"
FLEET = f"{BIN}/halvd\n{BIN}/momuhe count=2\n"
RUNNING = f"readlink /proc/[0-9]*/exe | grep -c '^{BIN}/[hm]' || true\n"
READ_ONLY_USR = "mount --bind /usr /usr; mount -o remount,bind,ro /usr\n"
USAGE = ("Usage:\n {0} [ -k | -kill [ -3 | -third_party ] [ -q | -quiet ] ]\n"
         " {0} -l | -list [ -3 | -third_party ]\n {0} -h | -help\n")
# What the .rpm may ask of rpm itself: the oldest that shall install it, 4.11 of SLES 12, has all of this. It refuses a package
# that asks for what came later, as PayloadIsZstd did.
RPM_FEATURES = {"rpmlib(CompressedFileNames) <= 3.0.4-1", "rpmlib(FileDigests) <= 4.6.0-1",
                "rpmlib(PayloadFilesHavePrefix) <= 4.0-1", "rpmlib(PayloadIsXz) <= 5.2-1"}


def files_of_deb(deb):
    listed = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True).stdout
    names = subprocess.run(["tar", "-t"], input=listed, capture_output=True, check=True).stdout.decode().splitlines()
    return {name[1:] for name in names if not name.endswith("/")}


def install(root, deb, name="cvstop.deb"):
    root.inside("/src/" + name).write_bytes(deb.read_bytes())
    return f"dpkg -i {name} >/dev/null\n"


def configure(root):
    root.inside(HOST_CONF).write_text("[host]\nrole = client\nname = mine\n")


def newer(deb, folder):
    """The same package as a later release."""
    subprocess.run(["dpkg-deb", "-R", deb, folder], check=True)
    control = folder / "DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*$", "Version: 9.0", control.read_text(), flags=re.M))
    rotation = folder / "etc/logrotate.d/cvstop"
    rotation.write_text("# a later release\n" + rotation.read_text())
    target = folder.with_suffix(".deb")
    subprocess.run(["dpkg-deb", "--root-owner-group", "-b", folder, target], check=True, capture_output=True)
    return target


def test_packages_need_no_library(deb, rpm):
    depends = subprocess.run(["dpkg-deb", "-f", deb, "Depends"], capture_output=True, text=True, check=True).stdout
    assert depends.strip() == ""
    requires = subprocess.run(["rpm", "-qp", "--requires", rpm], capture_output=True, text=True, check=True).stdout
    assert {line for line in requires.splitlines() if not line.startswith("config(cvstop)")} <= RPM_FEATURES
    assert subprocess.run(["rpm", "-qp", "--suggests", rpm], capture_output=True, text=True, check=True).stdout == "logrotate\n"


def test_program_can_be_linked_with_the_libc_of_the_host(dynamic_deb, tmp_path):
    subprocess.run(["dpkg-deb", "-x", dynamic_deb, tmp_path], check=True)
    program = tmp_path / f"{BIN}/cvstop".lstrip("/")
    headers = subprocess.run(["readelf", "-Wld", program], capture_output=True, text=True, check=True).stdout
    assert " INTERP " in headers and "libc.so.6" in headers and "libstdc++" not in headers
    assert "GNU_RELRO" in headers and "BIND_NOW" in headers


def test_no_configuration_of_the_hosts_is_in_the_packages(deb, rpm):
    of_rpm = set(subprocess.run(["rpm", "-qpl", rpm], capture_output=True, text=True, check=True).stdout.splitlines())
    for files in (files_of_deb(deb), of_rpm):
        assert f"{BIN}/cvstop" in files and "/usr/share/man/man8/cvstop.8.gz" in files
        assert {HOST_CONF + ".example", EXCLUDE_LIST + ".example"} < files
        assert not {HOST_CONF, EXCLUDE_LIST} & files
    product = {path for path in files_of_deb(deb) if path.startswith("/usr/quarn/")}
    assert product <= of_rpm


def test_rpm_runs_no_script_and_keeps_a_changed_rotation(rpm):
    def ask(*words):
        return subprocess.run(["rpm", "-qp", *words, rpm], capture_output=True, text=True, check=True).stdout

    assert ask("--scripts") == "" and ask("--triggers") == ""
    flags = dict(line.rsplit(" ", 1) for line in ask("--qf", "[%{FILENAMES} %{FILEFLAGS:fflags}\n]").splitlines())
    assert flags["/etc/logrotate.d/cvstop"] == "cn"
    assert [path for path, flag in flags.items() if "c" in flag] == ["/etc/logrotate.d/cvstop"]


def test_packages_tell_one_time_and_no_place(packages, deb, rpm, tarball):
    """What differs between two builds of one tree would be this, besides what `scripts/package --twice` looks for."""
    listed = subprocess.run(["bash", "-c", 'dpkg-deb --fsys-tarfile "$1" | tar -tv --full-time; tar -tvzf "$2" --full-time',
                             "-", deb, tarball], capture_output=True, text=True, check=True).stdout
    assert len({tuple(line.split()[3:5]) for line in listed.splitlines()}) == 1
    assert {line.split()[1] for line in listed.splitlines()} == {"root/root"}
    built = subprocess.run(["rpm", "-qp", "--qf", "%{BUILDTIME} [%{FILEMTIMES} ]%{BUILDHOST}", rpm], capture_output=True,
                           text=True, check=True).stdout.split()
    assert len(set(built[:-1])) == 1 and built[-1] == "cvstop"
    sums = subprocess.run(["sha256sum", "-c", "SHA256SUMS"], cwd=packages, capture_output=True, text=True, check=True).stdout
    assert {line.split(":")[0] for line in sums.splitlines()} == {
        file.name for pattern in ("*.deb", "*.rpm", "*.tar.gz") for file in packages.glob(pattern)}


def test_first_steps_on_a_clean_host(root, deb):
    root.run(install(root, deb))
    assert root.run("cvstop -h", status=110) == "Failed to read Master Config.\n"
    root.run(f"cp {HOST_CONF}.example {HOST_CONF}")
    assert root.run("cvstop -h") == USAGE.format("cvstop")
    assert root.run("cvstop -l") == ""


def test_german_is_spoken_without_a_generated_locale(root, deb):
    root.run(install(root, deb))
    configure(root)
    assert not re.search("^de", root.run("locale -a"), re.M)
    with open(root.inside("/usr/quarn/corvane/locale/de/LC_MESSAGES/cvstop.mo"), "rb") as file:
        german = gettext.GNUTranslations(file)
    wanted = german.pgettext("MsgCvs0145N", "Unknown option [%s]\n") % "-x"
    assert "Unbekannt" in wanted
    assert root.run("cvstop -x", status=20, LANG="de_DE.UTF-8").startswith(wanted)


def test_manual_is_found_and_fits_80_columns(root, deb):
    root.run(install(root, deb))
    for page in ("cvstop", "cvstop-host.conf", "cvstop-excludelist"):
        text = root.run(f"man -P cat {page}", MANWIDTH="80", LC_ALL="C.UTF-8")
        lines = re.sub(r".\x08", "", text).splitlines()
        assert lines[3].strip().startswith(page + " - ")
        assert max(map(len, lines)) <= 80


def test_bash_completes(root, deb):
    root.run(install(root, deb))
    loaded = root.run(". /usr/share/bash-completion/bash_completion; _completion_loader cvstop || true; complete -p cvstop; "
                      "COMP_WORDS=(cvstop -l -) COMP_CWORD=2; _cvstop; echo ${COMPREPLY[@]}")
    assert loaded == "complete -F _cvstop cvstop\n-3 -third_party -b -blacklist -e -excludelist\n"


def test_log_is_rotated(root, deb):
    root.run(install(root, deb))
    configure(root)
    root.run("cvstop -l; cvstop -l")
    before = root.inside(LOG).read_text()
    root.run("logrotate -f /etc/logrotate.d/cvstop; cvstop -l")
    assert root.inside(LOG + ".1").read_text() == before
    assert 0 < len(root.inside(LOG).read_text()) < len(before)
    assert root.inside(LOG).stat().st_mode & 0o777 == 0o640


def test_example_of_an_exclude_list_excludes_nothing_as_it_is(root, deb):
    root.lay_fleet(FLEET)
    script = install(root, deb) + f"cp {EXCLUDE_LIST}.example {EXCLUDE_LIST}\n" + START
    configure(root)
    output = root.run(script + "cvstop -k || status=$?; echo $status\n" + until_ended(f"{BIN}/halvd") + RUNNING)
    assert_ends(output, ALL_SPECIFIED + "1\n0\n")
    assert "Unrecognized line" not in root.inside(LOG).read_text()


def test_upgrade_stops_nothing_and_keeps_what_the_administrator_wrote(root, deb, tmp_path):
    root.lay_fleet(FLEET)
    root.run(install(root, deb))
    configure(root)
    mine = {HOST_CONF: root.inside(HOST_CONF).read_text(), EXCLUDE_LIST: f"{BIN}/momuhe\n",
            "/etc/logrotate.d/cvstop": "# mine\n"}
    for path, text in mine.items():
        root.inside(path).write_text(text)
    upgrade = install(root, newer(deb, tmp_path / "newer"), "newer.deb").replace("-i", "--force-confold -i")
    assert root.run(START + upgrade + RUNNING + "cvstop -h") == "3\n" + USAGE.format("cvstop")
    assert root.journal("signal") == []
    assert {path: root.inside(path).read_text() for path in mine} == mine
    assert "9.0" in root.run("dpkg-query -W cvstop")


def test_upgrade_in_the_middle_of_a_shutdown(root, deb, tmp_path):
    """The one that runs goes on to its end, and the new one takes it for nothing to stop."""
    root.lay_fleet(f"{BIN}/momuhe ignore=all\n")
    root.run(install(root, deb))
    configure(root)
    upgrade = install(root, newer(deb, tmp_path / "newer"), "newer.deb")
    output = root.run(START + "cvstop -k & shutdown=$!\n" + until_logged("Waiting for") + upgrade
                      + "cvstop -l | grep -v momuhe || true\n" + "wait $shutdown || echo $?\n" + RUNNING)
    assert ALL + "1\n0\n" in output
    assert f"{BIN}/cvstop" not in output


def test_upgrade_from_a_dynamically_linked_program_in_the_middle_of_a_shutdown(root, dynamic_deb, deb, tmp_path):
    """The older one's libraries stay its own to the end, and the newer one takes it for nothing to stop."""
    root.lay_fleet(f"{BIN}/momuhe ignore=all\n")
    root.run(install(root, dynamic_deb, "dynamic.deb"))
    configure(root)
    assert "libc6" in root.run("dpkg-query -W -f '${Depends}' cvstop")
    upgrade = install(root, newer(deb, tmp_path / "newer"))
    output = root.run(START + "cvstop -k & shutdown=$!\n" + until_logged("Waiting for") + upgrade
                      + "cvstop -l | grep -v momuhe || true\n" + "wait $shutdown || echo $?\n" + RUNNING)
    assert ALL + "1\n0\n" in output
    assert f"{BIN}/cvstop" not in output
    assert root.run("dpkg-query -W -f '${Depends}' cvstop; cvstop -h") == USAGE.format("cvstop")


def test_read_only_usr_is_told_and_nothing_is_lost(root, deb, tmp_path):
    root.run(install(root, deb))
    configure(root)
    before = root.contents("/usr/quarn")
    upgrade = install(root, newer(deb, tmp_path / "newer"), "newer.deb")
    told = root.run(READ_ONLY_USR + upgrade.replace(">/dev/null\n", "2>&1 || echo refused\n"))
    assert "Read-only file system" in told and told.endswith("refused\n")
    assert root.contents("/usr/quarn") == before
    assert root.run("cvstop -h") == USAGE.format("cvstop")


@pytest.mark.parametrize("share", [0.1, 0.5, 0.99])
def test_package_that_was_cut_short_is_refused_and_nothing_is_lost(root, deb, share):
    root.run(install(root, deb))
    configure(root)
    before = root.contents("/usr/quarn")
    whole = deb.read_bytes()
    root.inside("/src/short.deb").write_bytes(whole[:int(len(whole) * share)])
    assert "refused\n" in root.run("dpkg -i short.deb 2>&1 || echo refused")
    assert root.contents("/usr/quarn") == before
    assert root.run("cvstop -h") == USAGE.format("cvstop")


def test_removal_leaves_logs_and_configuration_and_stops_nothing(root, deb):
    root.lay_fleet(FLEET)
    root.run(install(root, deb))
    configure(root)
    root.inside(EXCLUDE_LIST).write_text(f"{BIN}/momuhe\n")
    assert root.run(START + "cvstop -l >/dev/null; dpkg -r cvstop >/dev/null\n" + RUNNING) == "3\n"
    assert root.journal("signal") == []
    assert not root.inside(f"{BIN}/cvstop").exists() and not root.inside("/usr/quarn/corvane/locale").exists()
    for path in (HOST_CONF, EXCLUDE_LIST, LOG, "/etc/logrotate.d/cvstop"):
        assert root.inside(path).exists(), path


def test_purge_takes_log_and_rotation_along_and_nothing_else(root, deb):
    root.lay_fleet(FLEET)
    root.run(install(root, deb))
    configure(root)
    root.inside(EXCLUDE_LIST).write_text(f"{BIN}/momuhe\n")
    kept = root.inside("/usr/quarn/corvane/logs/other")
    assert root.run(START + f"cvstop -l >/dev/null; echo x >{LOG}.1; mkdir -p /usr/quarn/corvane/logs/other\n"
                    "dpkg -P cvstop >/dev/null\n" + RUNNING) == "3\n"
    assert root.journal("signal") == []
    assert not root.inside(LOG).parent.exists() and not root.inside("/etc/logrotate.d/cvstop").exists()
    assert kept.exists() and root.inside(HOST_CONF).exists() and root.inside(EXCLUDE_LIST).exists()


def test_purge_of_a_package_without_a_product_leaves_nothing(root, deb):
    root.run(install(root, deb) + f"cp {HOST_CONF}.example {HOST_CONF}; cvstop -l; rm {HOST_CONF}; dpkg -P cvstop >/dev/null\n")
    assert not root.inside("/usr/quarn").exists()
