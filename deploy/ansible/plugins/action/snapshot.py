"""varnelctl snapshot on the target; in check mode varnelctl plan."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import os
import re

from ansible.errors import AnsibleError

from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets
from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import (
    CONTROL_GRACE, DEADLINE_GRACE, FETCH_LIMIT, ControlLimit, Trouble, VarnelctlAction)

# States of a set that is there, and of one that is not.
STANDING = ("kept", "broken", "masked")
GONE = ("none", "deleted")
# What evidence files are called: a name that the target tells becomes one on the control node.
FILE_NAME = re.compile(r"[\w-][\w. -]*")


class ActionModule(VarnelctlAction):
    CAUSE = "failed"
    OPTIONS = {
        "protection_set": {"type": "dict", "required": True},
        "disks": {"type": "list", "elements": "str"},
        "evidence": {"type": "path"},
        "run": {"type": "str", "default": "run"},
    }

    def act(self, result):
        whole = self.protection_set()
        disks = self.options["disks"] or self.disks_of(whole)
        if self._task.check_mode:
            words = ["plan"] + sets.words_of_plan(whole, disks)
            self.report(result, self.ask(words, "plan", {"verdict": dict}, save=True))
            result["changed"] = not result.get("failed", False)
            return
        self.timeout = self.options["timeout"] or whole["deadline"] + DEADLINE_GRACE
        words = ["snapshot"] + sets.words_of_snapshot(whole, disks)
        if not self.options["evidence"]:
            self.take(result, words, sets.lasts(whole))
            return
        folder = self._connection._shell.join_path(self.temporary_folder(result), "varnel-" + self.options["run"])
        try:
            self.take(result, words + ["--evidence", folder], sets.lasts(whole))
        except Trouble:
            if not self.gave_up:
                self.fetch(result, folder)
            raise
        if result.get("failed"):
            self.fetch(result, folder)

    def temporary_folder(self, result):
        try:
            with self.limit(CONTROL_GRACE):
                return self._make_tmp_path()
        except ControlLimit as error:
            result["state"] = "none"
            raise Trouble("hung", "the host had not made a temporary folder after %d seconds: nothing was taken. What to do: "
                          "see that it answers" % CONTROL_GRACE) from error

    def take(self, result, words, lasts):
        document = self.ask(words, "snapshot", {"snapshotSetId": str, "setState": str}, save=True)
        if document["status"] == 0 and (not document["snapshotSetId"] or lasts and document["setState"] not in STANDING):
            raise Trouble("broken", "varnelctl's document is broken: a success, and the state of its set \"%s\" is %s"
                          % (document["snapshotSetId"], document["setState"]))
        self.report(result, document)
        # A failure of another kind came before anything was asked of the service.
        result["set"], result["state"] = document.get("snapshotSetId"), document.get("setState", "none")
        result["changed"] = result["state"] not in GONE

    def fetch(self, result, folder):
        """The evidence of a failed run. What cannot be fetched is a warning: the failure itself is told all the same."""
        target = self.options["evidence"]
        try:
            with self.limit(FETCH_LIMIT):
                names = self.files_in(folder)
                if names:
                    os.makedirs(target, exist_ok=True)
                    result["evidence"] = target
                for name in names:
                    self._connection.fetch_file(self._connection._shell.join_path(folder, name), os.path.join(target, name))
        except ControlLimit:
            result.setdefault("warnings", []).append("the evidence had not come after %d seconds" % FETCH_LIMIT)
        except (AnsibleError, OSError) as error:
            result.setdefault("warnings", []).append("the evidence could not be fetched: %s" % error)

    def files_in(self, folder):
        if self.is_windows():
            command = "Get-ChildItem -File -Name -LiteralPath '%s'" % folder.replace("'", "''")
        else:
            command = "ls -1 -- '%s' 2>/dev/null" % folder.replace("'", "'\\''")
        names = self._low_level_execute_command(command, sudoable=False)["stdout"].splitlines()
        return [name for name in names if FILE_NAME.fullmatch(name)]
