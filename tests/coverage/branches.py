#!/usr/bin/env python3
"""Lists the lines of src/ with branches that the tests take one way only, and compares them with those that are known.

  branches.py GCC CLANG   gcovr's report and llvm-cov's, in JSON

untaken.txt keeps the known ones, each with its reason. Exit status 1 where there are others, and where one of them is
taken after all.
"""
import collections
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
KNOWN = pathlib.Path(__file__).parent / "untaken.txt"
COMPILERS = ("gcc", "clang")
REASON = re.compile(r"  (gcc|clang) (\d+)(?:, (clang) (\d+))?: \S.*")


def of_gcc(report):
    """(path, line, branches, those taken) of each line with branches. A condition with two outcomes is two branches.

    Not of headers: there it counts a branch once for each object that has it, and tells no object's from another's.
    """
    for file in report["files"]:
        if file["file"].endswith(".h"):
            continue
        for line in file["lines"]:
            branches = [branch for branch in line["branches"] if not branch["throw"]]
            if branches and not line["gcovr/noncode"]:
                yield file["file"], line["line_number"], len(branches), sum(branch["count"] > 0 for branch in branches)


def of_clang(report):
    """The same. A branch is [line, column, line, column, times true, times false, ...], one for each instantiation."""
    for file in report["data"][0]["files"]:
        path = pathlib.Path(file["filename"]).resolve()
        if ROOT / "src" not in path.parents:
            continue
        times = collections.defaultdict(lambda: [0, 0])
        for branch in file["branches"]:
            place = times[tuple(branch[:4])]
            place[0] += branch[4]
            place[1] += branch[5]
        lines = collections.defaultdict(list)
        for place, counts in times.items():
            lines[place[0]] += counts
        for line, counts in lines.items():
            yield path.relative_to(ROOT).as_posix(), line, len(counts), sum(count > 0 for count in counts)


def known():
    """Untaken branches by compiler and "PATH: TEXT OF THE LINE". Lines that read the same are counted together."""
    listed = {compiler: collections.Counter() for compiler in COMPILERS}
    key = None
    for line in KNOWN.read_text(encoding="utf-8").splitlines():
        reason = REASON.fullmatch(line)
        if reason and key:
            for compiler, count in zip(reason.groups()[::2], reason.groups()[1::2]):
                if compiler:
                    listed[compiler][key] += int(count)
        elif line.startswith("src/"):
            key = line
        elif line and not line.startswith(("#", "    ")):
            sys.exit(f"branches: untaken.txt: what is this? {line}")
    return listed


def judge(compiler, report, listed):
    """Prints what is not as the list says, and returns whether there is nothing."""
    lines = list({"gcc": of_gcc, "clang": of_clang}[compiler](report))
    count, taken = sum(line[2] for line in lines), sum(line[3] for line in lines)
    if count == 0:
        sys.exit(f"branches: {compiler} reports none")
    untaken, places = collections.Counter(), collections.defaultdict(list)
    for path, number, all_of_line, taken_of_line in sorted(lines):
        if taken_of_line < all_of_line:
            text = (ROOT / path).read_text(encoding="utf-8").splitlines()[number - 1].strip()
            untaken[f"{path}: {text}"] += all_of_line - taken_of_line
            places[f"{path}: {text}"].append(str(number))
    wrong = [key for key in sorted(untaken.keys() | listed.keys()) if untaken[key] != listed[key]]
    for key in wrong:
        where = f" (line {', '.join(places[key])})" if key in places else ""
        print(f"{compiler}: {untaken[key]} not taken, {listed[key]} known: {key}{where}")
    print(f"{compiler}: {taken} of {count} branches of src/ taken, {100 * taken / count:.1f} %; of the others "
          f"{sum((untaken & listed).values())} are known")
    return not wrong


def main():
    listed = known()
    reports = [json.loads(pathlib.Path(path).read_text(encoding="utf-8")) for path in sys.argv[1:3]]
    good = [judge(compiler, report, listed[compiler]) for compiler, report in zip(COMPILERS, reports)]
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
