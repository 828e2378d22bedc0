#!/usr/bin/python3
"""Whether a package may be handed out: its size, and what its programs are made of. Says what is wrong, and ends with 1.

    packaging/check.py PROCESSOR DEB FOLDER      the package for that processor, as Debian calls it, and the folder of its build
"""
import pathlib
import re
import subprocess
import sys
import tempfile

PROGRAMS = ("usr/quarn/corvane/bin/cvstop", "usr/sbin/cvstop-watch")
LARGEST = 1_200_000
MACHINES = {"amd64": "Advanced Micro Devices X86-64", "arm64": "AArch64", "ppc64el": "PowerPC64", "s390x": "IBM S/390"}
# Where libc's static form can be loaded at any address.
POSITION_INDEPENDENT = ("amd64", "arm64")
# Where kernels may have pages of this size, they load nothing that is laid out for smaller ones.
LARGEST_PAGE = {"arm64": 0x10000, "ppc64el": 0x10000}
# What the compiler puts into code that it protects: ours, since libc's own objects refer to it anyway.
PROTECTED, FORTIFIED = "__stack_chk_fail", re.compile(r"^__(?!stack_chk)\w+_chk")


def readelf(option, *files):
    return subprocess.run(["readelf", "-W", option, *files], capture_output=True, text=True, check=True).stdout


def faults_of_program(program, processor):
    """What is wrong with a program that is linked statically, stripped or not."""
    header, dynamic = readelf("-h", program), readelf("-d", program)
    segments = [line.split() for line in readelf("-l", program).splitlines() if re.match(r" +[A-Z_]+ +0x", line)]
    # Type, offset, virtual and physical address, size in the file and in memory, flags, alignment.
    kinds = {segment[0]: "".join(segment[6:-1]) for segment in segments}
    loads = [segment for segment in segments if segment[0] == "LOAD"]
    is_independent = "DYN (Position-Independent" in header
    faults = {
        "is for another processor": MACHINES[processor] not in header,
        "is not position-independent": processor in POSITION_INDEPENDENT and not is_independent,
        "needs a loader": "INTERP" in kinds,
        "needs a library": "(NEEDED)" in dynamic,
        "can have its relocations written over": "GNU_RELRO" not in kinds,
        "binds what it calls later": is_independent and "NOW" not in dynamic,
        "has an executable stack": kinds.get("GNU_STACK") != "RW",
        "has code that can be written over": any(set("WE") <= set("".join(load[6:-1])) for load in loads),
        "does not load where pages are large": any(int(load[-1], 16) < LARGEST_PAGE.get(processor, 0) for load in loads),
    }
    return [f"{program}: {fault}" for fault, is_so in faults.items() if is_so]


def faults_of_objects(*folders):
    """What the code of ours lacks that is linked from these folders' object files."""
    files = [file for folder in folders for file in pathlib.Path(folder).rglob("*.o")]
    undefined = {line.split()[-1] for line in readelf("--symbols", *files).splitlines() if " UND " in line}
    faults = {"no stack protector": PROTECTED not in undefined,
              "no fortification": not any(map(FORTIFIED.match, undefined))}
    return [f"{', '.join(map(str, folders))}: {fault}" for fault, is_so in faults.items() if is_so]


def faults_of_deb(deb, processor):
    size = deb.stat().st_size
    faults = [f"{deb}: {size} bytes, which is more than {LARGEST}"] if size > LARGEST else []
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["dpkg-deb", "-x", deb, folder], check=True)
        for program in PROGRAMS:
            faults += [f"{deb}: {fault.replace(folder, '')}" for fault in faults_of_program(f"{folder}/{program}", processor)]
    return faults


def main(processor, deb, folder):
    folder = pathlib.Path(folder)
    faults = faults_of_deb(pathlib.Path(deb), processor)
    faults += sum((faults_of_objects(folder / part) for part in ("platform", "src", "watch")), [])
    if faults:
        raise SystemExit("\n".join(faults))


if __name__ == "__main__":
    if len(sys.argv) != 4 or sys.argv[1] not in MACHINES:
        raise SystemExit(__doc__)
    main(*sys.argv[1:])
