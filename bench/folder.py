#!/usr/bin/env python3
"""Times what goes through a mounted container beside `orba put` and `orba get`, and puts the table into the page.

  folder.py ORBA PAGE.md [ROUNDS]     works in the current folder; leaves nothing there

In PAGE the text between the two marks is replaced. All take turns within a round; each time is from the command's
start to its end, what it wrote being on the disk then, and the host's own memory of files is warm.
"""
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

BEGIN, END = "<!-- folder: begin -->", "<!-- folder: end -->"
LARGE = 256 << 20
SMALL, SIZE = 1000, 2000


def run(*command):
    subprocess.run([str(word) for word in command], check=True, stdout=subprocess.DEVNULL)


def timed(samples, name, *command):
    start = time.monotonic()
    run(*command)
    samples.setdefault(name, []).append(time.monotonic() - start)


def fresh(orba):
    pathlib.Path("card.orb").unlink(missing_ok=True)
    run(orba, "format", "card.orb")


def one_round(orba, samples):
    fresh(orba)
    timed(samples, "put large", orba, "put", "-q", "large", "card.orb:/LARGE")
    timed(samples, "get large", orba, "get", "-q", "-f", "card.orb:/LARGE", "out")
    fresh(orba)
    run(orba, "mount", "card.orb", "mnt")
    timed(samples, "cp large in", "cp", "large", "mnt/LARGE")
    run(orba, "umount", "mnt")
    run(orba, "mount", "card.orb", "mnt")
    timed(samples, "cp large out", "cp", "mnt/LARGE", "out")
    timed(samples, "cp large out again", "cp", "mnt/LARGE", "out")
    run("cmp", "large", "mnt/LARGE")
    run(orba, "umount", "mnt")
    fresh(orba)
    timed(samples, "put small", orba, "put", "-q", "-r", "small", "card.orb:/")
    timed(samples, "get small", orba, "get", "-q", "-r", "-f", "card.orb:/SMALL", "many")
    fresh(orba)
    timed(samples, "put small each", orba, "put", "-q", "-r", "--sync=each", "small", "card.orb:/")
    fresh(orba)
    run(orba, "mount", "card.orb", "mnt")
    timed(samples, "cp small in", "cp", "-r", "small", "mnt/SMALL")
    timed(samples, "cp small out", "cp", "-r", "mnt/SMALL", "copy")
    timed(samples, "find", "find", "mnt", "-size", "+1")
    run(orba, "umount", "mnt")
    for name in ("many", "copy"):
        shutil.rmtree(name)


def make(folder):
    os.chdir(folder)
    chance = random.Random(1)
    pathlib.Path("large").write_bytes(b"".join(chance.randbytes(1 << 20) for _ in range(LARGE >> 20)))
    for name in ("small", "mnt"):
        pathlib.Path(name).mkdir()
    for number in range(SMALL):
        pathlib.Path(f"small/F{number:04}").write_bytes(chance.randbytes(SIZE))


def report(samples, rounds, load):
    median = {name: statistics.median(times) for name, times in samples.items()}

    def rate(name):
        return f"{LARGE / median[name] / 1e6:,.0f} MB/s"

    def each(name):
        return f"{median[name] / SMALL * 1e6:,.0f} us"

    rows = [("a file of 256 MiB, in", rate("put large"), rate("cp large in")),
            ("the same, out", rate("get large"), rate("cp large out")),
            ("out again, from the kernel's memory", "", rate("cp large out again")),
            ("1,000 files of 2,000 bytes, in: each",
             f"{each('put small')}; {each('put small each')} with `--sync=each`", each("cp small in")),
            ("the same, out: each", each("get small"), each("cp small out")),
            ("`find` by size: each", "", each("find"))]
    lines = ["| | `orba put`, `get` | through the folder |", "| --- | ---: | ---: |"]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    busy = f", while other work kept {load:.0f} processes waiting" if load >= 1 else ""
    return f"Medians of {rounds} rounds{busy}.\n\n" + "\n".join(lines)


def main():
    orba, page = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    text = page.read_text(encoding="utf-8")
    if text.count(BEGIN) != 1 or text.count(END) != 1:
        sys.exit(f"{page}: the marks are not there")
    samples = {}
    load = os.getloadavg()[0]
    with tempfile.TemporaryDirectory(dir=".") as folder:
        back = pathlib.Path.cwd()
        make(folder)
        try:
            for _ in range(rounds):
                one_round(orba, samples)
        finally:
            subprocess.run(["fusermount3", "-uz", "mnt"], stderr=subprocess.DEVNULL, check=False)
            os.chdir(back)
    table = report(samples, rounds, load)
    print(table)
    before, after = text.split(BEGIN)[0], text.split(END)[1]
    page.write_text(f"{before}{BEGIN}\n\n{table}\n\n{END}{after}", encoding="utf-8")


if __name__ == "__main__":
    main()
