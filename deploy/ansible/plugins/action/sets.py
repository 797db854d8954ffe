"""varnelctl sets ACTION SET on the target, for one set or for those of a run."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

from ansible_collections.tessel.varnel.plugins.plugin_utils import document as documents
from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import Trouble, VarnelctlAction


class ActionModule(VarnelctlAction):
    CAUSE = "failed"
    OPTIONS = {
        "actions": {"type": "list", "elements": "str", "required": True,
                    "choices": ["break", "mask", "disconnect", "delete"]},
        "set": {"type": "str"},
        "run": {"type": "str"},
    }

    def act(self, result):
        if bool(self.options["set"]) == bool(self.options["run"]):
            raise Trouble("mistake", "sets: give either set or run")
        ends = self.options["actions"] == ["delete"]
        result["sets"] = []
        for identifier in self.chosen(self.ask(["sets", "list"]), ends):
            result["sets"].append(identifier)
            for action in self.options["actions"]:
                self.do(result, action, identifier)
                if result.get("failed"):
                    return
        result.setdefault("msg", "there is no such set")

    def chosen(self, listing, ends):
        """The identifiers, of which one that is to be deleted may be gone already."""
        if listing["status"] != 0:
            raise Trouble("refused", documents.message(listing))
        if self.options["run"]:
            mark = "varnel-" + self.options["run"]
            return [each["setId"] for each in listing["sets"]
                    if any(word.endswith(mark) for word in (each.get("journal") or {}).get("commandLine", []))]
        wanted = self.options["set"].strip("{}").lower()
        is_there = any(each["setId"].strip("{}").lower() == wanted for each in listing["sets"])
        return [self.options["set"]] if is_there or not ends else []

    def do(self, result, action, identifier):
        dry = ["--dry-run"] if self._task.check_mode else []
        document = self.ask(["sets", action, identifier] + dry)
        self.report(result, document)
        if document["status"] == 0:
            result["changed"] = True
