#!/usr/bin/python
"""What tessel.varnel.version takes and gives; the action of this name does it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

DOCUMENTATION = r"""
module: version
short_description: Tells which varnelctl a host has
description:
  - Runs C(varnelctl --version).

author:
  - Tessel Storage (@tessel)
extends_documentation_fragment:
  - tessel.varnel.varnelctl
"""

EXAMPLES = r"""
- name: Ask for the version
  tessel.varnel.version:
  register: installed
"""

RETURN = r"""
version:
  description: The version, empty where varnelctl is not installed.
  type: str
  returned: always
windows:
  description: Whether the host is a Windows one.
  type: bool
  returned: always
"""
