#!/usr/bin/env python3
"""Times export and import beside tar, on files of this machine, and puts the medians into the page.

  archives.py ORBA PAGE.md [ROUNDS]     works in the current folder

The trees are in the host's memory. export and tar write to standard output, led into a file; import has everything on
the disk at its end, so tar's trees are synced as well. In PAGE the text between the two marks is replaced.
"""
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import time

BEGIN, END = "<!-- archives: begin -->", "<!-- archives: end -->"
FILES = 3000


def run(command, **options):
    subprocess.run(command, check=True, **options)


def timed(command, **options):
    start = time.perf_counter()
    run(command, **options)
    return time.perf_counter() - start


def copy_tree(target):
    """The first files below /usr/include, links left out; how many bytes they have."""
    count = size = 0
    for folder, names, files in os.walk("/usr/include"):
        names.sort()
        for name in sorted(files):
            source = pathlib.Path(folder, name)
            if count == FILES or source.is_symlink():
                continue
            place = target / source.relative_to("/usr/include")
            place.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, place)
            count, size = count + 1, size + source.stat().st_size
    if count < FILES:
        sys.exit(f"archives: there are only {count} files below /usr/include")
    return size


def round_of(orba, times):
    """One time for each row; leaves the archives and trees for the next round to overwrite."""
    def note(row, who, command, **options):
        times.setdefault(row, {}).setdefault(who, []).append(timed(command, **options))

    for form, letter in (("tar", ""), ("tar.gz", "z")):
        with open(f"orba.{form}", "wb") as out:
            note(f"write {form}", "orba", [orba, "export", "--format", form, "card.orb"], stdout=out)
        with open(f"tar.{form}", "wb") as out:
            note(f"write {form}", "tar", ["tar", f"c{letter}", "-C", "got", "."], stdout=out)
        pathlib.Path("new.orb").unlink(missing_ok=True)
        run([orba, "format", "-b", "2048", "new.orb"])
        note(f"read {form}", "orba", [orba, "import", "-q", f"orba.{form}", "new.orb"])
        shutil.rmtree("out", ignore_errors=True)
        os.mkdir("out")
        note(f"read {form}", "tar", ["sh", "-c", f"tar x{letter}f tar.{form} -C out && sync -f out"])
        run([orba, "verify", "-q", "new.orb", "got"])
        run([orba, "verify", "-q", "card.orb", "out"])


def main():
    orba, page = os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
    rounds = int(sys.argv[3]) if len(sys.argv) > 3 else 9
    for name in ("tree", "got", "card.orb"):
        shutil.rmtree(name, ignore_errors=True)
    pathlib.Path("card.orb").unlink(missing_ok=True)
    size = copy_tree(pathlib.Path("tree"))
    run([orba, "create", "-q", "--rename", "-b", "2048", "card.orb", "tree/."], stdout=subprocess.DEVNULL)
    run([orba, "get", "-q", "card.orb", "got"])
    times = {}
    for _ in range(rounds):
        round_of(orba, times)
    lines = [BEGIN, f"{FILES:,} files with {size / 1e6:.1f} MB, times in milliseconds, medians of {rounds} rounds:", "",
             "| | `orba export`, `import` | `tar` | ratio |", "| --- | ---: | ---: | ---: |"]
    for row, both in times.items():
        mine, theirs = (statistics.median(both[who]) * 1000 for who in ("orba", "tar"))
        lines.append(f"| {row} | {mine:.0f} | {theirs:.0f} | {mine / theirs:.1f} |")
    text = "\n".join([*lines, END])
    print(text)
    old = page.read_text(encoding="utf-8")
    new, found = re.subn(re.escape(BEGIN) + ".*" + re.escape(END), lambda _: text, old, flags=re.DOTALL)
    if found != 1:
        sys.exit(f"archives: {page} has no place for the table")
    page.write_text(new, encoding="utf-8")


if __name__ == "__main__":
    main()
