"""A file system whose server stops answering: `stuckfs.py FOLDER PROGRAM` serves the one file FOLDER/program, with the
bytes of PROGRAM, until it is stopped by a signal (SIGSTOP: it is there, and answers nobody). Speaks the kernel's protocol
7.31 itself (fuse(4), include/uapi/linux/fuse.h)."""
import ctypes
import os
import struct
import sys

LOOKUP, GETATTR, OPEN, READ, RELEASE, INIT, OPENDIR, FORGET, ACCESS, FLUSH = 1, 3, 14, 15, 18, 26, 27, 2, 34, 25
ROOT, FILE = 1, 2
ENOENT, ENOSYS = 2, 38
HEADER = struct.Struct("<IIQQIIII")


def attributes(node, size):
    mode = 0o40755 if node == ROOT else 0o100755
    return struct.pack("<QQQQQQIIIIIIIIII", node, size, (size + 511) // 512, 0, 0, 0, 0, 0, 0, mode, 1, 0, 0, 0, 4096, 0)


def answer(opcode, node, body, data):
    """The payload of a reply, or an errno value."""
    if opcode == INIT:
        return struct.pack("<IIIIHHIIHHI28x", 7, 31, 65536, 0, 16, 16, 65536, 1, 0, 0, 0)
    if opcode == LOOKUP:
        # Looked up again at once: nothing of it may be taken from a cache.
        return struct.pack("<QQQQII", FILE, 0, 0, 0, 0, 0) + attributes(FILE, len(data)) if body == b"program\0" else ENOENT
    if opcode == GETATTR:
        return struct.pack("<QII", 0, 0, 0) + attributes(node, len(data) if node == FILE else 0)
    if opcode in (OPEN, OPENDIR):
        return struct.pack("<QII", 1, 0, 0)
    if opcode == READ:
        offset, size = struct.unpack_from("<8xQI", body)
        return data[offset:offset + size]
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
    while True:
        request = os.read(device, 1 << 20)
        _, opcode, unique, node, _, _, _, _ = HEADER.unpack_from(request)
        if opcode == FORGET:
            continue
        reply = answer(opcode, node, request[HEADER.size:], data)
        error, payload = (-reply, b"") if isinstance(reply, int) else (0, reply)
        os.write(device, struct.pack("<IiQ", 16 + len(payload), error, unique) + payload)


if __name__ == "__main__":
    main()
