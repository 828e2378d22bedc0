"""What became of a client's processes. Pure: what was listed before and after, and what the program said in between."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import re

from ansible_collections.quarn.corvane.plugins.module_utils import excludelist, listing

SIGNALED = re.compile(br'^Signaling process (.*)$', re.M)
TERMINATED = re.compile(br'^Terminating third party process, .* pid-([0-9]+)$', re.M)


def describe(process, **more):
    """A process as a module returns it."""
    return dict(more, name=listing.show(process.name), path=listing.show(process.path), pid=process.pid,
                category=process.category)


def split_spared(processes, entries):
    """(those that the exclude list names, the others)."""
    spared = [process for process in processes if excludelist.spares(entries, process.path)]
    return spared, [process for process in processes if process not in spared]


def is_listed_only(process, found, said):
    """Whether a third party that is left was never signalled: the listing calls all third parties the same, so this is what
    the program did not say. A signal is told by its path alone, and so counts for each process of that path, unless one that
    was found there is known to have got it."""
    if process.category != listing.THIRD_PARTY:
        return False
    terminated = [int(pid) for pid in TERMINATED.findall(said)]
    if process.pid in terminated:
        return False
    told_apart = process in found and any(
        other.pid in terminated for other in found if other.path == process.path)
    return told_apart or process.path not in SIGNALED.findall(said)


class Verdict(object):
    """What became of the processes that were found."""

    def __init__(self, found, left, entries, said):
        self.found = found
        self.spared, others = split_spared(left, entries)
        self.listed_only = [process for process in others if is_listed_only(process, found, said)]
        self.survivors = [process for process in others if process not in self.listed_only]
        self.stopped = [process for process in found if process not in left]

    @property
    def changed(self):
        return bool(self.stopped or self.survivors)

    @property
    def outcome(self):
        if self.survivors:
            return 'survivors'
        return 'stopped' if self.stopped else 'nothing'

    def result(self):
        return dict(
            changed=self.changed, outcome=self.outcome,
            found=[describe(process) for process in self.found],
            stopped=[describe(process) for process in self.stopped],
            spared=[describe(process) for process in self.spared],
            listed_only=[describe(process) for process in self.listed_only],
            # One that was not there before was started again by a supervisor.
            survivors=[describe(process, new=process not in self.found) for process in self.survivors])
