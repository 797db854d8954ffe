#!/usr/bin/env python3
"""Whether the bill of materials is one and names what the sources include: materials.py BUILD SOURCE [LIBRARY...]"""
import json
import pathlib
import re
import sys

BUILD, SOURCE = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
# Of headers that the product's sources include, the library they come from.
LIBRARIES = {"CLI": "CLI11", "nlohmann": "nlohmann-json", "boost": "Boost.PropertyTree"}
ROOMS = ["text", "platform", "core", "requestors", "simulator", "varnelctl", "c"]

document = json.loads((BUILD / "varnel.spdx.json").read_text())
notices = (BUILD / "NOTICES.txt").read_text()
packages = {package["SPDXID"]: package for package in document["packages"]}
names = {package["name"] for package in packages.values()}
failures = []
if document["spdxVersion"] != "SPDX-2.3" or not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ",
                                                              document["creationInfo"]["created"]):
    failures.append("the head of the bill of materials")
for relationship in document["relationships"]:
    for end in (relationship["spdxElementId"], relationship["relatedSpdxElement"]):
        if end != "SPDXRef-DOCUMENT" and end not in packages:
            failures.append(f"a relationship of {end}, which there is not")
used = {match for room in ROOMS for path in (SOURCE / room).rglob("*") if path.suffix in (".h", ".cpp")
        for match in re.findall(r"^#include <(\w+)/", path.read_text(), re.M)} - {"sys"}
wanted = {LIBRARIES.get(folder, folder) for folder in used} | set(sys.argv[3:])
if not wanted <= names or len(used) < 3:
    failures.append(f"the bill of materials lacks {wanted - names}; the sources use {used}")
for package in packages.values():
    if package["name"] == "varnel":
        continue
    notice = notices.partition(f"\n{package['name']} (")[2].partition("=" * 100)[2]
    if len(notice.partition("=" * 100)[0].strip()) < 500 or package["versionInfo"] == "NOASSERTION":
        failures.append(f"no notice or version of {package['name']}")
for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
