#!/usr/bin/python
# Copyright 2026 cvstop maintainers. All rights reserved.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: cvstop
short_description: Shut down the Corvane backup software on a client
description:
  - Lists what runs, shuts it down with C(cvstop -k) if there is anything, and lists again until nothing is left.
  - Nothing found is C(changed=false). In check mode it only lists, and shows as its diff what would be stopped.
  - It has no time limit on purpose. A shutdown that is killed halfway is worse than a slow one. Run it with C(async) and poll it,
    as the role C(quarn.corvane.shutdown) does.
  - A second run on the same client waits until the first has ended, and then lists.
version_added: 1.0.0
author:
  - cvstop maintainers (@cvstop)
options:
  state:
    description: What to bring about.
    type: str
    choices: [stopped]
    default: stopped
  third_party:
    description: Whether to end other people's processes that run the product's code, too.
    type: bool
    default: false
  exclude:
    description:
      - Absolute paths of executables whose processes are left alone.
      - They take the place of the client's own exclude list, F(/usr/quarn/corvane/bin/excludelist.conf).
    type: list
    elements: str
  exclude_file:
    description: An exclude list on the client, by its absolute path, used instead of its own one. It must be there.
    type: path
  settle:
    description:
      - Seconds to list again after the shutdown while something is left.
      - A stop command may take a moment to end, and is listed until then.
    type: int
    default: 5
  on_survivors:
    description: Whether processes that are left, and should not be, are a failure or a warning.
    type: str
    choices: [fail, warn]
    default: fail
  watch:
    description:
      - Whether to run the shutdown under C(cvstop-watch), which tells who held it up.
      - C(auto) does so where it is installed, and goes on without where it fails.
    type: str
    choices: ['true', 'false', auto]
    default: auto
  watch_executable:
    description: The program C(cvstop-watch) on the client, where it is neither in F(/usr/sbin) nor in PATH.
    type: path
  executable:
    description: The program on the client.
    type: path
    default: /usr/quarn/corvane/bin/cvstop
attributes:
  check_mode:
    description: Can run in check mode, and then only lists.
    support: full
  diff_mode:
    description: Shows which processes are there before and after.
    support: full
  async:
    description: Can be run with C(async), and should.
    support: full
  platform:
    description: Operating systems that it runs on.
    platforms: linux
    support: full
requirements:
  - Python 3.6 on the client, its standard library alone
  - cvstop on the client
  - root on the client (I(become))
notes:
  - The listing has one word for all third parties. Which of them are never signalled is known only after a shutdown, so check
    mode counts all of them as what would be stopped.
  - The program is asked for English whatever the client speaks, and never through a shell.
seealso:
  - module: quarn.corvane.cvstop_info
'''

EXAMPLES = r'''
- name: See what would be stopped
  quarn.corvane.cvstop:
  become: true
  check_mode: true
  diff: true

- name: Shut the product down, whatever time it takes
  quarn.corvane.cvstop:
    exclude:
      - /usr/quarn/corvane/bin/koka
  become: true
  async: 86400
  poll: 5

- name: Shut down, with programs that run the product's code, and go on where a daemon resists
  quarn.corvane.cvstop:
    third_party: true
    on_survivors: warn
  become: true
'''

RETURN = r'''
outcome:
  description: C(nothing) ran, it is C(stopped), there are C(survivors), or, in check mode, something is C(running).
  returned: when the client could be listed
  type: str
  sample: stopped
found:
  description: What ran before, as dictionaries of name, path, pid and category (C(product) or C(third_party)).
  returned: when the client could be listed
  type: list
  elements: dict
  sample: [{name: koka, path: /usr/quarn/corvane/bin/koka, pid: 812, category: product}]
stopped:
  description: Those of them that are gone.
  returned: when not in check mode
  type: list
  elements: dict
  sample: []
