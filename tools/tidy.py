#!/usr/bin/env python3
"""Runs clang-tidy over every unit of a configured build, on all cores:

  tools/tidy.py BUILD [PREFIX...]   only the units whose path begins with a PREFIX, such as core/

A unit without findings is remembered in build/tidy-cache, with what it was compiled from, and left out until its command,
.clang-tidy, clang-tidy itself or one of the files that it includes is another one. Exit status: 0 when there are no
findings. The last line is "N units, N of them unchanged, N with findings", in build/tidy-summary.txt as well.
"""
import concurrent.futures
import functools
import hashlib
import json
import os
import shlex
import subprocess
import sys

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), ".."))
CACHE = os.path.join(ROOT, "build", "tidy-cache")


@functools.lru_cache(maxsize=None)
def digest_of(path):
    try:
        with open(path, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
    except OSError:
        return "gone"


@functools.lru_cache(maxsize=None)
def rules():
    """What decides the findings besides the unit: a text that changes with it."""
    version = subprocess.run(["clang-tidy", "--version"], check=True, capture_output=True, text=True).stdout
    return version + "".join(digest_of(os.path.join(ROOT, path)) for path in (".clang-tidy", "tests/.clang-tidy"))


def cache_file(unit):
    name = hashlib.sha256((rules() + unit["file"] + unit["command"]).encode()).hexdigest()
    return os.path.join(CACHE, name + ".json")


def is_unchanged(unit):
    try:
        with open(cache_file(unit), encoding="utf-8") as file:
            return all(digest_of(path) == digest for path, digest in json.load(file).items())
    except OSError:
        return False


def included_files(unit):
    """The unit and all that it includes; nothing when it cannot be compiled."""
    command = shlex.split(unit["command"])
    output = command.index("-o")
    del command[output:output + 2]
    command.remove("-c")
    run = subprocess.run(command + ["-M"], cwd=unit["directory"], capture_output=True, text=True)
    paths = shlex.split(run.stdout.replace("\\\n", " "))[1:]
    return [os.path.normpath(os.path.join(unit["directory"], path)) for path in paths]


def remember(unit):
    files = {path: digest_of(path) for path in included_files(unit)}
    if not files:
        return
    temporary = f"{cache_file(unit)}.{os.getpid()}"
    with open(temporary, "w", encoding="utf-8") as file:
        json.dump(files, file)
    os.replace(temporary, cache_file(unit))


def has_findings(build, unit):
    run = subprocess.run(["clang-tidy", "--quiet", "-p", build, unit["file"]], cwd=ROOT, capture_output=True, text=True)
    if run.returncode == 0:
        remember(unit)
        return False
    print(run.stdout + (run.stderr if not run.stdout else ""), end="", flush=True)
    return True


def units_of(build, prefixes):
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        units = {unit["file"]: unit for unit in json.load(file)}  # some are compiled for two targets
    ours = [unit for path, unit in sorted(units.items()) if path.startswith(ROOT) and not path.startswith(build)]
    wanted = tuple(os.path.join(ROOT, prefix) for prefix in prefixes) or ROOT
    return [unit for unit in ours if unit["file"].startswith(wanted)]


def main(arguments):
    build = os.path.realpath(arguments[0])
    os.makedirs(CACHE, exist_ok=True)
    units = units_of(build, arguments[1:])
    changed = [unit for unit in units if not is_unchanged(unit)]
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        findings = sum(pool.map(lambda unit: has_findings(build, unit), changed))
    summary = f"{len(units)} units, {len(units) - len(changed)} of them unchanged, {findings} with findings"
    print(summary)
    with open(os.path.join(ROOT, "build", "tidy-summary.txt"), "w", encoding="utf-8") as file:
        file.write(summary + "\n")
    return 1 if findings or not units else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
