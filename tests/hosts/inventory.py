"""The hosts that are booted: which kernel, on which processor, and how qemu is asked for it."""
import dataclasses
import sys


@dataclasses.dataclass(frozen=True)
class Processor:
    """A processor as Debian, uname and qemu name it. Emulated always: an accelerator inside a virtual machine may hang."""
    name: str
    machine: str
    qemu: str
    package: str
    options: tuple
    console: str
    kernel: str
    # The package of NEWER whose qemu is run, where this system's own does not do; it is not installed.
    newer: str = ""


# qemu 7.2 ended programs of s390x with SIGILL now and then, 10.0 has not done so; but POWER does not boot with that.
NEWER = "bookworm-backports"
PROCESSORS = {p.name: p for p in (
    Processor("amd64", "x86_64", "x86_64", "qemu-system-x86", (), "ttyS0", "amd64"),
    Processor("arm64", "aarch64", "aarch64", "qemu-system-arm", ("-M", "virt", "-cpu", "cortex-a57"), "ttyAMA0", "arm64",
              "qemu-system-arm"),
    Processor("ppc64el", "ppc64le", "ppc64", "qemu-system-ppc", ("-M", "pseries", "-cpu", "power9"), "hvc0", "powerpc64le"),
    Processor("s390x", "s390x", "s390x", "qemu-system-misc", (), "ttysclp0", "s390x", "qemu-system-s390x"),
)}


@dataclasses.dataclass(frozen=True)
class Kernel:
    """A kernel of Debian's archive, as its metapackage of the suite has it today."""
    name: str
    debian: int
    suite: str
    processor: Processor

    @property
    def package(self):
        return f"linux-image-{self.processor.kernel}"


SUITES = {11: "bullseye", 12: "bookworm", 13: "trixie"}
KERNELS = {k.name: k for k in (
    Kernel(f"debian{debian}-{name}", debian, SUITES[debian], PROCESSORS[name])
    for debian, name in ((11, "amd64"), (12, "amd64"), (13, "amd64"), (12, "arm64"), (12, "ppc64el"), (12, "s390x")))}
# A whole system, besides its kernel.
WHOLE = Kernel("debian12-whole", 12, SUITES[12], PROCESSORS["amd64"])
HOSTS = {**KERNELS, WHOLE.name: WHOLE}
# Those on which every test has passed: what the documents may call booted. A new one is added when that was seen.
PASSED = ("debian11-amd64", "debian12-amd64", "debian13-amd64", "debian12-arm64", "debian12-ppc64el", "debian12-s390x")
# What CI boots: the oldest kernel, and the processor that has its bytes in another order.
CI = ("debian11-amd64", "debian12-s390x")


def asked_for(names):
    """The hosts of these names, or all."""
    for name in names:
        if name not in HOSTS:
            raise SystemExit(f"hosts: no host is named {name}; there are {', '.join(HOSTS)}")
    return [HOSTS[name] for name in names or HOSTS]


def idle(names):
    """Those of them in which a program that does nothing can take the program's place: not the whole host."""
    if WHOLE.name in names:
        raise SystemExit(f"hosts: {WHOLE.name} is not run with a program that does nothing")
    return names or tuple(KERNELS)


def packages(hosts):
    """What they need of this system: qemu, and for the whole host what makes a Debian and its disk."""
    return tuple(dict.fromkeys(host.processor.package for host in hosts)) + ("debootstrap", "e2fsprogs") * (WHOLE in hosts)


def main(what, *names):
    if what == "machine":
        print(PROCESSORS[names[0]].machine)
        return
    asked = asked_for(idle(names) if what == "idle" else names)
    kinds = {host.name: "a whole" if host is WHOLE else "the kernel of" for host in asked}
    lines = {"list": [f"{host.name:18} {kinds[host.name]} Debian {host.debian} on {host.processor.machine}" for host in asked],
             "names": [" ".join(kernel.name for kernel in asked)],
             "idle": [" ".join(kernel.name for kernel in asked)],
             "ci": CI,
             "processors": dict.fromkeys(kernel.processor.name for kernel in asked),
             "packages": packages(asked)}
    print("\n".join(lines[what]))


if __name__ == "__main__":
    main(*sys.argv[1:])
