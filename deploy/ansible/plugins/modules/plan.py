#!/usr/bin/python
"""What tessel.varnel.plan takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: plan
short_description: Tells what a snapshot would come to
description:
  - Runs C(varnelctl plan), and before it C(plan --for) where the set names objects. Changes nothing, and
    fails where the snapshot would.

author:
  - Tessel Storage (@tessel)
extends_documentation_fragment:
  - tessel.varnel.varnelctl
  - tessel.varnel.varnelctl.protection_set
"""

EXAMPLES = r"""
- name: Plan the sets of this host
  tessel.varnel.plan:
    protection_set: "{{ varnel_protection_set }}"
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
disks:
  description: The serial numbers of the set's disks.
  type: list
  elements: str
  returned: when they are known
"""