survivors:
  description: What is left and should not be. C(new) tells that it was not there before, so that a supervisor started it again.
  returned: when not in check mode
  type: list
  elements: dict
  sample: [{name: momuhe, path: /usr/quarn/corvane/bin/momuhe, pid: 815, category: product, new: false}]
spared:
  description: What is left because the exclude list names it; in check mode, what would be.
  returned: when the client could be listed
  type: list
  elements: dict
  sample: []
listed_only:
  description: Third parties that are left because they are never signalled.
  returned: when not in check mode
  type: list
  elements: dict
  sample: []
rc:
  description: The exit status of the program. 0 where there was nothing to stop, 1 where there was something, even if it is gone.
  returned: when the program ran
  type: int
  sample: 1
elapsed:
  description: Seconds from the start of the shutdown until the last listing.
  returned: when not in check mode
  type: float
  sample: 12.4
began:
  description: When the shutdown began, by the client's clock, in seconds since 1970.
  returned: when not in check mode
  type: float
  sample: 1795288650.25
output:
  description: What the program printed, as lines.
  returned: when a shutdown was run
  type: list
  elements: str
  sample: [Gathering process information.]
watch:
  description: The report of C(cvstop-watch), by its schema. Stages, and for each process what was asked of it and how it ended.
  returned: when C(cvstop-watch) was there
  type: dict
  sample: {stages: [], processes: []}
