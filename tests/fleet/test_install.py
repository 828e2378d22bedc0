"""Installing on clients: each kind of package with the host's own dpkg, rpm and tar, inside boxes whose /var is their own."""
import json
import platform
import shutil
import subprocess

import pytest
import yaml
from conftest import REPO
from local import Fleet as LocalFleet
from test_fleet import make_fleet, recap  # noqa: F401  (a fixture)

import box

B = "/usr/quarn/corvane/bin"
CONF = "/usr/quarn/corvane/host.conf"
# Below /var, which is each box's own.
EDITED = "/var/lib/cvstop/rotate"
# What a test makes to have an installation fail, or to have the client's line cut in the middle of one.
UNLESS_BROKEN = """\
if [ -e /tmp/cut ]; then
  for process in /proc/[0-9]*; do
    [ "$(readlink "$process/exe")" != /usr/sbin/sshd ] || kill -9 "${process#/proc/}"
  done
  exit 1
fi
[ ! -e /tmp/broken ]"""
OWN_VAR = ("mkdir /tmp/upper /tmp/work && mount -t overlay -o lowerdir=/var,upperdir=/tmp/upper,workdir=/tmp/work overlay "
           f"/var && rm {B}/cvstop")
DEBIAN_NAME = {"x86_64": "amd64", "aarch64": "arm64", "ppc64le": "ppc64el"}.get(platform.machine(), platform.machine())
SPEC = """\
Name: cvstop
Version: {version}
Release: 1
Summary: A test
License: None
AutoReqProv: no
%description
A test.
%install
mkdir -p %{{buildroot}} && cp -a {files}/usr %{{buildroot}}
%files
{bin}/cvstop
"""


def lay_files(folder, version, build):
    """What a package of this version holds: the program, which tells version and build to whoever reads the file."""
    files = folder / f"files-{version}{build}"
    target = files / B[1:]
    target.mkdir(parents=True)
    (target / "cvstop").write_bytes((box.BUILD / "src/cvstop").read_bytes() + f"version {version}{build}".encode())
    (target / "cvstop").chmod(0o755)
    return files


def make_deb(folder, files, version):
    """With a file of configuration that differs from version to version, as the real package's for logrotate."""
    (files / "DEBIAN").mkdir()
    (files / "DEBIAN/conffiles").write_text(f"{EDITED}\n")
    (files / EDITED[1:]).parent.mkdir(parents=True)
    (files / EDITED[1:]).write_text(f"# of {version}\n")
    (files / "DEBIAN/preinst").write_text(f"#!/bin/sh\n{UNLESS_BROKEN}\n")
    (files / "DEBIAN/preinst").chmod(0o755)
    (files / "DEBIAN/control").write_text(f"Package: cvstop\nVersion: {version}\nArchitecture: {DEBIAN_NAME}\nMaintainer: x\n"
                                          "Description: a test\n")
    subprocess.run(["dpkg-deb", "-Znone", "--build", files, folder / f"cvstop_{version}_{DEBIAN_NAME}.deb"], check=True,
                   capture_output=True)


def make_rpm(folder, files, version):
    spec = folder / "cvstop.spec"
    spec.write_text(SPEC.format(version=version, bin=B, files=files))
    settings = {"_topdir": f"{folder}/rpm", "_rpmdir": folder, "_rpmfilename": "%{NAME}-%{VERSION}-%{RELEASE}.%{ARCH}.rpm",
                "__os_install_post": "%{nil}", "debug_package": "%{nil}", "_build_id_links": "none"}
    defines = [word for name, value in settings.items() for word in ("--define", f"{name} {value}")]
    subprocess.run(["rpmbuild", "-bb", "--quiet", *defines, spec], check=True, capture_output=True)


def make_archive(folder, files, version):
    name = f"cvstop-{version}-linux-{platform.machine()}"
    (files / "install").write_text(f"#!/bin/sh\nset -e\n{UNLESS_BROKEN}\n"
                                   f"mkdir -p {B}\ncp ${{0%/*}}{B}/cvstop {B}/new\nmv {B}/new {B}/cvstop\n")
    (files / "install").chmod(0o755)
    subprocess.run(["tar", "-C", files, "-czf", folder / f"{name}.tar.gz", f"--transform=s,^,{name}/,", "usr", "install"],
                   check=True)


KINDS = {"deb": make_deb, "rpm": make_rpm, "tar.gz": make_archive}


def on(client, *command):
    """Runs a command on the client; its standard output."""
    return subprocess.run(["nsenter", "--target", str(client.inside), "--mount", "--pid", "--root", *command],
                          capture_output=True, text=True, check=True).stdout


def installed(client):
    return client.host.inside(f"{B}/cvstop").read_bytes().rsplit(b"version ", 1)[-1].decode()


