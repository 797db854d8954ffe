"""What the actions share: they run varnelctl on the target, end it when it hangs, and make its document a task's result."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import contextlib
import os
import shlex
import signal
import time

from ansible.plugins.action import ActionBase

from ansible_collections.tessel.varnel.plugins.plugin_utils import document as documents
from ansible_collections.tessel.varnel.plugins.plugin_utils import protection_set as sets

# Seconds that the control node waits longer than the target, which ends varnelctl by itself.
CONTROL_GRACE = 30
# Seconds for the evidence of a failed run.
FETCH_LIMIT = 120
# varnelctl ends itself a minute after its deadline at the latest, and then writes its evidence.
DEADLINE_GRACE = 90
KILLED = 128
ENDED_BY_TIMEOUT = (124, 137)
NOT_FOUND = (126, 127)
# Of Windows: there is no such file, no such folder.
NO_FILE = (2, 3)
PAST_DEADLINE = 17
STDERR_SHOWN = 400

WINDOWS_PROGRAM = "C:\\Program Files\\varnel\\bin\\varnelctl.exe"

OPTIONS = {
    "program": {"type": "str"},
    "arguments": {"type": "list", "elements": "str"},
    "timeout": {"type": "int"},
    "save": {"type": "path"},
    "whole": {"type": "bool", "default": False},
}


class Trouble(Exception):
    """The run gave no document that can be used. The cause is a word for programs: hung, killed, missing or broken."""

    def __init__(self, cause, message):
        super().__init__(message)
        self.cause = cause


class ControlLimit(BaseException):
    """The target neither answered nor failed in time. No Exception, so that no connection takes it for its own."""


@contextlib.contextmanager
def limited(seconds):
    def ring(_signal, _frame):
        raise ControlLimit()
    before = signal.signal(signal.SIGALRM, ring)
    signal.alarm(seconds)
    try:
        yield
    finally:
        signal.alarm(0)
        signal.signal(signal.SIGALRM, before)


class VarnelctlAction(ActionBase):
    """An action: OPTIONS are its own besides the common ones, act() does it and fills the result."""

    TRANSFERS_FILES = False
    _supports_async = False
    OPTIONS = {}
    DEFAULT_TIMEOUT = 600
    # The word for programs where varnelctl's own verdict is a failure.
    CAUSE = "refused"

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        result["changed"] = False
        _validation, self.options = self.validate_argument_spec(argument_spec={**OPTIONS, **self.OPTIONS})
        self.task_vars = task_vars or {}
        self.timeout = self.options["timeout"] or self.DEFAULT_TIMEOUT
        self.seconds = 0.0
        self.gave_up = False
        try:
            self.act(result)
        except Trouble as trouble:
            result.update(failed=True, given_up=self.gave_up, cause=trouble.cause, msg=documents.clean(str(trouble)))
        result["seconds"] = round(self.seconds, 3)
        return result

    def act(self, result):
        raise NotImplementedError

    def cleanup(self, force=False):
        """A target that was given up is not asked again."""
        if not getattr(self, "gave_up", False):
            with contextlib.suppress(ControlLimit), limited(CONTROL_GRACE):
                super().cleanup(force)

    @contextlib.contextmanager
    def limit(self, seconds):
        """For what is done on the target. A task with a limit of its own has the alarm already."""
        try:
            with contextlib.nullcontext() if self._task.timeout else limited(seconds):
                yield
        except ControlLimit:
            self.gave_up = True
            raise

    # The protection set of the task.

    def protection_set(self):
        given = {"group": "alone", "mode": "rolling", **self.options["protection_set"]}
        faults = sets.faults(given)
        if faults:
            raise Trouble("mistake", "; ".join("%s: %s" % fault for fault in faults))
        return sets.with_defaults(given)

    def disks_of(self, whole):
        """The disks of the set, asked of the host where it names objects."""
        if "disks" in whole:
            return whole["disks"]
        document = self.ask(["plan", "--app", whole["application"], "--for"] + whole["objects"], "disksFor", {"disks": list})
        if document["status"] != 0:
            raise Trouble("refused", documents.message(document))
        return document["disks"]

    # Runs of varnelctl.

    def report(self, result, document):
        """The result of the document that the task is about."""
        result["varnel"] = document if self.options["whole"] else documents.short(document)
        result["msg"] = documents.message(document)
        if document["status"] != 0:
            is_late = document["result"].get("explain") == "past-deadline"
            result.update(failed=True, cause="hung" if is_late else self.CAUSE)

    def ask(self, words, kind, needed=None, save=False):
        """The document of one run (documents.read). Kept on the control node where the task says so."""
        run = self.varnelctl(["--json"] + words)
        if run["late"]:
            raise Trouble("hung", "varnelctl %s had not ended after %d seconds and was ended. What to do: see what hangs "
                          "on the host (vssadmin list writers); varnelctl sets clean-up ends what the run has left"
                          % (words[0], self.timeout))
        try:
            document = documents.read(run["stdout"], kind, needed)
        except documents.BrokenDocument as error:
            raise self.trouble_of(run, error) from error
        if save and self.options["save"]:
            self.write(self.options["save"], run["stdout"])
        return document

    def trouble_of(self, run, error):
        code = run["rc"]
        said = " It said: " + run["stderr"].strip()[-STDERR_SHOWN:] if run["stderr"].strip() else ""
        if code in NOT_FOUND:
            return Trouble("missing", "there is no varnelctl at %s. What to do: install it (role tessel.varnel.agent), or "
                           "name it with varnel_program.%s" % (self.program(), said))
        if code == PAST_DEADLINE:
            return Trouble("hung", "varnelctl ended itself past its deadline, in a call that does not return.%s" % said)
        if self.is_windows() and not 0 <= code <= 255:
            return Trouble("killed", "varnelctl ended with the exit code 0x%08X before it was done. What to do: varnelctl "
                           "sets clean-up ends what it has left.%s" % (code & 0xFFFFFFFF, said))
        if not self.is_windows() and (code > KILLED or code < 0):
            number = -code if code < 0 else code - KILLED
            return Trouble("killed", "varnelctl was killed (signal %d) before it was done. What to do: varnelctl sets "
                           "clean-up ends what it has left.%s" % (number, said))
        return Trouble("broken", "%s; exit status %d.%s" % (error, code, said))

    def program(self):
        default = WINDOWS_PROGRAM if self.is_windows() else "varnelctl"
        return self.setting("program", "varnel_program", default)

    def setting(self, option, variable, default):
        """Of the task, else of the host, else the default."""
        if self.options[option] is not None:
            return self.options[option]
        value = self.task_vars.get(variable)
        return default if value is None else self._templar.template(value)

    def is_windows(self):
        return getattr(self._connection._shell, "_IS_WINDOWS", False)

    def varnelctl(self, words):
        """rc, stdout and stderr of one run on the target, and whether it came to its end late."""
        line = [self.program()] + list(self.setting("arguments", "varnel_arguments", [])) + list(words)
        begin = time.monotonic()
        try:
            with self.limit(self.timeout + CONTROL_GRACE):
                run = self.on_windows(line) if self.is_windows() else self.on_posix(line)
        except ControlLimit:
            run = {"rc": 0, "stdout": "", "stderr": "", "late": True}
        took = time.monotonic() - begin
        self.seconds += took
        run.setdefault("late", took >= self.timeout and run["rc"] in ENDED_BY_TIMEOUT)
        return run

    def on_posix(self, line):
        limit = ["timeout", "-k", "10", str(self.timeout)]
        found = self._low_level_execute_command(shlex.join(limit + line))
        return {"rc": found["rc"], "stdout": found["stdout"], "stderr": found["stderr"]}

    def on_windows(self, line):
        """The module reads the output as UTF-8 and quotes the arguments. When the control node gives up, the connection's
        end is that of its processes on the target."""
        is_check, self._task.check_mode = self._task.check_mode, False  # the module would do nothing
        try:
            found = self._execute_module(module_name="ansible.windows.win_command", task_vars=self.task_vars,
                                         module_args={"argv": line, "output_encoding_override": "utf-8"})
        finally:
            self._task.check_mode = is_check
        is_missing = found.get("rc") in NO_FILE and not found.get("stdout") and "stderr" not in found
        return {"rc": 127 if is_missing else found.get("rc", 1), "stdout": found.get("stdout", ""),
                "stderr": found.get("stderr") or found.get("msg", "")}

    # Files of the control node.

    @staticmethod
    def write(path, text):
        os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
        with open(path, "wb") as file:
            file.write(text.encode("utf-8", "replace"))
