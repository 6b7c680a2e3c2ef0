#!/usr/bin/env python3
"""The corpus of damaged containers: each is made by a case that says in one sentence what it breaks, and comes with
what `orba check` has to say about it, what `orba repair` does and what is left of the files then, in expected/NAME.txt.

    corpus.py                 tests every case (ORBA names the program under test)
    corpus.py GROUP|NAME...   tests some
    corpus.py --write FOLDER [GROUP|NAME...]   writes the damaged containers for people to look at
    corpus.py --update [GROUP|NAME...]         writes what is expected anew. Read every change: it is the verdict on the
                                               tool

For every case: check tells the same in text and JSON; check, the dry run, recover and a repair that is refused change
no byte; the dry run shows what the repair does. What could be read before, as reading.py finds it, is there after the
repair, or in what recover copied where that is refused; how many files that are stands in the expected file. After one
repair check finds the container clean, a second repair changes no byte, the library mounts it and reads every file,
and undo brings the damage back byte by byte. Recover copies out the very files that a repair leaves. With sanitizers,
which look for other faults and are slow, nothing runs that takes the same way again: the JSON, the dry run, the second
repair.
"""
import argparse
import functools
import itertools
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

import cases_chain
import cases_directories
import cases_erased
import cases_evidence
import cases_header
import cases_maps
import cases_nodes
import cases_several
import cases_torn
import cases_truncated
import container as at
import outcome
import reading
from container import ORBA, Container, sound

EXPECTED = pathlib.Path(__file__).parent / "expected"
SANITIZED = os.environ.get("ORBA_SANITIZE", "") != ""
LIMIT = 240  # seconds after which a run counts as hanging
GROUPS = {
    "header": cases_header.CASES,
    "nodes": cases_nodes.CASES,
    "maps": cases_maps.CASES,
    "directories": cases_directories.CASES,
    "chain": cases_chain.CASES,
    "erased": cases_erased.CASES,
    "truncated": cases_truncated.CASES,
    "several": cases_several.CASES,
    "evidence": cases_evidence.CASES,
    "torn": cases_torn.CASES,
}
STAMP = "%Y-%m-%d %H:%M:%S"  # of orba's listings, in UTC
START = time.strftime(STAMP, time.gmtime())
FINDING = re.compile(r"(damage|interrupted|leak|note) +([a-z0-9-]+)( at [^:]*)?: .*")


class Run:
    def __init__(self, folder, *arguments):
        environment = {name: value for name, value in os.environ.items() if name != "NO_COLOR"}
        environment.update({"LC_ALL": "C.UTF-8", "TZ": "UTC"})
        done = subprocess.run([ORBA, *arguments], stdin=subprocess.DEVNULL, capture_output=True, cwd=folder,
                              env=environment, timeout=LIMIT, check=False)
        self.status, self.raw, self.err = done.returncode, done.stdout, done.stderr.decode()

    @property
    def out(self):
        return self.raw.decode()

    def __str__(self):
        return f"{self.out}{self.err}exit status {self.status}\n"


def host_tree(folder):
    """What was copied to a folder of the host: bytes of each file, None for a directory."""
    return {"/" + path.relative_to(folder).as_posix(): None if path.is_dir() else path.read_bytes()
            for path in folder.rglob("*")}


def age(stamp):
    """The time stamp, "-" for one that is no date, or that it was given during this test."""
    return "now" if START <= stamp <= time.strftime(STAMP, time.gmtime()) else stamp


def tree(folder, name):
    """All files and directories of a container, as the library lists and reads them."""
    listing = Run(folder, "ls", "-lR", f"{name}:/")
    if (listing.status, listing.err) != (0, ""):
        raise AssertionError(f"the container cannot be listed:\n{listing}")
    found, sizes = {}, {}
    directory = ""
    for line in listing.out.splitlines():
        if line.startswith(f"{name}:/"):
            directory = line[len(name) + 1:-1].rstrip("/")
        elif line:
            attributes, size, *stamp, entry = line.split()
            path = f"{directory}/{entry}"
            found[path] = outcome.File(None, f"{attributes} {age(' '.join(stamp))}")
            if not attributes.startswith("d"):
                sizes[path] = int(size)
    read = contents(folder, name, sizes)
    return {path: file._replace(contents=read.get(path)) for path, file in found.items()}


def contents(folder, name, sizes):
    """The bytes of the files whose sizes are given."""
    if not sizes:
        return {}
    read = Run(folder, "cat", *(f"{name}:{path}" for path in sizes))
    if (read.status, read.err, len(read.raw)) != (0, "", sum(sizes.values())):
        raise AssertionError(f"not all files can be read: exit status {read.status}, {len(read.raw)} bytes\n{read.err}")
    ends = list(itertools.accumulate(sizes.values()))
    return {path: read.raw[end - sizes[path]:end] for path, end in zip(sizes, ends)}


@functools.lru_cache(maxsize=None)
def sound_tree(base):
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "sound.orb").write_bytes(sound(base))
        return tree(folder, "sound.orb")


def sentence(case):
    return " ".join(case.__doc__.split())


def damaged(case):
    container = Container(sound(case.base))
    case(container)
    return bytes(container.data)


