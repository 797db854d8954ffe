#!/usr/bin/env python3
"""Makes a fleet of simulated hosts: make_fleet.py FOLDER [--varnelctl PROGRAM] [--hosts N] [--healthy]

FOLDER gets inventory.yml, a host file and a state file for each host, and ansible.cfg, with which ansible-playbook finds
the collection of this checkout. Unless --healthy is given some hosts are broken, each in another way.
"""
import argparse
import json
import pathlib
import re
import shutil

COLLECTION = pathlib.Path(__file__).resolve().parents[1]
SAMPLES = COLLECTION.parents[1] / "examples/hosts"

# What the samples are called and have.
SAMPLE = {"sql": ("sql-server.json", "SQL01"), "exchange": ("exchange.json", "EXCH01"),
          "hyperv": ("hyperv-one-of-twenty.json", "HV01")}

# Group: its part of the hosts, and what its hosts' protection sets share.
GROUPS = {
    "erp": (0.2, {"application": "sql", "objects": ["sales", "crm"], "mode": "together"}),
    "crm": (0.1, {"application": "sql", "disks": ["TSL0001", "TSL0002", "TSL0003"], "mode": "together"}),
    "shop": (0.4, {"application": "sql", "objects": ["webshop"], "mode": "rolling"}),
    "mail": (0.2, {"application": "exchange", "disks": ["TSL1001", "TSL1002"], "mode": "rolling"}),
    "machines": (0.1, {"application": "hyperv", "disks": ["TSL2001", "TSL2002"], "mode": "rolling"}),
}

FREEZE_FAILS = [{"writer": "SqlServerWriter", "event": "freeze", "failure": "VSS_E_WRITERERROR_TIMEOUT",
                 "applicationResult": "0x80040e14", "applicationMessage": "log full"}]
PREPARE_HANGS = [{"async": "PrepareForBackup", "hangs": True}]
# A port that nobody listens on: the host does not answer.
DEAD = {"ansible_connection": "ssh", "ansible_host": "127.0.0.1", "ansible_port": 1,
        "ansible_ssh_common_args": "-o ConnectTimeout=5"}

CONFIGURATION = """[defaults]
collections_path = {folder}/collections
interpreter_python = /usr/bin/python3
local_tmp = {folder}/tmp
remote_tmp = {folder}/remote-tmp
localhost_warning = false
retry_files_enabled = false
# The inventory is all that there is of variables: it need not be read again for each task.
run_vars_plugins = start
"""


class Fleet:
    """A folder of simulated hosts and their inventory."""

    def __init__(self, folder, varnelctl):
        self.folder = pathlib.Path(folder).resolve()
        self.folder.mkdir(parents=True, exist_ok=True)
        self.groups = {}
        self.variables = {"ansible_connection": "local", "ansible_python_interpreter": "/usr/bin/python3",
                          "varnel_program": str(varnelctl), "varnel_folder": str(self.folder / "runs"),
                          "varnel_control_program": str(varnelctl),
                          "varnel_arguments": ["--host", str(self.folder / "hosts/{{ inventory_hostname }}.json"),
                                               "--state", str(self.folder / "hosts/{{ inventory_hostname }}.state")]}

    def group(self, name, protection_set):
        """A group of the inventory, whose hosts have this set."""
        variables = {} if protection_set is None else {"varnel_protection_set": {**protection_set, "group": name}}
        self.groups[name] = {"hosts": {}, "vars": variables}

    def add(self, name, group, application="sql", faults=(), **variables):
        """A host like the sample of the application."""
        file, sample = SAMPLE[application]
        text = re.sub(r"^\s*//.*$", "", (SAMPLES / file).read_text(encoding="utf-8"), flags=re.M)
        host = json.loads(text.replace(sample, name.upper().replace("-", "")))
        host["faults"] = host.get("faults", []) + list(faults) if application != "hyperv" else list(faults)
        path = self.folder / "hosts" / (name + ".json")
        path.parent.mkdir(exist_ok=True)
        path.write_text(json.dumps(host), encoding="utf-8")
        self.groups[group]["hosts"][name] = variables

    def write(self):
        inventory = {"all": {"vars": self.variables, "children": self.groups}}
        (self.folder / "inventory.yml").write_text(json.dumps(inventory, indent=1), encoding="utf-8")
        shutil.copytree(COLLECTION, self.folder / "collections/ansible_collections/tessel/varnel", dirs_exist_ok=True,
                        ignore=shutil.ignore_patterns("__pycache__"))
        (self.folder / "ansible.cfg").write_text(CONFIGURATION.format(folder=self.folder), encoding="utf-8")


def make(folder, varnelctl, count, healthy=False):
    fleet = Fleet(folder, varnelctl)
    for name, (part, protection_set) in GROUPS.items():
        fleet.group(name, protection_set)
        for number in range(1, max(3, round(count * part)) + 1):
            fleet.add("%s-%03d" % (name, number), name, protection_set["application"])
    if not healthy:
        fleet.add("crm-002", "crm", "sql", FREEZE_FAILS)
        fleet.add("shop-001", "shop", "sql", varnel_protection_set={
            **GROUPS["shop"][1], "group": "shop", "objects": ["webshop", "archiv"]})
        fleet.add("shop-002", "shop", "sql", PREPARE_HANGS, varnel_protection_set={
            **GROUPS["shop"][1], "group": "shop", "deadline": 30})
        fleet.add("mail-003", "mail", "exchange", (), **DEAD)
    fleet.write()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("folder")
    parser.add_argument("--varnelctl", default=shutil.which("varnelctl") or "varnelctl")
    parser.add_argument("--hosts", type=int, default=100)
    parser.add_argument("--healthy", action="store_true")
    options = parser.parse_args()
    make(options.folder, options.varnelctl, options.hosts, options.healthy)


if __name__ == "__main__":
    main()
