#!/usr/bin/env python3
"""Prints what a run of the workloads measured and puts it into the page.

  report.py RESULTS.json PAGE.md CHART.svg

RESULTS is what Google Benchmark writes. In PAGE the text between the two marks is replaced.
"""
import collections
import json
import math
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys

BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"
PEERS = ["ext2", "sqlite-off", "sqlite-wal"]
TITLES = {
    "orba-file": "orba", "orba-aligned": "orba, aligned", "orba-memory": "orba, in memory", "ext2": "ext2",
    "sqlite-off": "SQLite, no journal", "sqlite-wal": "SQLite, WAL", "floor-file": "floor, file",
    "floor-memory": "floor, memory"}
COLOURS = {
    "orba-file": "#c0392b", "orba-aligned": "#8e44ad", "orba-memory": "#e59866", "ext2": "#1f618d",
    "sqlite-off": "#1e8449", "sqlite-wal": "#82c09a", "floor-file": "#555555", "floor-memory": "#aaaaaa"}
OPERATIONS = {
    "write-64K": "append 64 KiB", "write-4K": "append 4 KiB", "write-100": "append 100 bytes",
    "read-64K": "read 64 KiB in order", "read-4K": "read 4 KiB in order", "random-read": "read 4 KiB anywhere",
    "random-overwrite": "overwrite 4 KiB anywhere", "create": "create an empty file", "look-up": "look a file up",
    "enumerate": "list a file", "small-files": "create a file of 2,000 bytes", "delete": "delete a file of 2,000 bytes",
    "rename": "rename a file", "format-mount": "format, mount, unmount",
    "mount-full": "mount and unmount a full volume", "delete-64M": "delete a file of 64 MiB"}


def load(path):
    """Workload -> who -> the medians of what was measured."""
    samples = collections.defaultdict(lambda: collections.defaultdict(list))
    for run in json.loads(pathlib.Path(path).read_text(encoding="utf-8"))["benchmarks"]:
        if run["run_type"] == "iteration":
            workload, who = run["name"].split("/")[:2]
            samples[workload][who].append(run)
    if set(samples) != set(OPERATIONS):
        sys.exit(f"report: not all workloads are there: {sorted(set(OPERATIONS) ^ set(samples))}")
    measured = ["us_per_op", "host_calls", "reads", "writes", "seeks"]
    return {workload: {who: {name: statistics.median(run[name] for run in samples[workload][who]) for name in measured}
                       for who in samples[workload]} for workload in OPERATIONS}


def number(value):
    """Three digits that mean something."""
    if value >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "| --- |" + " ---: |" * (len(head) - 1)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def best_peer(times):
    return min(PEERS, key=lambda peer: times[peer]["us_per_op"])


def ratio_rows(results):
    for workload, by_whom in results.items():
        orba, floor, best = by_whom["orba-file"], by_whom["floor-file"], best_peer(by_whom)
        yield [OPERATIONS[workload], number(orba["us_per_op"]),
               f'{orba["us_per_op"] / by_whom[best]["us_per_op"]:.2f} ({TITLES[best]})',
               f'{orba["us_per_op"] / floor["us_per_op"]:.2f}',
               number(orba["reads"]), number(orba["writes"]), number(orba["seeks"]), number(orba["host_calls"])]


def time_rows(results):
    for workload, by_whom in results.items():
        yield [OPERATIONS[workload]] + [number(by_whom[who]["us_per_op"]) if who in by_whom else "" for who in TITLES]


def call_rows(results):
    who = ["orba-file", "floor-file"] + PEERS
    for workload, by_whom in results.items():
        yield [OPERATIONS[workload]] + [number(by_whom[each]["host_calls"]) for each in who]


def output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


def package_version(name):
    return output("dpkg-query", "-W", "-f", "${source:Upstream-Version}", name)


def machine():
    text = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    processor = re.search(r"model name\s*: (.*)", text)
    files = output("findmnt", "-n", "-o", "FSTYPE", "-T", ".")
    kernel = ".".join(platform.release().split(".")[:2])
    return (f"{os.cpu_count()} processors ({processor[1] if processor else platform.machine()}), Linux {kernel}, "
            f"{files}; g++ {output('g++', '-dumpfullversion')}, libext2fs {package_version('libext2fs2')}, "
            f"SQLite {package_version('libsqlite3-0')}")


