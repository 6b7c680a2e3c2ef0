"""Sound containers, made with the real orba, and the places in them that a case breaks.

Knows the layout just well enough to find a field by what it means: the slot for logical block 7 of a file, the entry of
a name, the second record of the free chain. All places are looked up in the sound container, so that one damage does
not hide the place of the next.
"""
import functools
import os
import pathlib
import random
import struct
import subprocess
import tempfile

ORBA = os.environ.get("ORBA", "orba")

STAMP = struct.pack("<H5B", 2026, 1, 2, 3, 4, 5)  # the time of every node, instead of the time of the test

# The header, and where the regions behind it begin.
HEADER_SIZE, TABLE_OFFSET, TABLE_SIZE, BITMAP_OFFSET, BITMAP_SIZE = 8, 12, 16, 20, 24
RESERVED_OFFSET, RESERVED_SIZE, DATA_OFFSET, BLOCK_SIZE, BLOCK_SHIFT = 28, 32, 36, 40, 44
CHAIN_HEAD, STATE_FLAGS, HEADER_RESERVED = 48, 52, 56
TABLE, BITMAP = 128, 1024

# In a node record.
NODE_SIZE = 64
NUMBER, ATTRIBUTES, TIME, TIME_RESERVED, SIZE, NODE_RESERVED, DIRECT, INDIRECT, DOUBLE = 4, 6, 8, 15, 16, 20, 32, 56, 60

ENTRY_SIZE = 32

# In a free-chain record.
NEXT, COUNT, ENTRIES = 4, 8, 12


