"""The role's decisions, on clients that are only programs: what runs, in which order, and what is kept of it."""
from local import Fleet


def test_nobody_is_left_and_the_rest_again_is_nobody(tmp_path):
    """An empty file after --limit @ would mean every client."""
    fleet = Fleet(tmp_path, one="", two="")
    fleet.set("two", "status", "55")
    assert fleet.shut_down("-e", "shutdown_max_fail_percentage=100").returncode == 2
    assert fleet.failed() == ["two"]
    (tmp_path / "two/state/status").unlink()
    assert fleet.shut_down("--limit", "@report/failed.txt").returncode == 0
    assert fleet.failed() is None
    again = fleet.shut_down("--limit", "@report/failed.txt")
    assert again.returncode != 0 and "Unable to find limit file" in again.stdout
    assert (fleet.shutdowns("one"), fleet.shutdowns("two")) == (1, 1)
