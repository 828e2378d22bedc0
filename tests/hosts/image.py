"""What is booted: Debian's kernel, and a first file system in memory with busybox, the agent and what is to be tested."""
import io
import lzma
import os
import pathlib
import subprocess

from archive import REPO, Archive

GUEST = pathlib.Path(__file__).parent / "guest"
FOLDER = REPO / "build/hosts"
# One busybox for every kernel: an older one could not be told what this one is.
TOOLS_SUITE = "bookworm"
# What the attacks need of the kernel beyond what is built into it.
MODULES = ("overlay",)
FOLDERS = ("dev", "proc", "sys", "run", "tmp", "etc", "root", "opt", "usr/bin", "usr/sbin", "usr/lib", "usr/lib/locale",
           "usr/quarn", "store", "modules")


def kernel(host):
    """The kernel's file, the folder of its package's files, and its version."""
    files, version = Archive(host.suite, host.processor.name).unpacked(host.package, dependency="linux-image-")
    (image,) = [path for path in (files / "boot").iterdir() if path.name.startswith(("vmlinuz-", "vmlinux-"))]
    return image, files, version


def _entry(number, name, mode, data=b""):
    """One file of a cpio archive in the form that the kernel reads ("newc"): 13 hexadecimal numbers, the name, the bytes."""
    encoded = name.encode() + b"\0"
    fields = (number, mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(encoded), 0)
    header = b"070701" + b"".join(b"%08X" % field for field in fields) + encoded
    return header + b"\0" * (-len(header) % 4) + data + b"\0" * (-len(data) % 4)


def cpio(files):
    """An archive of (name, mode, bytes) of folders, files and links, with the types of `stat` in the mode."""
    whole = io.BytesIO()
    for number, (name, mode, data) in enumerate([*files, ("TRAILER!!!", 0, b"")], 1):
        whole.write(_entry(number, name, mode, data))
    return whole.getvalue()


def module(folder, name):
    (path,) = folder.rglob(f"{name}.ko*")
    return lzma.decompress(path.read_bytes()) if path.suffix == ".xz" else path.read_bytes()


def files_of(host, modules, store):
    """The first file system, but for the tree of the product, which comes with each job. Files of the store are those that the
    jobs' trees are made of."""
    busybox, _ = Archive(TOOLS_SUITE, host.processor.name).unpacked("busybox-static")
    yield from ((name, 0o40755, b"") for name in ("usr", *FOLDERS))
    yield from (("bin", 0o120777, b"usr/bin"), ("sbin", 0o120777, b"usr/sbin"), ("init", 0o120777, b"usr/bin/busybox"))
    yield "usr/bin/busybox", 0o100755, (busybox / "bin/busybox").read_bytes()
    yield from ((f"etc/{name}", 0o100644, (GUEST / name).read_bytes()) for name in ("inittab", "passwd"))
    yield from ((f"usr/sbin/{name}", 0o100755, (GUEST / name).read_bytes()) for name in ("prepare", "agent"))
    yield from ((f"modules/{name}.ko", 0o100644, module(modules, name)) for name in MODULES)
    yield from ((f"store/{name}", 0o100755, path.read_bytes()) for name, path in store.items())


def build(host, store):
    """Makes the first file system of a host; returns the kernel, the file and the kernel's version."""
    image, modules, version = kernel(host)
    target = FOLDER / f"{host.name}.{os.getpid()}.cpio.gz"
    target.parent.mkdir(parents=True, exist_ok=True)
    with open(target, "wb") as file:
        subprocess.run(["gzip", "-1"], input=cpio(files_of(host, modules, store)), stdout=file, check=True)
    return image, target, version
