"""Updates of which a part was written: the process or the power ended within a write, or the card kept some writes and
not others. The mark is set; where it is not, the same bytes are damage."""
import container as at
from case import into

CASES = []
case = into(CASES)


def mark(c):
    c.put_word(at.STATE_FLAGS, 1)


def heap(c):
    """The place of the head record's entries, and these, counted from 1."""
    return c.chain() + at.ENTRIES - 4, [0, *c.free_blocks()]


# ---- The free chain -------------------------------------------------------------------------------------------------


@case("tree")
def torn_chain_count_without_entry(c):
    """A block was freed: the record counts it, but the entry was not written."""
    c.put_word(c.chain() + at.COUNT, len(c.free_blocks()) + 1)
    mark(c)


@case("tree")
def torn_chain_entry_taken_away_and_counted(c):
    """A block was taken: its last entry is zero, but the record still counts it."""
    c.put_word(c.chain() + at.ENTRIES + 4 * len(c.free_blocks()) - 4, 0)
    mark(c)


@case("tree")
def torn_chain_path_front(c):
    """A block was taken: count and first entry were written, the rest of the path was not."""
    place, entries = heap(c)
    c.put_word(place + 4, min(entries[2], entries[3]))
    c.put_word(c.chain() + at.COUNT, len(entries) - 2)
    mark(c)


