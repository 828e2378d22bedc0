"""The README's command for a fleet, as it stands."""
import os
import re
import subprocess

import box
import pytest
from conftest import REPO


@pytest.mark.usefixtures("boxes")
def test_the_demo_of_the_readme():
    command = re.search(r"<!-- run: fleet -->\n *```sh\n *(.*)\n", (REPO / "README.md").read_text()).group(1)
    shown = subprocess.run(["bash", "-ec", command], cwd=REPO, capture_output=True, text=True, check=False,
                           env={**os.environ, "CVSTOP_BUILD": str(box.BUILD)})
    assert shown.returncode == 0, shown.stdout[-3000:] + shown.stderr[-3000:]
    assert re.search(r"^9 clients down: 8 stopped \(the slowest, db1, in [0-9.]+ s\), 1 with nothing to stop", shown.stdout, re.M)
    assert shown.stdout.count("\nlost1   unreachable") == 3, "in both previews and in the report"
    report = REPO / "build/fleet/demo/report"
    assert (report / "failed.txt").read_text() == "lost1\n"
    assert len(list(report.glob("*.json"))) == 10
