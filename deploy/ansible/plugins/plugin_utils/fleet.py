"""A run over many hosts: what became of each, what that means for its group, and what is to be done next. Values only;
fleet.json is such a value."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import copy

from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets
from ansible_collections.tessel.varnel.plugins.plugin_utils.document import clean, sentences

BAD = ("failed", "refused", "unreachable", "hung")
LEFT_OUT = "varnel_protection_set: false"
# What to do about a host that does not answer.
ANSWER = "What to do: see that the host is up and lets Ansible in (WinRM or SSH)"
LEFT = "What it may have taken is still there: varnelctl sets list tells it."
# What is done after the snapshot, and what it means when it fails.
FOLLOWING = {"clean_up": "What it has left could not be cleaned up", "end": "Its set could not be ended",
             "follow_up": "It was taken, but not what follows"}
DELETED = "its set was deleted, as the inventory says"
BROKEN_OFF = "it was being taken when the run broke off: a set may be there (varnelctl sets list)"


# The inventory.

def faults_of_inventory(given, chosen, play_hosts):
    """Lines for a person: everything that is wrong, each with its host and key. given: host to varnel_protection_set, None
    where there is none; chosen: the groups that are to be run, all where empty; play_hosts: those that this run takes."""
    lines = []
    for host, value in given.items():
        if value is None:
            lines.append("%s: varnel_protection_set: is missing (a host without one says %s)" % (host, LEFT_OUT))
        elif value is not False:
            lines += ["%s: %s: %s" % (host, key, wrong) for key, wrong in sets.faults(value)]
            if "/" in host or host in (".", ".."):
                lines.append("%s: this name cannot be a folder's: give the host another one, with ansible_host" % host)
    if lines:
        return lines
    members = members_of({host: sets.with_defaults(value) for host, value in given.items() if value})
    lines += ["varnel_groups: no host is of the group %s (there are %s)" % (name, ", ".join(members) or "none")
              for name in chosen if name not in members]
    for name, wholes in members.items():
        if not chosen or name in chosen:
            lines += faults_of_group(name, wholes, play_hosts)
    return lines


def members_of(wholes):
    """Group to host to set, in the inventory's order."""
    members = {}
    for host, whole in wholes.items():
        members.setdefault(whole["group"], {})[host] = whole
    return members


def faults_of_group(name, wholes, play_hosts):
    first, whole = next(iter(wholes.items()))
    for key in ("mode", "on_failure"):
        for host, other in wholes.items():
            if other[key] != whole[key]:
                yield ("%s: varnel_protection_set.%s: %s, but %s of %s, which is of the same group %s"
                       % (host, key, other[key], whole[key], first, name))
    absent = [host for host in wholes if host not in play_hosts]
    if whole["mode"] == "together" and absent and len(absent) < len(wholes):
        yield ("%s: of the group %s, which is taken together, and left out of this run (--limit)"
               % (", ".join(absent), name))


# The state of a run.

def begun(name, started, wholes, plan=False):
    """The value of fleet.json before anything has run. wholes: host to set with defaults; plan: whether the run only
    plans."""
    groups = {}
    for whole in wholes.values():
        groups.setdefault(whole["group"], {
            "name": whole["group"], "mode": whole["mode"], "onFailure": whole["on_failure"], "outcome": "notRun",
            "message": "", "consistent": "host"})
    hosts = [{"name": host, "group": whole["group"], "application": whole["application"], "outcome": "notRun",
              "message": "", "seconds": None, "documents": {}, "evidence": None, "steps": [], "mayRun": False,
              "setMayBeThere": False,
              "followUps": sets.follow_ups(whole)} for host, whole in wholes.items()]
    return {"schemaVersion": 1, "fleet": name, "startedAt": started, "endedAt": None, "plan": plan,
            "groups": list(groups.values()), "hosts": hosts}


def outcome_of(result, good):
    if result.get("unreachable"):
        return "unreachable"
    if result.get("failed"):
        return result["cause"] if result.get("cause") in ("hung", "refused") else "failed"
    return good


