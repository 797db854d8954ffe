#!/usr/bin/python
"""What tessel.varnel.fleet takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: fleet
short_description: Keeps the record of a run over many hosts
description:
  - For the role C(tessel.varnel.protect). Checks the protection sets of the inventory, writes
    C(fleet.json) on the control node and tells what is to be done next with which host.

author:
  - Tessel Storage (@tessel)
options:
  step:
    description:
      - C(begin) checks the inventory and makes the run's folder, C(look) notes what the tasks of this batch came to, C(end)
        closes the record.
    type: str
    choices: [begin, look, end]
    required: true
  folder:
    description:
      - Where the runs are kept; of C(look) and C(end) the folder of this run.
    type: path
    required: true
  name:
    description:
      - The name of the fleet.
    type: str
    default: fleet
  groups:
    description:
      - The groups to run; all of them where it is empty.
    type: list
    elements: str
    default: []
  max_fail_percentage:
    description:
      - Of the hosts of a rolling group so many percent may fail.
    type: float
    default: 0
  taking:
    description:
      - Whether the hosts that may be taken are taken next, so that the record of a run that breaks off there says so.
    type: bool
    default: false
"""

EXAMPLES = r"""
- name: Check the inventory
  tessel.varnel.fleet:
    step: begin
    folder: runs
  run_once: true
  register: varnel_begun
"""

RETURN = r"""
folder:
  description: The folder of the run, after C(begin).
  type: str
  returned: success
take:
  description: The hosts that may be taken, after C(look). C(clean_up) and C(end) are such lists too.
  type: list
  elements: str
  returned: success
follow_up:
  description: The hosts with the actions that are due for their sets, after C(look).
  type: dict
  returned: success
"""
