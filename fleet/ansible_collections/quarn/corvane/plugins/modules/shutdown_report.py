#!/usr/bin/python
# Copyright 2026 cvstop maintainers. All rights reserved.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: shutdown_report
short_description: Report what became of the fleet
description:
  - Prints a table with a row for each client that is not simply down, and one line for all the others.
  - From records in a folder it also writes F(index.html) and F(failed.txt) there. Where no client is left there is no
    F(failed.txt), since C(--limit) would take an empty one for every client.
  - Runs on the controller. The role C(quarn.corvane.shutdown) calls this; you need it only in a play of your own.
version_added: 1.0.0
author:
  - cvstop maintainers (@cvstop)
options:
  records:
    description: The records themselves. Nothing is written then.
    type: list
    elements: dict
  hosts:
    description: The clients whose records are read from the folder. One without a record is left out.
    type: list
    elements: str
  asked:
    description:
      - The clients of this run. The report marks the records of all others as earlier ones, and F(failed.txt) does not name them.
      - Left out, all hosts are meant.
    type: list
    elements: str
  given_up:
    description: Clients that Ansible itself took out of the run. They get a record that says so, and have failed.
    type: list
    elements: str
    default: []
  folder:
    description: The folder on the controller that holds the records.
    type: str
  table:
    description: Whether to print the table.
    type: bool
    default: true
'''

EXAMPLES = r'''
- name: Report what became of the fleet
  quarn.corvane.shutdown_report:
    hosts: "{{ groups['all'] }}"
    folder: report
  run_once: true
'''

RETURN = r'''
left:
  description: The clients that are left to do.
  returned: success
  type: list
  elements: str
  sample: [client7]
'''
