#!/usr/bin/python3 -ES
"""A program that answers as cvstop does, for clients that are no boxes. Beside it lies a folder `state`:

  processes   the rows of the listing: name, path, pid, category word, and what becomes of it: "ends", "stays", or the name of
              a file that says so; a line each, tabs in between
  status      the exit status of every run, where it is to be another than 0 or 1
  says        what is printed instead of a listing
  spoils, removes     the folder of Ansible's jobs: a shutdown makes sure that no result can be written, or removes it
  gone        the number of listings after which what ends has ended, as if somebody else had stopped it
  calls       what it was called with and in which language, a line each: it is written here
"""
import os
import shutil
import sys
import time

HERE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "state")


def characters(cell):
    return len(cell.decode("utf-8", "surrogateescape"))


def printed(rows, labels=(b"Name", b"Path", b"Pid", b"Category"), words=(b"Corvane", b"Third Party")):
    """What the program prints for rows of bytes: widths in characters, padding by bytes."""
    widths = [max(characters(row[column]) for row in [labels, *rows]) for column in range(4)]
    widths[3] = max(widths[3], *(characters(word) for word in words))
    lines = [labels, tuple(b"-" * width for width in widths), *rows]
    return b"".join(b" ".join(cell.ljust(width) for cell, width in zip(line, widths)) + b"\n" for line in lines)


def read(name, default=b""):
    try:
        with open(os.path.join(HERE, name), "rb") as file:
            return file.read()
    except FileNotFoundError:
        return default


def write(name, data, mode="wb"):
    with open(os.path.join(HERE, name), mode) as file:
        file.write(data)


def shut_down(rows, third_party):
    """Prints a shutdown and keeps what stays of it; pids of the listing are nobody's, nothing is signalled."""
    out = b"Gathering process information.\n"
    kept = []
    time.sleep(float(read("takes", b"0")))
    if folder := read("spoils").decode():
        for name in os.listdir(folder):
            # Where async_wrapper writes its draft.
            os.mkdir(os.path.join(folder, name + ".tmp"))
    if folder := read("removes"):
        shutil.rmtree(folder)
    for row in rows:
        if row[3] == b"Third Party" and not third_party:
            kept.append(row)
            continue
        if row[4] != b"listed":
            out += b"Signaling process " + row[1] + b"\n"
        if row[4] != b"ends":
            kept.append(row)
    write("processes", b"".join(b"\t".join(row) + b"\n" for row in kept))
    return out


def main(arguments):
    write("calls", (" ".join(arguments) + f" LC_ALL={os.environ.get('LC_ALL')}\n").encode(), "ab")
    if said := read("says"):
        sys.stdout.buffer.write(said)
        return int(read("status", b"0"))
    if status := int(read("status", b"0")):
        return status
    if read("gone") and read("calls").count(b"-l") > int(read("gone")):
        write("processes", b"".join(line for line in read("processes").splitlines(True) if line.endswith(b"listed\n")))
    rows = [tuple(line.split(b"\t")) for line in read("processes").splitlines()]
    if "-k" in arguments:
        sys.stdout.buffer.write(shut_down(rows, "-3" in arguments))
        return 1 if rows else 0
    shown = [row[:4] for row in rows if "-3" in arguments or row[3] == b"Corvane"]
    if shown:
        sys.stdout.buffer.write(printed(shown))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
