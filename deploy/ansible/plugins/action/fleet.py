"""Keeps the record of a run over many hosts on the control node, and tells what is to be done next."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import datetime
import json
import os
import secrets

from ansible.plugins.action import ActionBase

from ansible_collections.tessel.varnel.plugins.plugin_utils import fleet as fleets
from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets

TASKS = ("doctor", "plan", "snapshot", "end", "follow_up", "clean_up")
DOCUMENTS = ("doctor", "plan", "snapshot", "clean-up")


def now():
    return datetime.datetime.now(datetime.timezone.utc)


class ActionModule(ActionBase):
    TRANSFERS_FILES = False
    _requires_connection = False
    OPTIONS = {
        "step": {"type": "str", "required": True, "choices": ["begin", "look", "end"]},
        "folder": {"type": "path", "required": True},
        "name": {"type": "str", "default": "fleet"},
        "groups": {"type": "list", "elements": "str", "default": []},
        "max_fail_percentage": {"type": "float", "default": 0.0},
        "taking": {"type": "bool", "default": False},
    }

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        _validation, self.options = self.validate_argument_spec(argument_spec=self.OPTIONS)
        self.hostvars = task_vars["hostvars"]
        result["changed"] = False
        getattr(self, self.options["step"])(result, task_vars)
        return result

    # The beginning: everything is checked, and the record made.

    def begin(self, result, task_vars):
        play_hosts = set(task_vars["ansible_play_hosts_all"])
        given = {host: self.protection_set(host) for host in task_vars["groups"]["all"]}
        # A host that neither this run takes nor its groups know is not this run's business.
        given = {host: value for host, value in given.items() if value is not None or host in play_hosts}
        chosen = self.options["groups"]
        faults = fleets.faults_of_inventory(given, chosen, play_hosts)
        if faults:
            result.update(failed=True, msg="The inventory is not right, nothing was run.\n" + "\n".join(faults),
                          faults=faults)
            return
        taken = {host: sets.with_defaults(value) for host, value in given.items()
                 if value and host in play_hosts and (not chosen or value["group"] in chosen)}
        if not taken:
            result.update(failed=True, msg="No host of this run has a protection set: nothing was run.")
            return
        self.warn_of_forks(result, taken, task_vars["ansible_forks"])
        result["folder"], result["run"] = self.make_folder()
        result["modes"] = {host: whole["mode"] for host, whole in taken.items()}
        started = now().strftime("%Y-%m-%dT%H:%M:%SZ")
        self.write(result["folder"], fleets.begun(self.options["name"], started, taken, bool(self._task.check_mode)))

    def protection_set(self, host):
        variables = self.hostvars[host]
        return variables[sets.NAME] if sets.NAME in variables else None

    @staticmethod
    def warn_of_forks(result, taken, forks):
        members = fleets.members_of(taken)
        for name, hosts in members.items():
            if next(iter(hosts.values()))["mode"] == "together" and len(hosts) > forks:
                result.setdefault("warnings", []).append(
                    "The group %s has %d hosts, and only %d are taken at a time: use --forks %d"
                    % (name, len(hosts), forks, len(hosts)))

    def make_folder(self):
        name = now().strftime("%Y%m%dT%H%M%SZ")
        os.makedirs(self.options["folder"], exist_ok=True)
        for suffix in [""] + ["-%d" % number for number in range(2, 1000)]:
            folder = os.path.join(os.path.abspath(self.options["folder"]), name + suffix)
            try:
                os.mkdir(folder)
                return folder, "%s-%s" % (name, secrets.token_hex(4))
            except FileExistsError:
                continue
        raise OSError("no folder of a new name in %s" % self.options["folder"])

    # Between the tasks: what the hosts of this batch came to, and what that means.

    def look(self, result, task_vars):
        fleet = self.read()
        fleets.resume(fleet)
        batch = set(task_vars["ansible_play_batch"])
        for entry in fleet["hosts"]:
            if entry["name"] in batch:
                variables = self.hostvars[entry["name"]]
                results = {task: variables.get("varnel_%s_result" % task) for task in TASKS}
                fleets.note_host(entry, results)
                self.note_files(entry)
        limit = self.options["max_fail_percentage"]
        tasks = fleets.next_tasks(fleet, fleets.decide(fleet, limit))
        result.update(tasks)
        if self.options["taking"] and not self._task.check_mode:
            fleet = fleets.being_taken(fleet, batch.intersection(tasks["take"]), limit)
        self.write(self.options["folder"], fleet)

    def note_files(self, entry):
        """What lies beside the record of this host."""
        folder = "hosts/" + entry["name"]
        entry["documents"] = {name: "%s/%s.json" % (folder, name) for name in DOCUMENTS
                              if self.is_there("%s/%s.json" % (folder, name))}
        entry["evidence"] = folder + "/evidence" if self.is_there(folder + "/evidence") else None

    def is_there(self, path):
        return os.path.exists(os.path.join(self.options["folder"], path))

    # The end.

    def end(self, result, _task_vars):
        fleet = self.read()
        fleet["endedAt"] = now().strftime("%Y-%m-%dT%H:%M:%SZ")
        self.write(self.options["folder"], fleet)
        result["well"], result["msg"] = fleets.verdict(fleet)

    def read(self):
        with open(os.path.join(self.options["folder"], "fleet.json"), encoding="utf-8") as file:
            return json.load(file)

    @staticmethod
    def write(folder, fleet):
        path = os.path.join(folder, "fleet.json")
        with open(path + ".new", "w", encoding="utf-8", errors="replace") as file:
            json.dump(fleet, file, ensure_ascii=False, indent=1)
            file.write("\n")
        os.replace(path + ".new", path)
