"""The collection's own code, without a run of Ansible."""
import datetime
import importlib
import json
import pathlib
import re
import subprocess
import time
import unittest
from unittest import mock

import yaml
from ansible_collections.tessel.varnel.plugins.plugin_utils import document as documents
from ansible_collections.tessel.varnel.plugins.plugin_utils import fleet as fleets
from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets
from ansible_collections.tessel.varnel.plugins.plugin_utils import varnelctl_action

import support
from support import ROLLING, TOGETHER

ACTIONS = ("clean_up", "doctor", "fleet", "plan", "sets", "snapshot", "version")
WHOLE = {**TOGETHER, "group": "erp"}
COLLECTION = pathlib.Path(sets.SCHEMA).parents[1]


def action(name):
    return importlib.import_module(f"ansible_collections.tessel.varnel.plugins.action.{name}").ActionModule


def faults(**changes):
    value = {key: member for key, member in {**WHOLE, **changes}.items() if member is not ...}
    return [f"{key}: {wrong}" for key, wrong in sets.faults(value)]


class ProtectionSets(unittest.TestCase):
    def test_a_set_that_is_right_has_no_fault(self):
        self.assertEqual(faults(), [])
        self.assertEqual(faults(disks=..., objects=["sales"], require="all", then="mask", disconnect=True), [])
        self.assertEqual(faults(context="backup", then="delete", mode="rolling"), [])
        self.assertEqual(faults(context="backup+transportable", on_failure="keep"), [])

    def test_each_mistake_is_told_with_its_key(self):
        name = "varnel_protection_set"
        for changes, expected in (
                ({"disk": ["TSL0001"]}, [f"{name}.disk: no such key; did you mean disks?"]),
                ({"colour": 1}, [f"{name}.colour: no such key"]),
                ({"application": ...}, [f"{name}.application: is missing"]),
                ({"application": "oracle"},
                 [f'{name}.application: wanted one of sql, exchange, hyperv, none, got "oracle"']),
                ({"disks": "TSL0001"}, [f'{name}.disks: wanted a list of names, got "TSL0001"']),
                ({"disks": []}, [f"{name}.disks: the list is empty"]),
                ({"disks": [7]}, [f"{name}.disks[0]: wanted a text, got 7"]),
                ({"disks": ["A", "A"]}, [f'{name}.disks[1]: "A" is there twice']),
                ({"disks": ["--force"]}, [f'{name}.disks[0]: "--force" is no value for it']),
                ({"disks": ...}, [f"{name}.disks: give either disks or objects"]),
                ({"objects": ["sales"]}, [f"{name}.disks: give either disks or objects, not both"]),
                ({"require": "some"}, [f'{name}.require: wanted all or a list of names, got "some"']),
                ({"deadline": "soon"}, [f'{name}.deadline: wanted a whole number, got "soon"']),
                ({"deadline": True}, [f"{name}.deadline: wanted a whole number, got true"]),
                ({"disks": [datetime.date(2026, 1, 1)]}, [f'{name}.disks[0]: wanted a text, got "2026-01-01"']),
                ({"deadline": 86401}, [f"{name}.deadline: wanted 86400 or less, got 86401"]),
                ({"deadline": 0}, [f"{name}.deadline: wanted 1 or more, got 0"]),
                ({"retries": 4}, [f"{name}.retries: wanted 3 or less, got 4"]),
                ({"verify": "yes"}, [f'{name}.verify: wanted true or false, got "yes"']),
                ({"context": "app rollback"}, [f'{name}.context: "app rollback" is no value for it']),
                ({"mode": "both", "deadline": 0}, [f'{name}.mode: wanted one of together, rolling, got "both"',
                                                   f"{name}.deadline: wanted 1 or more, got 0"]),
                ({"then": "delete", "disconnect": True},
                 [f"{name}.disconnect: a deleted set has no disks left to disconnect"])):
            with self.subTest(changes):
                self.assertCountEqual(faults(**changes), expected)
        self.assertEqual(sets.faults("erp"), [(name, 'wanted a mapping, got "erp"')])

    def test_a_set_that_goes_with_its_process_is_refused_unless_the_run_ends_it(self):
        gone = ("varnel_protection_set.context: a set of the context backup goes with varnelctl's process, before the next "
                "task runs: take app-rollback or transportable, or let the run itself end the set (then: break, mask or "
                "delete)")
        self.assertEqual(faults(context="backup"), [gone])
        self.assertEqual(faults(context="backup", then="delete"), [])
        self.assertEqual(faults(context="backup", then="break"), [
            "varnel_protection_set.then: a set of the context backup cannot be ended any more after break: take context: "
            "app-rollback, whose sets wait for the look at all hosts, or on_failure: keep"])
        self.assertEqual(faults(context="backup", then="break", mode="rolling"), [])

    def test_what_cannot_be_ended_is_not_promised_to_be(self):
        self.assertEqual(faults(context="backup+transportable"), [
            "varnel_protection_set.on_failure: a transportable set cannot be ended on its host: take keep, and end it on "
            "the array"])
        self.assertEqual(faults(context="backup+transportable", on_failure="keep", then="mask"), [
            "varnel_protection_set.context: a transportable set belongs to the array: then, disconnect and verify do not go "
            "with it"])

    def test_follow_ups_wait_where_the_set_lasts(self):
        def follow_ups(**changes):
            return sets.follow_ups(sets.with_defaults({**WHOLE, **changes}))
        self.assertEqual(follow_ups(), [])
        self.assertEqual(follow_ups(then="mask", disconnect=True), ["disconnect", "mask"])
        self.assertEqual(follow_ups(then="break", disconnect=True), ["break", "disconnect"])
        self.assertEqual(follow_ups(context="backup", then="delete"), [])

    def test_the_words_are_those_of_varnelctl(self):
        whole = sets.with_defaults({**WHOLE, "objects": ["sales"], "verify": True, "retries": 2, "wait_for_others": 0,
                                    "backup_type": "copy", "accept_extra_volumes": True, "then": "break"})
        self.assertEqual(sets.words_of_snapshot(whole, ["A", "B"]), [
            "--app", "sql", "--disk", "A", "B", "--context", "app-rollback", "--require", "sales", "--backup-type", "copy",
            "--accept-extra-volumes", "--deadline", "1800", "--verify", "--retries", "2", "--wait-for-others", "0"])
        passing = sets.with_defaults({**WHOLE, "context": "backup", "then": "delete", "require": "all"})
        self.assertEqual(sets.words_of_snapshot(passing, ["A"])[-8:], [
            "--context", "backup", "--require", "all", "--deadline", "1800", "--then", "delete"])
        told = subprocess.run([support.VARNELCTL, "snapshot", "--help"], capture_output=True, text=True, check=True).stdout
        for word in sets.words_of_snapshot(whole, []) + sets.words_of_snapshot(passing, []):
            self.assertIn(word if word.startswith("--") else "", told)

    def test_the_schema_is_one_and_takes_the_sets_of_the_demonstration(self):
        import make_fleet
        try:
            import jsonschema
        except ImportError:
            self.skipTest("there is no jsonschema")
        jsonschema.Draft7Validator.check_schema(sets.schema())
        for name, (_part, given) in make_fleet.GROUPS.items():
            jsonschema.validate({**given, "group": name}, sets.schema())
            self.assertEqual(sets.faults({**given, "group": name}), [])
        with self.assertRaises(jsonschema.ValidationError):
            jsonschema.validate({**WHOLE, "disk": []}, sets.schema())


