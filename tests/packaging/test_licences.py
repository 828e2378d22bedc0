"""Whose code the programs hold besides ours: all of it is named in what every package carries, with its licence's text."""
import hashlib
import re
import subprocess

from conftest import MACHINE, PROCESSOR, REPO, only, run


COPYRIGHT = "/usr/share/doc/cvstop/copyright"
LGPL = "/usr/share/doc/cvstop/LGPL-2.1"
# The Debian packages, without their versions, that code comes from, and what the copyright file calls it.
LIBRARIES = {"libc-dev": "the GNU C Library", "libstdc++-dev": "the GNU C++ Library", "libgcc-dev": "libgcc",
             "libboost-dev": "Boost", "nlohmann-json-dev": "JSON for Modern C++"}
# Whose headers tell the kernel's numbers and structures, which are nobody's code.
INTERFACE = "linux-libc-dev"


def linked(tree, target, program):
    """The files that a program is linked from."""
    command = run(["ninja", "-C", tree, "-t", "commands", target]).stdout.splitlines()[-1]
    traced = command.replace(f"-o {target} ", f"-o {program} -Wl,--trace ")
    return set(run(["bash", "-ec", traced], cwd=tree).stdout.split())


def owners(files):
    return {re.sub(r"-?[\d.]+(?=-)", "", line.split(":")[0]) for line in run(["dpkg", "-S", *files]).stdout.splitlines()}


def copyright_of(deb):
    archive = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], capture_output=True, check=True).stdout
    return subprocess.run(["tar", "-xO", "." + COPYRIGHT], input=archive, capture_output=True, check=True).stdout


def test_whoever_code_is_taken_from_is_named(packages, deb, tmp_path):
    tree = packages / "tree" / PROCESSOR
    files = set(re.findall(r"^ +(/.*)", run(["ninja", "-C", tree, "-t", "deps"]).stdout, re.M))
    for target in ("src/cvstop", "watch/cvstop-watch"):
        files |= linked(tree, target, tmp_path / "program")
    foreign = {file for file in map((tree / "x").parent.joinpath, files) if REPO not in file.resolve().parents}
    assert owners({file.resolve() for file in foreign}) == {*LIBRARIES, INTERFACE}
    text = copyright_of(deb).decode()
    assert [name for name in LIBRARIES.values() if f"* {name}" not in text and f"and {name}:" not in text] == []


def test_every_licence_has_its_text(deb):
    paragraphs = copyright_of(deb).decode().split("\n\n")
    (programs,) = [paragraph for paragraph in paragraphs if "usr/sbin/cvstop-watch" in paragraph.splitlines()[0]]
    named = re.search(r"^License: proprietary and (.*)", programs, re.M)[1].split(" and ")
    texts = {match[1]: match[2] for match in (re.match(r"License: (.*)\n((?: .*\n?){4,})", paragraph) for paragraph in paragraphs)
             if match}
    assert list(texts) != [] and sorted(texts) == sorted(named)
    libraries = re.search(r"^Comment:\n(.*?)\n .\n Another", paragraphs[0], re.M | re.S)[1]
    assert [name for name in named if name not in libraries] == []


def test_every_package_carries_the_same(packages, deb, rpm, tarball):
    wanted = {COPYRIGHT: hashlib.sha256(copyright_of(deb)).hexdigest(),
              LGPL: hashlib.sha256((REPO / "packaging/LGPL-2.1").read_bytes()).hexdigest()}
    digests = run(["rpm", "-qp", "--qf", "[%{FILENAMES} %{FILEDIGESTS}\n]", rpm]).stdout
    of_rpm = dict(line.split(" ") for line in digests.splitlines())
    assert {path: of_rpm[path] for path in wanted} == wanted
    objects = only(packages, f"cvstop-*-linux-{MACHINE}-objects.tar.gz")
    for archive, folder in ((tarball, "/files/usr/share/doc/cvstop"), (objects, "")):
        top = archive.name.removesuffix(".tar.gz")
        for path, digest in wanted.items():
            name = f"{top}{folder}/{path.rpartition('/')[2]}"
            data = subprocess.run(["tar", "-xzOf", archive, name], capture_output=True, check=True).stdout
            assert hashlib.sha256(data).hexdigest() == digest, name
