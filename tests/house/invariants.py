#!/usr/bin/env python3
"""Checks that every rule with a number is watched by a test, and that what is cited exists.

  invariants.py ROOT

A header in src/ numbers its layer's invariants ("//   D1  entry 0 is ..."), inspect/check/check.h what must hold in a
container. A test that watches one ends its first line, or the comment above it, with the number ("// D1, D4"); the
table of findings in inspect/check/finding.cpp has the numbers that do not hold ("C6, D1"), and each of the checker's is
there. docs/compatibility.md numbers what may not change ("**Q1. ..."); the code that keeps to it cites the number in a
comment.
"""
import pathlib
import re
import sys

STATED = re.compile(r"^//   ([A-Z]\d+)  ", re.MULTILINE)
KEPT = re.compile(r"^\*\*(Q\d+)\. ", re.MULTILINE)
CITED_IN_CODE = re.compile(r"\b(Q\d+)\b")
NUMBERS = r"([A-Z]\d+(?:, [A-Z]\d+)*)"
CITED = {"tests/unit": re.compile(r"// " + NUMBERS + "$", re.MULTILINE),
         "inspect": re.compile(r'k\w+, "[a-z-]+", "' + NUMBERS + '"')}


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
    layers = find(root, "src", STATED, {".h"})
    checker = find(root, "inspect", STATED, {".h"})
    kept = find(root, "docs", KEPT, {".md"})
    faults = [] if layers and checker and kept else ["no invariants found"]
    code = find(root, "src", CITED_IN_CODE, {".h", ".cpp"})
    faults += [f"{where}: there is no {number}" for number, where in code.items() if number not in kept]
    faults += [f"{where}: no code cites {number}" for number, where in kept.items() if number not in code]
    stated = {**layers, **checker, **kept}
    cited = {folder: find(root, folder, pattern, {".h", ".cpp"}) for folder, pattern in CITED.items()}
    faults += [f"{where}: there is no {number}"
               for found in cited.values() for number, where in found.items() if number not in stated]
    faults += [f"{where}: no test watches {number}"
               for number, where in stated.items() if number not in cited["tests/unit"]]
    faults += [f"{where}: no finding reports that {number} does not hold"
               for number, where in checker.items() if number not in cited["inspect"]]
    return sorted(faults)


if __name__ == "__main__":
    faults = check(pathlib.Path(sys.argv[1]))
    print("\n".join(faults) or "every invariant is watched")
    sys.exit(1 if faults else 0)
