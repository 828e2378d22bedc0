"""The demo of a fleet: ten clients, a stubborn and an unreachable one among them, seen, stopped in waves and reported."""
import json
import pathlib
import shutil
import subprocess
import sys

sys.path[:0] = [str(pathlib.Path(__file__).resolve().parents[1] / "program")]

import clients  # noqa: E402  (found through the path above)

B = "/usr/quarn/corvane/bin"
FOLDER = clients.ROOT / "build/fleet/demo"
USUAL = "".join(f"{B}/{name}\n" for name in ("halvd", "koka", "kefid", "pazed", "nohawipa", "wozim")) + f"{B}/wusivov count=2\n"
WAVES = {"shutdown_confirmed": True, "shutdown_serial": [1, 3, 6], "shutdown_max_fail_percentage": 40, "shutdown_poll": 1}


def lay_fleet():
    """Ten clients, all with cvstop-watch if it is built: it draws who held a stop up."""
    fleet = clients.Fleet(FOLDER)
    setup = clients.WATCHED if clients.WATCH.exists() else ""
    for number in range(1, 7):
        fleet.add(f"web{number}", USUAL + f"{B}/gowid stop={number}\n", setup=setup)
    fleet.add("db1", USUAL + f"{B}/momuhe ignore=all\n", setup=setup)
    fleet.add("db2", USUAL, setup=setup, variables=f"""shutdown_exclude='["{B}/koka"]'""")
    fleet.add("idle1")
    fleet.add("lost1", USUAL, reachable=False)
    return fleet


def step(title, text):
    bold = ("\033[1m", "\033[0m") if sys.stdout.isatty() else ("", "")
    print(f"\n{bold[0]}== {title}{bold[1]}\n{text}\n", flush=True)


def play(fleet, playbook, *arguments):
    """Shows a run of Ansible but for its many lines that say that all is well."""
    print("$ ansible-playbook", f"quarn.corvane.{playbook}", *arguments, flush=True)
    environment = {**fleet.environment(), "ANSIBLE_DISPLAY_OK_HOSTS": "no", "ANSIBLE_DISPLAY_SKIPPED_HOSTS": "no"}
    if sys.stdout.isatty():
        environment |= {"ANSIBLE_NOCOLOR": "0", "ANSIBLE_FORCE_COLOR": "1"}
    return subprocess.run(fleet.command(playbook, *arguments), env=environment, cwd=fleet.folder, check=False).returncode


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    fleet = lay_fleet()
    try:
        step("Start", "Ten client hosts, each a box with daemons of its own and an sshd.")
        fleet.start()
        step("Preview", "What runs on them. Nothing is touched; lost1 does not answer.")
        play(fleet, "preview")
        step("Shut down", "One client first, then three, then six. db1 has a daemon that obeys nobody: it costs half a minute,\n"
             "and is killed. db2 keeps what its exclude list names. lost1 counts against the limit of failures, 40 % here.")
        (fleet.folder / "waves.json").write_text(json.dumps(WAVES, indent=1) + "\n")
        status = play(fleet, "shutdown", "-e", "@waves.json")
        step("What is left", f"Ansible ended with status {status}: a client needs a person. A second run asks only that one.")
        print(f"$ cat report/failed.txt\n{(fleet.folder / 'report/failed.txt').read_text()}")
        print(f"The report: {fleet.folder / 'report/index.html'}")
    finally:
        fleet.stop()


if __name__ == "__main__":
    main()
