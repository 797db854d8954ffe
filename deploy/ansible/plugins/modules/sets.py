#!/usr/bin/python
"""What tessel.varnel.sets takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: sets
short_description: Breaks, masks, disconnects or deletes snapshot sets
description:
  - Runs C(varnelctl sets). In check mode with C(--dry-run).
  - A set that is to be deleted and is not there any more is no failure and no change.

author:
  - Tessel Storage (@tessel)
options:
  actions:
    description:
      - What to do, in this order; the first failure ends it.
    type: list
    elements: str
    choices: [break, mask, disconnect, delete]
    required: true
  set:
    description:
      - The identifier of a set.
    type: str
  run:
    description:
      - The run of M(tessel.varnel.snapshot) whose sets are meant, in place of C(set) or besides it.
    type: str
  wait:
    description:
      - Seconds to wait for requests of C(run) that still work. One that works longer is a failure.
    type: int
    default: 0
extends_documentation_fragment:
  - tessel.varnel.varnelctl
"""

EXAMPLES = r"""
- name: End the set
  tessel.varnel.sets:
    actions: [delete]
    set: "{{ taken.set }}"
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
sets:
  description: The identifiers of the sets that were found.
  type: list
  elements: str
  returned: always
settled:
  description: Whether a request of C(run) was waited for, and has come to its end.
  type: bool
  returned: success
"""
