#!/usr/bin/env python3
"""What shells read about varnelctl, against varnelctl itself: check.py VARNELCTL SOURCE VERSION. No PowerShell is needed:
of its texts the words, the brackets and the quotes are checked."""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

PROGRAM, SOURCE, VERSION = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3]
HOST = str(SOURCE / "examples/hosts/sql-server.json")
failures = []


def check(holds, what):
    if not holds:
        failures.append(what)


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False)


def told(*arguments):
    result = run(PROGRAM, *arguments)
    check(result.returncode == 0 and not result.stderr, f"{arguments}: {result.returncode} {result.stderr}")
    return result.stdout


def options_in_help(*command):
    return set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", told(*command, "--help"), re.M))


def commands_in_help():
    return re.findall(r"^  ([a-z]+) ", told("--help").partition("\nSubcommands:\n")[2].partition("\nExit status")[0], re.M)


GLOBAL = options_in_help()
COMMANDS = commands_in_help()
OPTIONS = {command: options_in_help(command) - {"--help"} for command in COMMANDS if command != "help"}
check(len(COMMANDS) > 8 and "--host" in GLOBAL and "--disk" in OPTIONS["snapshot"], f"the help: {COMMANDS} {OPTIONS}")


def completed(script, *words):
    """What bash offers for the last of the words."""
    asked = ('source "$1"; shift; COMP_WORDS=(varnelctl "$@"); COMP_CWORD=$#; _varnelctl; '
             'printf "%s\\n" "${COMPREPLY[@]}"')
    result = run("bash", "-uc", asked, "bash", script, *words)
    check(result.returncode == 0 and not result.stderr, f"bash completion of {words}: {result.stderr}")
    return set(result.stdout.split())


def check_bash(folder):
    script = folder / "varnelctl.bash"
    script.write_text(told("completion", "bash"))
    (folder / "host.json").write_text("{}")
    (folder / "logs").mkdir()

    def offers(words, expected):
        found = completed(script, *words)
        check(found == expected, f"bash offers {found} after {words}, not {expected}")
    offers([""], set(COMMANDS))
    offers(["sn"], {"snapshot"})
    offers(["--"], GLOBAL)
    for command, options in OPTIONS.items():
        offers([command, "--"], GLOBAL | options)
    offers(["snapshot", "--app", ""], {"none", "sql", "exchange", "hyperv"})
    offers(["snapshot", "--app", "sql", "--th"], {"--then"})
    offers(["--json", "snapshot", "--then", "d"], {"delete"})
    offers(["snapshot", "--then", "=", "b"], {"break"})
    offers(["--log-level", ""], {"error", "warning", "info", "verbose"})
    offers(["snapshot", "--disk", "TSL0001", "TSL0002", ""], set())
    offers(["--host", "sets", "sets", "cl"], {"clean-up"})  # the first is the value of --host
    offers(["help", "pr"], {"providers"})
    files = completed(script, "--host", f"{folder}/")
    check(f"{folder}/host.json" in files, f"bash offers {files} for --host")
    folders = completed(script, "--journal", f"{folder}/")
    check(folders == {f"{folder}/logs"}, f"bash offers {folders} for --journal")


def check_manual(folder):
    page = folder / "varnelctl.1"
    page.write_text(told("completion", "man"))
    text = page.read_text().replace("\\-", "-")
    for word in GLOBAL | set(COMMANDS) - {"help"} | set().union(*OPTIONS.values()):
        check(re.search(rf"(\\fB|\.SS ){word}\b", text), f"the manual page lacks {word}")
    check(f'"varnel {VERSION}"' in text, "the manual page lacks the version")
    statuses = re.findall(r"^ +(\d+)  ", told("--help"), re.M)
    section = text.partition(".SH EXIT STATUS\n")[2]
    check(statuses and re.findall(r"^ +(\d+)  ", section, re.M) == statuses, "the manual page's exit statuses")
    if shutil.which("mandoc"):
        lint = run("mandoc", "-Tlint", "-Wwarning", str(page))
        check(lint.returncode == 0, f"mandoc: {lint.stdout}{lint.stderr}")
    if shutil.which("man"):
        lint = run("env", "LC_ALL=C.UTF-8", "MANWIDTH=80", "man", "--warnings", "-l", str(page))
        check(lint.returncode == 0 and not lint.stderr, f"man: {lint.stderr}")


