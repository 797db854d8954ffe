"""varnelctl sets clean-up on the target; in check mode it only says what it would do."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import VarnelctlAction


class ActionModule(VarnelctlAction):
    CAUSE = "failed"

    def act(self, result):
        dry = ["--dry-run"] if self._task.check_mode else []
        document = self.ask(["sets", "clean-up"] + dry, "cleanUp", {"sets": list}, save=True)
        self.report(result, document)
        result["changed"] = any(each.get("outcome") != "left" for each in document.get("sets", []))