class Course:
    """Clients and a folder of packages, and the playbook run on them."""

    def __init__(self, fleet, folder, kind):
        self.fleet, self.folder, self.kind = fleet, folder, kind
        self.packages = folder / "packages"
        self.packages.mkdir()
        self.fresh = fleet.add("fresh", f"{B}/halvd\n", setup=f"{OWN_VAR} && rm {CONF}")

    def build(self, version, build=""):
        """Puts a package of this version into the folder, in place of others: the same file each time."""
        built = self.folder / f"built-{version}{build}"
        if not built.exists():
            built.mkdir()
            KINDS[self.kind](built, lay_files(self.folder, version, build), version)
        shutil.rmtree(self.packages)
        shutil.copytree(built, self.packages, ignore=shutil.ignore_patterns("rpm", "*.spec"))

    def install(self, *arguments):
        variables = {"install_packages": str(self.packages), "install_kinds": {"apt": self.kind},
                     "install_exclude": [f"{B}/koka"]}
        return self.fleet.play("install", "-e", json.dumps(variables), *arguments)


def test_every_package_manager_has_its_kind():
    """The other tests say which one they want."""
    defaults = yaml.safe_load((REPO / "fleet/ansible_collections/quarn/corvane/roles/install/defaults/main.yml").read_text())
    kinds = defaults["install_kinds"]
    assert {name: kinds.get(name) for name in ("apt", "dnf", "dnf5", "yum", "zypper")} == {
        "apt": "deb", "dnf": "rpm", "dnf5": "rpm", "yum": "rpm", "zypper": "rpm"}
    assert set(kinds.values()) <= KINDS.keys()


@pytest.mark.parametrize("kind", KINDS)
def test_each_kind_of_package(make_fleet, tmp_path, kind):  # noqa: F811
    if kind == "rpm" and not shutil.which("rpmbuild"):
        pytest.skip("rpmbuild is not installed")
    course = Course(make_fleet(f"install-{kind}"), tmp_path, kind)
    course.fleet.start()
    course.build("1.0")
    first = course.install()
    assert first.returncode == 0 and installed(course.fresh) == "1.0", first.stdout
    again = course.install()
    assert recap(again.stdout)["fresh"]["changed"] == "0", again.stdout
    course.build("1.1")
    upgrade = course.install()
    assert upgrade.returncode == 0 and installed(course.fresh) == "1.1", upgrade.stdout
    # Back to a package that has been there once.
    course.build("1.0")
    back = course.install()
    assert back.returncode == 0 and installed(course.fresh) == "1.0", back.stdout
    assert on(course.fresh, "sh", "-c", "ls /var/cache/cvstop*").split() == [f"/var/cache/cvstop.{kind}"]
    assert course.fresh.running() == {"halvd": 1} and not course.fresh.touched()


def test_configuration_is_kept_and_made(make_fleet, tmp_path):  # noqa: F811
    course = Course(make_fleet("install-configured"), tmp_path, "deb")
    fresh, server, kept = (course.fresh, course.fleet.add("server", setup=OWN_VAR), course.fleet.add("kept", setup=OWN_VAR))
    server.host.write(CONF, "; ours\n[host]\n role=server\n")
    kept.host.write(CONF, "[host]\nrole = client\nname = mine\n")
    course.fleet.start()
    course.build("1.0")
    check = course.install("--check", "--limit", "kept")
    assert check.returncode == 0 and not kept.host.inside(f"{B}/cvstop").exists(), check.stdout
    first = course.install()
    assert {name: counts["failed"] for name, counts in recap(first.stdout).items()} == {"fresh": "0", "server": "1", "kept": "0"}
    assert "it is a server of the product. Nothing was changed." in first.stdout
    assert installed(kept) == "1.0" and not server.host.inside(f"{B}/cvstop").exists()
    assert server.host.inside(CONF).read_text() == "; ours\n[host]\n role=server\n"
    assert kept.host.inside(CONF).read_text() == "[host]\nrole = client\nname = mine\n"
    assert course.install("--limit", "server", "-e", "install_name=other").returncode == 2
    assert server.host.inside(CONF).read_text() == "; ours\n[host]\n role=server\n"
    assert "role = client" in fresh.host.inside(CONF).read_text()
    assert f"{B}/koka\n" in fresh.host.inside(f"{B}/excludelist.conf").read_text()
    assert course.fleet.play("preview", "--limit", "fresh,kept").returncode == 0


