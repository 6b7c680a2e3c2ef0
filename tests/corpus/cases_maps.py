"""Block maps: cross-linked blocks, cycles, blocks out of range, holes and blocks past the size."""
import container as at
from case import into

CASES = []
case = into(CASES)


# ---- Cross-linked blocks --------------------------------------------------------------------------------------------


@case("tree")
def shared_by_two_files(c):
    """Block 1 of /SMALL.TXT is block 3 of /SINGLE.BIN."""
    c.put_word(c.slot("/SMALL.TXT", 1), c.data_block("/SINGLE.BIN", 3))


@case("tree")
def shared_within_one_file(c):
    """Block 2 of /SINGLE.BIN is its block 4 as well."""
    c.put_word(c.slot("/SINGLE.BIN", 2), c.data_block("/SINGLE.BIN", 4))


@case("tree")
def shared_by_file_and_directory(c):
    """Block 0 of /SMALL.TXT is the first block of /LOGS."""
    c.put_word(c.slot("/SMALL.TXT", 0), c.data_block("/LOGS", 0))


@case("tree")
def shared_by_directory_and_file(c):
    """The second block of /LOGS is block 5 of /SINGLE.BIN."""
    c.put_word(c.slot("/LOGS", 1), c.data_block("/SINGLE.BIN", 5))


@case("tree")
def shared_by_two_directories(c):
    """The first block of /A is the first block of /LOGS."""
    c.put_word(c.slot("/A", 0), c.data_block("/LOGS", 0))


@case("tree")
def shared_with_node_block(c):
    """Block 0 of /SMALL.TXT is the block of nodes 33 to 48."""
    c.put_word(c.slot("/SMALL.TXT", 0), c.was(at.TABLE + 8))


@case("tree")
def shared_with_map_block(c):
    """Block 1 of /SMALL.TXT is the indirect block of /SINGLE.BIN."""
    c.put_word(c.slot("/SMALL.TXT", 1), c.was(c.record("/SINGLE.BIN") + at.INDIRECT))


@case("tree")
def shared_indirect_block(c):
    """The indirect block of /SINGLE.BIN is that of /DOUBLE.BIN."""
    c.put_word(c.record("/SINGLE.BIN") + at.INDIRECT, c.was(c.record("/DOUBLE.BIN") + at.INDIRECT))


@case("tree")
def shared_data_as_indirect_block(c):
    """The indirect block of /SINGLE.BIN is block 100 of /DOUBLE.BIN, which holds data."""
    c.put_word(c.record("/SINGLE.BIN") + at.INDIRECT, c.data_block("/DOUBLE.BIN", 100))


@case("tree")
def shared_whole_map(c):
    """All direct blocks and the indirect block of /SINGLE.BIN are those of /DOUBLE.BIN."""
    c.put(c.record("/SINGLE.BIN") + at.DIRECT, c.sound[c.record("/DOUBLE.BIN") + at.DIRECT:][:28])


# ---- Cycles ---------------------------------------------------------------------------------------------------------


@case("tree")
def cycle_double_indirect_block(c):
    """The double-indirect block of /DOUBLE.BIN names itself."""
    double = c.was(c.record("/DOUBLE.BIN") + at.DOUBLE)
    c.put_word(c.second("/DOUBLE.BIN", 0), double)


@case("tree")
def cycle_indirect_block(c):
    """The indirect block of /SINGLE.BIN names itself as block 7."""
    c.put_word(c.slot("/SINGLE.BIN", 7), c.was(c.record("/SINGLE.BIN") + at.INDIRECT))


@case("tree")
def cycle_indirect_as_double(c):
    """The double-indirect block of /DOUBLE.BIN is its indirect block."""
    c.put_word(c.record("/DOUBLE.BIN") + at.DOUBLE, c.was(c.record("/DOUBLE.BIN") + at.INDIRECT))


# ---- Blocks out of range --------------------------------------------------------------------------------------------


@case("tree")
def outside_direct_block(c):
    """Block 0 of /SMALL.TXT lies just beyond the container's end."""
    c.put_word(c.slot("/SMALL.TXT", 0), c.blocks + 1)


@case("tree")
def outside_indirect_slot(c):
    """Block 7 of /SINGLE.BIN lies far beyond the container's end."""
    c.put_word(c.slot("/SINGLE.BIN", 7), 0xFFFFFFFF)


@case("tree")
def outside_indirect_block(c):
    """The indirect block of /SINGLE.BIN lies beyond the container's end."""
    c.put_word(c.record("/SINGLE.BIN") + at.INDIRECT, 0x80000000)


