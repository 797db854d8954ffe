#!/usr/bin/env python3
"""The reference and the version: check.py DOXYFILE SOURCE VERSION SCRATCH. Every installed declaration is described,
every link in the pages leads somewhere, and there is one version number. Ends with 77 where doxygen is missing."""
import pathlib
import re
import shutil
import subprocess
import sys
import urllib.parse

DOXYFILE, SOURCE, VERSION, SCRATCH = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3], pathlib.Path(sys.argv[4])
failures = []


def check(holds, what):
    if not holds:
        failures.append(what)


def check_version():
    releases = re.findall(r"^## (\d+\.\d+\.\d+) - \d{4}-\d\d-\d\d$", (SOURCE / "CHANGELOG.md").read_text(), re.M)
    check(releases and releases[0] == VERSION, f"the newest release of CHANGELOG.md is not {VERSION}: {releases}")
    check(releases == sorted(releases, key=lambda release: [int(part) for part in release.split(".")], reverse=True),
          f"the releases of CHANGELOG.md are not in order: {releases}")
    wanted = VERSION.rpartition(".")[0]
    texts = [path for pattern in ("*.md", "docs/**/*.md", "examples/**/CMakeLists.txt", "tests/**/CMakeLists.txt")
             for path in SOURCE.glob(pattern)]
    asked = [(path, number) for path in texts
             for number in re.findall(r"find_package\(varnel ([\d.]+)", path.read_text())]
    check(asked, "nobody says find_package(varnel ...)")
    for path, number in asked:
        check(number == wanted, f"{path} asks for version {number}, not {wanted}")
    for path in texts:
        for number in re.findall(r"\bvarnel(?:ctl)?[ _-]v?(\d+\.\d+\.\d+)", path.read_text()):
            check(number == VERSION, f"{path} tells of version {number}, not {VERSION}")


def doxygen(name, *settings):
    folder = SCRATCH / name
    folder.mkdir(parents=True)
    lines = [f'@INCLUDE = "{DOXYFILE}"', f'OUTPUT_DIRECTORY = "{folder}"', *settings]
    (folder / "Doxyfile").write_text("\n".join(lines) + "\n")
    result = subprocess.run(["doxygen", folder / "Doxyfile"], capture_output=True, text=True, check=False)
    return result.returncode, result.stdout + result.stderr, folder / "html"


def check_links(pages):
    for page in pages.glob("*.html"):
        for link in re.findall(r'(?:href|src|data)="([^":?][^":]*)"', page.read_text()):
            name = urllib.parse.unquote(link.partition("#")[0])
            check(not name or (pages / name).exists(), f"{page.name} leads to {link}, which there is not")
    for name in ("threads", "exceptions", "order", "versions"):
        page = (pages / f"md_docs_api_{name}.html").read_text()
        check("classCVarnel.html" in page or name == "versions", f"the page of {name} names no operation")
        check(f"md_docs_api_{name}.html" in (pages / "index.html").read_text(), f"the first page lacks {name}")


def check_reference():
    status, output, pages = doxygen("reference")
    check(status == 0 and not output.strip(), f"doxygen: {status}\n{output}")
    check((pages / "classCVarnel.html").exists(), "no page of CVarnel")
    check_links(pages)
    planted = SCRATCH / "planted.h"
    planted.write_text("/// A class.\nclass Planted {\n public:\n  int Undescribed();\n};\n")
    status, output, _ = doxygen("planted", f'INPUT = "{planted}"', "USE_MDFILE_AS_MAINPAGE =")
    check(status != 0 and "Undescribed" in output, "doxygen takes what is not described")


check_version()
shutil.rmtree(SCRATCH, ignore_errors=True)
found = shutil.which("doxygen")
if found:
    check_reference()
for failure in failures:
    print(failure)
if not failures and not found:
    print("doxygen is missing (tools/setup.sh docs)")
sys.exit(1 if failures else 0 if found else 77)