def note_host(entry, results):
    """Takes down what the tasks on one host came to, each once. results: task (doctor, plan, snapshot, clean_up, end,
    follow_up) to its registered result."""
    for task in ("doctor", "plan", "snapshot", "clean_up", "end", "follow_up"):
        result = results.get(task) or {}
        if not result or result.get("skipped") or task in entry["steps"]:
            continue
        entry["steps"].append(task)
        result = {**result, "msg": clean(str(result.get("msg", "")))}
        if task in FOLLOWING:
            note_what_followed(entry, task, result)
        elif task == "snapshot" or entry["outcome"] not in BAD:
            note_step(entry, task, result)


def note_step(entry, task, result):
    outcome = outcome_of(result, "taken" if task == "snapshot" else "planned")
    entry["outcome"] = "failed" if task == "snapshot" and outcome == "refused" else outcome
    entry["message"] = "" if outcome not in BAD else result["msg"]
    entry["seconds"] = result.get("seconds", entry["seconds"])
    if task == "snapshot":
        is_set_gone = result.get("state") in ("none", "deleted")
        entry["mayRun"] = outcome == "unreachable" or bool(result.get("given_up") and not is_set_gone)
        entry["setMayBeThere"] = outcome in BAD and not is_set_gone
        if outcome == "taken" and is_set_gone:
            entry.update(outcome="ended", message=DELETED)
    if outcome == "unreachable" or entry["mayRun"]:
        entry["message"] = sentences([entry["message"], ANSWER if outcome == "unreachable" else "",
                                      LEFT if entry["mayRun"] else ""])


def note_what_followed(entry, task, result):
    if outcome_of(result, "") in BAD:
        if entry["outcome"] == "taken":
            entry["outcome"] = "failed"
        entry["setMayBeThere"] = entry["setMayBeThere"] or task != "clean_up"
        entry["message"] = sentences([entry["message"], FOLLOWING[task] + ": " + result["msg"]])
    elif task == "clean_up":
        if result.get("changed") and not entry["mayRun"]:
            entry["setMayBeThere"] = False
    elif task == "follow_up":
        if "delete" in entry["followUps"]:
            entry.update(outcome="ended", message=DELETED)
    elif entry["outcome"] == "taken":
        entry.update(outcome="ended", message="its set was ended, as its group failed")
    elif result.get("changed") or result.get("settled") or not entry["mayRun"]:
        entry["setMayBeThere"] = False
        entry["message"] = sentences([entry["message"].replace(LEFT, ""),
                                      "Its set was ended" if result.get("changed") else ""])


def was_tried(entry):
    """Whether a snapshot was asked for."""
    return "snapshot" in entry["steps"] or "taking" in entry


def was_used(entry):
    """Whether its set was deleted as the inventory says, and not because of another host."""
    return entry["outcome"] == "ended" and "end" not in entry["steps"]


def is_gone(entry):
    """Whether nothing of a host that was tried is there any more, by what was done and not by what was not heard."""
    return entry["outcome"] == "ended" or ("end" in entry["steps"] and not entry["setMayBeThere"])


def being_taken(fleet, names_of_hosts, limit):
    """The record for the case that the run breaks off while these are taken."""
    record = copy.deepcopy(fleet)
    for entry in record["hosts"]:
        if entry["name"] in names_of_hosts and entry["outcome"] == "planned":
            entry.update(taking=True, outcome="failed", message=BROKEN_OFF, setMayBeThere=True)
    decide(record, limit)
    return record


def resume(fleet):
    """Takes back what being_taken has noted."""
    for entry in fleet["hosts"]:
        if entry.pop("taking", False):
            entry.update(outcome="planned", message="", setMayBeThere=False)


def hosts_of(fleet, group):
    return [host for host in fleet["hosts"] if host["group"] == group["name"]]


def names(hosts):
    shown = [host["name"] for host in hosts[:5]]
    return ", ".join(shown) + (" and %d more" % (len(hosts) - 5) if len(hosts) > 5 else "")


def has_failed(group, hosts, limit):
    """Whether more hosts of the group failed than may."""
    bad = sum(host["outcome"] in BAD for host in hosts)
    return bad > 0 if group["mode"] == "together" else bad * 100 > limit * len(hosts)


