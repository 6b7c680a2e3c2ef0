#!/usr/bin/env python3
"""Times check and info of many small containers: a loop of the shell, and one command with one and more jobs.

  fleet.py ORBA SCRATCH PAGE.md COUNT

Every container has a tree of its own in 40 KB; every tenth is marked. Each way is taken three times in turn, and the
median counts. In PAGE the text between the two marks is replaced.
"""
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import time

BEGIN, END = "<!-- fleet: begin -->", "<!-- fleet: end -->"
ROUNDS = 3
STATE_FLAGS = 52  # a byte of the container that holds the mark


def make_containers(orba, folder, count):
    """A few containers of different trees, and as many copies as it takes."""
    models = []
    for number in range(10):
        tree = folder / f"tree{number}"
        for name in range(5 + number):
            place = tree / f"DIR{name % 3}" / f"FILE{name}.BIN"
            place.parent.mkdir(parents=True, exist_ok=True)
            place.write_bytes(os.urandom(500 * (name + 1)))
        models.append(folder / f"model{number}.orb")
        subprocess.run([orba, "create", models[-1], f"{tree}/."], check=True, stdout=subprocess.DEVNULL)
    with open(models[9], "r+b") as marked:
        marked.seek(STATE_FLAGS)
        marked.write(b"\x01")
    (folder / "fleet").mkdir()
    for number in range(count):
        shutil.copyfile(models[number % 10], folder / "fleet" / f"card{number:05}.orb")


def timed(command, folder, status):
    start = time.perf_counter()
    with open(os.devnull, "wb") as out:
        found = subprocess.run(command, cwd=folder, stdout=out, check=False).returncode
    if found != status:
        sys.exit(f"fleet: {command[:3]} ended with {found}, not {status}")
    return time.perf_counter() - start


def main():
    orba, folder, page, count = os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]), \
        int(sys.argv[4])
    make_containers(orba, folder, count)
    fleet = folder / "fleet"
    names = sorted(os.listdir(fleet))
    processors = len(os.sched_getaffinity(0))
    rows = []
    for command, status in (("check", 4), ("info", 0)):
        ways = {"a loop of the shell": (["bash", "-c", f'for f in *.orb; do "$0" {command} "$f"; done; exit {status}',
                                         orba], status)}
        for jobs in sorted({1, 2, processors}):
            ways[f"`--jobs {jobs}`"] = ([orba, command, "--jobs", str(jobs), *names], status)
        times = {way: [] for way in ways}
        for _ in range(ROUNDS):
            for way, (arguments, expected) in ways.items():
                times[way].append(timed(arguments, fleet, expected))
        loop = statistics.median(times["a loop of the shell"])
        for way in ways:
            median = statistics.median(times[way])
            rows.append(f"| `{command}` | {way} | {median:.2f} | {count / median:,.0f} | {median / loop:.2f} |")
            print(rows[-1], flush=True)
    table = "\n".join(["| command | way | seconds | containers a second | beside the loop |",
                       "|---|---|---:|---:|---:|", *rows])
    text = (f"{count:,} containers of 10 to 60 KB in the host's memory, a tenth of them marked; "
            f"{processors} processors, medians of {ROUNDS} rounds.\n\n{table}")
    old = page.read_text(encoding="utf-8")
    page.write_text(re.sub(f"{BEGIN}.*?{END}", lambda _: f"{BEGIN}\n{text}\n{END}", old, flags=re.DOTALL),
                    encoding="utf-8")


if __name__ == "__main__":
    main()
