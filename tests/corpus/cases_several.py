"""Two and more damages in one container."""
import container as at
from case import into

CASES = []
case = into(CASES)


@case("tree")
def several_marked_and_leaked(c):
    """The mark of an update is set, a deleted node is called used, and the header names no free chain."""
    c.put_word(at.STATE_FLAGS, 1)
    c.flip(8)
    c.put_word(at.CHAIN_HEAD, 0)


@case("tree")
def several_header_and_table_entry(c):
    """The data area's offset is wrong, and the table has no entry for nodes 17 to 32."""
    c.put_word(at.DATA_OFFSET, 4096)
    c.put_word(at.TABLE + 4, 0)


@case("tree")
def several_root_record_and_block(c):
    """The root's record and its block are zeros."""
    c.put(c.record(1), bytes(64))
    c.put(c.block(c.data_block(1, 0)), bytes(1024))


@case("tree")
def several_root_record_and_bitmap(c):
    """The root's record is zeros, and the bitmap calls every node free."""
    c.put(c.record(1), bytes(64))
    c.put(at.BITMAP, b"\xff" * 12)


@case("tree")
def several_names_lost_on_two_levels(c):
    """The first entries of /A, with its only directory, and of /A/B/C are lost in zeros."""
    c.put(c.entry("/A", 2), bytes(32))
    c.put(c.entry("/A/B/C", 2), bytes(32))


@case("tree")
def several_cross_linked_three_times(c):
    """Block 0 of /SMALL.TXT and of /A/NOTE.TXT is block 3 of /SINGLE.BIN, and the free chain lists it."""
    block = c.data_block("/SINGLE.BIN", 3)
    c.put_word(c.slot("/SMALL.TXT", 0), block)
    c.put_word(c.slot("/A/NOTE.TXT", 0), block)
    c.put_word(c.chain() + at.ENTRIES + 32, block)


@case("tree")
def several_lost_dots_and_parent(c):
    """The entry of /A/B names a free node, and B has no dots."""
    c.put_half(c.entry("/A", "B"), 90)
    c.put(c.entry("/A/B", 0), bytes(64))


@case("tree")
def several_directory_size_and_chain(c):
    """The size of /LOGS counts its first block alone, and the free chain lists its second."""
    c.put_word(c.record("/LOGS") + at.SIZE, 1024)
    c.put_word(c.chain() + at.ENTRIES + 32, c.data_block("/LOGS", 1))


@case("tree")
def several_cycle_and_lost_record(c):
    """/A and /A/B/C/DEEP.TXT have changed places, and the record of /A/B is zeros."""
    c.put_half(c.entry("/", "A"), c.node("/A/B/C/DEEP.TXT"))
    c.put_half(c.entry("/A/B/C", "DEEP.TXT"), c.node("/A"))
    c.put(c.record("/A/B"), bytes(64))


@case("tree")
def several_truncated_and_marked(c):
    """The container ends in the middle of /DOUBLE.BIN, and the mark of an update is set."""
    c.cut(c.block(c.data_block("/DOUBLE.BIN", 200)))
    c.put_word(at.STATE_FLAGS, 1)


@case("tree")
def several_size_and_hole(c):
    """The size of /SINGLE.BIN is 2^31, and it has no blocks 1 and 7."""
    c.put_word(c.record("/SINGLE.BIN") + at.SIZE, 0x80000000)
    c.put_word(c.slot("/SINGLE.BIN", 1), 0)
    c.put_word(c.slot("/SINGLE.BIN", 7), 0)


@case("tree")
def several_lost_found_is_a_file(c):
    """/SMALL.TXT is called "LOST.FND", and the entry of /A/NOTE.TXT names a free node."""
    c.put_name(c.entry("/", "SMALL.TXT"), "LOST.FND")
    c.put_half(c.entry("/A", "NOTE.TXT"), 90)


@case("freed")
def several_no_node_is_left(c):
    """The bitmap calls every node used, and the entry of /LAST.TXT is zeros."""
    c.put(at.BITMAP, bytes(4))
    c.put(c.entry("/", "LAST.TXT"), bytes(32))


@case("tree")
def several_map_pointer_and_table_entry(c):
    """The table names no block for nodes 17 to 32, and /SMALL.TXT names that block as its indirect block."""
    c.put_word(c.record("/SMALL.TXT") + at.INDIRECT, c.was(at.TABLE + 4))
    c.put_word(at.TABLE + 4, 0)


@case("tree")
def several_number_and_name_of_an_entry(c):
    """The first four bytes of the entry of /A/NOTE.TXT are those of node 7, which is /SMALL.TXT, and of no name."""
    c.put_word(c.entry("/A", "NOTE.TXT"), c.node("/SMALL.TXT"))


@case("tree")
def several_one_block_for_all(c):
    """All small files of /LOGS have the block of /LOGS/L00, and the entries of /LOGS are zeros."""
    for index in range(68):
        c.put_word(c.slot(f"/LOGS/L{index:02}", 0), c.data_block("/LOGS/L00", 0))
    for block in range(3):
        c.put(c.block(c.data_block("/LOGS", block)) + (64 if block == 0 else 0), bytes(960))


@case("tree")
def several_crossed_maps(c):
    """/SINGLE.BIN and /DOUBLE.BIN go through each other's indirect block, and /SMALL.TXT through both."""
    single, double = c.record("/SINGLE.BIN") + at.INDIRECT, c.record("/DOUBLE.BIN") + at.INDIRECT
    c.put_word(single, c.was(double))
    c.put_word(double, c.was(single))
    c.put_word(c.record("/SMALL.TXT") + at.INDIRECT, c.was(single))
    c.put_word(c.record("/SMALL.TXT") + at.DOUBLE, c.was(double))
    c.put_word(c.record("/SMALL.TXT") + at.SIZE, 300 * 1024)


@case("tree")
def several_map_block_full_of_itself(c):
    """Every slot of the indirect block of /DOUBLE.BIN refers to that block."""
    indirect = c.was(c.record("/DOUBLE.BIN") + at.INDIRECT)
    for slot in range(c.slots):
        c.put_word(c.block(indirect) + 4 * slot, indirect)


@case("tree")
def several_directories_with_one_block(c):
    """/A, /A/B and /A/B/C have the first block of /LOGS."""
    for path in ("/A", "/A/B", "/A/B/C"):
        c.put_word(c.slot(path, 0), c.data_block("/LOGS", 0))
