"""A client host under qemu, as the program tests see it: they write its tree here, and it is laid there."""
import pathlib
import subprocess

import box

# Time for the host to lay a tree and to give its answer, besides what a job may take itself.
LAY_SECONDS = 120
SETTINGS = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/tmp", "TZ": "UTC", "LC_ALL": "C"}


def store(build):
    """The files that most of a tree consists of: they are in the host once, under these names."""
    files = {"sampled": build / "sandbox/sampled", "libsampled.so": build / "sandbox/libsampled.so",
             "sleeper": build / "sandbox/sleeper", "cvstop": build / "src/cvstop"}
    for catalog in sorted((build / "locale").rglob("*.mo")):
        files[f"{catalog.relative_to(build / 'locale').parts[0]}.mo"] = catalog
    return files


class Client(box.Host):
    """Its tree is made here and laid anew on the host for each run; journal, output and log come back into it."""

    SHELL = pathlib.PurePath("/usr/bin/busybox")

    def __init__(self, machine, build, folder, fleet=""):
        self.machine = machine
        self.known = {path.read_bytes(): name for name, path in store(build).items()}
        self.build = build
        self.tree = box.lay_tree(build, fleet, folder)

    def install(self, file, path, mode=0o755):
        """What the tests take from the machine is another program there, which does the same."""
        if str(file) == "/usr/bin/sleep":
            file = self.build / "sandbox/sleeper"
        return super().install(file, path, mode)

    def _job(self, script, seconds, settings):
        """The files of a job, as the agent wants them."""
        files, blobs = [], {}
        for top, path in ((self.quarn, "/usr/quarn"), (self.tree / "opt", "/opt")):
            for file in sorted(top.rglob("*")):
                inside = f"{path}/{file.relative_to(top)}"
                if file.is_dir():
                    files.append(f"folder - {inside}")
                    continue
                data = file.read_bytes()
                name = self.known.get(data)
                if name is None:
                    blobs[f"blobs/{len(blobs)}"] = data
                    name = f"/job/blobs/{len(blobs) - 1}"
                else:
                    name = f"/store/{name}"
                files.append(f"{file.stat().st_mode & 0o777:o} {name} {inside}")
        return {"files": ("\n".join(files) + "\n").encode(), "script": script.encode(), "seconds": str(seconds).encode(),
                "environment": "\n".join(f"{name}={value}" for name, value in settings.items()).encode(), **blobs}

    def shell(self, script, options=(), timeout=600):
        options = list(options)
        settings = dict(SETTINGS)
        while options:
            key, value, *options = options
            assert key == "--env", f"no such option of a host: {key}"
            name, _, setting = value.partition("=")
            settings[name] = setting
        status, archive = self.machine.run(self._job(script, timeout, settings), timeout + LAY_SECONDS)
        output = b""
        with archive:
            for member in archive:
                if not member.isfile():
                    continue
                data = archive.extractfile(member).read()
                if member.name == "job/output":
                    output = data
                else:
                    target = self.quarn / pathlib.PurePath(member.name).relative_to("usr/quarn")
                    target.parent.mkdir(parents=True, exist_ok=True)
                    target.write_bytes(data)
        return subprocess.CompletedProcess([], status, b"", output)