@case("tree")
def outside_double_indirect_block(c):
    """The double-indirect block of /DOUBLE.BIN lies beyond the container's end."""
    c.put_word(c.record("/DOUBLE.BIN") + at.DOUBLE, 100000)


@case("tree")
def outside_second_level_block(c):
    """The first block that the double-indirect block of /DOUBLE.BIN names lies beyond the container's end."""
    c.put_word(c.second("/DOUBLE.BIN", 0), 100000)


@case("tree")
def outside_directory_block(c):
    """The second block of /LOGS lies beyond the container's end."""
    c.put_word(c.slot("/LOGS", 1), 100000)


@case("tree")
def outside_where_a_copy_is_appended(c):
    """Block 1 of /SMALL.TXT is block 3 of /SINGLE.BIN, the free chain's head is gone, and 120 blocks of /DOUBLE.BIN
    lie just beyond the container's end."""
    c.put_word(c.slot("/SMALL.TXT", 1), c.data_block("/SINGLE.BIN", 3))
    c.put_word(at.CHAIN_HEAD, 0)
    for i in range(120):
        c.put_word(c.slot("/DOUBLE.BIN", 20 + i), c.blocks + 1 + i)


# ---- Holes ----------------------------------------------------------------------------------------------------------


@case("tree")
def hole_first_block(c):
    """/SINGLE.BIN has no block 0."""
    c.put_word(c.slot("/SINGLE.BIN", 0), 0)


@case("tree")
def hole_indirect_slots(c):
    """/DOUBLE.BIN has no blocks 50 to 52."""
    for index in (50, 51, 52):
        c.put_word(c.slot("/DOUBLE.BIN", index), 0)


@case("tree")
def hole_no_indirect_block(c):
    """/DOUBLE.BIN has no indirect block, but a double-indirect block."""
    c.put_word(c.record("/DOUBLE.BIN") + at.INDIRECT, 0)


@case("tree")
def hole_no_double_indirect_block(c):
    """/DOUBLE.BIN has no double-indirect block."""
    c.put_word(c.record("/DOUBLE.BIN") + at.DOUBLE, 0)


@case("tree")
def hole_indirect_block_zeros(c):
    """The indirect block of /SINGLE.BIN is zeros."""
    c.put(c.slot("/SINGLE.BIN", 6), bytes(1024))


@case("tree")
def hole_indirect_block_text(c):
    """A text lies over the indirect block of /SINGLE.BIN."""
    c.put(c.slot("/SINGLE.BIN", 6), b"Lost in the wood" * 64)


@case("tree")
def hole_directory_first_block(c):
    """/LOGS has no first block; the block is still there."""
    c.put_word(c.slot("/LOGS", 0), 0)


@case("tree")
def hole_directory_second_block(c):
    """/LOGS has no second block; the block is still there."""
    c.put_word(c.slot("/LOGS", 1), 0)


# ---- Blocks past the size -------------------------------------------------------------------------------------------


@case("tree")
def extra_free_block(c):
    """/A/NOTE.TXT, of one block, has a second one that the free chain lists."""
    c.put_word(c.slot("/A/NOTE.TXT", 1), c.free_blocks()[0])


@case("tree")
def extra_block_of_another_file(c):
    """/A/NOTE.TXT, of one block, has a second one that is block 3 of /SINGLE.BIN."""
    c.put_word(c.slot("/A/NOTE.TXT", 1), c.data_block("/SINGLE.BIN", 3))


@case("tree")
def extra_block_far_behind(c):
    """/A/NOTE.TXT, of one block, has a block 5 that the container does not hold."""
    c.put_word(c.slot("/A/NOTE.TXT", 5), 7777)


@case("tree")
def extra_map_blocks(c):
    """The size of /DOUBLE.BIN ends before its indirect block, and its last two slots there are gone."""
    c.put_word(c.record("/DOUBLE.BIN") + at.SIZE, 6 * 1024)
    for index in (260, 261):
        c.put_word(c.slot("/DOUBLE.BIN", index), 0)


# ---- What an interrupted update leaves -------------------------------------------------------------------------------


@case("tree")
def half_made_growth(c):
    """/DOUBLE.BIN has grown by the block 263, but its size ends with block 262."""
    c.put_word(c.record("/DOUBLE.BIN") + at.SIZE, 263 * 1024)


@case("tree")
def half_made_shrink(c):
    """/DOUBLE.BIN has lost its last block, but its size still counts it."""
    c.put_word(c.slot("/DOUBLE.BIN", 263), 0)
