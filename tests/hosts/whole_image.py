"""The disk of a whole Debian 12, with systemd, services of its own, and the product's daemons as services that are hardened as
such services are."""
import os
import pathlib
import shutil
import subprocess

import box
import image
from archive import locked, mirror
from inventory import WHOLE as HOST

FILES = pathlib.Path(__file__).parent / "whole"
FOLDER = image.FOLDER / "whole"
PACKAGES = "systemd,systemd-sysv,dbus,cron,openssh-server,redis-server,udev,kmod"
# What the disk needs of the kernel, each after those that it needs itself.
MODULES = ("crc16", "crc32c_generic", "mbcache", "jbd2", "ext4", "virtio", "virtio_ring", "virtio_pci_legacy_dev",
           "virtio_pci_modern_dev", "virtio_pci", "virtio_blk")
LIBRARY = "/usr/quarn/corvane/lib/libsampled.so"
OWN_TREE = f"mount -t tmpfs tmpfs /usr/quarn && mkdir -p {box.BIN} && cp /usr/bin/sleep {box.BIN}/halvd"

# The product's services: what each runs, and how it is hardened.
PRODUCT = {
    "product-readonly": ("halvd", "ProtectSystem=strict\nPrivateTmp=yes\nProtectHome=yes\nPrivateDevices=yes"),
    "product-dynamic": ("momuhe", "DynamicUser=yes"),
    "product-mapped": ("lebazog", "PrivateUsers=yes"),
    "product-unseen": ("wusivov", "ProtectProc=invisible\nProcSubset=pid"),
    "product-filtered": ("kofen", "SystemCallFilter=@system-service\nNoNewPrivileges=yes\nMemoryDenyWriteExecute=yes"),
    "product-restarted": ("ndmpgumad", "Restart=always\nRestartSec=1"),
    "product-replaced": ("nuwezato", "PrivateTmp=yes"),
}
# One whose daemon survives: its parent, the service's own process, never takes note of its end.
KEPT = ("product-kept", f"{box.BIN}/koka")
KEEPER = "/opt/keeper/keep"
# What only looks like it, what runs the product's code, and what works in its tree.
CONTAINER = f"/usr/bin/unshare --mount --pid --fork --mount-proc /bin/sh -c '{OWN_TREE} && exec {box.BIN}/halvd infinity'"
STRANGERS = {
    "stranger-contained": f"ExecStart={CONTAINER}",
    "stranger-holding": "WorkingDirectory=/usr/quarn/corvane\nExecStart=/usr/bin/sleep infinity",
    "stranger-preloaded": f"Environment=LD_PRELOAD={LIBRARY}\nExecStart=/usr/bin/sleep infinity",
}


def units():
    for name, (daemon, hardening) in PRODUCT.items():
        yield name, (f"ExecStart={box.BIN}/{daemon} --serve 1\nReadWritePaths=/usr/quarn/sandbox\nStandardOutput=null\n"
                     + hardening)
    yield KEPT[0], f"ExecStart={KEEPER} --keep 1 {KEPT[1]}\nStandardOutput=null"
    for name, text in STRANGERS.items():
        yield name, text + "\nStandardOutput=null"


def system():
    """A Debian as debootstrap makes it, once."""
    root = FOLDER / "system"
    with locked(FOLDER):
        if not root.exists():
            made = FOLDER / "system.part"
            shutil.rmtree(made, ignore_errors=True)
            subprocess.run(["debootstrap", "--variant=minbase", f"--include={PACKAGES}", HOST.suite, made, mirror()], check=True,
                           stdout=subprocess.DEVNULL)
            made.rename(root)
    return root


def lay(build, root):
    """Puts the product, its services and the check into the system."""
    fleet = "".join(f"{box.BIN}/{daemon}\n" for daemon, _ in PRODUCT.values()) + f"{KEPT[1]} parent={KEEPER}\n"
    tree = box.lay_tree(build, fleet, FOLDER / "tree")
    shutil.copy(tree / "quarn/corvane/bin/nuwezato", tree / "quarn/corvane/bin/new")
    shutil.copytree(tree / "quarn", root / "usr/quarn", dirs_exist_ok=True)
    shutil.copytree(tree / "opt", root / "opt", dirs_exist_ok=True)
    shutil.copy(build / "files/usr/sbin/cvstop-watch", root / "usr/sbin")
    # The sample daemons write there as whoever they are.
    for path in (root / "usr/quarn/sandbox", root / "usr/quarn/sandbox/pids", root / "usr/quarn/sandbox/journal"):
        path.chmod(0o777)
    services = root / "etc/systemd/system"
    wanted = services / "multi-user.target.wants"
    for name, text in units():
        (services / f"{name}.service").write_text(f"[Service]\n{text}\n[Install]\nWantedBy=multi-user.target\n")
        (wanted / f"{name}.service").symlink_to(f"../{name}.service")
    shutil.copy(FILES / "check", root / "usr/sbin/whole-check")
    shutil.copy(FILES / "whole-check.service", services)
    (services / "graphical.target.wants").mkdir()
    (services / "graphical.target.wants/whole-check.service").symlink_to("../whole-check.service")
    # The console is the check's.
    (services / "serial-getty@ttyS0.service").symlink_to("/dev/null")
    (root / "etc/hostname").write_text("client\n")


def build(folder):
    """Makes kernel, first file system, version and disk; `folder` is what scripts/hosts has laid for the processor."""
    kernel, modules, version = image.kernel(HOST)
    root, disk, first = (FOLDER / f"{name}.{os.getpid()}" for name in ("root", "disk", "cpio.gz"))
    subprocess.run(["cp", "-a", system(), root], check=True)
    lay(folder, root)
    subprocess.run(["mke2fs", "-q", "-t", "ext4", "-d", root, disk, "900M"], check=True)
    shutil.rmtree(root)
    busybox, _ = image.Archive(image.TOOLS_SUITE, HOST.processor.name).unpacked("busybox-static")
    files = [*((name, 0o40755, b"") for name in ("usr", "usr/bin", "dev", "proc", "root", "modules")),
             ("bin", 0o120777, b"usr/bin"), ("sbin", 0o120777, b"usr/bin"), ("init", 0o100755, (FILES / "init").read_bytes()),
             ("usr/bin/busybox", 0o100755, (busybox / "bin/busybox").read_bytes()),
             ("modules/order", 0o100644, "".join(f"{name}\n" for name in MODULES).encode()),
             *((f"modules/{name}.ko", 0o100644, image.module(modules, name)) for name in MODULES)]
    with open(first, "wb") as file:
        subprocess.run(["gzip", "-1"], input=image.cpio(files), stdout=file, check=True)
    return kernel, first, version, disk
