"""varnelctl snapshot on the target; in check mode varnelctl plan."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import os
import re

from ansible.errors import AnsibleError

from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets
from ansible_collections.tessel.varnel.plugins.plugin_utils.varnelctl_action import (DEADLINE_GRACE, Trouble,
                                                                                     VarnelctlAction)

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
            self.report(result, self.ask(["plan"] + sets.words_of_plan(whole, disks), save=True))
            result["changed"] = not result.get("failed", False)
            return
        self.timeout = self.options["timeout"] or whole["deadline"] + DEADLINE_GRACE
        words = ["snapshot"] + sets.words_of_snapshot(whole, disks)
        if not self.options["evidence"]:
            self.take(result, words)
            return
        folder = self._connection._shell.join_path(self._make_tmp_path(), "varnel-" + self.options["run"])
        try:
            self.take(result, words + ["--evidence", folder])
        except Trouble:
            self.fetch(result, folder)
            raise
        if result.get("failed"):
            self.fetch(result, folder)

    def take(self, result, words):
        document = self.ask(words, save=True)
        self.report(result, document)
        result["set"] = document.get("snapshotSetId")
        result["changed"] = document.get("setState", "none") not in ("none", "deleted")

    def fetch(self, result, folder):
        """The evidence of a failed run. What cannot be fetched is a warning: the failure itself is told all the same."""
        target = self.options["evidence"]
        try:
            names = self.files_in(folder)
            if names:
                os.makedirs(target, exist_ok=True)
                result["evidence"] = target
            for name in names:
                self._connection.fetch_file(self._connection._shell.join_path(folder, name), os.path.join(target, name))
        except (AnsibleError, OSError) as error:
            result.setdefault("warnings", []).append("the evidence could not be fetched: %s" % error)

    def files_in(self, folder):
        if self.is_windows():
            command = "Get-ChildItem -File -Name -LiteralPath '%s'" % folder.replace("'", "''")
        else:
            command = "ls -1 -- '%s' 2>/dev/null" % folder.replace("'", "'\\''")
        names = self._low_level_execute_command(command, sudoable=False)["stdout"].splitlines()
        return [name for name in names if FILE_NAME.fullmatch(name)]
