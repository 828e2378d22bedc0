"""A fleet whose clients are only a program and its state, each on this machine: no box, no ssh, and not root."""
import json
import os
import shutil
import subprocess

from conftest import REPO

ANSIBLE = """\
[defaults]
collections_path = {root}/fleet
interpreter_python = /usr/bin/python3
local_tmp = {folder}/local
[ssh_connection]
ssh_args = -o Compression=yes
"""
LINE = ("{name} ansible_connection=local ansible_become=false shutdown_executable={client}/cvstop ansible_async_dir={client}/jobs "
        "ansible_remote_tmp={client}/tmp shutdown_poll=1 shutdown_settle=0 {variables}\n")
HALVD = "halvd\t/usr/quarn/corvane/bin/halvd\t801\tCorvane\tends\n"


class Fleet:
    """The clients, their inventory, and Ansible. `place`: the inventory's path below the folder."""

    def __init__(self, folder, place="inventory", **variables):
        """A client for each keyword, with its variables as text."""
        self.folder, self.place = folder, place
        (folder / "ansible.cfg").write_text(ANSIBLE.format(root=REPO, folder=folder))
        (folder / place).parent.mkdir(parents=True, exist_ok=True)
        lines = ""
        for name, text in variables.items():
            client = folder / name
            (client / "state").mkdir(parents=True)
            shutil.copy(REPO / "tests/fleet/program.py", client / "cvstop")
            self.set(name, "processes", HALVD)
            lines += LINE.format(name=name, client=client, variables=text)
        (folder / place).write_text(lines)

    def set(self, name, what, text):
        (self.folder / name / "state" / what).write_text(text)

    def shutdowns(self, name):
        """How often the client was shut down."""
        path = self.folder / name / "state/calls"
        return sum(line.startswith("-k") for line in path.read_text().splitlines()) if path.exists() else 0

    def start(self, playbook, *arguments, inventory=None, variables=None):
        """Starts a playbook of the collection, or the file of that name, in a session of its own; its output is text."""
        name = playbook if playbook.endswith(".yml") else f"quarn.corvane.{playbook}"
        options = ["-i", inventory or self.place] + (["-e", json.dumps(variables)] if variables else [])
        environment = {**os.environ, "ANSIBLE_CONFIG": str(self.folder / "ansible.cfg"), "ANSIBLE_NOCOLOR": "1",
                       "LC_ALL": "C.UTF-8", "ANSIBLE_HOME": str(self.folder / "home")}
        return subprocess.Popen(["ansible-playbook", name, *options, *arguments], env=environment, cwd=self.folder, text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)

    def play(self, *arguments, **more):
        """Runs a playbook to its end."""
        process = self.start(*arguments, **more)
        output = process.communicate()[0]
        return subprocess.CompletedProcess(process.args, process.returncode, output)

    def shut_down(self, *arguments, **more):
        return self.play("shutdown", "-e", "shutdown_confirmed=true", *arguments, **more)

    def records(self, report="report"):
        return {path.stem: json.loads(path.read_text()) for path in (self.folder / report).glob("*.json")}

    def outcomes(self):
        return {name: record["outcome"] for name, record in self.records().items()}

    def failed(self):
        """The lines of failed.txt, None without the file."""
        path = self.folder / "report/failed.txt"
        return path.read_text().split() if path.exists() else None
