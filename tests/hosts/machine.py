"""A host that runs under qemu, and its console: jobs go in, archives of what became of them come out."""
import base64
import io
import os
import re
import selectors
import subprocess
import tarfile
import time

from archive import Archive, native
from inventory import NEWER

MEMORY = "1024"
# Everything takes about eight times as long as on a real host; a program's own waits do not.
BOOT_SECONDS = 300
ANSWER = re.compile(rb"^answer (\d+)$")


class Broken(Exception):
    """The host does not boot, or says no more."""


def emulator(processor):
    """The command that emulates the processor."""
    program, firmware = f"qemu-system-{processor.qemu}", []
    if processor.newer:
        archive = Archive(NEWER, native())
        program = archive.unpacked(processor.newer)[0] / "usr/bin" / program
        firmware = ["-L", archive.unpacked("qemu-system-data")[0] / "usr/share/qemu"]
    return [program, *firmware, "-accel", "tcg", *processor.options]


class Machine:
    """Boots a host. Its first file system, and `disk`, what it finds there besides, if anything, are removed at the end."""

    def __init__(self, host, kernel, initramfs, version, disk=None):
        self.host, self.version = host, version
        self.files = [file for file in (initramfs, disk) if file]
        self.selector = selectors.DefaultSelector()
        self.qemu = None
        self.pending = b""
        self.said = b""
        try:
            self._start(kernel, initramfs, disk)
            # POWER's kernel begins a line before that it does not end.
            self._until(lambda line: line.endswith(b"ready"), BOOT_SECONDS)
        except Exception:
            self.close()
            raise

    def _start(self, kernel, initramfs, disk):
        # Nothing of this machine's is there, and what is written to a disk is lost.
        drive = ["-drive", f"file={disk},format=raw,if=virtio,snapshot=on"] if disk else []
        self.qemu = subprocess.Popen(
            [*emulator(self.host.processor), "-m", MEMORY, "-nodefaults", "-display", "none", "-serial", "stdio", "-no-reboot",
             *drive, "-kernel", kernel, "-initrd", initramfs, "-append",
             f"console={self.host.processor.console} quiet loglevel=1 panic=-1 mitigations=off"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, bufsize=0)
        os.set_blocking(self.qemu.stdout.fileno(), False)
        self.selector.register(self.qemu.stdout, selectors.EVENT_READ)

    def __str__(self):
        return f"{self.host.name}, Linux {self.version}"

    def _fault(self, what):
        self.qemu.kill()
        return Broken(f"{self.host.name} {what}; its console ended with: {self.said[-2000:].decode(errors='replace')}")

    def _line(self, deadline):
        while b"\n" not in self.pending:
            if not self.selector.select(max(0, deadline - time.monotonic())):
                raise self._fault("does not answer in time")
            data = self.qemu.stdout.read(65536)
            if not data:
                raise self._fault("ended")
            self.pending += data
            self.said = self.said[-20000:] + data
        line, self.pending = self.pending.split(b"\n", 1)
        return line.rstrip(b"\r")

    def _until(self, wanted, seconds):
        """The lines up to the one that is wanted, and that one."""
        deadline = time.monotonic() + seconds
        lines = []
        while not lines or not wanted(lines[-1]):
            lines.append(self._line(deadline))
        return lines

    def run(self, files, seconds):
        """Gives the host a job, an archive of these (name, bytes); returns its status and the archive of what became of it."""
        buffer = io.BytesIO()
        with tarfile.open(fileobj=buffer, mode="w:gz") as archive:
            for name, data in files.items():
                info = tarfile.TarInfo(name)
                info.size = len(data)
                archive.addfile(info, io.BytesIO(data))
        text = base64.encodebytes(buffer.getvalue())
        self.qemu.stdin.write(b"job %d\n%b" % (text.count(b"\n"), text))
        return self.answer(seconds)

    def answer(self, seconds):
        """Waits for the status and the archive of a job."""
        answer = self._until(ANSWER.match, seconds)[-1]
        lines = self._until(lambda line: line == b".", BOOT_SECONDS)[:-1]
        return int(ANSWER.match(answer)[1]), tarfile.open(fileobj=io.BytesIO(base64.b64decode(b"".join(lines))))

    def close(self):
        if self.qemu:
            self.qemu.kill()
            self.qemu.wait()
        self.selector.close()
        for file in self.files:
            file.unlink()