HEAD = {"schema": "varnelctl/1", "kind": "plan", "status": 0, "result": {}}


class Documents(unittest.TestCase):
    def test_what_is_no_document_is_told(self):
        for text, expected in (
                ("", "varnelctl printed no document"),
                ('{"schema": "varnelctl/1", "sta', "varnelctl's document is broken: it is cut off after 30 characters"),
                ('{"schema": "varnelctl/1",', "varnelctl's document is broken: it is cut off after 25 characters"),
                ("Segmentation fault", "varnelctl's document is broken: it is not JSON after 18 characters"),
                ('{"a": }', "varnelctl's document is broken: it is not JSON after 7 characters"),
                ("[]", "varnelctl's document is broken: it has no status"),
                ('{"status": 0, "schema": "varnelctl/2"}',
                 "varnelctl's document is of another version: varnelctl/2, not varnelctl/1"),
                (json.dumps({**HEAD, "kind": "doctor"}), "varnelctl's document is of another kind: doctor, not plan"),
                (json.dumps({**HEAD, "kind": "failure"}), "varnelctl's document is of another kind: failure, not plan"),
                (json.dumps({**HEAD, "status": 5, "result": None}), "varnelctl's document is broken: it has no result"),
                (json.dumps({**HEAD, "verdict": "well"}), "varnelctl's document is broken: it has no verdict"),
                (json.dumps(HEAD), "varnelctl's document is broken: it has no objects"),
                (json.dumps({**HEAD, "objects": [], "findings": [7]}), "varnelctl's document is broken: its findings are none")):
            with self.subTest(text), self.assertRaises(documents.BrokenDocument) as caught:
                documents.read(text, "plan", {"objects": list})
            self.assertTrue(str(caught.exception).startswith(expected), caught.exception)

    def test_a_failure_is_read_where_any_kind_is_expected(self):
        text = json.dumps({**HEAD, "kind": "failure", "status": 2, "result": {"message": "no"}})
        self.assertEqual(documents.read(text, "plan", {"objects": list})["status"], 2)

    def test_half_a_surrogate_pair_is_replaced(self):
        text = '{"schema": "varnelctl/1", "kind": "plan", "status": 5, "result": {"message": "x\\ud800y", "details": ["\\udcfc"]}}'
        self.assertEqual(documents.message(documents.read(text, "plan")), "x?y. ?")

    def test_a_message_has_verdict_cause_and_remedy(self):
        self.assertEqual(documents.message({"status": 19, "kind": "plan", "verdict": {"text": "WOULD FAIL: no sales"}, "result": {
            "message": "no sales", "details": ["a", "b", "c", "d", "e"], "remedy": "Add it."}}),
            "WOULD FAIL: no sales. a; b; c; and 2 more. What to do: Add it.")
        self.assertEqual(documents.message({"status": 10, "kind": "snapshot", "verdict": {"text": "FAILED: it hung"}, "result": {
            "message": "it hung. For long.", "details": ["long"], "remedy": "Wait"}}),
            "it hung. For long. What to do: Wait.")
        self.assertEqual(documents.message({"status": 2, "kind": "failure", "result": {"message": "no sals; sales?"}}),
                         "no sals; sales?")
        self.assertEqual(documents.message({"status": 12, "kind": "doctor", "result": {}, "findings": [
            {"severity": "error", "object": "VSS", "found": "disabled", "remedy": "Enable it."},
            {"severity": "note", "object": "E:", "found": "full", "remedy": ""}]}),
            "1 error. VSS: disabled. What to do: Enable it.")