'''

import contextlib
import fcntl
import os
import tempfile
import time

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quarn.corvane.plugins.module_utils import excludelist, listing, program, verdict

# Held while a shutdown runs, a file a program. Two at once on one client would each take the other's stop commands for survivors.
LOCK = '/run/quarn.corvane%s.lock'

ARGUMENTS = dict(
    program.ARGUMENTS,
    state=dict(type='str', choices=['stopped'], default='stopped'),
    settle=dict(type='int', default=5),
    on_survivors=dict(type='str', choices=['fail', 'warn'], default='fail'),
    watch=dict(type='str', choices=['true', 'false', 'auto'], default='auto'),
    watch_executable=dict(type='path'),
)


def take(path):
    """The lock's file, held. Whoever had it before removes it, so it may be another one by the time that it is ours."""
    while True:
        lock = os.open(path, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC | os.O_NOFOLLOW, 0o600)
        fcntl.flock(lock, fcntl.LOCK_EX)
        try:
            if os.path.samestat(os.lstat(path), os.fstat(lock)):
                return lock
        except FileNotFoundError:
            pass
        os.close(lock)


@contextlib.contextmanager
def only_one(module):
    """Waits until no other run of this module shuts this client down. Not without root: the program refuses that itself."""
    if os.geteuid() != 0:
        yield
        return
    path = LOCK % module.params['executable'].replace('/', '-')
    try:
        lock = take(path)
    except OSError as error:
        module.fail_json(msg='%s cannot be locked: %s. Nothing was touched.' % (path, error.strerror))
    try:
        yield
    finally:
        os.unlink(path)
        os.close(lock)


def write_excludes(module, entries):
    """The option exclude as a file for the program, in the folder that is removed with the module; None without the option."""
    if module.params['exclude'] is None:
        return module.params['exclude_file']
    try:
        descriptor, path = tempfile.mkstemp(dir=module.tmpdir, prefix='exclude-')
        with os.fdopen(descriptor, 'wb') as file:
            file.write(b''.join(entry + b'\n' for entry in entries))
    except (IOError, OSError) as error:
        module.fail_json(msg='The exclude list cannot be written: %s. Nothing was touched.' % error)
    module.add_cleanup_file(path)
    return path


def lines(processes):
    return ''.join('%d %s\n' % (process.pid, listing.show(process.path)) for process in processes)


def printed(output):
    """What the program printed, as lines."""
    return [listing.show(line) for line in output.split(b'\n')[:-1]]


def diff(before, after):
    return dict(before_header='processes', after_header='processes', before=lines(before), after=lines(after))


def preview(module, cvstop, entries):
    """Check mode: what would be stopped."""
    found = cvstop.processes()
    spared, others = verdict.split_spared(found, entries)
    module.exit_json(
        changed=bool(others), outcome='running' if others else 'nothing', rc=0, diff=diff(found, spared),
        found=[verdict.describe(process) for process in found], spared=[verdict.describe(process) for process in spared])


def stop_watched(module, cvstop, watch):
    """Runs the shutdown under cvstop-watch: status, output and report, which is None where it failed to tell."""
    path = os.path.join(module.tmpdir, 'watch.json')
    try:
        status, out = cvstop.run([watch, '--json', path, '--no-report'] + cvstop.command('-k'))
    except OSError as error:
        module.warn('cvstop-watch cannot be started: %s' % error.strerror)
        return cvstop.shut_down() + (None,)
    report, fault = program.read_watch(path)
    if report is None:
        module.warn('cvstop-watch ended with status %d and left no report: %s' % (status, fault))
    else:
        module.add_cleanup_file(path)
    return status, out, report


def stop(module, cvstop, entries):
    """Runs the shutdown: status, output and report."""
    watch = program.find_watch(module)
    if watch is None:
        return cvstop.shut_down() + (None,)
    status, out, report = stop_watched(module, cvstop, watch)
    if report is not None:
        return status, out, report
    # The program does not end with cvstop-watch, and must have the client to itself.
    cvstop.await_end()
    # Whether it ran at all, and whose status this is, is not known then. To shut down once more what is down already does no
    # harm.
    if status not in program.DONE or verdict.split_spared(cvstop.processes(), entries)[1]:
        status, more = cvstop.shut_down()
        out += more
    return status, out, None


def settle(module, cvstop, found, entries, said):
    """Lists until nothing is left that should not be, or until the time is over."""
    deadline = time.monotonic() + module.params['settle']
    while True:
        result = verdict.Verdict(found, cvstop.processes(), entries, said)
        if not result.survivors or time.monotonic() >= deadline:
            return result
        time.sleep(min(1, max(0, deadline - time.monotonic())))


def finish(module, cvstop, entries):
    """Shuts down what is there, and returns what became of it."""
    began, start = time.time(), time.monotonic()
    found = cvstop.processes()
    if not verdict.split_spared(found, entries)[1]:
        idle = verdict.Verdict(found, found, entries, b'')
        return idle, dict(idle.result(), rc=0, elapsed=0.0, began=began)
    status, out, report = stop(module, cvstop, entries)
    if status not in program.DONE:
        module.fail_json(msg=program.explain(status, out), rc=status, found=[verdict.describe(process) for process in found],
                         output=printed(out))
    ended = settle(module, cvstop, found, entries, out)
    result = dict(ended.result(), rc=status, began=began, elapsed=round(time.monotonic() - start, 3),
                  output=printed(out),
                  diff=diff(found, ended.spared + ended.listed_only + ended.survivors))
    if report is not None:
        result['watch'] = report
    return ended, result


def main():
    module = AnsibleModule(argument_spec=ARGUMENTS, mutually_exclusive=[('exclude', 'exclude_file')], supports_check_mode=True)
    entries = excludelist.entries_for(module)
    if module.check_mode:
        preview(module, program.Program(module, module.params['exclude_file']), entries)
    cvstop = program.Program(module, write_excludes(module, entries))
    with only_one(module):
        ended, result = finish(module, cvstop, entries)
    if not ended.survivors:
        # Said, since Ansible takes every rc but 0 for a failure otherwise, and 1 is the program's success.
        module.exit_json(failed=False, **result)
    message = 'Still running: %s.' % ', '.join(
        '%s (%d)%s' % (listing.show(process.name), process.pid, '' if process in ended.found else ', started again')
        for process in ended.survivors)
    if module.params['on_survivors'] == 'fail':
        module.fail_json(msg=message, **result)
    module.warn(message)
    module.exit_json(failed=False, msg=message, **result)


if __name__ == '__main__':
    main()