class Container:
    """The bytes of one container, to be changed at will. Numbers of blocks and nodes are plain integers, places are
    byte offsets; files and directories go by their paths in the sound container."""

    def __init__(self, sound):
        self.sound = bytes(sound)
        self.data = bytearray(sound)
        self.block_size = self.was(BLOCK_SIZE)
        self.blocks = (len(sound) - self.was(DATA_OFFSET)) // self.block_size
        self.slots = self.block_size // 4
        self.entries_per_block = self.block_size // ENTRY_SIZE
        self.nodes_per_block = self.block_size // NODE_SIZE

    # ---- Reading the sound container

    def was(self, offset):
        """The word at `offset`."""
        return struct.unpack_from("<I", self.sound, offset)[0]

    def was_half(self, offset):
        return struct.unpack_from("<H", self.sound, offset)[0]

    # ---- Places

    def block(self, number):
        return self.was(DATA_OFFSET) + (number - 1) * self.block_size

    def record(self, node):
        """Of a node, by its path or number."""
        number = node if isinstance(node, int) else self.node(node)
        home = self.was(TABLE + 4 * ((number - 1) // self.nodes_per_block))
        return self.block(home) + (number - 1) % self.nodes_per_block * NODE_SIZE

    def slot(self, node, index):
        """Of the block map, for logical block `index`."""
        record = self.record(node)
        if index < 6:
            return record + DIRECT + 4 * index
        index -= 6
        if index < self.slots:
            return self.block(self.was(record + INDIRECT)) + 4 * index
        index -= self.slots
        second = self.was(self.second(node, index // self.slots))
        return self.block(second) + 4 * (index % self.slots)

    def second(self, node, index):
        """Of the double-indirect block: the slot for its block-map block `index`."""
        return self.block(self.was(self.record(node) + DOUBLE)) + 4 * index

    def entry(self, directory, name):
        """Of a directory, by name, or by index also behind the last entry."""
        index = name if isinstance(name, int) else self.names(directory).index(name)
        block = self.was(self.slot(directory, index // self.entries_per_block))
        return self.block(block) + index % self.entries_per_block * ENTRY_SIZE

    def bit(self, node):
        """The byte of the node bitmap and the mask of the node's bit in it."""
        number = node if isinstance(node, int) else self.node(node)
        return BITMAP + (number - 1) // 8, 0x80 >> (number - 1) % 8

    def chain(self, place=0):
        """The record of the free chain, counted from its head."""
        block = self.was(CHAIN_HEAD)
        for _ in range(place):
            block = self.was(self.block(block) + NEXT)
        return self.block(block)

    # ---- What is where

    def names(self, directory):
        return [self.sound[at + 2:at + 32].split(b"\0")[0].decode() for at in self.entry_places(directory)]

    def entry_places(self, directory):
        count = self.was(self.record(directory) + SIZE) // ENTRY_SIZE
        return [self.entry(directory, index) for index in range(count)]

    def node(self, path):
        """The node's number."""
        number = 1
        for name in path.strip("/").split("/"):
            if name:
                number = self.was_half(self.entry(number, name))
        return number

    def size(self, node):
        return self.was(self.record(node) + SIZE)

    def data_block(self, node, index):
        """The block that holds logical block `index`."""
        return self.was(self.slot(node, index))

    def free_nodes(self):
        """Numbers that the bitmap calls free, for which a node block is there; lowest first."""
        count = len([1 for i in range(224) if self.was(TABLE + 4 * i)]) * self.nodes_per_block
        count = min(count, self.was(BITMAP_SIZE) * 8)
        return [n for n in range(1, count + 1) if self.sound[self.bit(n)[0]] & self.bit(n)[1]]

    def free_blocks(self, place=0):
        """What a record of the free chain lists."""
        record = self.chain(place)
        return [self.was(record + ENTRIES + 4 * i) for i in range(self.was(record + COUNT))]

    # ---- Breaking

    def put(self, offset, contents):
        assert offset + len(contents) <= len(self.data)
        self.data[offset:offset + len(contents)] = contents

    def put_word(self, offset, value):
        self.put(offset, struct.pack("<I", value))

    def put_half(self, offset, value):
        self.put(offset, struct.pack("<H", value))

    def put_name(self, entry, name):
        self.put(entry + 2, name.encode("latin-1").ljust(30, b"\0"))

    def put_entry(self, entry, node, name):
        self.put_half(entry, node)
        self.put_name(entry, name)

    def flip(self, node):
        """Turns the node's bit in the bitmap round."""
        offset, mask = self.bit(node)
        self.data[offset] ^= mask

    def cut(self, length):
        del self.data[length:]


# ---- Sound containers -----------------------------------------------------------------------------------------------


def _run(*arguments, **options):
    subprocess.run([ORBA, *map(str, arguments)], check=True, stdout=subprocess.DEVNULL, **options)


class _Maker:
    """Fills a container file by file, so that it comes out the same everywhere."""

    def __init__(self, folder, *options):
        self.path = pathlib.Path(folder) / "sound.orb"
        self.chance = random.Random(1)
        _run("format", *options, self.path)

    def directory(self, *paths):
        _run("mkdir", *(f"{self.path}:{path}" for path in paths))

    def file(self, path, size):
        _run("put", "-", f"{self.path}:{path}", input=self.chance.randbytes(size))

    def files(self, directory, names, size):
        """Many at once."""
        with tempfile.TemporaryDirectory() as folder:
            sources = [pathlib.Path(folder) / name for name in names]
            for source in sources:
                source.write_bytes(self.chance.randbytes(size))
            _run("put", *sources, f"{self.path}:{directory}")

    def remove(self, *paths):
        _run("rm", *(f"{self.path}:{path}" for path in paths))

    def result(self):
        container = Container(self.path.read_bytes())
        for index in range(224):
            block = container.was(TABLE + 4 * index)
            for slot in range(container.nodes_per_block if block else 0):
                record = container.block(block) + slot * NODE_SIZE
                if any(container.data[record + TIME:record + TIME_RESERVED]):
                    container.put(record + TIME, STAMP)
        return bytes(container.data)


def _tree(folder):
    """Blocks of 1024 bytes. Files on each side of the borders of the block map, directories four deep, one of three
    blocks, two free nodes between the used ones and a free chain of one record."""
    maker = _Maker(folder, "--block-size", 1024, "--nodes", 96)
    maker.directory("/A", "/A/B", "/A/B/C", "/LOGS")
    maker.file("/EMPTY.TXT", 0)
    maker.file("/SMALL.TXT", 1400)
    maker.file("/OLD1", 5000)
    maker.file("/SINGLE.BIN", 9 * 1024 + 500)
    maker.file("/OLD2", 5000)
    maker.file("/DOUBLE.BIN", 264 * 1024 - 24)
    maker.file("/A/NOTE.TXT", 300)
    maker.file("/A/B/C/DEEP.TXT", 3000)
    maker.files("/LOGS", [f"L{i:02}" for i in range(68)], 40)
    maker.remove("/OLD1", "/OLD2")
    return maker.result()


def _wide(folder):
    """Blocks of 1024 bytes. A directory /WIDE of seven blocks, one more than its record has direct slots, with the
    files W000 to W190 in it; its last block holds one entry. No block is free."""
    maker = _Maker(folder, "--block-size", 1024, "--nodes", 224)
    maker.directory("/WIDE")
    maker.files("/WIDE", [f"W{i:03}" for i in range(191)], 20)
    return maker.result()


def _freed(folder):
    """Blocks of 1024 bytes, a small file and a free chain of two records: the second is full."""
    maker = _Maker(folder, "--block-size", 1024, "--nodes", 32)
    maker.file("/KEPT.TXT", 500)
    maker.file("/OLD", 270 * 1024)
    maker.file("/LAST.TXT", 1500)
    maker.remove("/OLD")
    return maker.result()


def _plain(folder):
    """Made without options: blocks of 4096 bytes, a bitmap of 1024 bytes. One directory, two files."""
    maker = _Maker(folder)
    maker.directory("/LOGS")
    maker.file("/LOGS/DAY1.TXT", 6000)
    maker.file("/X", 10)
    return maker.result()


_MAKERS = {"tree": _tree, "wide": _wide, "freed": _freed, "plain": _plain}


@functools.lru_cache(maxsize=None)
def sound(name):
    """The bytes of one of the sound containers."""
    with tempfile.TemporaryDirectory() as folder:
        return _MAKERS[name](folder)