def fleet_of(outcomes, mode="together", on_failure="end", steps=("plan", "snapshot")):
    whole = sets.with_defaults({**WHOLE, "mode": mode, "on_failure": on_failure})
    fleet = fleets.begun("test", "2026-11-22T16:05:00Z", {host: whole for host in outcomes})
    for entry in fleet["hosts"]:
        entry["outcome"] = outcomes[entry["name"]]
        entry["steps"] = [] if entry["outcome"] == "notRun" else list(steps)
    return fleet


class Groups(unittest.TestCase):
    def decided(self, fleet, limit=0, follow_ups=()):
        for host in fleet["hosts"]:
            host["followUps"] = list(follow_ups)
        decisions = fleets.decide(fleet, limit)
        tasks = fleets.next_tasks(fleet, decisions)
        return fleet["groups"][0]["outcome"], {task: hosts for task, hosts in tasks.items() if hosts}

    def test_a_plan_that_would_fail_stops_a_group_that_is_taken_together(self):
        fleet = fleet_of({"a": "planned", "b": "refused"}, steps=["plan"])
        self.assertEqual(self.decided(fleet), ("stopped", {}))
        self.assertEqual(fleet["groups"][0]["message"],
                         "1 of 2 hosts failed (b); nothing was taken")
        for outcome in ("unreachable", "hung", "failed"):
            self.assertEqual(self.decided(fleet_of({"a": "planned", "b": outcome}, steps=["plan"])), ("stopped", {}))

    def test_good_plans_let_the_group_go_on(self):
        self.assertEqual(self.decided(fleet_of({"a": "planned", "b": "planned"}, steps=["plan"])),
                         ("planned", {"take": ["a", "b"]}))

    def test_after_a_failure_the_sets_of_the_others_are_ended(self):
        for outcome in ("failed", "hung"):
            fleet = fleet_of({"a": "taken", "b": outcome})
            self.assertEqual(self.decided(fleet, follow_ups=["mask"]), ("incomplete", {"end": ["a", "b"], "clean_up": ["b"]}))
            fleets.note_host(fleet["hosts"][0], {"end": {"changed": True}})
            self.assertEqual(self.decided(fleet)[0], "incomplete")
            fleets.note_host(fleet["hosts"][1], {"end": {"changed": False}, "clean_up": {"changed": True}})
            self.assertEqual(self.decided(fleet), ("ended", {}))
            self.assertEqual(fleet["groups"][0]["message"], "1 of 2 hosts failed (b); the sets of the others were ended")
            self.assertEqual(fleet["hosts"][0]["message"], "its set was ended, as its group failed")

    def test_a_request_that_may_still_run_leaves_its_set_open(self):
        for lost in ({"unreachable": True, "msg": "No route."},
                     {"failed": True, "cause": "hung", "given_up": True, "msg": "No route."}):
            for ended, outcome, is_left in (({"changed": False}, "incomplete", True), ({"changed": True}, "ended", False),
                                            ({"changed": False, "settled": True}, "ended", False)):
                with self.subTest(lost=lost, ended=ended):
                    fleet = fleet_of({"a": "taken", "b": "planned"}, steps=["plan"])
                    fleets.note_host(fleet["hosts"][0], {"snapshot": {"state": "kept"}, "end": {"changed": True}})
                    fleets.note_host(fleet["hosts"][1], {"snapshot": lost, "clean_up": {"changed": True}, "end": ended})
                    self.assertEqual(self.decided(fleet)[0], outcome)
                    self.assertEqual("What it may have taken is still there" in fleet["hosts"][1]["message"], is_left)
                    self.assertEqual("0 sets are there, 1 was deleted, 1 may be there (b)" in fleet["groups"][0]["message"],
                                     is_left)

    def test_what_is_left_of_a_host_that_failed_is_known_where_varnelctl_said_so(self):
        for snapshot, clean_up, is_left in (({"state": "deleted"}, {}, False), ({"state": "none", "given_up": True}, {}, False),
                                            ({"state": "unknown"}, {}, True), ({}, {}, True),
                                            ({}, {"changed": True}, False), ({}, {"changed": False}, True)):
            with self.subTest(snapshot=snapshot, clean_up=clean_up):
                fleet = fleet_of({"a": "planned"}, on_failure="keep", steps=["plan"])
                fleets.note_host(fleet["hosts"][0], {"snapshot": {"failed": True, "msg": "no", **snapshot}, "clean_up": clean_up})
                fleets.decide(fleet, 0)
                self.assertEqual(fleet["groups"][0]["message"], "1 of 1 hosts failed (a); 0 sets are there"
                                 + (", 1 may be there (a)" if is_left else ""))

    def test_sets_that_the_inventory_has_deleted_are_well(self):
        fleet = fleet_of({"a": "planned", "b": "planned"}, steps=["plan"])
        fleet["hosts"][0]["followUps"] = ["delete"]
        fleets.note_host(fleet["hosts"][0], {"snapshot": {"state": "kept"}})
        self.assertEqual(fleet["hosts"][0]["outcome"], "taken")
        fleets.note_host(fleet["hosts"][0], {"follow_up": {"changed": True}})
        fleets.note_host(fleet["hosts"][1], {"snapshot": {"state": "deleted"}})
        self.assertEqual([(host["outcome"], host["message"]) for host in fleet["hosts"]],
                         [("ended", "its set was deleted, as the inventory says")] * 2)
        self.assertEqual(self.decided(fleet), ("ended", {}))
        self.assertEqual(fleet["groups"][0]["message"], "every set was deleted, as the inventory says")
        self.assertEqual(fleets.verdict(fleet), (True, "2 hosts in 1 groups were taken. Each host's set is consistent in "
                                                 "itself, not with the others'. 2 were deleted, as the inventory says."))
        fleets.note_host(fleet["hosts"][0], {"end": {"changed": True}})
        self.assertFalse(fleets.verdict(fleet)[0])

    def test_a_run_that_breaks_off_while_sets_are_taken_says_so(self):
        fleet = fleet_of({"a": "planned", "b": "planned", "c": "notRun"}, "rolling", steps=["plan"])
        fleets.decide(fleet, 0)
        before = json.dumps(fleet)
        record = fleets.being_taken(fleet, {"a", "b"}, 0)
        self.assertEqual(json.dumps(fleet), before)
        self.assertEqual([(host["outcome"], host["message"]) for host in record["hosts"]], [
            ("failed", "it was being taken when the run broke off: a set may be there (varnelctl sets list)")] * 2
            + [("notRun", "")])
        self.assertEqual((record["groups"][0]["outcome"], record["groups"][0]["message"]), (
            "incomplete", "2 of 3 hosts failed (a, b); 1 was not run (c); 0 sets are there, 2 may be there (a, b)"))
        fleets.resume(record)
        fleets.decide(record, 0)
        self.assertEqual(json.dumps(record), before)

    def test_words_that_are_no_utf_8_are_replaced(self):
        for task in ("plan", "snapshot", "clean_up"):
            entry = fleet_of({"a": "notRun"})["hosts"][0]
            fleets.note_host(entry, {task: {"failed": True, "msg": "f\udcfcr"}})
            self.assertIn("f?r", entry["message"])

    def test_a_set_that_cannot_be_ended_is_told(self):
        fleet = fleet_of({"a": "taken", "b": "failed"})
        fleets.note_host(fleet["hosts"][0], {"end": {"failed": True, "msg": "busy."}})
        fleets.note_host(fleet["hosts"][1], {"end": {"unreachable": True, "msg": "gone."}})
        self.assertEqual([host["message"] for host in fleet["hosts"]],
                         ["Its set could not be ended: busy.", "Its set could not be ended: gone."])
        self.assertEqual(fleet["hosts"][0]["outcome"], "failed")
        self.decided(fleet)
        self.assertEqual((fleet["groups"][0]["outcome"], fleet["groups"][0]["message"]), (
            "incomplete", "2 of 2 hosts failed (a, b); 0 sets are there, 2 may be there (a, b)"))

    def test_a_set_is_there_where_only_what_follows_has_failed(self):
        fleet = fleet_of({"a": "taken"})
        fleets.note_host(fleet["hosts"][0], {"follow_up": {"failed": True, "msg": "busy."}})
        self.decided(fleet)
        self.assertEqual((fleet["groups"][0]["outcome"], fleet["groups"][0]["message"]), (
            "incomplete", "1 of 1 hosts failed (a); 0 sets are there, 1 may be there (a)"))

    def test_or_they_are_kept_and_what_follows_is_done(self):
        fleet = fleet_of({"a": "taken", "b": "failed"}, on_failure="keep")
        self.assertEqual(self.decided(fleet, follow_ups=["mask"]),
                         ("incomplete", {"follow_up": {"a": ["mask"]}, "clean_up": ["b"]}))
        self.assertEqual(fleet["groups"][0]["message"], "1 of 2 hosts failed (b); 1 set is there")

    def test_a_rolling_group_goes_on_up_to_its_limit(self):
        outcomes = {str(number): "notRun" for number in range(8)}
        fleet = fleet_of({**outcomes, "x": "failed", "y": "taken"}, "rolling", "keep")
        self.assertEqual(self.decided(fleet, 10)[1]["take"], list(outcomes))
        fleet = fleet_of({**outcomes, "x": "failed", "y": "hung"}, "rolling", "keep")
        outcome, tasks = self.decided(fleet, 10)
        self.assertEqual((outcome, "take" in tasks), ("incomplete", False))
        self.assertIn("8 were not run (0, 1, 2, 3, 4 and 3 more)", fleet["groups"][0]["message"])

    def test_hosts_that_a_stopped_group_has_only_planned_are_told(self):
        fleet = fleet_of({"a": "taken", "b": "failed", "c": "planned"}, "rolling", "keep")
        fleet["hosts"][2]["steps"] = ["plan"]
        self.decided(fleet, 10)
        self.assertEqual(fleet["groups"][0]["message"],
                         "1 of 3 hosts failed (b); 1 was planned only (c); 1 set is there")

    def test_what_a_task_came_to_is_noted_once(self):
        entry = fleet_of({"a": "notRun"})["hosts"][0]
        fleets.note_host(entry, {"plan": {"msg": "well", "seconds": 1.5}, "snapshot": {"skipped": True}})
        self.assertEqual((entry["outcome"], entry["message"], entry["seconds"]), ("planned", "", 1.5))
        late = {"failed": True, "cause": "hung", "msg": "late."}
        fleets.note_host(entry, {"snapshot": late, "clean_up": {"failed": True, "msg": "no."}})
        fleets.note_host(entry, {"snapshot": late, "clean_up": {"skipped": True}})
        self.assertEqual((entry["outcome"], entry["message"], entry["steps"]),
                         ("hung", "late. What it has left could not be cleaned up: no.", ["plan", "snapshot", "clean_up"]))

    def test_a_host_that_does_not_answer_is_told_with_what_to_do(self):
        entry = fleet_of({"a": "notRun"})["hosts"][0]
        fleets.note_host(entry, {"snapshot": {"unreachable": True, "msg": "No route."}})
        self.assertEqual(entry["message"], "No route. What to do: see that the host is up and lets Ansible in (WinRM or SSH). "
                         "What it may have taken is still there: varnelctl sets list tells it.")


