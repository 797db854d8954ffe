"""What varnelctl --json printed: whether it is a document, and what it says in a sentence."""
from __future__ import absolute_import, division, print_function

__metaclass__ = type

import json

# What a task's result leaves out unless it is asked for: long lists, and what the task said itself.
LONG = ("header", "writers", "objects", "otherWriters", "backup", "provider", "databases", "phases", "steps", "writerStates",
        "moments", "document", "catalog", "tries", "checks", "snapshots", "errorDetails")
DETAILS_SHOWN = 3


class BrokenDocument(Exception):
    """What was printed is no document of varnelctl; the text says why."""


def clean(value):
    """The same without half surrogate pairs, which cannot be written as UTF-8."""
    if isinstance(value, str):
        return value.encode("utf-8", "replace").decode("utf-8")
    if isinstance(value, list):
        return [clean(member) for member in value]
    if isinstance(value, dict):
        return {clean(key): clean(member) for key, member in value.items()}
    return value


def read(text, kind, needed=None):
    """The document of a run, of this kind or of a failure. needed: key to type of what a success has."""
    if not text.strip():
        raise BrokenDocument("varnelctl printed no document")
    try:
        document = clean(json.loads(text))
    except ValueError as error:
        is_cut = getattr(error, "pos", 0) >= len(text.rstrip()) or "Unterminated" in str(error)
        raise BrokenDocument("varnelctl's document is broken: %s after %d characters (%s)"
                             % ("it is cut off" if is_cut else "it is not JSON", len(text), error))
    if not isinstance(document, dict) or not isinstance(document.get("status"), int):
        raise BrokenDocument("varnelctl's document is broken: it has no status")
    schema = document.get("schema")
    if schema != "varnelctl/1":
        raise BrokenDocument("varnelctl's document is of another version: %s, not varnelctl/1" % schema)
    check(document, kind, needed or {})
    return document


def check(document, kind, needed):
    status = document["status"]
    if document.get("kind") != kind and (status == 0 or document.get("kind") != "failure"):
        raise BrokenDocument("varnelctl's document is of another kind: %s, not %s" % (document.get("kind"), kind))
    wanted = {"result": dict, "verdict": dict, "findings": list, **(needed if status == 0 else {})}
    for key, type_ in wanted.items():
        is_needed = status == 0 and key in needed or status != 0 and key == "result"
        if not isinstance(document.get(key), type_) and (is_needed or document.get(key) is not None):
            raise BrokenDocument("varnelctl's document is broken: it has no %s" % key)
    for key in ("findings", "sets"):
        if not all(isinstance(each, dict) for each in document.get(key) or []):
            raise BrokenDocument("varnelctl's document is broken: its %s are none" % key)


def short(document):
    return {key: value for key, value in document.items() if key not in LONG}


def message(document):
    """Verdict, cause and remedy for a person."""
    parts, details, remedy = of_doctor(document) if document.get("kind") == "doctor" else of_run(document)
    more = len(details) - DETAILS_SHOWN
    if details:
        parts.append("; ".join(details[:DETAILS_SHOWN]) + ("; and %d more" % more if more > 0 else ""))
    if document["status"] != 0 and remedy:
        parts.append("What to do: " + remedy)
    return sentences(parts)


def of_run(document):
    result = document.get("result") or {}
    verdict = (document.get("verdict") or {}).get("text") or document.get("text") or ""
    verdict = verdict.removeprefix("FAILED: ")  # that a host failed is said where this is shown
    cause = result.get("message") or ""
    first, _dot, rest = cause.partition(". ")
    if verdict and first.rstrip(".") in verdict:
        cause = rest
    details = [] if document.get("kind") == "snapshot" else result.get("details") or []
    return [verdict, cause], details, result.get("remedy")


def of_doctor(document):
    errors = [finding for finding in document.get("findings", []) if finding.get("severity") == "error"]
    cause = (document.get("result") or {}).get("message") or "%d error%s" % (len(errors), "" if len(errors) == 1 else "s")
    remedies = [finding["remedy"] for finding in errors if finding.get("remedy")]
    return ([cause] if document["status"] else ["no error"],
            ["%s: %s" % (finding.get("object"), finding.get("found")) for finding in errors], remedies[0] if remedies else "")


def sentences(parts):
    """The parts as sentences of one line."""
    stripped = [" ".join(str(part).split()) for part in parts]
    return " ".join(part if part[-1] in ".?!" else part + "." for part in stripped if part)
