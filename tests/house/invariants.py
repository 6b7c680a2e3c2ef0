#!/usr/bin/env python3
"""Checks that every invariant of the library is watched by a test, and that every number cited exists.

  invariants.py ROOT

A header in src/ numbers its layer's invariants ("//   D1  entry 0 is ..."). A test that watches one ends its first line,
or the comment above it, with the number ("// D1, D4"); the kinds of findings in inspect/check/finding.h name theirs in brackets.
"""
import pathlib
import re
import sys

STATED = re.compile(r"^//   ([A-Z]\d+)  ", re.MULTILINE)
CITED = {"tests/unit": re.compile(r"// ([A-Z]\d+(?:, [A-Z]\d+)*)$", re.MULTILINE),
         "inspect": re.compile(r"// .*\(([A-Z]\d+(?:, [A-Z]\d+)*)\)$", re.MULTILINE)}


def find(root, folder, pattern, endings):
    """The numbers in the files of a folder, with the file where each is found first."""
    found = {}
    for path in sorted((root / folder).rglob("*")):
        if path.suffix not in endings:
            continue
        for numbers in pattern.findall(path.read_text(encoding="utf-8")):
            for number in numbers.split(", "):
                found.setdefault(number, path.relative_to(root).as_posix())
    return found


def check(root):
    stated = find(root, "src", STATED, {".h"})
    faults = [] if stated else ["no invariants found"]
    for folder, pattern in CITED.items():
        cited = find(root, folder, pattern, {".h", ".cpp"})
        faults += [f"{where}: there is no {number}" for number, where in cited.items() if number not in stated]
        if folder == "tests/unit":
            faults += [f"{where}: no test watches {number}" for number, where in stated.items() if number not in cited]
    return sorted(faults)


if __name__ == "__main__":
    faults = check(pathlib.Path(sys.argv[1]))
    print("\n".join(faults) or "every invariant is watched")
    sys.exit(1 if faults else 0)