@case("tree")
def torn_chain_path_rear(c):
    """A block was freed: in the rear of the record a parent moved down, the front is as it was."""
    place, entries = heap(c)
    last = len(entries) - 1
    c.put_word(place + 4 * last, entries[last // 2])
    mark(c)


@case("freed")
def torn_chain_of_two_records(c):
    """A block was freed: the first of two records counts it, but the entry was not written."""
    c.put_word(c.chain() + at.COUNT, len(c.free_blocks()) + 1)
    mark(c)


@case("freed")
def torn_chain_in_the_second_record(c):
    """The second record of the free chain has a zero for its last entry. No update writes that record."""
    c.put_word(c.chain(1) + at.ENTRIES + 4 * len(c.free_blocks(1)) - 4, 0)
    mark(c)


@case("tree")
def torn_chain_and_no_mark(c):
    """The record counts an entry that was not written, and no mark tells of an update."""
    c.put_word(c.chain() + at.COUNT, len(c.free_blocks()) + 1)


@case("tree")
def torn_chain_in_many_places(c):
    """The mark is set, and eight entries of the record are equal: more than one update changes."""
    for place in range(1, 9):
        c.put_word(c.chain() + at.ENTRIES + 4 * place, c.free_blocks()[0])
    mark(c)


# ---- The header -----------------------------------------------------------------------------------------------------


@case("tree")
def torn_header_head_in_part(c):
    """Two bytes of the free chain's new head were written: it lies beyond the container's end."""
    c.put_half(at.CHAIN_HEAD, 0xFFFE)
    mark(c)


@case("tree")
def torn_header_before_the_record(c):
    """The free chain begins in a freed block, in which its record was not written yet."""
    c.put_word(at.CHAIN_HEAD, c.free_blocks()[3])
    mark(c)


@case("tree")
def torn_header_and_no_mark(c):
    """The free chain begins in a freed block that holds no record, and no mark tells of an update."""
    c.put_word(at.CHAIN_HEAD, c.free_blocks()[3])


# ---- The node-block table -------------------------------------------------------------------------------------------


@case("plain")
def torn_table_entry_in_part(c):
    """A node block was added: two bytes of its entry were written, which lie beyond the container's end."""
    c.put_half(at.TABLE + 4, 0x1234)
    mark(c)


@case("plain")
def torn_table_before_the_block(c):
    """A node block was added at the container's end: its entry was written, the block was not."""
    c.put_word(at.TABLE + 4, c.blocks + 1)
    mark(c)


@case("tree")
def torn_table_in_a_free_block(c):
    """A block for nodes 81 to 96 was taken from the free chain: its entry was written, the block was not."""
    c.put_word(at.TABLE + 20, c.free_blocks()[2])
    mark(c)


@case("plain")
def torn_table_and_no_mark(c):
    """The table has an entry beyond the container's end, and no mark tells of an update."""
    c.put_word(at.TABLE + 4, c.blocks + 1)


@case("tree")
def torn_table_with_nodes_in_use(c):
    """The mark is set, and the entry for nodes 33 to 48 lies beyond the container's end; they are in use."""
    c.put_word(at.TABLE + 8, c.blocks + 1)
    mark(c)


# ---- The bitmap -----------------------------------------------------------------------------------------------------


@case("tree")
def torn_bitmap_after_the_entry(c):
    """/SMALL.TXT was created: its entry was written, the bitmap was not."""
    c.flip("/SMALL.TXT")
    mark(c)


@case("tree")
def torn_bitmap_of_an_empty_file(c):
    """/EMPTY.TXT was created: its entry was written, the bitmap was not."""
    c.flip("/EMPTY.TXT")
    mark(c)


@case("tree")
def torn_bitmap_of_a_directory(c):
    """/A/B/C was created: its entry was written, the bitmap was not."""
    c.flip("/A/B/C")
    mark(c)


@case("tree")
def torn_bitmap_of_two_files(c):
    """The mark is set, and the bitmap calls two files free: no operation does that."""
    c.flip("/SMALL.TXT")
    c.flip("/A/NOTE.TXT")
    mark(c)


# ---- Directories ----------------------------------------------------------------------------------------------------


@case("tree")
def torn_entry_of_a_new_file(c):
    """A file was created in /A: record and bitmap are written, and of its entry the number."""
    free = c.free_nodes()[0]
    c.flip(free)
    c.put_half(c.entry("/A", len(c.names("/A"))), free)
    mark(c)


@case("tree")
def torn_entry_with_half_a_name(c):
    """A file was created in /A: record and bitmap are written, and of its entry the number and half the name."""
    free = c.free_nodes()[0]
    c.flip(free)
    c.put_entry(c.entry("/A", len(c.names("/A"))), free, "HAL")
    mark(c)


@case("tree")
def torn_removal_of_the_middle_of_three_blocks(c):
    """The removal of /LOGS/L10 wrote its hole; the last entry, two blocks on, is not cleared yet."""
    last = c.entry("/LOGS", "L67")
    c.put(c.entry("/LOGS", "L10"), c.sound[last:last + at.ENTRY_SIZE])
    mark(c)


# ---- Moves, and what is left of other operations --------------------------------------------------------------------


def give_name(c, directory, path, name):
    """A second name."""
    c.put_entry(c.entry(directory, len(c.names(directory))), c.node(path), name)
    size = c.record(directory) + at.SIZE
    c.put_word(size, c.was(size) + at.ENTRY_SIZE)


@case("tree")
def stopped_move_of_a_file(c):
    """/SMALL.TXT was moved to /A: both names are there."""
    give_name(c, "/A", "/SMALL.TXT", "MOVED.TXT")
    mark(c)


@case("tree")
def stopped_move_of_a_directory(c):
    """/A/B was moved to /LOGS: both names are there, and its ".." is still that of /A."""
    give_name(c, "/LOGS", "/A/B", "B")
    mark(c)


@case("tree")
def stopped_move_of_a_directory_with_its_dots(c):
    """/A/B was moved to /LOGS: both names are there, and its ".." is that of /LOGS."""
    give_name(c, "/LOGS", "/A/B", "B")
    c.put_half(c.entry("/A/B", 1), c.node("/LOGS"))
    mark(c)


@case("tree")
def stopped_moves_of_two_files(c):
    """The mark is set, and two files have two names each: one operation moves one."""
    give_name(c, "/A", "/SMALL.TXT", "MOVED.TXT")
    c.put_entry(c.entry("/LOGS", len(c.names("/LOGS"))), c.node("/A/NOTE.TXT"), "NOTE.TXT")
    c.put_word(c.record("/LOGS") + at.SIZE, c.size("/LOGS") + at.ENTRY_SIZE)
    mark(c)


@case("tree")
def stopped_with_a_leaked_block(c):
    """The mark is set, and the free chain has lost a block."""
    c.put_word(c.chain() + at.COUNT, len(c.free_blocks()) - 1)
    mark(c)


@case("tree")
def stopped_deletion_of_a_file(c):
    """/SMALL.TXT, the last in a directory of its own, was removed: its name is gone, its node is not."""
    c.put_half(c.entry("/", len(c.names("/")) - 1), 0)
    size = c.record(1) + at.SIZE
    c.put_word(size, c.was(size) - at.ENTRY_SIZE)
    mark(c)
