#!/usr/bin/python
"""What tessel.varnel.snapshot takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: snapshot
short_description: Takes a snapshot set
description:
  - Runs C(varnelctl snapshot). In check mode C(varnelctl plan) in its place.
  - The context must be one whose set outlives varnelctl, unless C(then) ends the set in the same run.
  - C(then) and C(disconnect) of a set that lasts are left to M(tessel.varnel.sets), once every host was looked at.

author:
  - Tessel Storage (@tessel)
options:
  disks:
    description:
      - Serial numbers in place of the set's own, such as those that M(tessel.varnel.plan) has found.
    type: list
    elements: str
  evidence:
    description:
      - A folder of the control node that gets the evidence of a run that fails.
    type: path
  run:
    description:
      - A name by which M(tessel.varnel.sets) finds the sets of this run again; it needs C(evidence).
    type: str
    default: run
extends_documentation_fragment:
  - tessel.varnel.varnelctl
  - tessel.varnel.varnelctl.protection_set
"""

EXAMPLES = r"""
- name: Take a set that lasts
  tessel.varnel.snapshot:
    protection_set:
      application: sql
      disks: [TSL0001, TSL0002]
      context: app-rollback
      deadline: 900
    evidence: "evidence/{{ inventory_hostname }}"
"""

RETURN = r"""
varnel:
  description: varnelctl's document (C(docs/json.md)), without its long lists unless C(whole) is true.
  type: dict
  returned: when varnelctl gave one
cause:
  description: The kind of the failure.
  type: str
  returned: on failure
seconds:
  description: How long varnelctl ran.
  type: float
  returned: always
set:
  description: The identifier of the set.
  type: str
  returned: when there is a document
state:
  description: What became of the set, as C(setState) of the document.
  type: str
  returned: when there is a document
given_up:
  description: Whether the control node gave up the host, on which varnelctl may still run.
  type: bool
  returned: on failure
evidence:
  description: The folder with the evidence.
  type: str
  returned: on failure, where there is some
"""
