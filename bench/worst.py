#!/usr/bin/env python3
"""The worst containers known, each at one, two and four times its size: how many seconds of the processor `orba check`,
`orba repair` and `orba recover` take. Work is to be in proportion to the size; what it comes to is four times as much
or less for the largest, and more than eight times makes the exit status 1.

    worst.py ORBA FOLDER [NAME...]     works in FOLDER, which must exist; some cases alone where names are given
"""
import pathlib
import resource
import struct
import subprocess
import sys

BLOCK = 8192
NODES_PER_BLOCK = BLOCK // 64
ENTRIES_PER_BLOCK = BLOCK // 32
SLOTS = BLOCK // 4
STAMP = struct.pack("<H5Bx", 2026, 1, 2, 3, 4, 5)
FILE, DIRECTORY, ROOT = 0, 8, 14
MOST = 8  # times as long for four times the size
SHORT = 0.25  # seconds, below which starting the program counts for more than the work


class Container:
    """Nodes 1 to `count`, all in use, and the blocks that are added to it."""

    def __init__(self, count):
        self.count = count
        self.nodes = [b""] * (count + 1)
        self.blocks = []
        self.bitmap = bytearray(b"\xff" * ((count + 63) // 64 * 8))
        self.first = self.blocks_of_nodes() + 1

    def blocks_of_nodes(self):
        return (self.count + NODES_PER_BLOCK - 1) // NODES_PER_BLOCK

    def add(self, contents=b""):
        """A block's number."""
        self.blocks.append(contents.ljust(BLOCK, b"\0"))
        return self.first + len(self.blocks) - 1

    def add_words(self, words):
        return self.add(struct.pack(f"<{len(words)}I", *words))

    def map(self, blocks):
        """The fields of a record that lead to these blocks."""
        direct, rest = blocks[:6], blocks[6:]
        indirect = self.add_words(rest[:SLOTS]) if rest else 0
        rest = rest[SLOTS:]
        second = [self.add_words(rest[at:at + SLOTS]) for at in range(0, len(rest), SLOTS)]
        return direct + [0] * (6 - len(direct)) + [indirect, self.add_words(second) if second else 0]

    def put(self, number, attributes, size, fields=()):
        self.bitmap[(number - 1) // 8] &= ~(0x80 >> (number - 1) % 8)
        self.nodes[number] = struct.pack("<4sHH8sI12x8I", b"INO1", number, attributes, STAMP, size,
                                         *(list(fields) + [0] * 8)[:8])

    def directory(self, number, parent, entries):
        """Entries: pairs of a node and a name."""
        every = [(number, "."), (parent, ".."), *entries]
        packed = [struct.pack("<H30s", node, name.encode()) for node, name in every]
        blocks = [self.add(b"".join(packed[at:at + ENTRIES_PER_BLOCK]))
                  for at in range(0, len(packed), ENTRIES_PER_BLOCK)]
        self.put(number, ROOT if number == 1 else DIRECTORY, 32 * len(every), self.map(blocks))

    def bytes(self):
        size = len(self.bitmap)
        header = struct.pack("<4s4s12I", b"ORBA", b"1.0 ", 128, 128, 896, 1024, size, 1024 + size, 0, 1024 + size,
                             BLOCK, 13, 0, 0).ljust(128, b"\0")
        blocks = self.blocks_of_nodes()
        table = struct.pack(f"<{blocks}I", *range(1, blocks + 1)).ljust(896, b"\0")
        for number in range(1, self.count + 1):
            self.nodes[number] = self.nodes[number] or struct.pack("<4sH58x", b"INO1", number)
        nodes = b"".join(self.nodes[1:]).ljust(blocks * BLOCK, b"\0")
        return header + table + bytes(self.bitmap) + nodes + b"".join(self.blocks)


# ---- The cases: of a number of nodes, or of blocks ------------------------------------------------------------------


def equal_names(count):
    """one directory in which all names are equal"""
    c = Container(count)
    c.directory(1, 1, [(number, "SAME") for number in range(2, count + 1)])
    for number in range(2, count + 1):
        c.put(number, FILE, 0)
    return c.bytes()


def one_block_for_all(count):
    """files without a name, all with the same block"""
    c = Container(count)
    c.directory(1, 1, [])
    block = c.add(b"x" * BLOCK)
    for number in range(2, count + 1):
        c.put(number, FILE, BLOCK, [block])
    return c.bytes()


def crossed_maps(count):
    """large files that all go through the same block-map blocks"""
    c = Container(count)
    c.directory(1, 1, [(number, f"F{number}") for number in range(2, count + 1)])
    data = c.add(b"x" * BLOCK)
    second = c.add_words([data] * SLOTS)
    double = c.add_words([second] * SLOTS)
    size = (c.first + len(c.blocks)) * BLOCK  # what one file may have
    for number in range(2, count + 1):
        c.put(number, FILE, size, [data] * 6 + [second, double])
    return c.bytes()


def crossed_directories(count):
    """directories that all have the same blocks of entries, which refer to all of them"""
    c = Container(count)
    names = [(number, f"D{number}") for number in range(2, count + 1)]
    c.directory(1, 1, names)
    shared = struct.unpack_from("<8I", c.nodes[1], 32)
    for number in range(2, count + 1):
        c.put(number, DIRECTORY, 32 * (count + 1), shared)
    return c.bytes()


def one_node_for_all_names(count):
    """a directory in which all names refer to one file"""
    c = Container(count)
    c.directory(1, 1, [(2, f"F{number}") for number in range(2, count + 1)])
    c.put(2, FILE, 0)
    return c.bytes()


def more_names_than_nodes(count):
    """directories in which all names refer to one file, and no node is left for a copy"""
    c = Container(count)
    for number in range(2, 18):
        c.directory(number, 1, [(count, f"F{name}") for name in range(count)])
    c.directory(1, 1, [(number, f"D{number}") for number in range(2, 18)])
    for number in range(18, count):
        c.put(number, FILE, 0)
    c.put(count, FILE, 10, [c.add(b"x")])
    return c.bytes()


def numbers_one_bit_away(count):
    """names that refer to the next file's node, so that every second one has two and the others none"""
    c = Container(count)
    c.directory(1, 1, [(number | 1, f"F{number}") for number in range(2, count)])
    for number in range(2, count):
        c.put(number, FILE, 10, [c.add(b"x")] if number < 200 else [])
    return c.bytes()


def one_large_directory(count):
    """a directory of files that the bitmap calls free"""
    c = Container(count)
    c.directory(1, 1, [(number, f"F{number}") for number in range(2, count + 1)])
    for number in range(2, count + 1):
        c.put(number, FILE, 0)
    c.bitmap[1:] = b"\xff" * (len(c.bitmap) - 1)
    return c.bytes()


def dangling_names(count):
    """a directory whose names refer to nodes that are not there, and as many nodes without a name"""
    c = Container(count)
    half = count // 2
    c.directory(1, 1, [(half + number, f"F{number}") for number in range(2, half)])
    for number in range(2, half):
        c.put(number, FILE, 10, [c.add(b"x") if number < 40 else 0])
    return c.bytes()


def chain_of_directories(count):
    """directories each in the one before, without the first one's name"""
    c = Container(count)
    c.directory(1, 1, [])
    for number in range(2, count + 1):
        c.directory(number, max(number - 1, 1), [(number + 1, "D")] if number < count else [])
    return c.bytes()


def ring_of_directories(count):
    """directories each in the one before, and the first in the last"""
    c = Container(count)
    c.directory(1, 1, [])
    for number in range(2, count + 1):
        c.directory(number, number - 1 if number > 2 else count, [(number + 1 if number < count else 2, "D")])
    return c.bytes()


def everything_leaked(count):
    """blocks that nothing refers to, each one's words block numbers"""
    c = Container(128)
    c.directory(1, 1, [])
    for _ in range(count):
        c.add_words(range(2, 600))
    return c.bytes()


def erased_beginning(count):
    """files in directories, and zeros over header, table, bitmap and the root"""
    c = Container(count)
    directories = max(count // 256, 1)
    c.directory(1, 1, [(2 + i, f"D{i}") for i in range(directories)])
    files = list(range(2 + directories, count + 1))
    for i in range(directories):
        c.directory(2 + i, 1, [(number, f"F{number}") for number in files[i::directories]])
    for number in files:
        c.put(number, FILE, 0)
    whole = c.bytes()
    erased = 1024 + len(c.bitmap) + 64
    return bytes(erased) + whole[erased:]


CASES = {
    equal_names: 7168, one_node_for_all_names: 7168, more_names_than_nodes: 7168, numbers_one_bit_away: 7168,
    one_block_for_all: 7168, crossed_maps: 7168, crossed_directories: 1792, one_large_directory: 7168,
    dangling_names: 7168, chain_of_directories: 7168, ring_of_directories: 7168, everything_leaked: 4096,
    erased_beginning: 7168,
}


def run(folder, *command):
    """Seconds of the processor."""
    start = resource.getrusage(resource.RUSAGE_CHILDREN)
    done = subprocess.run(command, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False,
                          timeout=1200)
    if done.returncode not in (0, 1, 4):
        sys.exit(f"worst: {' '.join(command)}: exit status {done.returncode}\n{done.stderr.decode()}")
    end = resource.getrusage(resource.RUSAGE_CHILDREN)
    return end.ru_utime + end.ru_stime - start.ru_utime - start.ru_stime


def times(orba, folder, contents):
    path = folder / "worst.orb"
    path.write_bytes(contents)
    taken = [run(folder, orba, "check", "-q", "worst.orb")]
    taken.append(run(folder, orba, "recover", "worst.orb", "recovered"))
    subprocess.run(["rm", "-rf", "recovered"], cwd=folder, check=True)  # deeper than shutil goes
    taken.append(run(folder, orba, "repair", "worst.orb"))
    path.unlink()
    return taken


def main():
    orba, folder = str(pathlib.Path(sys.argv[1]).resolve()), pathlib.Path(sys.argv[2])
    steep = []
    print(f"{'':22}{'':9}{'MiB':>8}{'1x':>9}{'2x':>9}{'4x':>9}   seconds; 2x/1x, 4x/2x")
    for case, count in CASES.items():
        if sys.argv[3:] and case.__name__ not in sys.argv[3:]:
            continue
        made = [case(count * scale) for scale in (1, 2, 4)]
        measured = [times(orba, folder, contents) for contents in made]
        for step, name in enumerate(("check", "recover", "repair")):
            one, two, four = (seconds[step] for seconds in measured)
            print(f"{case.__name__ if step == 0 else '':22}{name:9}{len(made[-1]) / (1 << 20):8.1f}"
                  f"{one:9.2f}{two:9.2f}{four:9.2f}   {two / one:.1f}, {four / two:.1f}", flush=True)
            if four > SHORT and four > MOST * one:
                steep.append(f"{case.__name__}, {name}")
    if steep:
        sys.exit("more than in proportion: " + "; ".join(steep))


if __name__ == "__main__":
    main()