def test_a_file_of_configuration_that_was_edited_on_the_client(make_fleet, tmp_path):  # noqa: F811
    course = Course(make_fleet("install-edited"), tmp_path, "deb")
    course.fleet.start()
    course.build("1.0")
    assert course.install().returncode == 0
    on(course.fresh, "sh", "-c", f"echo mine >{EDITED}")
    course.build("1.1")
    for _ in range(2):
        upgrade = course.install()
        assert upgrade.returncode == 0, upgrade.stdout
        assert on(course.fresh, "dpkg-query", "-W", "-f", "${db:Status-Status} ${Version}", "cvstop") == "installed 1.1"
    assert on(course.fresh, "cat", EDITED) == "mine\n" and installed(course.fresh) == "1.1"


def test_a_package_that_was_removed_is_installed_again(make_fleet, tmp_path):  # noqa: F811
    course = Course(make_fleet("install-removed"), tmp_path, "deb")
    course.fleet.start()
    course.build("1.0")
    assert course.install().returncode == 0
    on(course.fresh, "dpkg", "-r", "cvstop")
    assert not course.fresh.host.inside(f"{B}/cvstop").exists()
    again = course.install()
    assert again.returncode == 0 and installed(course.fresh) == "1.0", again.stdout


def test_an_installation_that_cannot_work_is_a_failure(make_fleet, tmp_path):  # noqa: F811
    """The program takes an address for telemetry, and no name."""
    course = Course(make_fleet("install-useless"), tmp_path, "deb")
    course.fleet.start()
    course.build("1.0")
    useless = course.install("-e", "install_statsd=stats.example:8125")
    assert useless.returncode == 2 and "Failed to read Master Config" in useless.stdout
    mended = course.install("-e", "install_statsd=127.0.0.1:8125", "-e", "install_name=its-name")
    assert mended.returncode == 0, mended.stdout
    text = course.fresh.host.inside(CONF).read_text()
    assert "statsd = 127.0.0.1:8125\n" in text and "name = its-name\n" in text
    backups = [path.read_text() for path in course.fresh.host.inside(CONF).parent.glob("host.conf.*~")]
    assert len(backups) == 1 and "stats.example" in backups[0]


@pytest.mark.parametrize("kind", ["deb", "tar.gz"])
def test_an_installation_that_failed_is_tried_again(make_fleet, tmp_path, kind):  # noqa: F811
    """Another build of the same version: that its file has reached the client already must not pass for an installation."""
    course = Course(make_fleet(f"install-again-{kind}"), tmp_path, kind)
    course.fleet.start()
    course.build("1.0")
    assert course.install().returncode == 0
    course.build("1.0", "b")
    for how, count in (("/tmp/broken", "failed"), ("/tmp/cut", "unreachable")):
        on(course.fresh, "touch", how)
        result = course.install()
        assert recap(result.stdout)["fresh"][count] == "1" and installed(course.fresh) == "1.0", result.stdout
        on(course.fresh, "rm", how)
    again = course.install()
    assert again.returncode == 0 and installed(course.fresh) == "1.0b", again.stdout


def test_which_package_fits(make_fleet, tmp_path):  # noqa: F811
    course = Course(make_fleet("install-choice"), tmp_path, "deb")
    course.fleet.start()
    course.build("1.10.0")
    foreign = {"amd64", "arm64", "ppc64el", "s390x"} - {DEBIAN_NAME}
    for word in foreign:
        (course.packages / f"cvstop_2.0_{word}.deb").write_text("for another processor")
    for word in ("rpm", "tar.gz"):
        (course.packages / f"cvstop-2.0-1.{platform.machine()}.{word}").write_text("of another kind")
    first = course.install()
    assert first.returncode == 0 and installed(course.fresh) == "1.10.0", first.stdout
    (course.packages / f"cvstop_1.9.0_{DEBIAN_NAME}.deb").write_text("an older one")
    both = course.install()
    assert both.returncode == 2 and installed(course.fresh) == "1.10.0"
    assert f"cvstop_1.10.0_{DEBIAN_NAME}.deb" in both.stdout and f"cvstop_1.9.0_{DEBIAN_NAME}.deb" in both.stdout


def test_a_processor_without_a_package(make_fleet, tmp_path):  # noqa: F811
    fleet = make_fleet("install-none")
    fleet.add("client", f"{B}/halvd\n", setup=OWN_VAR)
    fleet.start()
    result = fleet.play("install", "-e", f"install_packages={tmp_path}")
    assert result.returncode == 2 and "Build them with scripts/package." in result.stdout


def test_what_no_exclude_list_can_hold(tmp_path):
    fleet = LocalFleet(tmp_path, client="")
    for path in ("koka", "/opt/blank ", "/opt/a\n", "/opt/a\n/opt/b"):
        result = fleet.play("install", variables={"install_packages": str(tmp_path), "install_exclude": [f"{B}/koka", path]})
        assert result.returncode == 2 and "install_exclude: no absolute paths" in result.stdout