def without_texts(script):
    """PowerShell without its comments and the inside of its texts, which must end."""
    code = re.sub(r"<#.*?#>|'(?:[^']|'')*'|\"(?:[^\"`]|`.)*\"|(?m:(?<![\w$])#[^\n]*)",
                  lambda match: "''" if match.group(0)[0] in "'\"" else "", script, flags=re.S)
    check(code.count("'") % 2 == 0 and '"' not in code, "a text in a PowerShell script does not end")
    return code


def check_brackets(name, script):
    opened = []
    for character in without_texts(script):
        if character in "([{":
            opened.append(character)
        elif character in ")]}":
            if not opened or "([{".index(opened.pop()) != ")]}".index(character):
                check(False, f"{name}: a bracket too many")
                return
    check(not opened, f"{name}: a bracket is not closed")


def check_power_shell_completion():
    script = told("completion", "powershell")
    check_brackets("the completion", script)
    entries = re.findall(r"^    '([a-z]*)' = @\{\n(.*?)^    \}\n", script, re.M | re.S)
    check({name for name, _ in entries} == {""} | set(COMMANDS), f"PowerShell completes {[name for name, _ in entries]}")
    for name, entry in entries:
        found = set(re.findall(r"^            '(--[a-z-]+)' = @\{", entry, re.M))
        check(found == (OPTIONS.get(name, set()) if name else GLOBAL), f"PowerShell completes {found} after {name}")
    check("Words = @('keep', 'break', 'mask', 'delete')" in script, "PowerShell lacks the words of --then")


def check_module():
    module = (SOURCE / "varnelctl/shells/module/varnel.psm1").read_text()
    manifest = (SOURCE / "varnelctl/shells/module/varnel.psd1.in").read_text()
    check_brackets("varnel.psm1", module)
    check_brackets("varnel.psd1", manifest)
    functions = dict(re.findall(r"^function ([\w-]+) \{\n(.*?)^\}\n", module, re.M | re.S))
    exported = re.findall(r"^        '([\w-]+)'$", manifest, re.M)
    check(sorted(exported) == sorted(name for name in functions if "-Varnel" in name), f"varnel.psd1 exports {exported}")
    check("ModuleVersion = '@PROJECT_VERSION@'" in manifest, "varnel.psd1 lacks the version")
    lists = {"writers": ["writers"], "providers": ["providers"], "disks": ["disks"], "sets": ["sets", "list"],
             "explained": ["explain", "exit:12"]}
    asked = 0
    for name, body in functions.items():
        for key in re.findall(r"Get-ListOf (\w+)", body):
            check(key in lists, f"{name} takes the list {key}")
        commands = re.findall(r"@\('([a-z]+)'", body)
        check(all(command in COMMANDS for command in commands), f"{name} calls {commands}")
        options = set(re.findall(r"'(--[a-z-]+)'", body))
        known = GLOBAL.union(*(OPTIONS[command] for command in commands))
        check(options <= known, f"{name} gives options that there are not: {options - known}")
        asked += len(commands)
        for actions in re.findall(r"@\('sets', '([a-z-]+)'", body):
            check(actions in told("sets", "--help"), f"{name} asks for sets {actions}")
    check(asked >= 9, f"the functions call only {asked} commands")
    for key, arguments in lists.items():
        document = json.loads(told("--host", HOST, "--no-journal", "--json", *arguments))
        check(isinstance(document.get(key), list), f"{arguments} has no list {key}")


def check_refusals():
    for arguments in (["completion"], ["completion", "tcsh"]):
        result = run(PROGRAM, *arguments)
        check(result.returncode == 2 and not result.stdout, f"{arguments} ends with {result.returncode}")
    check("completion" not in told("--help"), "the help names the hidden command")


with tempfile.TemporaryDirectory() as scratch:
    check_bash(pathlib.Path(scratch))
    check_manual(pathlib.Path(scratch))
check_power_shell_completion()
check_module()
check_refusals()
for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
