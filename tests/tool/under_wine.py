#!/usr/bin/env python3
"""Runs all end-to-end tests with orba.exe under Wine, two at a time, as script/test-device does.

  WINEPREFIX=build/wine WINEDEBUG=-all under_wine.py dist/win64/orba.exe build/device-win64/hold.exe SCRATCH

A wineserver that stays (wineserver -p) and a prefix that is up to date (wine wineboot) have to be there: the first
program would wait for them otherwise, and hand them its streams.

Prints each test that fails, how many passed, and the tests about what Windows does not have with the reason of each
kind. Exits with 1 when one failed. SCRATCH.tests lists them all.
"""
import collections
import multiprocessing
import os
import pathlib
import sys
import time
import unittest

PROCESSES = 2


def tests_in(suite):
    for test in suite:
        if isinstance(test, unittest.TestSuite):
            yield from tests_in(test)
        else:
            yield test


def run(name):
    """One test: its name, what became of it, the reason or the report, and the seconds that it took."""
    begin = time.monotonic()
    verdict, report = judge(name)
    return name, verdict, report, time.monotonic() - begin


def judge(name):
    """Wine itself, under load, ends a program once in some ten thousand with status 1 and without a word, as orba never
    ends where its output is read. The test is run again then; what is printed says so."""
    again = ""
    while True:
        test, = tests_in(unittest.defaultTestLoader.loadTestsFromName(name))
        result = unittest.TestResult()
        test.run(result)
        if result.wasSuccessful():
            break
        reports = [report for _, report in result.failures + result.errors]
        arguments, last = test.last_run or ((), None)
        if again or last is None or (last.status, last.raw, last.err) != (1, b"", ""):
            return "failed", "\n".join([*reports, f"The last program: {arguments}: {last}"])
        again = f"a program ended by Wine: {' '.join(map(str, arguments))}"
    if result.skipped:
        return "linux", result.skipped[0][1]
    return "passed", again


def main():
    if len(sys.argv) != 4 or "WINEPREFIX" not in os.environ:
        sys.exit(__doc__)
    program, hold, scratch = map(os.path.abspath, sys.argv[1:])
    os.makedirs(scratch, exist_ok=True)
    os.environ.update(ORBA=program, ORBA_HOLD=hold, ORBA_SCRATCH=scratch)
    folder = pathlib.Path(__file__).parent
    sys.path.insert(0, str(folder))
    found = unittest.defaultTestLoader.discover(str(folder), "*_test.py")
    names = [test.id() for test in tests_in(found)]
    results = []
    with multiprocessing.Pool(PROCESSES) as pool, open(scratch + ".tests", "w", encoding="utf-8") as log:
        for result in pool.imap_unordered(run, names):
            results.append(result)
            name, verdict, report, seconds = result
            print(f"{verdict:6} {seconds:6.1f} s  {name}", file=log, flush=True)
            if verdict == "failed":
                print(f"FAILED {name}\n{report}", flush=True)
            elif verdict == "passed" and report:
                print(f"passed when run again: {name}: {report}", flush=True)
    counts = collections.Counter(verdict for _, verdict, *_ in results)
    reasons = collections.Counter(report for _, verdict, report, _ in results if verdict == "linux")
    print(f"orba.exe: {counts['passed']} tests passed, {counts['failed']} failed, {counts['linux']} are about what "
          "Linux alone has:")
    for reason, count in reasons.most_common():
        print(f"  {count:3}  {reason}")
    print("the slowest:")
    for name, _, _, seconds in sorted(results, key=lambda result: -result[3])[:5]:
        print(f"  {seconds:5.1f} s  {name}")
    return 1 if counts["failed"] or not counts["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
