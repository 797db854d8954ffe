#!/usr/bin/env python3
"""Checks what keeps the sources easy to read, and says for each finding where it is and what to do:

  tools/check-structure.py [--report] [ROOT]   the tree at ROOT (this checkout); --report tells only and exits with 0
  tools/check-structure.py --self-test         whether each kind of violation is found

No function has more than 40 lines, no file more than 800, and rooms include only what lies below them: text <- platform
<- core <- requestors <- c, platform <- simulator, and varnelctl, tests, benchmarks and fuzz targets whatever they like. core
and requestors know nothing of Windows but through platform.
"""
import os
import re
import sys
import tempfile

FUNCTION_LINES = 40
FILE_LINES = 800

# What each room may include besides the standard library.
ROOMS = {
    "text": {"text"},
    "platform": {"text", "platform", "resources"},
    "core": {"text", "platform", "core", "resources"},
    "requestors": {"text", "platform", "core", "requestors", "resources"},
    "c": {"text", "platform", "core", "requestors", "resources", "c"},
    "simulator": {"text", "platform", "simulator", "resources"},
}
FREE_ROOMS = ["varnelctl", "tests", "bench", "fuzz"]
PORTABLE_ROOMS = ["core", "requestors"]

INCLUDE = re.compile(r'\s*#\s*include\s*[<"]([^>"]+)[>"]')
WINDOWS_CONDITION = re.compile(r"\s*#\s*(if|ifdef|ifndef|elif)\b.*\b_WIN(32|64)\b")
TOKENS = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])\'(?:\\.|[^\'\\\n])+\'', re.S)
NO_FUNCTION = re.compile(r"^\s*(if|for|while|switch|catch|else|do|try|namespace|class|struct|union|enum|extern|return)\b")
# The end of what stands before a body: parameters and what may follow them, or the last initializer of a constructor.
FUNCTION = re.compile(r"[)}]\s*((const|noexcept(\s*\([^()]*\))?|override|final|&|&&|mutable|try|->[^;{}=]+)\s*)*$")
LAMBDA = re.compile(r"\[[^\[\]]*\]\s*(\((?:[^()]|\([^()]*\))*\))?\s*((mutable|noexcept|->[^;{}]+)\s*)*$")


def without_comments_and_texts(text):
    """The same lines, with nothing in them that only looks like code."""
    def blank(match):
        is_comment = match.group(0).startswith("/")
        return ("" if is_comment else '""') + "\n" * match.group(0).count("\n")
    code = re.sub(r"\b(public|protected|private):", "", TOKENS.sub(blank, text))
    return re.sub(r"^[ \t]*#(?:[^\n\\]|\\\n|\\.)*", lambda match: "\n" * match.group(0).count("\n"), code, flags=re.M)


def functions(text):
    """(line, name, lines) of each function, from its name to its closing brace; lambdas count to what holds them."""
    code = without_comments_and_texts(text)
    opened = []  # where the head of each open block begins, or None where it is no function's
    head = 0  # where the statement at hand begins
    parentheses = 0
    for i, character in enumerate(code):
        if character in "()":
            parentheses += 1 if character == "(" else -1
        elif character == ";" and parentheses == 0:
            head = i + 1
        elif character == "{":
            before = code[head:i]
            inside = any(block is not None for block, _ in opened)
            is_function = not inside and parentheses == 0 and is_head_of_function(before)
            opened.append((head if is_function else None, parentheses))
            parentheses = 0
            if is_function or not is_initializer(before):
                head = i + 1
        elif character == "}" and opened:
            start, parentheses = opened.pop()
            if start is not None:
                start += len(code[start:]) - len(code[start:].lstrip())
                line = code.count("\n", 0, start) + 1
                name = re.search(r"([\w:~]+|operator\s*\S+)\s*\(", code[start:])
                yield line, name.group(1) if name else "?", code.count("\n", start, i) + 1
            if parentheses == 0 and not is_initializer_end(code, i):
                head = i + 1


def is_head_of_function(before):
    before = before.rstrip()
    return "(" in before and not NO_FUNCTION.match(before) and not LAMBDA.search(before) and bool(FUNCTION.search(before))


def is_initializer(before):
    """A brace after a name: `: member_{value}` of a constructor, or a value."""
    return re.search(r"[\w>]\s*$", before) is not None and "(" in before and not NO_FUNCTION.match(before)


def is_initializer_end(code, i):
    return re.match(r"\}\s*[,{]", code[i:i + 200]) is not None


