#!/usr/bin/env python3
"""Checks that a plot of cost_report can be read by everybody, and says what is missing:

  tools/check-plot.py PLOT.svg [PROGRAM]    a plot, and what PROGRAM, which is cost_report, makes of a few runs

It has a title and a description, colours for light and for dark, and each curve has a mark at every point, a dash
unless it is a requestor's, and its name beside its end, where no name stands on another. No two workloads have one
mark.
"""
import json
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

SVG = "{http://www.w3.org/2000/svg}"
LABEL_HEIGHT = 14


def text_of(root, name):
    found = root.find(SVG + name)
    return "" if found is None else (found.text or "").strip()


def check_words(root, findings):
    for name in ("title", "desc"):
        if not text_of(root, name):
            findings.append(f"no <{name}>")
        elif name not in root.get("aria-labelledby", "").split():
            findings.append(f"<{name}> is not what the plot is labelled by")
    style = text_of(root, "style")
    if "prefers-color-scheme: dark" not in style:
        findings.append("no colours for dark")
    if ".floor polyline{stroke-dasharray" not in style:
        findings.append("floors are not dashed")


def marks_of(group):
    return [path.get("d") for path in group.findall(SVG + "path")]


def check_curves(root, findings):
    groups = root.findall(SVG + "g")
    curves = [group for group in groups if group.find(SVG + "polyline") is not None]
    labels = {group.get("class"): group for group in groups if group.find(SVG + "polyline") is None}
    if not curves:
        findings.append("no curves")
    manners = {}
    for curve in curves:
        kind = curve.get("class")
        marks = marks_of(curve)
        if len(marks) != len(curve.find(SVG + "polyline").get("points").split()) or len(set(marks)) != 1:
            findings.append(f"{kind}: not every point has the curve's mark")
        elif manners.setdefault(marks[0], kind.split()[1]) != kind.split()[1]:
            findings.append(f"{kind}: the mark is that of another workload")
        if kind not in labels or marks_of(labels[kind]) != marks[:1]:
            findings.append(f"{kind}: no name with its mark")
    if len(labels) != len(curves):
        findings.append("curves and names are not as many")


def check_names(root, findings):
    children = list(root)
    is_label = [child.tag == SVG + "g" and child.find(SVG + "polyline") is None for child in children]
    names = [name for before, name in zip(is_label, children[1:]) if before]
    heights = sorted(float(name.get("y")) for name in names)
    if any(not (name.text or "").strip() for name in names):
        findings.append("a curve's name is empty")
    if any(after - before < LABEL_HEIGHT for before, after in zip(heights, heights[1:])):
        findings.append("names stand on each other")


def check(path):
    findings = []
    root = ElementTree.parse(path).getroot()
    check_words(root, findings)
    check_curves(root, findings)
    check_names(root, findings)
    for finding in findings:
        print(f"{path}: {finding}")
    return not findings


# Two workloads that cost the same, whose names would stand on each other.
def check_made_by(program):
    with tempfile.TemporaryDirectory() as folder:
        with open(folder + "/runs.jsonl", "w", encoding="utf-8") as runs:
            for workload in ("one", "two"):
                for who, cost in (("floor", 1000), ("quiet", 1100)):
                    for n in (1000, 5000):
                        run = {"workload": workload, "who": who, "n": n, "files": n, "milliseconds": 1,
                               "allocations": n, "peakBytes": n, "instructions": cost * n}
                        runs.write(json.dumps(run) + "\n")
        subprocess.run([program, folder + "/runs.jsonl", folder + "/cost.json", folder + "/cost.svg"], check=True,
                       stdout=subprocess.DEVNULL)
        return check(folder + "/cost.svg")


def main(arguments):
    if len(arguments) not in (1, 2):
        print(__doc__)
        return 2
    good = [check(arguments[0])] + [check_made_by(program) for program in arguments[1:]]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
