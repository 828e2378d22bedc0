"""Running the program on a client, never through a shell, and what its answers mean."""

from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json
import os
import time

from ansible_collections.quarn.corvane.plugins.module_utils import listing

EXECUTABLE = '/usr/quarn/corvane/bin/cvstop'
# Beside the product, never in it: a program in its tree would be a process of it.
WATCH_FOLDER = '/usr/sbin'
# English whatever the client speaks: this is what the listing's categories are read in.
ENGLISH = {'LC_ALL': 'C', 'LC_MESSAGES': 'C', 'LANG': 'C', 'LANGUAGE': ''}

# A shutdown that ended as it should: there was nothing, or there was something.
DONE = (0, 1)
# What the manual says of every other exit status.
WORDS = {
    16: 'The shutdown table has a row with an undefined action; the shutdown stopped halfway. This is a bug in the program: '
        'report it with the end of the debug log.',
    20: 'Bad command line. The message says what is wrong.',
    55: '"Currently only supported on clients." The host is a server of the product; use the server\'s own tools.',
    110: '"Failed to read Master Config." host.conf is missing, unreadable or invalid; journalctl -t cvstop names the line or '
         'the key.',
    130: '"find_process_CV failed with status ...": the process table cannot be read completely. Or "Failed to load '
         'user-specified exclude list: ...": the file given with -b cannot be opened. Nothing was touched.',
    132: '"Must be Administrator." The caller is not root.',
    134: 'Aborted: memory ran out, or the program has a bug. Check what is left with cvstop -l, then start again.',
}
# Seconds. No shutdown takes as long; one that does is not helped by another.
LONGEST_WAIT = 3600
# What helps where the cause is on the controller's side.
HINTS = {20: 'An old release of the program may not know an option.', 132: 'Set become: true.'}

ARGUMENTS = dict(
    third_party=dict(type='bool', default=False),
    exclude=dict(type='list', elements='str'),
    exclude_file=dict(type='path'),
    executable=dict(type='path', default=EXECUTABLE),
)


def is_program(path):
    return os.path.isfile(path) and os.access(path, os.X_OK)


def status_of(code):
    """The exit status as a shell has it: a program that died by a signal has 128 and the signal."""
    return 128 - code if code < 0 else code


def explain(status, output):
    """What an exit status means, in the manual's words, and what the program said of it."""
    parts = ['cvstop ended with status %d.' % status, WORDS.get(status, 'The manual does not know this status.')]
    said = listing.show(b' '.join(output.split()))
    if said:
        parts.append('It said: %s' % said)
    if status in HINTS:
        parts.append(HINTS[status])
    return ' '.join(parts)


def is_running(command):
    """Whether a process has this command line, be it behind the words of whoever starts it, as it is until it is executed, and
    behind those of its interpreter. What a shutdown itself starts has another."""
    words = b''.join(b'\0' + os.fsencode(word) for word in command) + b'\0'
    return any((b'\0' + _command_line(pid)).endswith(words) for pid in os.listdir('/proc') if pid.isdigit())


def _command_line(pid):
    try:
        with open('/proc/%s/cmdline' % pid, 'rb') as file:
            return file.read()
    except (IOError, OSError):
        return b''


class Program(object):
    """The program on this client, with the options that all its runs share. Whatever goes wrong ends the module."""

    def __init__(self, module, exclude_file=None):
        self.module = module
        self.path = module.params['executable']
        self.options = ['-3'] if module.params['third_party'] else []
        if exclude_file:
            self.options += ['-b', exclude_file]
        if not is_program(self.path):
            module.fail_json(msg='There is no program at %s: is the package installed on this client?' % self.path)

    def command(self, mode):
        return [self.path, mode] + self.options

    def run(self, command):
        """Status and standard output, as bytes. Raises OSError where the command cannot be started."""
        code, out, dummy = self.module.run_command(
            command, environ_update=ENGLISH, encoding=None, cwd='/', expand_user_and_vars=False, handle_exceptions=False)
        return status_of(code), out

    def run_program(self, mode):
        """Status and standard output of the program itself, which must start."""
        try:
            return self.run(self.command(mode))
        except OSError as error:
            self.module.fail_json(msg='%s cannot be started: %s' % (self.path, error.strerror))

    def processes(self):
        """What runs now. Ends the module where that cannot be known."""
        status, out = self.run_program('-l')
        if status != 0:
            self.module.fail_json(msg=explain(status, out), rc=status)
        try:
            return listing.parse(out)
        except listing.ListingError as error:
            self.module.fail_json(
                msg='The listing of %s cannot be read: %s. Is it an old release?' % (self.path, error), rc=status)

    def shut_down(self):
        return self.run_program('-k')

    def await_end(self):
        """Waits until no shutdown runs that was started as this one would. Ends the module where that takes too long."""
        deadline = time.monotonic() + LONGEST_WAIT
        # Twice: a process has no command line for a moment while it executes.
        while is_running(self.command('-k')) or is_running(self.command('-k')):
            if time.monotonic() > deadline:
                self.module.fail_json(msg='A shutdown that nobody watches any more still runs after %d seconds. No other one was '
                                          'started; look at the client.' % LONGEST_WAIT)
            time.sleep(0.2)


def find_watch(module):
    """The path of cvstop-watch, or None where the module shall do without. Ends the module where it must not."""
    wanted = module.params['watch']
    if wanted == 'false':
        return None
    path = module.params['watch_executable'] or module.get_bin_path('cvstop-watch', opt_dirs=[WATCH_FOLDER])
    if path and is_program(path):
        return path
    if wanted == 'true':
        module.fail_json(msg='There is no cvstop-watch on this client, and watch is true. Nothing was touched.')
    return None


def read_watch(path):
    """The report of cvstop-watch, or the reason why there is none: (dictionary or None, text)."""
    try:
        with open(path, 'rb') as file:
            report = json.loads(file.read().decode('utf-8', 'replace'))
    except (IOError, OSError, ValueError) as error:
        return None, str(error)
    if not isinstance(report, dict) or not isinstance(report.get('processes'), list):
        return None, 'it holds no processes'
    return report, ''
