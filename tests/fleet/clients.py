"""A fleet of client hosts in boxes, each with an sshd of its own that the real OpenSSH client reaches without a network: its
ProxyCommand enters the box and starts sshd there, for that one connection."""
import collections
import contextlib
import os
import pathlib
import subprocess
import time

import box

ROOT = pathlib.Path(__file__).resolve().parents[2]
SSHD = """\
HostKey /opt/ssh/host_key
AuthorizedKeysFile /opt/ssh/authorized_keys
PermitRootLogin yes
StrictModes no
UsePAM no
PidFile none
Subsystem sftp internal-sftp
"""
# Without a ControlPath of its own a connection would be kept by the client's name alone, and lead into another fleet's box.
ANSIBLE = """\
[defaults]
collections_path = {root}/fleet
inventory = {folder}/inventory
forks = {forks}
timeout = 60
retry_files_enabled = false
interpreter_python = /usr/bin/python3
remote_user = root
local_tmp = {folder}/local
[ssh_connection]
ssh_common_args = -F {folder}/ssh_config -o ControlPath=none
"""
SSH = """\
Host {name}
  ProxyCommand {proxy}
"""
# The default exchange of keys is most of what a short connection costs.
SSH_FOR_ALL = """\
Host *
  User root
  IdentityFile {folder}/key
  IdentitiesOnly yes
  StrictHostKeyChecking no
  UserKnownHostsFile /dev/null
  LogLevel ERROR
  KexAlgorithms curve25519-sha256
"""
# Before a connection, a look whether the line is cut; its pid, so that a test can cut it later.
PROXY = "#!/bin/sh" """
[ ! -e {folder}/{name}.cut ] || {{ : >{folder}/{name}.refused; exit 1; }}
echo $$ >>{folder}/{name}.connections
exec nsenter --target {pid} --mount --pid --net --ipc --uts --root --wd -- /usr/sbin/sshd -i -f /opt/ssh/sshd_config
"""
# The box ends with its standard input, so with whoever started it. Ansible needs a home that it can write.
BOX = """\
mount -t tmpfs tmpfs /root && mkdir -p /run/sshd /root/.ansible || exit 98
{setup}
/opt/starter/start --start /usr/quarn/sandbox/fleet || exit 99
: >/usr/quarn/sandbox/up
exec cat
"""
TIMEOUT = 3600
WATCH = box.BUILD / "watch/cvstop-watch"
# Where its package puts it: beside the product, never in it.
WATCHED = ("mkdir /tmp/upper /tmp/work && mount -t overlay -o lowerdir=/usr/sbin,upperdir=/tmp/upper,workdir=/tmp/work overlay "
           "/usr/sbin && cp /opt/watch/cvstop-watch /usr/sbin")


def children(pid):
    """The pids of a process's children."""
    try:
        return [int(word) for path in pathlib.Path(f"/proc/{pid}/task").glob("*/children") for word in path.read_text().split()]
    except OSError:
        return []


def descendants(pid):
    for child in children(pid):
        yield child
        yield from descendants(child)


def is_in_a_box(pid):
    """Whether a process lives in a pid namespace below ours: the kernel then names it with two pids."""
    return any(len(line.split()) > 2 for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
               if line.startswith("NSpid:"))


def wait_for(condition, what, seconds=600):
    """Waits until a condition holds; its answer. The time is one that no busy machine takes."""
    deadline = time.monotonic() + seconds
    while not (answer := condition()):
        if time.monotonic() > deadline:
            raise TimeoutError(f"waited {seconds} s for {what}")
        time.sleep(0.02)
    return answer


