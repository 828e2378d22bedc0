#!/usr/bin/python3
"""Whether scripts/house says clearly what is wrong with an include, in copies of the tree: the compiler finds some of these."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

REPO = pathlib.Path(__file__).resolve().parents[1]
PARTS = ("include", "src", "platform", "watch", "scripts/house", "docs/house.svg")
FILE = "platform/lister/names.h"

# A line that is added to the file, and what is said of it.
FAULTS = [
    ('#include "../../src/front/front.h"', f"house: {FILE} includes a path, ../../src/front/front.h, not the name of a header"),
    ("#include <../front/front.h>", f"house: {FILE} includes a path, ../front/front.h, not the name of a header"),
    ('#include "nonesuch.h"', f"house: {FILE} includes nonesuch.h, and there is no such header"),
    ('#include "scan.h"', "house: these files include each other in a circle: "),
]


def check(copy):
    return subprocess.run([copy / "scripts/house", "--check"], capture_output=True, text=True, check=False)


def main():
    faults = []
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder)
        for part in PARTS:
            (copy / part).parent.mkdir(exist_ok=True)
            (shutil.copytree if (REPO / part).is_dir() else shutil.copy)(REPO / part, copy / part)
        original = (copy / FILE).read_text()
        for line, words in FAULTS:
            (copy / FILE).write_text(f"{original}{line}\n")
            result = check(copy)
            if result.returncode != 1 or not result.stderr.startswith(words):
                faults.append(f"{line}: status {result.returncode}, {result.stderr}")
    sys.exit("\n".join(faults) or 0)


if __name__ == "__main__":
    main()
