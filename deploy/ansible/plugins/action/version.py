"""Which varnelctl the target has."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import re

from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import NOT_FOUND, VarnelctlAction


class ActionModule(VarnelctlAction):
    def act(self, result):
        run = self.varnelctl(["--version"])
        found = re.search(r"varnelctl (\S+)", run["stdout"])
        result["version"] = found.group(1) if found and run["rc"] == 0 else ""
        result["windows"] = self.is_windows()
        result["msg"] = "varnelctl %s" % (result["version"] or "is not installed")
        if not result["version"] and run["rc"] not in NOT_FOUND:
            result.update(failed=True, msg="varnelctl --version ended with %d. %s" % (run["rc"], run["stderr"].strip()))