def decide(fleet, limit):
    """Sets the outcome of each group. Returns, by group, whether it may go on and whether what was taken of it is to be
    ended."""
    decisions = {}
    for group in fleet["groups"]:
        hosts = hosts_of(fleet, group)
        failed = has_failed(group, hosts, limit)
        group["outcome"] = outcome_of_group(group, hosts, failed)
        group["message"] = message_of_group(group, hosts)
        decisions[group["name"]] = {"go": not failed, "end": failed and group["onFailure"] == "end"}
    return decisions


def outcome_of_group(group, hosts, failed):
    outcomes = {host["outcome"] for host in hosts}
    if outcomes == {"notRun"}:
        return "notRun"
    if not any(was_tried(host) for host in hosts):
        return "stopped" if failed else "planned"
    if outcomes == {"taken"}:
        return "taken"
    if all(was_used(host) for host in hosts):
        return "ended"
    is_ended = group["onFailure"] == "end" and failed and all(is_gone(host) for host in hosts if was_tried(host))
    return "ended" if is_ended else "incomplete"


def message_of_group(group, hosts):
    used = [host for host in hosts if was_used(host)]
    if len(used) == len(hosts):
        return "every set was deleted, as the inventory says"
    bad = [host for host in hosts if host["outcome"] in BAD]
    some = ["%d of %d hosts failed (%s)" % (len(bad), len(hosts), names(bad))] if bad else []
    for outcome, what in (("planned", "planned only"), ("notRun", "not run")):
        left = [host for host in hosts if host["outcome"] == outcome]
        if left and not (outcome == "planned" and group["outcome"] in ("planned", "stopped")):
            some.append("%d %s %s (%s)" % (len(left), "was" if len(left) == 1 else "were", what, names(left)))
    last = {"stopped": "nothing was taken", "ended": "the sets of the others were ended", "incomplete": what_is_there(hosts)}
    return "; ".join(some + [last[group["outcome"]]]) if group["outcome"] in last else ""


def what_is_there(hosts):
    taken = sum(host["outcome"] == "taken" for host in hosts)
    deleted = sum(host["outcome"] == "ended" for host in hosts)
    unsure = [host for host in hosts if host["setMayBeThere"]]
    return ("%d set%s there" % (taken, " is" if taken == 1 else "s are")
            + (", %d %s deleted" % (deleted, "was" if deleted == 1 else "were") if deleted else "")
            + (", %d may be there (%s)" % (len(unsure), names(unsure)) if unsure else ""))


def next_tasks(fleet, decisions):
    """What is to be done with which hosts: lists of them, of what follows also what it is."""
    tasks = {"take": [], "clean_up": [], "end": [], "follow_up": {}}
    for host in fleet["hosts"]:
        for task in due_tasks(host, decisions[host["group"]]):
            if task in host["steps"]:
                continue
            if task == "follow_up":
                tasks[task][host["name"]] = host["followUps"]
            else:
                tasks[task].append(host["name"])
    return tasks


def due_tasks(host, decision):
    if not was_tried(host):
        return ["take"] if decision["go"] and host["outcome"] in ("planned", "notRun") else []
    if host["outcome"] in BAD:
        return ["clean_up"] + (["end"] if decision["end"] else [])
    if host["outcome"] == "taken":
        return ["end"] if decision["end"] else ["follow_up"] if host["followUps"] else []
    return []


def verdict(fleet):
    """(whether all is well, a sentence) of a run that came to its end."""
    bad = [group for group in fleet["groups"] if group["outcome"] not in ("taken", "planned")
           and not all(was_used(host) for host in hosts_of(fleet, group))]
    if not bad:
        used = sum(was_used(host) for host in fleet["hosts"])
        word = "planned" if any(group["outcome"] == "planned" for group in fleet["groups"]) else "taken"
        return True, "%d hosts in %d groups were %s. Each host's set is consistent in itself, not with the others'." % (
            len(fleet["hosts"]), len(fleet["groups"]), word) + (
                " %d were deleted, as the inventory says." % used if used else "")
    return False, " ".join("Group %s: %s%s." % (group["name"], group["outcome"],
                                                 ": " + group["message"] if group["message"] else "") for group in bad)
