#!/usr/bin/python
"""What tessel.varnel.clean_up takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: clean_up
short_description: Ends what dead requests have left
description:
  - Runs C(varnelctl sets clean-up), in check mode with C(--dry-run). Changed only where something was ended.

author:
  - Tessel Storage (@tessel)
extends_documentation_fragment:
  - tessel.varnel.varnelctl
"""

EXAMPLES = r"""
- name: Clean up
  tessel.varnel.clean_up:
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
