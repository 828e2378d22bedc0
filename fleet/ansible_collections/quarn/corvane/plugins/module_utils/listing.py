"""What `cvstop -l` prints, read back. Pure: bytes in, records out, no process is looked at.

    Name     Path                          Pid Category
    -------- ----------------------------- --- -----------
    koka     /usr/quarn/corvane/bin/koka   7   Corvane
    reporter /opt/reports/reporter         13  Third Party

The dashes give the width of each column in characters, while the program pads a cell by its bytes: a cell with letters
beyond ASCII is short of blanks, and its row does not line up. Blanks at the very end of a name or a path cannot be told
from padding, and are lost.
"""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import collections
import re

# name and path as bytes, as the listing has them; category is one of the two below
Process = collections.namedtuple('Process', 'name path pid category')

PRODUCT = 'product'
THIRD_PARTY = 'third_party'
CATEGORIES = {b'Corvane': PRODUCT, b'Third Party': THIRD_PARTY}

DASHES = re.compile(br'^(-+) (-+) (-+) (-+)$')
# The one warning that the program prints before a listing: the run goes on without a debug log.
WARNING = re.compile(br'^Unable to create log file\.')
# Control characters, and those that change the direction of writing.
UNSAFE = re.compile('[\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]')
# A character of UTF-8 has at most so many bytes.
LONGEST = 4


class ListingError(ValueError):
    """The text is no listing that can be read. Never taken for "nothing is running"."""


def characters(cell):
    """The number of characters as the program counts them: a byte that is no UTF-8 is one."""
    return len(cell.decode('utf-8', 'surrogateescape'))


def parse_rows(text):
    """(name, path, pid, category word) of each row, in any language. Raises ListingError."""
    lines = [line for line in text.split(b'\n') if line]
    # Further down it is a process that is called so.
    while lines and WARNING.match(lines[0]):
        lines.pop(0)
    if not lines:
        return []
    dashes = DASHES.match(lines[1]) if len(lines) > 1 else None
    if dashes is None:
        raise ListingError('there is no row of dashes below the first line, %s' % show(lines[0]))
    widths = [len(run) for run in dashes.groups()]
    return [_parse_row(line, widths) for line in lines[2:]]


def parse(text):
    """The processes of a listing in English, in its order; an empty text is an empty listing. Raises ListingError."""
    return [Process(name, path, pid, _category(word)) for name, path, pid, word in parse_rows(text)]


def show(line):
    """Foreign bytes as text for a message or a result: what is no UTF-8, and what a terminal would obey, is escaped."""
    return UNSAFE.sub(_escape, line.decode('utf-8', 'backslashreplace'))


def _escape(match):
    code = ord(match.group())
    return '\\x%02x' % code if code < 256 else '\\u%04x' % code


def _category(word):
    if word not in CATEGORIES:
        raise ListingError('the category %s is neither Corvane nor Third Party: is the listing in English?' % show(word))
    return CATEGORIES[word]


def _parse_row(line, widths):
    left, pid, word = _cut_tail(line, widths)
    # A name holds no slash and a path begins with one.
    start = left.find(b' /') + 1
    name, path = left[:max(start - 1, 0)], left[start:]
    if not start or not (_is_cell(name, widths[0]) and _is_cell(path, widths[1])):
        raise ListingError('the row does not fit its columns: %s' % show(line))
    return name.rstrip(b' '), path.rstrip(b' '), pid, word


def _cut_tail(line, widths):
    """What stands before the pid, the pid, and the category word. The last cell is as many bytes long as its column has
    characters, or longer when its word has letters beyond ASCII, and is then not padded."""
    for length in range(widths[3], widths[3] * LONGEST + 1):
        cell = line[len(line) - length:]
        rest = line[:len(line) - length]
        pid = rest[-widths[2] - 1:-1]
        if (rest.endswith(b' ') and rest[-widths[2] - 2:-widths[2] - 1] == b' ' and _is_cell(cell, widths[3])
                and re.match(br'^[0-9]+ *$', pid)):
            return rest[:-widths[2] - 2], int(pid), cell.rstrip(b' ')
    raise ListingError('the row has no pid where its column is: %s' % show(line))


def _is_cell(cell, width):
    """Whether these bytes are a whole cell: padded to the width, or longer for the sake of letters beyond ASCII."""
    return len(cell) == width or (len(cell) > width and characters(cell) <= width and not cell.endswith(b' '))