class Target:
    """A connection to a host on which commands do what the test says."""

    def __init__(self, is_windows=False):
        self._shell = mock.Mock(_IS_WINDOWS=is_windows, tmpdir=None)
        self._shell.join_path = lambda *parts: ("\\" if is_windows else "/").join(parts)
        self.fetched = {}

    def fetch_file(self, source, target):
        self.fetched[source] = target


def action_on(target, name="plan", args=None, answer=None, check_mode=False):
    """An action whose commands on the target give the answer."""
    task = mock.Mock(args=args if args is not None else {"protection_set": dict(support.SQL)}, async_val=0, timeout=0,
                     check_mode=check_mode, environment=[], action="tessel.varnel." + name)
    one = action(name)(task, target, mock.Mock(), mock.Mock(), mock.Mock(template=lambda value: value), mock.Mock())
    one._low_level_execute_command = mock.Mock(side_effect=answer)
    one._execute_module = mock.Mock(side_effect=answer)
    one._make_tmp_path = mock.Mock(return_value="TMP")
    return one


GOOD = json.dumps({"schema": "varnelctl/1", "kind": "plan", "status": 0, "verdict": {"text": "WOULD CAPTURE"}, "result": {},
                   "objects": ["ä"]}, ensure_ascii=False)


class Actions(unittest.TestCase):
    def run_on(self, target, **options):
        one = action_on(target, **options)
        return one, one.run(task_vars={"varnel_arguments": ["--state", "a b"]})

    def test_a_posix_host_ends_varnelctl_itself(self):
        one, result = self.run_on(Target(), answer=lambda *_: {"rc": 0, "stdout": GOOD, "stderr": ""})
        one._low_level_execute_command.assert_called_once_with(
            "timeout -k 10 600 varnelctl --state 'a b' --json plan --app sql --disk TSL0001 TSL0002 TSL0003 --context "
            "app-rollback")
        self.assertEqual((result["msg"], result["changed"], "failed" in result), ("WOULD CAPTURE.", False, False))
        self.assertNotIn("objects", result["varnel"])

    def test_a_windows_host_runs_the_module_of_windows_and_is_read_as_utf_8(self):
        given = []

        def answer(**arguments):
            given.append((arguments["module_name"], arguments["module_args"], one._task.check_mode))
            return {"rc": 0, "stdout": GOOD, "stderr": ""}
        one = action_on(Target(is_windows=True), answer=answer, check_mode=True,
                        args={"protection_set": dict(support.SQL), "whole": True})
        result = one.run(task_vars={})
        name, arguments, is_check = given[0]
        self.assertEqual(name, "ansible.windows.win_command")
        self.assertEqual(arguments["argv"][:3], ["C:\\Program Files\\varnel\\bin\\varnelctl.exe", "--json", "plan"])
        self.assertEqual(arguments["output_encoding_override"], "utf-8")
        self.assertEqual((is_check, one._task.check_mode), (False, True))
        self.assertEqual(result["varnel"]["objects"], ["ä"])

    def test_a_windows_host_without_varnelctl_is_told(self):
        _one, result = self.run_on(Target(is_windows=True), answer=lambda **_: {
            "failed": True, "rc": 2, "msg": "Failed to run: the system cannot find the file specified"})
        self.assertEqual(result["cause"], "missing")
        _one, result = self.run_on(Target(is_windows=True), answer=lambda **_: {
            "failed": True, "rc": 3, "msg": "Failed to run: the system cannot find the path specified"})
        self.assertEqual(result["cause"], "missing")
        self.assertIn("there is no varnelctl at C:\\Program Files\\varnel\\bin\\varnelctl.exe. What to do: install it",
                      result["msg"])

    def test_each_kind_of_bad_end_has_its_cause(self):
        late = json.dumps({"schema": "varnelctl/1", "kind": "failure", "status": 17,
                           "result": {"message": "late", "explain": "past-deadline"}})
        for rc, stdout, cause, said in (
                (127, "", "missing", "there is no varnelctl at varnelctl"),
                (137, GOOD[:20], "killed", "varnelctl was killed (signal 9) before it was done"),
                (17, "", "hung", "varnelctl ended itself past its deadline, in a call that does not return"),
                (17, late, "hung", "late"),
                (0, GOOD[:20], "broken", "varnelctl's document is broken: it is cut off after 20 characters"),
                (1, "", "broken", "varnelctl printed no document; exit status 1. It said: words")):
            with self.subTest(cause):
                _one, result = self.run_on(Target(), answer=lambda *_: {"rc": rc, "stdout": stdout, "stderr": "words\n"})
                self.assertEqual((result["failed"], result["cause"]), (True, cause))
                self.assertTrue(result["msg"].startswith(said), result["msg"])

    def test_exit_codes_of_windows_are_no_signals(self):
        for rc, cause, said in ((-1073741819, "killed", "varnelctl ended with the exit code 0xC0000005 before it was done"),
                                (3221225477, "killed", "varnelctl ended with the exit code 0xC0000005 before it was done"),
                                (137, "broken", "varnelctl printed no document; exit status 137")):
            _one, result = self.run_on(Target(is_windows=True), answer=lambda **_: {"rc": rc, "stdout": "", "stderr": ""})
            self.assertEqual(result["cause"], cause)
            self.assertTrue(result["msg"].startswith(said), result["msg"])

    def test_words_that_are_no_utf_8_are_replaced(self):
        save = support.SCRATCH / "surrogate.json"
        _one, result = self.run_on(Target(), answer=lambda *_: {"rc": 1, "stdout": "", "stderr": "f\udcfcr"})
        self.assertIn("It said: f?r", result["msg"])
        said = GOOD.replace("WOULD", "\ud800")
        _one, result = self.run_on(Target(), answer=lambda *_: {"rc": 0, "stdout": said, "stderr": ""}, args={
            "protection_set": dict(support.SQL), "save": str(save)})
        self.assertEqual((result["msg"], save.exists()), ("? CAPTURE.", True))

    def test_a_snapshot_without_a_set_is_none(self):
        well = {"schema": "varnelctl/1", "kind": "snapshot", "status": 0, "result": {}, "verdict": {"text": "CAPTURED"},
                "snapshotSetId": "{1}", "setState": "kept"}
        for change, context, cause in (
                ({}, "app-rollback", None), ({"kind": "plan"}, "app-rollback", "broken"),
                ({"snapshotSetId": ""}, "app-rollback", "broken"), ({"snapshotSetId": None}, "app-rollback", "broken"),
                ({"setState": None}, "app-rollback", "broken"), ({"setState": "deleted"}, "app-rollback", "broken"),
                ({"setState": "released"}, "app-rollback", "broken"), ({"setState": "deleted"}, "backup", None)):
            with self.subTest(change=change, context=context):
                _one, result = self.run_on(Target(), name="snapshot", args={
                    "protection_set": {**support.SQL, "context": context, **({"then": "delete"} if context == "backup" else {})}},
                    answer=lambda *_: {"rc": 0, "stdout": json.dumps({**well, **change}), "stderr": ""})
                self.assertEqual(result.get("cause"), cause, result)

    def test_nothing_more_is_asked_of_a_target_that_was_given_up(self):
        args = {"protection_set": {**support.SQL, "deadline": 1}, "evidence": str(support.SCRATCH / "frozen"), "timeout": 1}
        with mock.patch.object(varnelctl_action, "CONTROL_GRACE", 0):
            one = action_on(Target(), name="snapshot", args=args, answer=lambda *_, **_more: time.sleep(30))
            begin = time.monotonic()
            result = one.run(task_vars={})
            one._remove_tmp_path = mock.Mock()
            one.cleanup()
        self.assertLess(time.monotonic() - begin, 20)
        self.assertEqual((result["cause"], result["given_up"]), ("hung", True))
        self.assertEqual(one._low_level_execute_command.call_count, 1)
        one._remove_tmp_path.assert_not_called()

    def test_the_folder_the_evidence_and_the_end_have_their_limits(self):
        module = importlib.import_module("ansible_collections.tessel.varnel.plugins.action.snapshot")
        args = {"protection_set": dict(support.SQL), "evidence": str(support.SCRATCH / "slow")}
        begin = time.monotonic()
        with mock.patch.object(module, "CONTROL_GRACE", 1), mock.patch.object(module, "FETCH_LIMIT", 1), \
                mock.patch.object(varnelctl_action, "CONTROL_GRACE", 1):
            one = action_on(Target(), name="snapshot", args=args)
            one._make_tmp_path.side_effect = lambda: time.sleep(30)
            result = one.run(task_vars={})
            self.assertEqual((result["cause"], result["given_up"], result["state"]), ("hung", True, "none"))
            one._low_level_execute_command.assert_not_called()
            one = action_on(Target(), name="snapshot", args=args)
            one._low_level_execute_command.side_effect = lambda *words, **_: (
                time.sleep(30) if words[0].startswith("ls") else {"rc": 137, "stdout": "", "stderr": ""})
            result = one.run(task_vars={})
            self.assertEqual((result["cause"], result["warnings"]), ("killed", ["the evidence had not come after 1 seconds"]))
            one = action_on(Target(), answer=lambda *_: {"rc": 0, "stdout": GOOD, "stderr": ""})
            one.run(task_vars={})
            one._remove_tmp_path = mock.Mock(side_effect=lambda *_: time.sleep(30))
            one.cleanup()
        self.assertLess(time.monotonic() - begin, 25)

    def sets_of(self, *listings, **args):
        """What the task sets came to where the host lists these, one after the other; and what was deleted."""
        told, deleted = iter(listings), []

        def answer(command):
            document = {"schema": "varnelctl/1", "kind": "sets", "status": 0, "result": {}}
            if " delete " in command:
                deleted.append(command.rpartition(" ")[2].strip("'"))
                return {"rc": 0, "stdout": json.dumps({**document, "kind": "setAction"}), "stderr": ""}
            return {"rc": 0, "stdout": json.dumps({**document, "sets": next(told)}), "stderr": ""}
        module = importlib.import_module("ansible_collections.tessel.varnel.plugins.action.sets")
        with mock.patch.object(module, "POLL", 0.01):
            _one, result = self.run_on(Target(), name="sets", answer=answer, args={"actions": ["delete"], "run": "r", **args})
        return result, deleted

    def test_sets_are_found_by_their_run_and_by_their_identifier(self):
        ours, other = ({"setId": name, "journal": {"commandLine": ["--evidence", path], "isRunning": False}}
                       for name, path in (("{A}", "tmp/varnel-r"), ("{B}", "tmp/varnel-s")))
        unknown = {"setId": "{C}", "journal": None}
        self.assertEqual(self.sets_of([ours, other, unknown])[1], ["{A}"])
        self.assertEqual(self.sets_of([other, unknown], set="c")[1], ["{C}"])
        self.assertEqual(self.sets_of([ours, other, unknown], set="{C}")[1], ["{A}", "{C}"])
        result, deleted = self.sets_of([other, {"setId": None, "journal": None}], set="{D}")
        self.assertEqual((deleted, result["changed"], result["settled"], "failed" in result), ([], False, False, False))

    def test_a_request_that_still_works_is_waited_for(self):
        def request(name, running):
            return {"setId": name, "journal": {"commandLine": ["varnel-r"], "isRunning": running, "process": 7}}
        result, deleted = self.sets_of([request(None, True)], [request("{A}", True)], [request("{A}", False)], wait=60)
        self.assertEqual((deleted, result["changed"], result["settled"]), (["{A}"], True, True))
        result, deleted = self.sets_of([request(None, True)], [], wait=60)
        self.assertEqual((deleted, result["changed"], result["settled"]), ([], False, True))
        result, deleted = self.sets_of([request(None, True)], [request(None, False)], wait=60)
        self.assertEqual((deleted, result["settled"]), ([], False))
        result, deleted = self.sets_of([request("{A}", True)])
        self.assertEqual((deleted, result["failed"], result["msg"]), (
            [], True, "the request that takes it still runs (process 7)"))

    def test_a_target_that_says_nothing_is_given_up_by_the_control_node(self):
        with mock.patch.object(varnelctl_action, "CONTROL_GRACE", 0):
            begin = time.monotonic()
            _one, result = self.run_on(Target(), answer=lambda *_: time.sleep(60), args={
                "protection_set": dict(support.SQL), "timeout": 1})
        self.assertLess(time.monotonic() - begin, 20)
        self.assertEqual(result["cause"], "hung")
        self.assertIn("varnelctl plan had not ended after 1 seconds and was ended", result["msg"])

    def test_the_names_that_a_target_tells_stay_in_the_folder_of_the_evidence(self):
        target = Target()
        answers = iter([{"rc": 137, "stdout": "", "stderr": ""},
                        {"rc": 0, "stdout": "run.json\n../../etc/passwd\n/etc/passwd\n..\n.hidden\nlog 1.txt\n", "stderr": ""}])
        folder = support.SCRATCH / "fetched"
        _one, result = self.run_on(target, name="snapshot", answer=lambda *_, **_more: next(answers), args={
            "protection_set": dict(support.SQL), "evidence": str(folder), "run": "r1"})
        self.assertEqual(target.fetched, {"TMP/varnel-r1/run.json": f"{folder}/run.json",
                                          "TMP/varnel-r1/log 1.txt": f"{folder}/log 1.txt"})
        self.assertEqual(result["cause"], "killed")

    def test_evidence_is_fetched_from_a_windows_host_as_well(self):
        target = Target(is_windows=True)
        failed = {"schema": "varnelctl/1", "kind": "snapshot", "status": 10, "result": {"message": "it froze"}}
        one = action_on(target, name="snapshot", args={
            "protection_set": dict(support.SQL), "evidence": str(support.SCRATCH / "windows"), "run": "r'1"})
        one._execute_module.side_effect = lambda **_: {"rc": 10, "stdout": json.dumps(failed), "stderr": ""}
        one._low_level_execute_command.side_effect = lambda *_, **_more: {"rc": 0, "stdout": "run.json\r\n", "stderr": ""}
        result = one.run(task_vars={})
        one._low_level_execute_command.assert_called_once_with(
            "Get-ChildItem -File -Name -LiteralPath 'TMP\\varnel-r''1'", sudoable=False)
        self.assertEqual(target.fetched, {"TMP\\varnel-r'1\\run.json": str(support.SCRATCH / "windows/run.json")})
        self.assertEqual((result["cause"], result["msg"]), ("failed", "it froze."))

    def test_a_task_with_a_limit_of_its_own_keeps_it(self):
        one = action_on(Target(), answer=lambda *_: {"rc": 0, "stdout": GOOD, "stderr": ""})
        one._task.timeout = 5
        with mock.patch.object(varnelctl_action.signal, "alarm") as alarm:
            one.run(task_vars={})
        alarm.assert_not_called()

    def test_a_mistake_in_a_task_is_told_before_anything_is_run(self):
        one, result = self.run_on(Target(), args={"protection_set": {**support.SQL, "context": "backup"}}, name="snapshot")
        self.assertEqual(result["cause"], "mistake")
        one._low_level_execute_command.assert_not_called()

    def test_the_reference_has_the_options_of_each_action(self):
        fragments = importlib.import_module(
            "ansible_collections.tessel.varnel.plugins.doc_fragments.varnelctl").ModuleDocFragment
        for name in ACTIONS:
            module = importlib.import_module(f"ansible_collections.tessel.varnel.plugins.modules.{name}")
            told = yaml.safe_load(module.DOCUMENTATION)
            options = dict(told.get("options", {}))
            for fragment in told.get("extends_documentation_fragment", []):
                text = fragments.PROTECTION_SET if fragment.endswith("protection_set") else fragments.DOCUMENTATION
                options.update(yaml.safe_load(text)["options"])
            takes = dict(action(name).OPTIONS)
            if issubclass(action(name), varnelctl_action.VarnelctlAction):
                takes.update(varnelctl_action.OPTIONS)
            with self.subTest(name):
                self.assertEqual({key: (value["type"], value.get("choices"), value.get("default")) for key, value in
                                  options.items()},
                                 {key: (value["type"], value.get("choices"), value.get("default")) for key, value in
                                  takes.items()})
                self.assertTrue(yaml.safe_load(module.EXAMPLES) and yaml.safe_load(module.RETURN))


