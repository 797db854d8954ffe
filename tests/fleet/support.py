"""What the tests of the collection share: fleets of simulated hosts, runs of ansible-playbook and what they left."""
import json
import os
import pathlib
import shutil
import subprocess
import sys

VARNELCTL = SOURCE = VERSION = SCRATCH = None

SQL = {"application": "sql", "disks": ["TSL0001", "TSL0002", "TSL0003"]}
TOGETHER = {**SQL, "mode": "together"}
ROLLING = {**SQL, "mode": "rolling"}


def set_up(varnelctl, source, version, scratch):
    """Takes the arguments of check.py, and lets Python find the collection by its name."""
    global VARNELCTL, SOURCE, VERSION, SCRATCH
    VARNELCTL, SOURCE, VERSION, SCRATCH = varnelctl, pathlib.Path(source), version, pathlib.Path(scratch)
    shutil.rmtree(SCRATCH, ignore_errors=True)
    package = SCRATCH / "python/ansible_collections/tessel"
    package.mkdir(parents=True)
    (package / "varnel").symlink_to(SOURCE / "deploy/ansible")
    sys.path.insert(0, str(SOURCE / "deploy/ansible/demo"))
    os.environ["ANSIBLE_COLLECTIONS_PATH"] = str(SCRATCH / "python")
    from ansible.plugins import loader
    if hasattr(loader, "init_plugin_loader"):
        loader.init_plugin_loader()
    del os.environ["ANSIBLE_COLLECTIONS_PATH"]  # each fleet has its own


def wrapper(fleet, name, script):
    """A program in the place of varnelctl; in the script $varnelctl is the true one."""
    path = fleet.folder / name
    path.write_text(f"#!/bin/sh\nvarnelctl='{VARNELCTL}'\n{script}\n", encoding="utf-8")
    path.chmod(0o755)
    return {"varnel_program": str(path)}


def command(words, cwd, **environment):
    """A program of Ansible that ended."""
    return subprocess.run(words, cwd=cwd, env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1", "ANSIBLE_NOCOLOR": "1",
                                               **environment}, capture_output=True, text=True, check=False)


def check_record(record):
    """Fails where the value of a fleet.json is not as its schema says; without jsonschema only the keys are looked at."""
    schema = json.loads((SOURCE / "docs/fleet.schema.json").read_text(encoding="utf-8"))
    try:
        import jsonschema
        jsonschema.Draft7Validator(schema).validate(record)
    except ImportError:
        parts = [(schema, record)] + [(schema["definitions"][part], value) for part in ("group", "host")
                                      for value in record[part + "s"]]
        for rule, value in parts:
            wrong = set(rule["required"]) - set(value) | set(value) - set(rule["properties"])
            if wrong:
                raise AssertionError(f"{sorted(wrong)} of {value}")


class Runner:
    """A fleet in a folder of its own."""

    def __init__(self, name):
        import make_fleet
        self.fleet = make_fleet.Fleet(SCRATCH / name, VARNELCTL)
        self.fleet.variables["varnel_page"] = False
        self.folder = self.fleet.folder

    def group(self, name, protection_set, count, **variables):
        """A group whose hosts are NAME-1, NAME-2 and so on."""
        self.fleet.group(name, protection_set)
        for number in range(1, count + 1):
            self.fleet.add(f"{name}-{number}", name, **variables)

    def play(self, playbook, *arguments, forks=10):
        """The exit status and the output of ansible-playbook; the hosts' variables of the run are those of the fleet."""
        self.fleet.write()
        found = command(["ansible-playbook", "-i", "inventory.yml", "--forks", str(forks), playbook, *arguments], self.folder,
                        ANSIBLE_CONNECTION_PLUGINS=str(pathlib.Path(__file__).parent / "connection"))
        (self.folder / "output.txt").write_text(found.stdout + found.stderr, encoding="utf-8")
        return found.returncode, found.stdout + found.stderr

    def protect(self, *arguments, **options):
        return self.play("tessel.varnel.protect", *arguments, **options)

    def tasks(self, *tasks):
        """Runs these tasks on every host; gives host to what the last one came to."""
        write = {"name": "Write", "delegate_to": "localhost", "check_mode": False, "ansible.builtin.copy": {
            "content": "{{ found | to_json }}", "dest": str(self.folder / "{{ inventory_hostname }}.result")}}
        play = {"name": "Try", "hosts": "all", "gather_facts": False, "tasks": [
            {"name": "Do", "ignore_errors": True, "register": "found", **task} for task in tasks] + [write]}
        (self.folder / "play.yml").write_text(json.dumps([play]), encoding="utf-8")
        code, output = self.play("play.yml")
        if code != 0:
            raise AssertionError(output)
        return {file.stem: json.loads(file.read_text(encoding="utf-8")) for file in self.folder.glob("*.result")}

    def runs(self):
        return sorted((self.folder / "runs").glob("*/fleet.json"))

    def record(self):
        """The last run's fleet.json, which is as its schema says."""
        record = json.loads(self.runs()[-1].read_text(encoding="utf-8"))
        check_record(record)
        return record

    def outcomes(self):
        return {host["name"]: host["outcome"] for host in self.record()["hosts"]}

    def groups(self):
        return {group["name"]: group["outcome"] for group in self.record()["groups"]}

    def host(self, name):
        return next(host for host in self.record()["hosts"] if host["name"] == name)

    def varnelctl(self, host, *words):
        path = self.folder / "hosts" / host
        found = subprocess.run([VARNELCTL, "--host", f"{path}.json", "--state", f"{path}.state", "--json", *words],
                               capture_output=True, text=True, check=False)
        return json.loads(found.stdout)

    def sets(self, host):
        """How many sets the host has and its journal knows."""
        return len(self.varnelctl(host, "sets", "list")["sets"])
