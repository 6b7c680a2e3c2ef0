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


# ---- Records in slots of other nodes --------------------------------------------------------------------------------


def _exchange(c, one, other, count):
    c.put(one, c.sound[other:other + count])
    c.put(other, c.sound[one:one + count])


@case("tree")
def evidence_records_exchanged(c):
    """The records of /SMALL.TXT and /LOGS/L40 lie in each other's slots."""
    _exchange(c, c.record("/SMALL.TXT"), c.record("/LOGS/L40"), at.NODE_SIZE)


@case("tree")
def evidence_records_of_directories_exchanged(c):
    """The records of /A and /LOGS lie in each other's slots."""
    _exchange(c, c.record("/A"), c.record("/LOGS"), at.NODE_SIZE)


@case("tree")
def evidence_sectors_with_the_root_exchanged(c):
    """The first sectors of the node blocks of nodes 1 to 16, the root among them, and 17 to 32 have changed places."""
    _exchange(c, _node_block(c, 0), _node_block(c, 1), 512)


@case("plain")
def evidence_sectors_of_one_node_block_exchanged(c):
    """In blocks of 4096 bytes: nodes 1 to 8, all that are in use, and 9 to 16 have changed places."""
    _exchange(c, _node_block(c, 0), _node_block(c, 0) + 512, 512)


@case("tree")
def evidence_sectors_of_three_node_blocks_in_turn(c):
    """The first sectors of three node blocks have each moved on to the next."""
    blocks = [_node_block(c, index) for index in (1, 2, 3)]
    for here, there in zip(blocks, blocks[1:] + blocks[:1]):
        c.put(there, c.sound[here:here + 512])


@case("tree")
def evidence_sector_written_to_another_node_block(c):
    """The records of nodes 33 to 40 lie in the slots of nodes 17 to 24, and their own slots are zeros."""
    c.put(_node_block(c, 1), c.sound[_node_block(c, 2):][:512])
    c.put(_node_block(c, 2), bytes(512))


@case("tree")
def evidence_sector_of_free_nodes_exchanged(c):
    """The first sectors of the node blocks of nodes 17 to 32 and of 81 to 96, which are free, have changed places."""
    _exchange(c, _node_block(c, 1), _node_block(c, 5) + 512, 512)


@case("tree")
def evidence_record_of_a_nameless_node_elsewhere(c):
    """The record of /SMALL.TXT lies in the slot of /LOGS/L40, its own slot is zeros, and it has no name."""
    c.put(c.record("/LOGS/L40"), c.sound[c.record("/SMALL.TXT"):][:at.NODE_SIZE])
    c.put(c.record("/SMALL.TXT"), bytes(at.NODE_SIZE))
    c.put_half(c.entry("/", "SMALL.TXT"), c.node("/LOGS/L41"))


@case("tree")
def evidence_node_blocks_exchanged(c):
    """The node blocks of nodes 17 to 32 and 33 to 48 have changed places; the table has not."""
    _exchange(c, _node_block(c, 1), _node_block(c, 2), c.block_size)


@case("tree")
def evidence_node_block_over_another(c):
    """The node block of nodes 33 to 48 holds a copy of that of nodes 17 to 32."""
    c.put(_node_block(c, 2), c.sound[_node_block(c, 1):][:c.block_size])


@case("tree")
def evidence_table_and_node_block_of_two_indices(c):
    """The table has one block for nodes 17 to 32 and 33 to 48, which holds half of each; the other block is lost."""
    c.put(_node_block(c, 1), c.sound[_node_block(c, 2):][:512])
    c.put(_node_block(c, 2), c.sound[_node_block(c, 1):][:512])
    c.put_word(at.TABLE + 8, c.was(at.TABLE + 4))


# ---- Directories ----------------------------------------------------------------------------------------------------


def _block_of(c, directory, index):
    return c.block(c.data_block(directory, index))


@case("tree")
def evidence_directory_block_of_another_with_one_more_name(c):
    """The only block of /A holds a copy of the first block of /LOGS in which one name is another."""
    c.put(_block_of(c, "/A", 0), c.sound[_block_of(c, "/LOGS", 0):][:c.block_size])
    c.put_name(_block_of(c, "/A", 0) + 2 * at.ENTRY_SIZE, "OTHER")