class Release(unittest.TestCase):
    def test_the_collection_has_varnels_version(self):
        galaxy = yaml.safe_load((COLLECTION / "galaxy.yml").read_text(encoding="utf-8"))
        agent = yaml.safe_load((COLLECTION / "roles/agent/defaults/main.yml").read_text(encoding="utf-8"))
        self.assertEqual((galaxy["version"], agent["varnel_version"]), (support.VERSION, support.VERSION))

    def test_a_check_runs_no_installer_that_was_not_copied(self):
        tasks = yaml.safe_load((COLLECTION / "roles/agent/tasks/windows.yml").read_text(encoding="utf-8"))
        when = {module: task.get("when") for task in tasks for module in task if "." in module}
        self.assertEqual((when["ansible.windows.win_copy"], when["ansible.windows.win_package"], when["ansible.builtin.debug"]),
                         ("not ansible_check_mode", "not ansible_check_mode", "ansible_check_mode"))

    def test_the_packages_of_the_role_are_those_of_a_release(self):
        names = (COLLECTION / "roles/agent/vars/main.yml").read_text(encoding="utf-8")
        packages = (support.SOURCE / "docs/packages.md").read_text(encoding="utf-8")
        for name in re.findall(r'"(varnel.*)"', names):
            self.assertIn("`" + name.replace("{{ varnel_version }}", "VERSION") + "`", packages)