def page_text(results, rounds, chart):
    return "\n".join([
        BEGIN, "",
        f"Medians of {rounds} rounds on {machine()}.", "",
        f"![Processor time of each operation, in microseconds]({chart})", "",
        "orba on a host file: microseconds an operation, how many times as long the best peer and the floor take for "
        "it,", "and what it costs in container calls and in system calls.", "",
        *table(["operation", "us", "to the best peer", "to the floor", "reads", "writes", "seeks", "system calls"],
               ratio_rows(results)), "",
        "Everybody, in microseconds an operation:", "",
        *table(["operation"] + list(TITLES.values()), time_rows(results)), "",
        "System calls an operation:", "",
        *table(["operation"] + [TITLES[who] for who in ["orba-file", "floor-file"] + PEERS], call_rows(results)), "",
        END])


def chart_text(results):
    """A row for each workload, a dot for everybody on a logarithmic scale."""
    left, top, row, width = 250, 92, 30, 680
    times = [entry["us_per_op"] for by_whom in results.values() for entry in by_whom.values()]
    low, high = math.floor(math.log10(min(times))), math.ceil(math.log10(max(times)))
    bottom = top + row * len(results)

    def place(value):
        return left + width * (math.log10(value) - low) / (high - low)

    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {left + width + 40} {bottom + 52}" '
             'font-family="sans-serif" font-size="13">',
             "<title>Processor time of each operation</title>",
             '<rect width="100%" height="100%" fill="#ffffff"/>',
             '<text x="20" y="28" font-size="17">Processor time of each operation, in microseconds '
             "(further left is faster)</text>"]
    x = 20
    for who, title in TITLES.items():
        lines.append(f'<circle cx="{x + 6}" cy="54" r="6" fill="{COLOURS[who]}"/>'
                     f'<text x="{x + 18}" y="59">{title}</text>')
        x += 38 + 7.2 * len(title)
    for exponent in range(low, high + 1):
        at = place(10 ** exponent)
        lines.append(f'<line x1="{at:.1f}" y1="{top - 8}" x2="{at:.1f}" y2="{bottom}" stroke="#dddddd"/>'
                     f'<text x="{at:.1f}" y="{bottom + 20}" text-anchor="middle">{10.0 ** exponent:,.7g}</text>')
    for index, (workload, by_whom) in enumerate(results.items()):
        y = top + row * index + row / 2
        lines.append(f'<text x="{left - 16}" y="{y + 5:.0f}" text-anchor="end">{OPERATIONS[workload]}</text>'
                     f'<line x1="{left}" y1="{y:.0f}" x2="{left + width}" y2="{y:.0f}" stroke="#eeeeee"/>')
        for who in reversed(TITLES):
            if who in by_whom:
                lines.append(f'<circle cx="{place(by_whom[who]["us_per_op"]):.1f}" cy="{y:.0f}" '
                             f'r="{7 if who == "orba-file" else 5}" fill="{COLOURS[who]}"/>')
    lines.append(f'<text x="{left + width / 2:.0f}" y="{bottom + 42}" text-anchor="middle">microseconds, '
                 "each line ten times the one before</text>")
    return "\n".join(lines + ["</svg>", ""])


def main():
    results_path, page_path, chart_path = map(pathlib.Path, sys.argv[1:])
    results = load(results_path)
    text = json.loads(results_path.read_text(encoding="utf-8"))["benchmarks"]
    rounds = max(run["repetitions"] for run in text)
    page = page_path.read_text(encoding="utf-8")
    before, _, rest = page.partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        sys.exit(f"report: {page_path} has no place for the numbers")
    page_path.write_text(before + page_text(results, rounds, chart_path.name) + after, encoding="utf-8")
    chart_path.write_text(chart_text(results), encoding="utf-8")

    print(f'{"operation":32} {"us":>9}  {"to the best peer":>26}  {"to the floor":>12}  '
          f'{"reads":>8} {"writes":>8} {"seeks":>8} {"system calls":>12}')
    for name, us, peer, floor, reads, writes, seeks, calls in ratio_rows(results):
        print(f"{name:32} {us:>9}  {peer:>26}  {floor:>12}  {reads:>8} {writes:>8} {seeks:>8} {calls:>12}")
    print(f"bench: all numbers in {page_path}, the chart in {chart_path}")


if __name__ == "__main__":
    main()
