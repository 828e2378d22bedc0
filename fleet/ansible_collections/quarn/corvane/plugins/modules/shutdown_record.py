#!/usr/bin/python
# Copyright 2026 cvstop maintainers. All rights reserved.

from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r'''
module: shutdown_record
short_description: Keep what became of a client
description:
  - Makes a client's record from the result of its task, whatever that is, and writes it on the controller.
  - Nothing is sent to the client. The role C(quarn.corvane.shutdown) calls this; you need it only in a play of your own.
version_added: 1.0.0
author:
  - cvstop maintainers (@cvstop)
options:
  result:
    description: The registered result of M(quarn.corvane.cvstop), or of a task that polled it, reached or not.
    type: dict
  untouched:
    description: Instead of a result, why the client was not touched.
    type: str
  folder:
    description: The folder on the controller for F(HOST.json). Without it nothing is written.
    type: str
  tolerant:
    description: Whether processes that are left are no failure.
    type: bool
    default: false
'''

EXAMPLES = r'''
- name: Keep what became of the client
  quarn.corvane.shutdown_record:
    result: "{{ shutdown_result }}"
    folder: report
'''

RETURN = r'''
record:
  description: The record, without what is in the file alone.
  returned: success
  type: dict
  sample: {host: client1, outcome: stopped, failed: false, message: ''}
'''
