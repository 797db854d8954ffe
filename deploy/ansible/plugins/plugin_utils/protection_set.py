"""Protection sets of the inventory: what is wrong with one, its defaults, and the words of varnelctl for it."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import difflib
import json
import os
import re

NAME = "varnel_protection_set"
SCHEMA = os.path.join(os.path.dirname(__file__), "..", "..", "schema", "protection-set.schema.json")
TYPES = {"object": dict, "array": list, "string": str, "integer": int, "boolean": bool}
LASTING = ("app-rollback", "nas-rollback", "client-accessible", "client-accessible-writers", "transportable")
FOLLOW_UPS = {"keep": [], "break": ["break"], "mask": ["mask"], "delete": ["delete"]}


def schema():
    with open(SCHEMA, encoding="utf-8") as file:
        return json.load(file)


def shown(value):
    return json.dumps(value, ensure_ascii=False, default=str)


def has_type(value, name):
    return isinstance(value, TYPES[name]) and not (name == "integer" and isinstance(value, bool))


def listed(values):
    return ", ".join(str(value) for value in values)


class Checker:
    """Compares a value with the part of JSON Schema that the schema uses; gives (key, what is wrong)."""

    def __init__(self, root):
        self.definitions = root.get("definitions", {})

    def faults(self, value, rule, key):
        if "$ref" in rule:
            rule = self.definitions[rule["$ref"].rpartition("/")[2]]
        if "anyOf" in rule:
            found = [self.faults(value, choice, key) for choice in rule["anyOf"]]
            return [] if [] in found else [(key, "wanted " + " or ".join(self.wanted(each) for each in rule["anyOf"])
                                            + ", got " + shown(value))]
        if ("type" in rule and not has_type(value, rule["type"])) or ("enum" in rule and value not in rule["enum"]):
            return [(key, "wanted %s, got %s" % (self.wanted(rule), shown(value)))]
        if isinstance(value, dict):
            return self.faults_of_keys(value, rule, key)
        if isinstance(value, list):
            return self.faults_of_list(value, rule, key)
        return self.faults_of_scalar(value, rule, key)

    def wanted(self, rule):
        if "$ref" in rule:
            rule = self.definitions[rule["$ref"].rpartition("/")[2]]
        if "enum" in rule:
            return "one of " + listed(rule["enum"]) if len(rule["enum"]) > 1 else rule["enum"][0]
        return {"array": "a list of names", "object": "a mapping", "integer": "a whole number",
                "boolean": "true or false", "string": "a text"}[rule["type"]]

    def faults_of_keys(self, value, rule, key):
        found = [(key + "." + name, "is missing") for name in rule.get("required", []) if name not in value]
        for name, member in value.items():
            if name in rule["properties"]:
                found += self.faults(member, rule["properties"][name], key + "." + name)
            else:
                near = difflib.get_close_matches(str(name), rule["properties"], 1)
                found.append(("%s.%s" % (key, name),
                              "no such key" + ("; did you mean %s?" % near[0] if near else "")))
        return found

    def faults_of_list(self, value, rule, key):
        if len(value) < rule.get("minItems", 0):
            return [(key, "the list is empty")]
        found = []
        for place, member in enumerate(value):
            found += self.faults(member, rule["items"], "%s[%d]" % (key, place))
            if rule.get("uniqueItems") and member in value[:place]:
                found.append(("%s[%d]" % (key, place), "%s is there twice" % shown(member)))
        return found

    def faults_of_scalar(self, value, rule, key):
        if "pattern" in rule and not re.search(rule["pattern"], value):
            return [(key, "%s is no value for it" % shown(value))]
        if value is not True and value is not False and isinstance(value, int):
            if value < rule.get("minimum", value):
                return [(key, "wanted %d or more, got %d" % (rule["minimum"], value))]
            if value > rule.get("maximum", value):
                return [(key, "wanted %d or less, got %d" % (rule["maximum"], value))]
        return []


def with_defaults(given):
    """The set with every default that something here asks for."""
    whole = {"context": "app-rollback", "then": "keep", "disconnect": False, "deadline": 1800}
    whole["on_failure"] = "end" if given.get("mode") == "together" else "keep"
    whole.update(given)
    return whole


def lasts(whole):
    """Whether the set outlives the process that took it."""
    return any(name in LASTING for name in whole["context"].split("+"))


def is_transportable(whole):
    return "transportable" in whole["context"].split("+")


def follow_ups(whole):
    """The actions of varnelctl sets that are due once the group was looked at."""
    if not lasts(whole):
        return []
    actions = list(FOLLOW_UPS[whole["then"]])
    if whole["disconnect"]:
        actions.insert(0 if whole["then"] == "mask" else len(actions), "disconnect")
    return actions


def faults_between_keys(given):
    """What no single key is to blame for; of a set that the schema takes."""
    whole = with_defaults(given)
    if ("disks" in given) == ("objects" in given):
        yield "disks", "give either disks or objects" + (", not both" if "disks" in given else "")
    if not lasts(whole):
        yield from faults_of_passing_context(whole)
    if is_transportable(whole) and (whole["then"] != "keep" or whole["disconnect"] or whole.get("verify")):
        yield "context", "a transportable set belongs to the array: then, disconnect and verify do not go with it"
    if whole["then"] == "delete" and whole["disconnect"]:
        yield "disconnect", "a deleted set has no disks left to disconnect"
    if whole["on_failure"] == "end" and is_transportable(whole):
        yield "on_failure", "a transportable set cannot be ended on its host: take keep, and end it on the array"


def faults_of_passing_context(whole):
    if whole["then"] == "keep":
        yield "context", ("a set of the context %s goes with varnelctl's process, before the next task runs: take "
                          "app-rollback or transportable, or let the run itself end the set (then: break, mask or "
                          "delete)" % whole["context"])
    elif whole["on_failure"] == "end" and whole["then"] != "delete":
        yield "then", ("a set of the context %s cannot be ended any more after %s: take context: app-rollback, whose "
                       "sets wait for the look at all hosts, or on_failure: keep" % (whole["context"], whole["then"]))


def faults(given):
    """(key, what is wrong) of a value of varnel_protection_set, all of it; empty when it is well."""
    root = schema()
    found = Checker(root).faults(given, root, NAME)
    if found:
        return found
    return [(NAME + "." + key, wrong) for key, wrong in faults_between_keys(given)]


def words_of_plan(whole, disks):
    """The arguments that plan and snapshot share."""
    words = ["--app", whole["application"], "--disk"] + list(disks) + ["--context", whole["context"]]
    require = whole.get("require", whole.get("objects"))
    if require:
        words += ["--require"] + ([require] if isinstance(require, str) else list(require))
    if "backup_type" in whole:
        words += ["--backup-type", whole["backup_type"]]
    for key in ("accept_extra_volumes", "accept_unknown_disks"):
        if whole.get(key):
            words.append("--" + key.replace("_", "-"))
    return words


def words_of_snapshot(whole, disks):
    words = words_of_plan(whole, disks) + ["--deadline", str(whole["deadline"])]
    if not lasts(whole):
        words += ["--then", whole["then"]] + (["--disconnect"] if whole["disconnect"] else [])
    if whole.get("verify"):
        words.append("--verify")
    for key in ("retries", "wait_for_others"):
        if key in whole:
            words += ["--" + key.replace("_", "-"), str(whole[key])]
    return words
