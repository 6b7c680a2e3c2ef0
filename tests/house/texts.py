#!/usr/bin/env python3
"""Checks what is written in the tree, whatever language it is in.

  texts.py ROOT

  - every link of a page leads to a file, a folder or a heading that is there;
  - every page of docs/ stands in docs/README.md;
  - no line of code is longer than 120 characters; what tests write, and pages with their tables, may be;
  - the text stands by itself: no path of somebody's machine, no address of a host, no number of a ticket or of a part
    of a document that is not here.
"""
import os
import pathlib
import re
import sys

SKIPPED = {".git", "build", "dist", "__pycache__", "node_modules"}
CODE = {".h", ".c", ".cpp", ".py", ".cmake", ".inc", ".def", ".ld", ".in", ".sh", ".js", ".mjs", ".ts", ".css", ".html"}
TEXT = CODE | {".md", ".txt", ".json", ".yml", ".svg", ""}
LONGEST = 120
WRITTEN = {"expected"}  # folders of files that tests write
HERE = "tests/house/texts"  # this file and its test spell out what they look for

LINK = re.compile(r"(?<!\\)!?\[[^\]]*\]\(<?([^)>\s]+)>?(?:\s+\"[^\"]*\")?\)")
HEADING = re.compile(r"#+\s+(.*)")
FOREIGN = [
    (re.compile(r"(?<![\w.$}])/(?:home|root|work|Users)/"), "a path of somebody's machine"),
    (re.compile(r"https?://(?!www\.w3\.org/|json-schema\.org/)"), "an address of a host"),
    (re.compile(r"[A-Za-z] #\d+\b|\b(?:Part|Chapter|Section) \d+\.\d+\b"), "a number that nothing here explains"),
]


def files_of(root):
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(set(folders) - SKIPPED)
        for path in (pathlib.Path(folder, name) for name in sorted(set(names) - SKIPPED)):
            if path.suffix in TEXT and path.is_file():
                yield path.relative_to(root)


def text_of(path):
    """None for what is no text after all."""
    try:
        return path.read_text(encoding="utf-8")
    except UnicodeDecodeError:
        return None


def without_code(text):
    """A page with what stands in code blocks and between backquotes blanked out, line by line."""
    lines, inside = [], False
    for line in text.split("\n"):
        fence = line.lstrip().startswith("```")
        lines.append("" if inside or fence else re.sub(r"`[^`]*`", "", line))
        inside ^= fence
    return lines


def anchor_of(heading):
    """The anchor that a heading has where pages are shown: lower case, only letters, digits, "-" and "_"."""
    plain = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
    return re.sub(r"[^\w\- ]", "", plain).replace(" ", "-")


def anchors_of(text):
    found, inside = set(), False
    for line in text.split("\n"):
        if line.lstrip().startswith("```"):
            inside = not inside
        elif not inside and HEADING.match(line):
            found.add(anchor_of(HEADING.match(line)[1]))
    return found


def faults_of_links(root, page, text):
    for number, line in enumerate(without_code(text), 1):
        for target in LINK.findall(line):
            if re.match(r"[a-z]+:", target):
                continue
            name, _, anchor = target.partition("#")
            file = (root / page.parent / name).resolve() if name else (root / page)
            if not file.exists() or (root != file and root not in file.parents):
                yield f"{page}:{number}: {target} is not there"
            elif anchor and anchor not in anchors_of(file.read_text(encoding="utf-8")):
                yield f"{page}:{number}: {target} has no such heading"


def faults_of_lines(relative, text):
    for number, line in enumerate(text.split("\n"), 1):
        if len(line) > LONGEST:
            yield f"{relative}:{number}: {len(line)} characters"


def faults_of_index(root):
    index = root / "docs" / "README.md"
    listed = set(LINK.findall(index.read_text(encoding="utf-8"))) if index.is_file() else set()
    for page in sorted((root / "docs").glob("*.md")):
        if page != index and page.name not in listed:
            yield f"docs/{page.name}: not in docs/README.md"


def faults(root):
    pages = 0
    for relative in files_of(root):
        text = text_of(root / relative)
        if text is None:
            continue
        if relative.suffix == ".md":
            pages += 1
            yield from faults_of_links(root, relative, text)
        elif relative.suffix in CODE | {""} and not WRITTEN.intersection(relative.parts):
            yield from faults_of_lines(relative, text)
        if relative.as_posix().startswith(HERE):
            continue
        for number, line in enumerate(text.split("\n"), 1):
            for pattern, what in FOREIGN:
                if pattern.search(line):
                    yield f"{relative}:{number}: {what}: {pattern.search(line)[0]}"
    if pages == 0:
        yield f"{root}: no pages found"
    yield from faults_of_index(root)


def main():
    found = list(faults(pathlib.Path(sys.argv[1]).resolve()))
    for fault in found:
        print(fault)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
