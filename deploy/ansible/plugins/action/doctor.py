"""varnelctl doctor on the target."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import VarnelctlAction


class ActionModule(VarnelctlAction):
    OPTIONS = {"protection_set": {"type": "dict"}}

    def act(self, result):
        words = ["doctor"]
        if self.options["protection_set"]:
            whole = self.protection_set()
            words += ["--app", whole["application"], "--disk"] + list(self.disks_of(whole))
            if whole.get("accept_unknown_disks"):
                words.append("--accept-unknown-disks")
        self.report(result, self.ask(words, "doctor", {"findings": list}, save=True))