@case("tree")
def evidence_root_block_of_another(c):
    """The root's only block holds a copy of the first block of /LOGS."""
    c.put(_block_of(c, "/", 0), c.sound[_block_of(c, "/LOGS", 0):][:c.block_size])


@case("tree")
def evidence_directory_block_of_the_root(c):
    """The only block of /A holds a copy of the root's."""
    c.put(_block_of(c, "/A", 0), c.sound[_block_of(c, "/", 0):][:c.block_size])


@case("tree")
def evidence_directory_block_over_the_last(c):
    """The last block of /LOGS, with six names, holds a copy of its second."""
    c.put(_block_of(c, "/LOGS", 2), c.sound[_block_of(c, "/LOGS", 1):][:c.block_size])


@case("tree")
def evidence_directory_blocks_exchanged(c):
    """The first blocks of /A and /LOGS have changed places."""
    _exchange(c, _block_of(c, "/A", 0), _block_of(c, "/LOGS", 0), c.block_size)


@case("tree")
def evidence_directory_sectors_exchanged(c):
    """The first sectors of the second and the third block of /LOGS have changed places: an end mark comes early."""
    _exchange(c, _block_of(c, "/LOGS", 1), _block_of(c, "/LOGS", 2), 512)


@case("tree")
def evidence_numbers_exchanged(c):
    """The entries of /SMALL.TXT and /A/NOTE.TXT have each other's numbers: both are read, and nothing tells."""
    _exchange(c, c.entry("/", "SMALL.TXT"), c.entry("/A", "NOTE.TXT"), 2)


@case("tree")
def evidence_number_of_a_file_is_free(c):
    """One bit of the number in the entry of /SMALL.TXT: it refers to no node."""
    c.put_half(c.entry("/", "SMALL.TXT"), c.node("/SMALL.TXT") ^ 0x40)


@case("tree")
def evidence_number_of_a_directory_of_another(c):
    """One bit of the number in the entry of /A/B/C: it refers to /LOGS now, as one in the root does."""
    c.put_half(c.entry("/A/B", "C"), c.node("/LOGS"))


@case("tree")
def evidence_two_names_twice_and_no_mark(c):
    """Entries of /A refer to two files of /LOGS too, and no mark tells of a move."""
    index = len(c.names("/A"))
    c.put_entry(c.entry("/A", index), c.node("/LOGS/L01"), "ONE")
    c.put_entry(c.entry("/A", index + 1), c.node("/LOGS/L02"), "TWO")
    c.put_word(c.record("/A") + at.SIZE, c.size("/A") + 2 * at.ENTRY_SIZE)


# ---- Header, table and bitmap ---------------------------------------------------------------------------------------


@case("tree")
def evidence_header_and_root_records_exchanged(c):
    """The first sector of the container and that of the first node block have changed places."""
    _exchange(c, 0, _node_block(c, 0), 512)


@case("tree")
def evidence_header_sector_over_the_table(c):
    """The second sector of the container, with the rest of the table, holds a copy of the first."""
    c.put(512, c.sound[:512])


@case("tree")
def evidence_header_of_a_directory_block(c):
    """The first sector of the container holds that of the second block of /LOGS."""
    c.put(0, c.sound[_block_of(c, "/LOGS", 1):][:512])


@case("plain")
def evidence_copy_of_the_first_node_block_in_the_bitmap(c):
    """The header is zeros, and the bitmap holds a copy of the first records, which begin before block 1."""
    c.put(0, bytes(at.BITMAP))
    c.put(at.BITMAP + 256, c.sound[_node_block(c, 0):][:768])


@case("tree")
def evidence_sectors_of_nodes_and_of_a_directory_exchanged(c):
    """The sector of nodes 25 to 32 and the second sector of /LOGS have changed places."""
    nodes, entries = c.record(25), c.entry("/LOGS", "L14")
    records = c.sound[nodes:nodes + 512]
    c.put(nodes, c.sound[entries:entries + 512])
    c.put(entries, records)