class CorpusTest(unittest.TestCase):
    update = False

    def setUp(self):
        self.maxDiff = None
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="orba-corpus-", dir=os.environ.get("ORBA_SCRATCH")))
        self.addCleanup(shutil.rmtree, self.folder)

    def run_case(self, case):
        self.name = f"{case.__name__}.orb"
        self.path = self.folder / self.name
        self.damaged = damaged(case)
        self.assertNotEqual(self.damaged, sound(case.base))
        self.path.write_bytes(self.damaged)
        text = self.observe(case)
        expected = EXPECTED / f"{case.__name__}.txt"
        if self.update:
            EXPECTED.mkdir(exist_ok=True)
            expected.write_text(text)
        self.assertEqual(text, expected.read_text())

    def observe(self, case):
        check = self.check()
        recovered = self.unchanging("recover", "--verbose", self.name, "recovered")
        planned = None if SANITIZED else self.unchanging("repair", "--verbose", "--dry-run", self.name)
        repaired = Run(self.folder, "repair", "--verbose", "--undo", "undo", self.name)
        text = f"{sentence(case)}\n\n$ orba check {self.name}\n{check}\n$ orba repair {self.name}\n{repaired}"
        if repaired.status not in (0, 1):
            self.assertEqual(self.path.read_bytes(), self.damaged)
            kept = ""
            if (self.folder / "recovered").is_dir():
                kept = self.judge_promise(case, host_tree(self.folder / "recovered")) + "\n"
            return f"{text}\n{kept}$ orba recover {self.name} recovered\n{recovered}"
        if repaired.status == 0:  # notes alone
            self.assertEqual(self.path.read_bytes(), self.damaged)
        if planned and repaired.status == 0:
            self.assertEqual(str(planned), str(repaired))
        elif planned:
            self.assertEqual((planned.status, planned.err, planned.out + "repaired\n"), (4, "", repaired.out))
        lines = self.judge_repair(case, check, recovered)
        if repaired.status == 1:
            self.undo()
        return f"{text}\n" + "".join(line + "\n" for line in lines)

    def unchanging(self, *arguments):
        """A run that must not touch the container."""
        before = self.path.read_bytes()
        run = Run(self.folder, *arguments)
        self.assertEqual(self.path.read_bytes(), before, arguments)
        return run

    def check(self):
        """The report, which is the same in both forms."""
        text = self.unchanging("check", self.name)
        if SANITIZED:
            return text
        report = self.unchanging("check", "--json", self.name)
        self.assertEqual(report.status, text.status)
        listed = json.loads(report.out)
        found = [FINDING.fullmatch(line) for line in text.out.splitlines()]
        found = [match.group(1, 2) for match in found if match]
        self.assertEqual([(finding["severity"], finding["kind"]) for finding in listed["findings"]], found)
        return text

    def judge_repair(self, case, before, recovered):
        repaired = self.path.read_bytes()
        check = self.unchanging("check", self.name)
        self.assertEqual((check.status, check.err), (0, ""), check)
        if not SANITIZED:
            again = self.unchanging("repair", self.name)
            self.assertEqual(str(again), "clean: nothing to repair\nexit status 0\n")
        after = tree(self.folder, self.name)
        self.assertEqual(self.path.read_bytes(), repaired)
        unharmed = any(line.startswith("clean") for line in before.out.splitlines())
        self.assertEqual((recovered.status, recovered.err), (0 if unharmed else 4, ""), recovered)
        self.assertEqual(host_tree(self.folder / "recovered"), {path: file.contents for path, file in after.items()})
        described = outcome.describe(sound_tree(case.base), after, Container(sound(case.base)).block_size)
        return [self.judge_promise(case, {path: file.contents for path, file in after.items()}), *described]

    def judge_promise(self, case, after):
        """What is left of the files that could be read before."""
        state = self.damaged[at.STATE_FLAGS] if len(self.damaged) > at.STATE_FLAGS else 0
        line, lost = reading.judge(reading.Reading(self.damaged, sound(case.base)), after, state & 3 == 1)
        self.assertEqual(lost, [])
        return line

    def undo(self):
        undone = Run(self.folder, "undo", self.name, "undo")
        self.assertEqual(str(undone), "exit status 0\n")
        self.assertEqual(self.path.read_bytes(), self.damaged)


def chosen(names):
    """The cases of the groups and names given; all when none is."""
    every = {case.__name__: case for cases in GROUPS.values() for case in cases}
    picked = []
    for name in names or GROUPS:
        if name not in GROUPS and name not in every:
            sys.exit(f"corpus: there is no group or case {name}")
        picked += GROUPS[name] if name in GROUPS else [every[name]]
    return picked


def write(folder, cases):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for case in cases:
        (folder / f"{case.__name__}.orb").write_bytes(damaged(case))
        print(f"{case.__name__}.orb: {sentence(case)}")


def main():
    parser = argparse.ArgumentParser(description="Tests check, repair, undo and recover with damaged containers.")
    parser.add_argument("--write", metavar="FOLDER", help="write the damaged containers there instead")
    parser.add_argument("--update", action="store_true", help="write what is expected anew")
    parser.add_argument("names", nargs="*", metavar="GROUP|NAME")
    arguments = parser.parse_args()
    cases = chosen(arguments.names)
    if arguments.write:
        write(arguments.write, cases)
        return 0
    CorpusTest.update = arguments.update
    suite = unittest.TestSuite()
    for case in cases:
        name = f"test_{case.__name__}"
        setattr(CorpusTest, name, lambda self, case=case: self.run_case(case))
        suite.addTest(CorpusTest(name))
    return 0 if unittest.TextTestRunner().run(suite).wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
