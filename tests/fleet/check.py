#!/usr/bin/env python3
"""Runs the tests of the Ansible collection: check.py VARNELCTL SOURCE VERSION SCRATCH [TEST...]. Exit status 77 and the
reason where there is no Ansible."""
import concurrent.futures
import importlib.util
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True

import support

# Each in a process of its own, the longest first, and so many at a time.
PARTS = ["runs_test.Hundred", "runs_test.Rolling", "runs_test.Tasks", "runs_test.Together", "runs_test.Inventory", "units_test"]
AT_A_TIME = 2


def tests_of(names):
    return unittest.TestLoader().loadTestsFromNames(names)


def parts():
    """The names above, and the classes of runs_test that are not among them."""
    import runs_test
    classes = [f"runs_test.{name}" for name, value in vars(runs_test).items()
               if isinstance(value, type) and issubclass(value, unittest.TestCase)]
    return PARTS + [name for name in classes if name not in PARTS]


def run_part(name):
    scratch = pathlib.Path(sys.argv[4]) / name
    found = subprocess.run([sys.executable, __file__, *sys.argv[1:4], str(scratch), name], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, check=False)
    print(found.stdout, end="", flush=True)
    return found.returncode


def main():
    playbook = shutil.which("ansible-playbook")
    if not playbook:
        print("skipped: there is no ansible-playbook (tools/setup.sh fleet installs it)")
        return 77
    if not importlib.util.find_spec("ansible"):  # it belongs to another Python than this
        python = pathlib.Path(playbook).read_text(encoding="utf-8").splitlines()[0].removeprefix("#!").split()
        os.execv(python[0], python + sys.argv)
    support.set_up(*sys.argv[1:5])
    if len(sys.argv) > 5:
        result = unittest.TextTestRunner(verbosity=2, stream=sys.stdout).run(tests_of(sys.argv[5:]))
        return 0 if result.wasSuccessful() else 1
    with concurrent.futures.ThreadPoolExecutor(AT_A_TIME) as pool:
        return 1 if any(list(pool.map(run_part, parts()))) else 0


sys.exit(main())
