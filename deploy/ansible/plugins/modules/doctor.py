#!/usr/bin/python
"""What tessel.varnel.doctor takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: doctor
short_description: Tells what would make a snapshot fail
description:
  - Runs C(varnelctl doctor). Changes nothing, and fails where it finds an error.
  - With a protection set the request for it is looked at too.

author:
  - Tessel Storage (@tessel)
extends_documentation_fragment:
  - tessel.varnel.varnelctl
  - tessel.varnel.varnelctl.protection_set
"""

EXAMPLES = r"""
- name: Look at a host
  tessel.varnel.doctor:
    protection_set:
      application: sql
      objects: [sales, crm]
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
"""
