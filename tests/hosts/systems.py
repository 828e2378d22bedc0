#!/usr/bin/python3
"""Where the program runs, system by system, and how that is known: worked out from the kernels that the tests pass on.

  tests/hosts/systems.py          writes the table into README.md and the manual
  tests/hosts/systems.py --check  compares it

A system is its kernel: the program needs nothing else of it.
"""
import dataclasses
import pathlib
import sys

from inventory import KERNELS, PASSED

REPO = pathlib.Path(__file__).resolve().parents[2]
README = REPO / "README.md"
MANUAL = REPO / "packaging/man/where-it-runs.scd"
FOUR = ("x86_64", "aarch64", "ppc64le", "s390x")
TWO = ("x86_64", "aarch64")
# From this kernel on everything that the program cannot do without is answered as on those that are booted. As earlier ones
# answer, it is run by tests/program/test_kernels.py.
WHOLE = (5, 8)


@dataclasses.dataclass(frozen=True)
class System:
    """A system as its maker names it, the kernel that it came with, and the processors that it comes for."""
    name: str
    kernel: tuple
    processors: tuple
    debian: int = 0

    def known(self):
        """How it is known that the program runs there."""
        passed = [KERNELS[name] for name in PASSED if KERNELS[name].debian == self.debian]
        booted = [p for p in self.processors if any(kernel.processor.machine == p for kernel in passed)]
        missing = [p for p in self.processors if p not in booted]
        if len(missing) < len(booted):
            return "booted" + (f"; reckoned on {', '.join(missing)}" if missing else "")
        known = f"booted on {', '.join(booted)}" if booted else f"emulated on {FOUR[0]}" if self.kernel < WHOLE else None
        return f"{known}; else reckoned" if known else "reckoned"

    def row(self):
        return self.name, ".".join(map(str, self.kernel)), ", ".join(self.processors), self.known()


SYSTEMS = (
    System("RHEL 8 and rebuilds", (4, 18), FOUR),
    System("RHEL 9 and rebuilds", (5, 14), FOUR),
    System("RHEL 10 and rebuilds", (6, 12), FOUR),
    System("SLES 12 SP4, SP5", (4, 12), FOUR),
    System("SLES 15, SP1", (4, 12), FOUR),
    System("SLES 15 SP2, SP3", (5, 3), FOUR),
    System("SLES 15 SP4, SP5", (5, 14), FOUR),
    System("SLES 15 SP6, SP7", (6, 4), FOUR),
    System("Ubuntu 18.04", (4, 15), FOUR),
    System("Ubuntu 20.04", (5, 4), FOUR),
    System("Ubuntu 22.04", (5, 15), FOUR),
    System("Ubuntu 24.04", (6, 8), FOUR),
    System("Debian 10", (4, 19), FOUR, 10),
    System("Debian 11", (5, 10), FOUR, 11),
    System("Debian 12", (6, 1), FOUR, 12),
    System("Debian 13", (6, 12), FOUR, 13),
    System("Amazon Linux 2", (4, 14), TWO),
    System("Amazon Linux 2023", (6, 1), TWO),
)
HEAD = ("system", "kernel", "processors", "how that is known")


def booted_kernels():
    """The oldest and the newest kernel that were booted on x86_64, which the documents name beside the table."""
    debians = {KERNELS[name].debian for name in PASSED if KERNELS[name].processor.machine == FOUR[0]}
    kernels = sorted(system.kernel for system in SYSTEMS if system.debian in debians)
    return tuple(".".join(map(str, kernel)) for kernel in (kernels[0], kernels[-1]))


def markdown():
    return "\n".join(f"| {' | '.join(row)} |" for row in (HEAD, ("---",) * 4, *(system.row() for system in SYSTEMS)))


def shown_processors(processors):
    return "all four" if processors == FOUR else ", ".join(processors)


def shown_known(known):
    """Short enough for a manual page: its text says what is behind a colon."""
    for words, short in ((" on ", ": "), ("; reckoned: ", ": not "), ("; else reckoned", "")):
        known = known.replace(words, short)
    return known


def manual():
    rows = [(s.name, s.row()[1], shown_processors(s.processors), shown_known(s.known())) for s in SYSTEMS]
    widths = [max(len(row[column]) for row in (HEAD, *rows)) for column in range(3)]
    lines = ["  ".join((*(cell.ljust(width) for cell, width in zip(row, widths)), row[3])) for row in (HEAD, *rows)]
    return "```\n" + "\n".join(lines) + "\n```\n"


def documents():
    """Each document, as it is and as it must be."""
    readme = README.read_text()
    begin, end = "<!-- where it runs -->\n", "\n<!-- -->"
    before, rest = readme.split(begin)
    yield README, readme, before + begin + "\n" + markdown() + "\n" + rest[rest.index(end):]
    yield MANUAL, MANUAL.read_text() if MANUAL.exists() else "", manual()


def main(*words):
    stale = [(path, wanted) for path, text, wanted in documents() if text != wanted]
    if words == ("--check",):
        if stale:
            raise SystemExit(f"{', '.join(path.name for path, _ in stale)}: not what tests/hosts say; run tests/hosts/systems.py")
        return
    if words:
        raise SystemExit(__doc__)
    for path, wanted in stale:
        path.write_text(wanted)


if __name__ == "__main__":
    main(*sys.argv[1:])
