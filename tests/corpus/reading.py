"""What a reader finds in a container that follows table, entries and maps as its bytes stand, and whether a repair
keeps it. Written from the format alone, so that it can judge what orba says of itself.

It is strict: it takes a node for what its record says only where that has the signature and its own number, and a file
only where all its blocks are there. So it may find less than orba does, never more.
"""
import collections
import struct

import container as at

DIRECTORY = 8
ROOT = 1

File = collections.namedtuple("File", "contents node doubtful")  # doubtful: in a block that is another directory's


class Reading:
    def __init__(self, data, layout):
        """`layout`: a container whose header is sound, of the same layout."""
        self.data = bytes(data)
        self.block_size = struct.unpack_from("<I", layout, at.BLOCK_SIZE)[0]
        self.data_offset = struct.unpack_from("<I", layout, at.DATA_OFFSET)[0]
        self.blocks = max(len(data) - self.data_offset, 0) // self.block_size
        self.files = {}
        self.names = collections.defaultdict(list)  # of directories, by node: all paths that lead there
        self.dots = {}
        self.walk("", ROOT)
        self.settle_doubts()

    def word(self, offset):
        return struct.unpack_from("<I", self.data, offset)[0] if offset + 4 <= len(self.data) else 0

    def block(self, number):
        start = self.data_offset + (number - 1) * self.block_size
        return self.data[start:start + self.block_size]

    def record(self, node):
        """Of a node that has one, else None."""
        per_block = self.block_size // at.NODE_SIZE
        index, slot = divmod(node - 1, per_block)
        home = self.word(at.TABLE + 4 * index) if node > 0 and index < 224 else 0
        if not 1 <= home <= self.blocks:
            return None
        record = self.block(home)[slot * at.NODE_SIZE:][:at.NODE_SIZE]
        return record if struct.unpack_from("<4sH", record) == (b"INO1", node) else None

    def contents(self, record):
        """All bytes, None where a block is missing."""
        size = struct.unpack_from("<I", record, at.SIZE)[0]
        count = (size + self.block_size - 1) // self.block_size
        if count > self.blocks:
            return None
        blocks = [self.map_slot(record, index) for index in range(count)]
        if not all(1 <= block <= self.blocks for block in blocks):
            return None
        return b"".join(map(self.block, blocks))[:size]

    def map_slot(self, record, index):
        words = struct.unpack_from("<8I", record, at.DIRECT)
        slots = self.block_size // 4
        if index < 6:
            return words[index]
        if index < 6 + slots:
            return self.slot_of(words[6], index - 6)
        high, low = divmod(index - 6 - slots, slots)
        return self.slot_of(self.slot_of(words[7], high), low)

    def slot_of(self, block, slot):
        return struct.unpack_from("<I", self.block(block), 4 * slot)[0] if 1 <= block <= self.blocks else 0

    def walk(self, path, node):
        self.names[node].append(path)
        record = self.record(node)
        contents = None if record is None else self.contents(record)
        if contents is None:
            return
        self.dots[node] = struct.unpack_from("<H", contents)[0] if contents[2:4] == b".\0" else 0
        seen = set()
        for index in range(2, len(contents) // at.ENTRY_SIZE):
            number, name = struct.unpack_from("<H30s", contents, index * at.ENTRY_SIZE)
            name = name.split(b"\0")[0].decode("latin-1")
            if number == 0:
                break
            legal = name.isascii() and name.isprintable() and not set(name) & set(' /\\:*?"<>|')
            if not legal or not 1 <= len(name) <= 29 or name in (".", "..") or name.upper() in seen:
                continue
            seen.add(name.upper())
            self.take(f"{path}/{name.upper()}", number, node)

    def take(self, path, number, directory):
        record = self.record(number)
        if record is None:
            return
        if struct.unpack_from("<H", record, at.ATTRIBUTES)[0] & DIRECTORY:
            if number in self.names:
                self.names[number].append(path)
            else:
                self.walk(path, number)
            return
        contents = self.contents(record)
        removed = contents == b"" and self.data[at.BITMAP + (number - 1) // 8] & 0x80 >> (number - 1) % 8
        begins_as_directory = contents is not None and contents[:4] == struct.pack("<H2s", number, b".\0")
        if contents is not None and not removed and not begins_as_directory:
            self.files[path] = File(contents, number, directory)

    def settle_doubts(self):
        """Where a directory's first block is another's that was walked too, what it refers to is that other's."""
        for path, file in self.files.items():
            dot = self.dots.get(file.doubtful, 0)
            doubtful = dot not in (0, file.doubtful) and self.dots.get(dot) == dot
            self.files[path] = file._replace(doubtful=doubtful)


    def paths(self, path):
        """Of a file: where it may be, as a directory above it with several names keeps one of them."""
        yield path
        for names in self.names.values():
            below = len(names) > 1 and next((path[len(name):] for name in names if path.startswith(name + "/")), None)
            if below:
                yield from (name + below for name in names)


def judge(reading, after, marked):
    """One line, and the paths of files that are lost. `reading`: of the container before; `after`: path to bytes, None
    for a directory. On a marked container one object may have lost a name, or all where it holds nothing."""
    before = reading.files
    everywhere = set(contents for contents in after.values() if contents is not None)
    found = set(contents for path, contents in after.items() if contents is not None and path.startswith("/LOST.FND"))
    here, elsewhere, missing = 0, 0, []
    for path, file in before.items():
        if any(after.get(place) == file.contents for place in reading.paths(path)):
            here += 1
        elif file.contents in (everywhere if file.doubtful else found):
            elsewhere += 1
        else:
            missing.append(path)
    excused = [path for path in missing if marked and before[path].node == before[missing[0]].node and
               (not before[path].contents or before[path].contents in everywhere)]
    lost = [path for path in missing if path not in excused]
    line = f"kept     {here + elsewhere} of {len(before)} files that could be read: {here} at their path"
    if elsewhere:
        line += f", {elsewhere} elsewhere"
    if excused:
        line += f"; {len(excused)} ended with the interrupted operation"
    return line, lost