def check_includes(room, name, lines):
    allowed = ROOMS.get(room)
    for number, line in enumerate(lines, 1):
        include = INCLUDE.match(line)
        if include:
            target = include.group(1)
            folder = target.split("/")[0] if "/" in target else ""
            if room in PORTABLE_ROOMS and target.lower() == "windows.h":
                yield f"{name}:{number}: {room} includes <{target}>; include platform/win32.h"
            elif allowed and folder in list(ROOMS) + FREE_ROOMS and folder not in allowed:
                yield f"{name}:{number}: {room} includes {target}; move what it needs to a room that {room} may include"
        elif room in PORTABLE_ROOMS and WINDOWS_CONDITION.match(line):
            yield f"{name}:{number}: {room} asks for the system; put what differs into platform, a file for each system"


def check_file(root, name):
    with open(os.path.join(root, name), encoding="utf-8") as file:
        text = file.read()
    lines = text.splitlines()
    if len(lines) > FILE_LINES:
        yield f"{name}:{FILE_LINES + 1}: {len(lines)} lines; split the file so that none has more than {FILE_LINES}"
    yield from check_includes(name.split(os.sep)[0], name, lines)
    for line, function, length in functions(text):
        if length > FUNCTION_LINES:
            yield f"{name}:{line}: {function} has {length} lines; split it so that none has more than {FUNCTION_LINES}"


def sources(root):
    for room in list(ROOMS) + FREE_ROOMS:
        for folder, _, names in sorted(os.walk(os.path.join(root, room))):
            for name in sorted(names):
                if name.endswith((".cpp", ".h")):
                    yield os.path.relpath(os.path.join(folder, name), root)


def check(root):
    return [finding for name in sources(root) for finding in check_file(root, name)]


LONG_BODY = "  Call();\n" * FUNCTION_LINES
SHORT_BODY = "  Call();\n" * (FUNCTION_LINES - 2)
# File, content and what is found in it.
PLANTED = [
    ("core/long.cpp", "void Long() {\n" + LONG_BODY + "}\n", ["core/long.cpp:1: Long has 42 lines"]),
    ("core/member.cpp", "A::A(int a)\n    : a_(a), b_{a} {\n" + LONG_BODY + "}\n", ["core/member.cpp:1: A::A has 43 lines"]),
    ("tests/case.cpp", "namespace n {\n\nTEST_F(Room, Says) {\n" + LONG_BODY + "}\n\n}\n",
     ["tests/case.cpp:3: TEST_F has 42 lines"]),
    ("core/class.h", "class A final : public B {\n public:\n  int Get() const override {\n" + LONG_BODY + "  }\n};\n",
     ["core/class.h:3: Get has 42 lines"]),
    ("core/lambda.cpp", "void Outer() {\n  auto f = [&](int a) {\n" + LONG_BODY + "  };\n}\n",
     ["core/lambda.cpp:1: Outer has 44 lines"]),
    ("core/short.cpp", "// {\nvoid Short(char c = '{') {\n" + SHORT_BODY + "}\nconst char* text = R\"({)\";\n", []),
    ("core/table.cpp", "const int table[] = {\n" + "    1,\n" * 60 + "};\n", []),
    ("core/file.h", "\n" * (FILE_LINES + 1), ["core/file.h:801: 801 lines"]),
    ("text/up.h", '#include "platform/host.h"\n', ["text/up.h:1: text includes platform/host.h"]),
    ("platform/up.h", '#include "core/varnel.h"\n', ["platform/up.h:1: platform includes core/varnel.h"]),
    ("core/up.h", '\n#include "requestors/SqlReq.h"\n', ["core/up.h:2: core includes requestors/SqlReq.h"]),
    ("core/aside.h", '#include "simulator/machine/machine.h"\n', ["core/aside.h:1: core includes simulator/"]),
    ("simulator/aside.h", '#include "core/varnel.h"\n', ["simulator/aside.h:1: simulator includes core/varnel.h"]),
    ("requestors/windows.h", "#include <Windows.h>\n", ["requestors/windows.h:1: requestors includes <Windows.h>"]),
    ("core/system.cpp", "#if defined(_WIN32)\n#endif\n", ["core/system.cpp:1: core asks for the system"]),
    ("varnelctl/free.cpp", '#include <windows.h>\n#include "simulator/a.h"\n#include "core/varnel.h"\n', []),
]


def self_test():
    failures = 0
    for name, content, expected in PLANTED:
        with tempfile.TemporaryDirectory() as root:
            os.makedirs(os.path.join(root, os.path.dirname(name)))
            with open(os.path.join(root, name), "w", encoding="utf-8") as file:
                file.write(content)
            found = check(root)
        if len(found) != len(expected) or not all(f.startswith(e) for f, e in zip(found, expected)):
            print(f"self-test: {name}: expected {expected}, found {found}")
            failures += 1
    return failures


def main(arguments):
    if arguments == ["--self-test"]:
        return 1 if self_test() else 0
    report = "--report" in arguments
    roots = [argument for argument in arguments if argument != "--report"]
    findings = check(roots[0] if roots else os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    for finding in findings:
        print(finding)
    return 1 if findings and not report else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
