#!/usr/bin/python3
"""A process that nobody can ask for its arguments: `stuck.py SILENT`, where the server of the file SILENT never hands its
page out. One thread reads that page through /proc/self/mem, for which the kernel takes the process's memory lock, and
keeps it until the page is there (access_remote_vm, mm/memory.c). Another asks for the lock to write, so that whoever comes
after it to read waits, too: among them the reader of /proc/PID/cmdline."""
import ctypes
import mmap
import os
import sys
import threading

libc = ctypes.CDLL(None)
libc.mmap.restype = ctypes.c_void_p
libc.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_long]
libc.munmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t]


def map_page(flags, file):
    return libc.mmap(None, mmap.PAGESIZE, mmap.PROT_READ, flags, file, 0)


page = map_page(mmap.MAP_PRIVATE, os.open(sys.argv[1], os.O_RDONLY))
memory = os.open("/proc/self/mem", os.O_RDONLY)
threading.Thread(target=os.pread, args=(memory, 1, page), daemon=True).start()
while True:
    libc.munmap(map_page(mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS, -1), mmap.PAGESIZE)
