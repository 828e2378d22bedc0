"""A file system whose server does not always answer: `stuckfs.py FOLDER PROGRAM` serves FOLDER/program, with the bytes of
PROGRAM, until it is stopped by a signal (SIGSTOP: it is there, and answers nobody); FOLDER/silent, a page that it never hands
out; and FOLDER/once, a script that the first who looks for it finds, while all others get no answer. When the server ends, all
who wait for it are released with an error. Speaks the kernel's protocol 7.31 itself (fuse(4), include/uapi/linux/fuse.h)."""
import ctypes
import os
import struct
import sys

LOOKUP, GETATTR, OPEN, READ, RELEASE, INIT, OPENDIR, FORGET, ACCESS, FLUSH = 1, 3, 14, 15, 18, 26, 27, 2, 34, 25
ROOT, PROGRAM, SILENT, ONCE = 1, 2, 3, 4
PAGE = 4096
KEEP_CACHE = 2
ENOENT, ENOSYS = 2, 38
SCRIPT = b": >/tmp/found\nread line </tmp/fifo\n"
HEADER = struct.Struct("<IIQQIIII")


def attributes(node, size):
    mode = 0o40755 if node == ROOT else 0o100755
    return struct.pack("<QQQQQQIIIIIIIIII", node, size, (size + 511) // 512, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


def answer(opcode, node, body, data, found_once):
    """The payload of a reply, or an errno value; None where there is none."""
    sizes = {ROOT: 0, PROGRAM: len(data), SILENT: PAGE, ONCE: len(SCRIPT)}
    if opcode == INIT:
        return struct.pack("<IIIIHHIIHHI28x", 7, 31, 65536, 0, 16, 16, 65536, 1, 0, 0, 0)
    if opcode == LOOKUP:
        found = {b"program\0": PROGRAM, b"silent\0": SILENT, b"once\0": ONCE}.get(body)
        if found == ONCE and found_once:
            return None
        found_once += [found] if found == ONCE else []
        # Looked up again at once: nothing of it may be taken from a cache.
        return struct.pack("<QQQQII", found, 0, 0, 0, 0, 0) + attributes(found, sizes[found]) if found else ENOENT
    if opcode == GETATTR:
        return struct.pack("<QII", 0, 0, 0) + attributes(node, sizes[node])
    if opcode in (OPEN, OPENDIR):
        # Dropping the cached page at a second open would wait for the first reader.
        return struct.pack("<QII", 1, KEEP_CACHE if node == SILENT else 0, 0)
    if opcode == READ and node == SILENT:
        return None
    if opcode == READ:
        offset, size = struct.unpack_from("<8xQI", body)
        return (SCRIPT if node == ONCE else data)[offset:offset + size]
    return b"" if opcode in (RELEASE, ACCESS, FLUSH) else ENOSYS


def main():
    folder, program = sys.argv[1:]
    with open(program, "rb") as file:
        data = file.read()
    device = os.open("/dev/fuse", os.O_RDWR)
    options = f"fd={device},rootmode=40000,user_id=0,group_id=0,allow_other"
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.mount(b"stuck", folder.encode(), b"fuse", 0, options.encode()) != 0:
        sys.exit(os.strerror(ctypes.get_errno()))
    print("mounted", flush=True)
    found_once = []
    while True:
        request = os.read(device, 1 << 20)
        _, opcode, unique, node, _, _, _, _ = HEADER.unpack_from(request)
        if opcode == FORGET:
            continue
        reply = answer(opcode, node, request[HEADER.size:], data, found_once)
        if reply is None:
            continue
        error, payload = (-reply, b"") if isinstance(reply, int) else (0, reply)
        os.write(device, struct.pack("<IiQ", 16 + len(payload), error, unique) + payload)


if __name__ == "__main__":
    main()
