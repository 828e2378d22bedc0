#!/usr/bin/python
# Copyright 2026 cvstop maintainers. All rights reserved.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: cvstop_info
short_description: List what runs of the Corvane backup software on a client
description:
  - Runs C(cvstop -l) on a client host and returns what it lists. Touches nothing.
  - What cannot be known is a failure with the words of C(cvstop)'s manual, never an empty list.
version_added: 1.0.0
author:
  - cvstop maintainers (@cvstop)
options:
  third_party:
    description: Whether to list other people's processes that use the product, too.
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
  executable:
    description: The program on the client.
    type: path
    default: /usr/quarn/corvane/bin/cvstop
attributes:
  check_mode:
    description: Can run in check mode, and does the same as without.
    support: full
  diff_mode:
    description: Shows what would change.
    support: none
  platform:
    description: Operating systems that it runs on.
    platforms: linux
    support: full
requirements:
  - Python 3.6 on the client, its standard library alone
  - cvstop on the client
  - root on the client (I(become))
notes:
  - The program is asked for English whatever the client speaks, and never through a shell.
seealso:
  - module: quarn.corvane.cvstop
'''

EXAMPLES = r'''
- name: See what runs
  quarn.corvane.cvstop_info:
  become: true
  register: corvane

- name: Stop here where anything runs that is not excluded
  ansible.builtin.assert:
    that: corvane.processes | rejectattr('excluded') | list | length == 0

- name: See who else uses the product
  quarn.corvane.cvstop_info:
    third_party: true
  become: true
'''

RETURN = r'''
processes:
  description: What runs, in ascending order of pid.
  returned: success
  type: list
  elements: dict
  contains:
    name:
      description: The name of the executable. Bytes that are no UTF-8 are escaped.
      type: str
      sample: koka
    path:
      description: The path of the executable.
      type: str
      sample: /usr/quarn/corvane/bin/koka
    pid:
      description: Its process id.
      type: int
      sample: 812
    category:
      description: C(product), or C(third_party) for other people's processes.
      type: str
      sample: product
    excluded:
      description: Whether the exclude list names it.
      type: bool
      sample: false
rc:
  description: The exit status of the program.
  returned: when the program ran
  type: int
  sample: 0
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quarn.corvane.plugins.module_utils import excludelist, program, verdict


def main():
    module = AnsibleModule(argument_spec=program.ARGUMENTS, mutually_exclusive=[('exclude', 'exclude_file')],
                           supports_check_mode=True)
    entries = excludelist.entries_for(module)
    processes = program.Program(module, module.params['exclude_file']).processes()
    spared = verdict.split_spared(processes, entries)[0]
    module.exit_json(changed=False, rc=0, processes=[
        verdict.describe(process, excluded=process in spared) for process in processes])


if __name__ == '__main__':
    main()