class Client:
    """One client host. `setup` is shell text that runs in the box before its daemons start."""

    def __init__(self, fleet, name, daemons="", setup="", reachable=True):
        self.fleet, self.name, self.setup, self.reachable = fleet, name, setup, reachable
        self.host = box.Host(fleet.folder / "trees" / name, daemons)
        self.process = self.inside = None

    def start(self):
        self.host.write("/opt/ssh/sshd_config", SSHD)
        if WATCH.exists():
            self.host.install(WATCH, "/opt/watch/cvstop-watch")
        self.host.install(self.fleet.folder / "host_key", "/opt/ssh/host_key", 0o600)
        self.host.install(self.fleet.folder / "key.pub", "/opt/ssh/authorized_keys", 0o600)
        with open(self.fleet.folder / f"{self.name}.log", "wb") as log:
            self.process = subprocess.Popen(
                [ROOT / "sandbox/box", "--tree", self.host.tree, "--timeout", str(TIMEOUT), "--", "sh", "-c",
                 BOX.format(setup=self.setup)], stdin=subprocess.PIPE, stdout=log, stderr=log)

    def await_start(self):
        def is_up():
            if self.process.poll() is not None:
                raise RuntimeError(f"{self.name} ended: " + (self.fleet.folder / f"{self.name}.log").read_text())
            return (self.host.quarn / "sandbox/up").exists()
        wait_for(is_up, f"{self.name} to start")
        self.inside = next(pid for pid in descendants(self.process.pid) if is_in_a_box(pid))
        proxy = self.proxy()
        proxy.write_text(PROXY.format(folder=self.fleet.folder, name=self.name, pid=self.inside)
                         if self.reachable else "#!/bin/sh\nexit 1\n")
        proxy.chmod(0o755)

    def proxy(self):
        return self.fleet.folder / f"{self.name}.proxy"

    def stop(self):
        if self.process is not None:
            self.process.stdin.close()
            self.process.wait()

    def cut(self):
        """Cuts the client's line: no new connection, and an end of those that there are."""
        (self.fleet.folder / f"{self.name}.cut").touch()
        connections = self.fleet.folder / f"{self.name}.connections"
        for pid in {int(line) for line in connections.read_text().split()}:
            # It may end by itself meanwhile.
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):
                for child in children(pid):
                    if os.path.basename(os.readlink(f"/proc/{pid}/exe")) == "nsenter":
                        os.kill(child, 9)

    def was_refused(self):
        """Whether anybody tried to reach the client while its line was cut."""
        return (self.fleet.folder / f"{self.name}.refused").exists()

    def mend(self):
        (self.fleet.folder / f"{self.name}.cut").unlink()

    def journal(self):
        return [line.split("\t") for line in self.host.file("journal").splitlines()]

    def touched(self):
        """What happened to the client's daemons: every signal, every end, and every stop command."""
        return [words for words in self.journal()
                if words[1] in ("signal", "end") or (words[1] == "start" and words[4:5] not in (["--serve"], ["--start"]))]

    def ended(self):
        """The names of daemons that wrote down their end, and how often. One that is killed writes nothing."""
        return collections.Counter(words[3] for words in self.journal() if words[1] == "end")

    def running(self):
        """The names of the daemons that run now, by the process table."""
        ready = {int(words[2]): words[3] for words in self.journal() if words[1] == "ready"}
        alive = set()
        for pid in descendants(self.process.pid):
            try:
                status = pathlib.Path(f"/proc/{pid}/status").read_text()
            except OSError:
                continue
            fields = dict(line.split(":\t", 1) for line in status.splitlines() if ":\t" in line)
            if not fields["State"].startswith(("Z", "X")):
                alive.add(int(fields["NSpid"].split()[-1]))
        return collections.Counter(name for pid, name in ready.items() if pid in alive)


class Fleet:
    """The clients, their inventory, and Ansible on the controller's side."""

    def __init__(self, folder, forks=10):
        self.folder = pathlib.Path(folder).resolve()
        self.folder.mkdir(parents=True)
        self.clients = {}
        for key in ("key", "host_key"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", self.folder / key], check=True)
        (self.folder / "ansible.cfg").write_text(ANSIBLE.format(root=ROOT, folder=self.folder, forks=forks))

    def add(self, name, daemons="", variables="", **more):
        client = self.clients[name] = Client(self, name, daemons, **more)
        client.variables = variables
        return client

    def __getitem__(self, name):
        return self.clients[name]

    def start(self):
        for client in self.clients.values():
            client.start()
        for client in self.clients.values():
            client.await_start()
        (self.folder / "ssh_config").write_text("".join(
            SSH.format(name=client.name, proxy=client.proxy()) for client in self.clients.values())
            + SSH_FOR_ALL.format(folder=self.folder))
        (self.folder / "inventory").write_text("[all]\n" + "".join(
            f"{client.name} {client.variables}\n" for client in self.clients.values()))

    def stop(self):
        for client in self.clients.values():
            client.stop()

    def environment(self):
        return {**os.environ, "ANSIBLE_CONFIG": str(self.folder / "ansible.cfg"), "ANSIBLE_NOCOLOR": "1", "LC_ALL": "C.UTF-8",
                "ANSIBLE_HOME": str(self.folder / "home")}

    def command(self, playbook, *arguments):
        return ["ansible-playbook", f"quarn.corvane.{playbook}", *arguments]

    def play(self, playbook, *arguments, **more):
        """Runs a playbook to its end; its output is text."""
        return subprocess.run(self.command(playbook, *arguments), env=self.environment(), cwd=self.folder, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False, **more)
