"""Exclude lists as the program reads them: one path a line, and a process is left alone if its executable is that file."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import os

DEFAULT = '/usr/quarn/corvane/bin/excludelist.conf'


def parse(text):
    """The entries of a list, as bytes, in its order. Only blanks and tabs are trimmed; a line without a slash or a backslash
    is no entry, and `#` begins a comment only at the beginning of a line."""
    lines = [line.strip(b' \t') for line in text.split(b'\n')]
    return [line for line in lines if not line.startswith(b'#') and (b'/' in line or b'\\' in line)]


def fault(path):
    """Why a path given by an administrator would not be read back from a list as it is, or None."""
    if not path.startswith('/'):
        return 'is no absolute path'
    if '\n' in path or path != path.rstrip(' \t'):
        return 'holds a line end, or ends with a blank'
    return None


def spares(entries, path):
    """Whether a process of this path (bytes) is left alone: the program compares device and inode, never spelling."""
    identity = _identity(path)
    return identity is not None and any(_identity(entry) == identity for entry in entries)


def read(path):
    """The entries of a list; none where it is missing or a directory, as the program has it. For an explicit list the caller
    asks the program itself, which refuses one that cannot be opened."""
    try:
        with open(path, 'rb') as file:
            return parse(file.read())
    except (IOError, OSError):
        return []


def _identity(path):
    """Device and inode. The program is started in the root folder, where an entry that is no absolute path is looked up."""
    try:
        status = os.stat(os.path.join(b'/', path))
    except (OSError, ValueError):
        return None
    return status.st_dev, status.st_ino


def entries_for(module):
    """The entries that hold for a module's run: of its option exclude, of its exclude_file, or of the client's own list."""
    paths = module.params['exclude']
    if paths is None:
        path = module.params['exclude_file'] or DEFAULT
        if not path.startswith('/'):
            # The program and this module would each read it in a folder of their own.
            module.fail_json(msg='exclude_file: %s is no absolute path.' % path)
        return read(path)
    for path in paths:
        if fault(path):
            module.fail_json(msg='exclude: %s %s.' % (path, fault(path)))
    return [path.encode('utf-8', 'surrogateescape') for path in paths]
