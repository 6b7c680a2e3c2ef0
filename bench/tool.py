#!/usr/bin/env python3
"""Times the command line beside its peers on trees of files, and writes the table into docs/performance.md.

  tool.py ORBA FOLDER ROUNDS [DOCUMENT]

Works in FOLDER, which should be on a disk. In each round every contender runs once, in turn, and what they wrote is
synced, outside the time taken, before the next one begins. A ratio is the median of the rounds' ratios.
"""
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import time

BEGIN, END = "<!-- tool: begin -->\n", "<!-- tool: end -->\n"


def make_files(folder, names, largest, seed):
    chance = random.Random(seed)
    for name in names:
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(chance.randbytes(largest if largest >= 1 << 17 else chance.randint(0, largest)))


def deep_names(count):
    """Ten files to a directory, directories up to seven deep."""
    names = []
    for number in range(count):
        digits = f"{number // 10:06o}"
        names.append("/".join("D" + digit for digit in digits) + f"/F{number}.DAT")
    return names


class Bench:
    def __init__(self, orba, folder, rounds):
        self.orba, self.folder, self.rounds = orba, folder, rounds

    def run(self, command):
        """Seconds on the clock; a command that fails ends everything."""
        start = time.monotonic()
        subprocess.run(command, check=True, cwd=self.folder, stdout=subprocess.DEVNULL)
        return time.monotonic() - start

    def clear(self, *names):
        for name in names:
            path = self.folder / name
            if path.is_dir():
                shutil.rmtree(path)
            else:
                path.unlink(missing_ok=True)
        os.sync()

    def format(self, name, block_size="4096", nodes="28672"):
        nodes = str(min(int(nodes), int(block_size) // 64 * 224))
        self.run([self.orba, "format", "-b", block_size, "-n", nodes, name])

    def put(self, tree, block_size="4096"):
        self.clear("card.orb")
        self.format("card.orb", block_size)
        return self.run([self.orba, "put", "-q", tree + "/.", "card.orb"])

    def make_ext2(self, tree, kilobytes):
        self.clear("card.ext2")
        return self.run(["mke2fs", "-q", "-F", "-t", "ext2", "-b", "4096", "-N", "28672", "-d", tree, "card.ext2",
                         f"{kilobytes}k"])

    def get(self):
        self.clear("got")
        return self.run([self.orba, "get", "-q", "card.orb", "got"])

    def pack(self, tree, synced=False):
        self.clear("card.tar")
        seconds = self.run(["tar", "-cf", "card.tar", "-C", tree, "."])
        return seconds + (self.run(["sync", "card.tar"]) if synced else 0)

    def unpack(self, synced):
        self.clear("unpacked")
        (self.folder / "unpacked").mkdir()
        seconds = self.run(["tar", "-xf", "card.tar", "-C", "unpacked"])
        return seconds + (self.run(["sync", "-f", "unpacked"]) if synced else 0)

    def small(self, tree):
        """Rows of one round on a tree of small files."""
        put, ext2 = self.put(tree), self.make_ext2(tree, 65536)
        self.pack(tree)
        get, plain, synced = self.get(), self.unpack(False), self.unpack(True)
        return {"put": (put, "mke2fs -d", ext2), "get": (get, "tar x", plain),
                "get, on the disk": (get, "tar x; sync", synced)}

    def many(self, large, small):
        return {"put": (self.put(large, "8192"), "4 x put of 5,000", 4 * self.put(small, "8192"))}

    def huge(self, tree):
        put, pack, packed = self.put(tree), self.pack(tree, False), self.pack(tree, True)
        get, plain, synced = self.get(), self.unpack(False), self.unpack(True)
        return {"put": (put, "tar c", pack), "put, on the disk": (put, "tar c; sync", packed),
                "get": (get, "tar x", plain), "get, on the disk": (get, "tar x; sync", synced)}

    def table(self):
        make_files(self.folder / "deep", deep_names(5000), 4096, 1)
        make_files(self.folder / "flat", [f"F{n}.DAT" for n in range(5000)], 4096, 2)
        make_files(self.folder / "many", [f"F{n}.DAT" for n in range(20000)], 4096, 3)
        make_files(self.folder / "huge", [f"D{n % 40}/F{n}.DAT" for n in range(4000)], 1 << 18, 4)
        jobs = [("5,000 files of 0 to 4 KB, deep", lambda: self.small("deep")),
                ("5,000 files of 0 to 4 KB, flat", lambda: self.small("flat")),
                ("20,000 files in one directory", lambda: self.many("many", "flat")),
                ("1 GB in 4,000 files", lambda: self.huge("huge"))]
        lines = ["| tree | command | seconds | beside | seconds | ratio |", "| --- | --- | ---: | --- | ---: | ---: |"]
        for name, job in jobs:
            rounds = [job() for _ in range(self.rounds)]
            for command, (_, peer, _) in rounds[0].items():
                ours = statistics.median(each[command][0] for each in rounds)
                theirs = statistics.median(each[command][2] for each in rounds)
                ratio = statistics.median(each[command][0] / each[command][2] for each in rounds)
                lines.append(f"| {name} | {command} | {ours:.2f} | {peer} | {theirs:.2f} | {ratio:.2f} |")
                print(lines[-1], flush=True)
            self.clear("card.orb", "card.ext2", "card.tar", "got", "unpacked")
        return "\n".join(lines) + "\n"


def main():
    orba, folder, rounds = sys.argv[1], pathlib.Path(sys.argv[2]), int(sys.argv[3])
    folder.mkdir(parents=True, exist_ok=True)
    table = Bench(orba, folder, rounds).table()
    shutil.rmtree(folder)
    if len(sys.argv) > 4:
        document = pathlib.Path(sys.argv[4])
        text = document.read_text(encoding="utf-8")
        before, rest = text.split(BEGIN)
        document.write_text(before + BEGIN + f"\nMedians of {rounds} rounds.\n\n" + table + "\n" + END +
                            rest.split(END)[1], encoding="utf-8")


if __name__ == "__main__":
    main()
