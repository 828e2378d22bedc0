"""Runs in the box: refuse.py CALL ERRNO COMMAND..., which ends as the command does, for which that system call always fails.
A filter that is older than the call refuses it in this way, and so does a kernel."""
import ctypes
import errno
import os
import platform
import struct
import sys

NUMBERS = {"statx": {"x86_64": 332, "aarch64": 291, "ppc64le": 383, "s390x": 379},
           "ioctl": {"x86_64": 16, "aarch64": 29, "ppc64le": 54, "s390x": 54}}
NEWER = {"clone3": 435, "openat2": 437}  # on every processor
LOAD_NUMBER, JUMP_IF_EQUAL, ANSWER = 0x20, 0x15, 0x06  # BPF_LD|BPF_W|BPF_ABS, BPF_JMP|BPF_JEQ|BPF_K, BPF_RET|BPF_K
ALLOW, FAIL = 0x7FFF0000, 0x00050000  # SECCOMP_RET_ALLOW, SECCOMP_RET_ERRNO
PR_SET_SECCOMP, SECCOMP_MODE_FILTER, PR_SET_NO_NEW_PRIVS = 22, 2, 38


def instruction(code, value, if_equal=0, if_not=0):
    return struct.pack("HBBI", code, if_equal, if_not, value)


call, error, *command = sys.argv[1:]
number = NEWER.get(call) or NUMBERS[call][platform.machine()]
filtered = b"".join([instruction(LOAD_NUMBER, 0), instruction(JUMP_IF_EQUAL, number, 0, 1),
                     instruction(ANSWER, FAIL | getattr(errno, error)), instruction(ANSWER, ALLOW)])
buffer = ctypes.create_string_buffer(filtered)
program = struct.pack("HxxxxxxP", len(filtered) // 8, ctypes.addressof(buffer))
libc = ctypes.CDLL(None, use_errno=True)
if libc.prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 or libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, program) != 0:
    raise OSError(ctypes.get_errno(), "no filter can be set")
os.execv(command[0], command)
