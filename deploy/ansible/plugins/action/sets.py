"""varnelctl sets ACTION SET on the target, for one set or for those of a run."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import time

from ansible_collections.tessel.varnel.plugins.plugin_utils import document as documents
from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import Trouble, VarnelctlAction

# Seconds between two looks at a request that still works.
POLL = 2


def bare(identifier):
    return (identifier or "").strip("{}").lower()


class ActionModule(VarnelctlAction):
    CAUSE = "failed"
    OPTIONS = {
        "actions": {"type": "list", "elements": "str", "required": True,
                    "choices": ["break", "mask", "disconnect", "delete"]},
        "set": {"type": "str"},
        "run": {"type": "str"},
        "wait": {"type": "int", "default": 0},
    }

    def act(self, result):
        if not self.options["set"] and not self.options["run"]:
            raise Trouble("mistake", "sets: give set, run or both")
        ends = self.options["actions"] == ["delete"]
        result["sets"] = []
        listing, result["settled"] = self.listing_at_rest()
        for identifier in self.chosen(listing, ends):
            result["sets"].append(identifier)
            for action in self.options["actions"]:
                self.do(result, action, identifier)
                if result.get("failed"):
                    return
        result.setdefault("msg", "there is no such set")

    def listing_at_rest(self):
        """What is listed once no request of the run works any more, and whether one did and has left nothing to do."""
        end = time.monotonic() + self.options["wait"]
        has_run = False
        while True:
            listing = self.listing()
            running = [each["journal"] for each in listing if self.is_of_run(each) and each["journal"].get("isRunning")]
            if not running:
                return listing, has_run and not any(self.is_of_run(each) and not each.get("setId") for each in listing)
            if time.monotonic() >= end:
                raise Trouble("failed", "the request that takes it still runs (process %s)" % running[0].get("process"))
            has_run = True
            time.sleep(POLL)

    def listing(self):
        document = self.ask(["sets", "list"], "sets", {"sets": list})
        if document["status"] != 0:
            raise Trouble("refused", documents.message(document))
        return document["sets"]

    def is_of_run(self, listed):
        mark = "varnel-%s" % self.options["run"]
        return bool(self.options["run"]) and any(str(word).endswith(mark)
                                                 for word in (listed.get("journal") or {}).get("commandLine", []))

    def chosen(self, listing, ends):
        """The identifiers, of which one that is to be deleted may be gone already."""
        wanted = bare(self.options["set"])
        found = [each["setId"] for each in listing
                 if each.get("setId") and (self.is_of_run(each) or bare(each["setId"]) == wanted)]
        return found if found or ends or not wanted else [self.options["set"]]

    def do(self, result, action, identifier):
        dry = ["--dry-run"] if self._task.check_mode else []
        document = self.ask(["sets", action, identifier] + dry, "setAction")
        self.report(result, document)
        if document["status"] == 0:
            result["changed"] = True
