"""varnelctl plan on the target."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets
from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import VarnelctlAction


class ActionModule(VarnelctlAction):
    OPTIONS = {"protection_set": {"type": "dict", "required": True}}

    def act(self, result):
        whole = self.protection_set()
        result["disks"] = self.disks_of(whole)
        words = ["plan"] + sets.words_of_plan(whole, result["disks"])
        self.report(result, self.ask(words, "plan", {"verdict": dict}, save=True))
