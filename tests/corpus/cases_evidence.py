"""Damage that two readings explain: what repair decides by, and what it keeps of both."""
import container as at
from case import into

CASES = []
case = into(CASES)


def _node_block(c, index):
    return c.block(c.was(at.TABLE + 4 * index))


@case("tree")
def evidence_sector_of_another_node_block(c):
    """The first sector of the node block of nodes 17 to 32 holds that of nodes 33 to 48."""
    source = _node_block(c, 2)
    c.put(_node_block(c, 1), c.sound[source:source + 512])


@case("plain")
def evidence_sector_of_the_same_node_block(c):
    """In blocks of 4096 bytes: the records of nodes 9 to 16 are those of nodes 1 to 8."""
    first = _node_block(c, 0)
    c.put(first + 512, c.sound[first:first + 512])


@case("tree")
def evidence_sectors_of_node_blocks_exchanged(c):
    """The first sectors of the node blocks of nodes 17 to 32 and 33 to 48 have changed places."""
    one, other = _node_block(c, 1), _node_block(c, 2)
    c.put(one, c.sound[other:other + 512])
    c.put(other, c.sound[one:one + 512])


@case("tree")
def evidence_number_of_another_file(c):
    """One bit of the number in the entry of /SMALL.TXT: it refers to the node of /A/B/C now."""
    c.put_half(c.entry("/", "SMALL.TXT"), c.node("/SMALL.TXT") ^ 2)


@case("tree")
def evidence_number_of_a_directory_is_free(c):
    """One bit of the number in the entry of /LOGS: it refers to no node."""
    c.put_half(c.entry("/", "LOGS"), c.node("/LOGS") ^ 0x4000)


@case("tree")
def evidence_directory_block_of_another(c):
    """The only block of /A holds a copy of the first block of /LOGS."""
    source = c.block(c.data_block("/LOGS", 0))
    c.put(c.block(c.data_block("/A", 0)), c.sound[source:source + c.block_size])


@case("tree")
def evidence_directory_sector_of_another(c):
    """The second sector of the first block of /LOGS holds the first of its second block."""
    source = c.block(c.data_block("/LOGS", 1))
    c.put(c.block(c.data_block("/LOGS", 0)) + 512, c.sound[source:source + 512])


def _removal(c, name):
    """What the removal of a name from the root writes: the block's offset and its bytes."""
    block = c.block(c.data_block("/", 0))
    written = bytearray(c.sound[block:block + c.block_size])
    last = c.entry("/", len(c.names("/")) - 1) - block
    hole = c.entry("/", name) - block
    written[hole:hole + at.ENTRY_SIZE] = written[last:last + at.ENTRY_SIZE]
    written[last:last + 2] = bytes(2)
    return block, hole, last, written


@case("tree")
def evidence_removal_torn_front(c):
    """The removal of /SMALL.TXT wrote its hole, but not the end of the same block; the mark is set."""
    block, hole, _, written = _removal(c, "SMALL.TXT")
    c.put(block, written[:hole + at.ENTRY_SIZE])
    c.put_word(at.STATE_FLAGS, 1)


@case("tree")
def evidence_removal_torn_within_the_hole(c):
    """The removal of /SMALL.TXT wrote the number and four characters of its hole; the mark is set."""
    block, hole, _, written = _removal(c, "SMALL.TXT")
    c.put(block, written[:hole + 6])
    c.put_word(at.STATE_FLAGS, 1)


@case("tree")
def evidence_removal_torn_rear(c):
    """The removal of /SMALL.TXT cleared the last entry, but did not write the hole; the mark is set."""
    block, _, last, written = _removal(c, "SMALL.TXT")
    c.put(block + last, written[last:])
    c.put_word(at.STATE_FLAGS, 1)


@case("tree")
def evidence_two_names_and_no_mark(c):
    """An entry of /A refers to /SMALL.TXT too, and no mark tells of a move."""
    c.put_entry(c.entry("/A", len(c.names("/A"))), c.node("/SMALL.TXT"), "SECOND.TXT")
    size = c.record("/A") + at.SIZE
    c.put_word(size, c.was(size) + at.ENTRY_SIZE)
