"""What the controller costs: many simulated clients, each a program that answers as the real one does, on this machine.

  tests/fleet/scale.py [CLIENTS] [FORKS]      100 clients, 10 forks

Prints the seconds of the run, and the processor time and memory that Ansible took. The modules run on this machine, too; their
share, which otherwise is the clients', is measured apart.
"""
import json
import pathlib
import resource
import shutil
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
ANSIBLE = """\
[defaults]
collections_path = {root}/fleet
forks = {forks}
interpreter_python = {folder}/python
[connection]
pipelining = true
"""
# Every module starts here, and leaves its processor time.
PYTHON = "#!/bin/sh" """
/usr/bin/python3 "$@"
status=$?
times >>{folder}/times
exit $status
"""
# A usual client: some sixty processes, and a shutdown of twenty seconds.
PROCESSES = "".join(f"daemon{number}\t/usr/quarn/corvane/bin/daemon{number}\t{800 + number}\tCorvane\tends\n"
                    for number in range(60))


def lay(folder, count, forks):
    inventory = "[all]\n"
    for number in range(count):
        client = folder / f"client{number:03}"
        (client / "state").mkdir(parents=True)
        shutil.copy(ROOT / "tests/fleet/program.py", client / "cvstop")
        (client / "state/processes").write_text(PROCESSES)
        (client / "state/takes").write_text("20")
        inventory += (f"{client.name} ansible_connection=local ansible_become=false shutdown_executable={client}/cvstop "
                      f"ansible_async_dir={client}/jobs\n")
    (folder / "inventory").write_text(inventory)
    (folder / "python").write_text(PYTHON.format(folder=folder))
    (folder / "python").chmod(0o755)
    (folder / "ansible.cfg").write_text(ANSIBLE.format(root=ROOT, folder=folder, forks=forks))


def tree_of(pid):
    """The processes below one, it included."""
    found = [pid]
    for path in pathlib.Path(f"/proc/{pid}/task").glob("*/children"):
        for child in path.read_text().split():
            found += tree_of(child)
    return found


def memory(pid):
    """What the processes of Ansible hold for themselves, shared pages counted once, in MiB."""
    total = 0
    for process in tree_of(pid):
        for line in pathlib.Path(f"/proc/{process}/smaps_rollup").read_text().splitlines():
            total += int(line.split()[1]) if line.startswith("Pss:") else 0
    return total / 1024


def watch_memory(process, peak):
    while process.poll() is None:
        try:
            peak.append(memory(process.pid))
        except (OSError, ProcessLookupError):
            pass
        time.sleep(0.5)


def seconds_of(who):
    usage = resource.getrusage(who)
    return usage.ru_utime + usage.ru_stime


def modules_seconds(path):
    """The sum of lines such as `0m0.050000s 0m0.010000s`."""
    total = 0
    for word in path.read_text().split():
        minutes, rest = word.rstrip("s").split("m")
        total += 60 * int(minutes) + float(rest)
    return total


def play(folder, *arguments):
    """Runs a playbook: seconds, processor seconds of it and all its children, peak of memory in MiB, and its output."""
    began, before, peak = time.monotonic(), seconds_of(resource.RUSAGE_CHILDREN), [0]
    process = subprocess.Popen(["ansible-playbook", "-i", "inventory", *arguments], cwd=folder, stdout=subprocess.PIPE, text=True,
                               stderr=subprocess.STDOUT, env={"ANSIBLE_CONFIG": str(folder / "ansible.cfg"), "HOME": str(folder),
                                                              "PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8"})
    thread = threading.Thread(target=watch_memory, args=(process, peak))
    thread.start()
    output = process.communicate()[0]
    thread.join()
    return time.monotonic() - began, seconds_of(resource.RUSAGE_CHILDREN) - before, max(peak), output


def main(count=100, forks=10):
    with tempfile.TemporaryDirectory(dir=ROOT / "build") as name:
        folder = pathlib.Path(name)
        lay(folder, count, forks)
        variables = {"shutdown_confirmed": True, "shutdown_serial": [1, "5%", "25%"], "shutdown_poll": 5}
        took, processor, peak, output = play(folder, "quarn.corvane.shutdown", "-e", json.dumps(variables))
        done = sum('"outcome": "stopped"' in path.read_text() for path in (folder / "report").glob("client*.json"))
        if done != count:
            print(output[-3000:])
        modules = modules_seconds(folder / "times")
        own = processor - modules
        print(f"{done} of {count} clients stopped in {took:.0f} s with {forks} forks. Processor time of the controller "
              f"{own:.0f} s ({own / count:.2f} s a client), of the modules {modules:.0f} s; peak of memory {peak:.0f} MiB.")


if __name__ == "__main__":
    main(*map(int, sys.argv[1:]))
