"""Directories: "." and "..", sizes, entries, names, and directories that contain each other."""
import container as at
from case import into

CASES = []
case = into(CASES)


def resize(c, directory, change):
    c.put_word(c.record(directory) + at.SIZE, c.size(directory) + change)


# ---- "." and ".." ---------------------------------------------------------------------------------------------------


@case("tree")
def dot_number(c):
    """The "." of /A/B names /LOGS."""
    c.put_half(c.entry("/A/B", 0), c.node("/LOGS"))


@case("tree")
def dot_name(c):
    """The "." of /A/B is called "X"."""
    c.put_name(c.entry("/A/B", 0), "X")


@case("tree")
def dot_dot_number(c):
    """The ".." of /A/B names /LOGS instead of /A."""
    c.put_half(c.entry("/A/B", 1), c.node("/LOGS"))


@case("tree")
def dot_dot_out_of_range(c):
    """The ".." of /A/B names a node that the volume cannot have."""
    c.put_half(c.entry("/A/B", 1), 0xFFFF)


@case("tree")
def dot_dot_file(c):
    """The ".." of /A/B names a file."""
    c.put_half(c.entry("/A/B", 1), c.node("/SMALL.TXT"))


@case("tree")
def dot_dot_name(c):
    """The ".." of /A/B has no name."""
    c.put_name(c.entry("/A/B", 1), "")


@case("tree")
def dot_dot_of_the_root(c):
    """The ".." of the root names /A."""
    c.put_half(c.entry("/", 1), c.node("/A"))


@case("tree")
def dots_zeros(c):
    """The two first entries of /LOGS are zeros."""
    c.put(c.entry("/LOGS", 0), bytes(64))


@case("tree")
def dots_swapped(c):
    """The two first entries of /A/B are swapped."""
    first, second = c.entry("/A/B", 0), c.entry("/A/B", 1)
    c.put(first, c.sound[second:second + 32])
    c.put(second, c.sound[first:first + 32])


# ---- Sizes ----------------------------------------------------------------------------------------------------------


@case("tree")
def directory_size_zero(c):
    """The size of /A, which holds a directory and a file, is 0."""
    c.put_word(c.record("/A") + at.SIZE, 0)


@case("tree")
def directory_size_one_entry(c):
    """The size of /A counts "." alone."""
    c.put_word(c.record("/A") + at.SIZE, 32)


@case("tree")
def directory_size_odd(c):
    """The size of /A is 13 bytes above that of its entries."""
    resize(c, "/A", 13)


@case("tree")
def directory_size_odd_below(c):
    """The size of /LOGS ends in the middle of its last entry."""
    resize(c, "/LOGS", -16)


@case("tree")
def directory_size_two_entries_less(c):
    """The size of /LOGS does not count its last two entries."""
    resize(c, "/LOGS", -64)


@case("tree")
def directory_size_one_block(c):
    """The size of /LOGS, of three blocks, counts the entries of its first block alone."""
    c.put_word(c.record("/LOGS") + at.SIZE, 1024)


@case("tree")
def directory_size_three_entries_more(c):
    """The size of /LOGS counts three entries more than there are."""
    resize(c, "/LOGS", 96)


@case("tree")
def directory_size_two_blocks_more(c):
    """The size of /LOGS counts two blocks more than there are."""
    resize(c, "/LOGS", 2048)


@case("tree")
def directory_size_out_of_range(c):
    """The size of /LOGS is 2^32 - 32."""
    c.put_word(c.record("/LOGS") + at.SIZE, 0xFFFFFFE0)


@case("tree")
def root_size_zero(c):
    """The root's size is 0."""
    c.put_word(c.record(1) + at.SIZE, 0)


@case("tree")
def directory_end_mark_missing(c):
    """Numbers are set behind the last entry of /A, with nothing that could be a name."""
    for index in range(4, 32):
        c.put_half(c.entry("/A", index), 0xEEEE)


@case("tree")
def directory_left_overs_behind_the_end(c):
    """A number is set behind the end mark of /A, where nobody looks."""
    c.put_half(c.entry("/A", 6), 17)


# ---- Entries --------------------------------------------------------------------------------------------------------


@case("tree")
def entry_to_free_node(c):
    """The entry of /SMALL.TXT names a node that never was in use."""
    c.put_half(c.entry("/", "SMALL.TXT"), 90)


@case("tree")
def entry_to_deleted_node(c):
    """The entry of /SMALL.TXT names a node that was deleted."""
    c.put_half(c.entry("/", "SMALL.TXT"), 8)


@case("tree")
def entry_added_to_free_node(c):
    """An entry more in /A names a node that never was in use."""
    c.put_entry(c.entry("/A", 4), 90, "GHOST")
    resize(c, "/A", 32)


@case("tree")
def entry_out_of_range(c):
    """The entry of the directory /A/B names a node that the volume cannot have."""
    c.put_half(c.entry("/A", "B"), 40000)


@case("tree")
def entry_to_the_root(c):
    """The entry of /A/B/C names the root."""
    c.put_half(c.entry("/A/B", "C"), 1)


@case("tree")
def entry_zero_in_the_middle(c):
    """The entry of /LOGS/L10 has number 0, which ends the directory for a reader."""
    c.put_half(c.entry("/LOGS", "L10"), 0)


@case("tree")
def entry_zero_at_the_end(c):
    """The last entry of /LOGS has number 0, as a removal leaves it that was stopped."""
    c.put_half(c.entry("/LOGS", "L67"), 0)


@case("tree")
def entry_to_another_file(c):
    """The entry of /SMALL.TXT names /SINGLE.BIN, which so has two names in one directory; /SMALL.TXT has none."""
    c.put_half(c.entry("/", "SMALL.TXT"), c.node("/SINGLE.BIN"))


@case("tree")
def entry_to_file_elsewhere(c):
    """An entry more in /A names /LOGS/L05, as a move leaves it that was stopped."""
    c.put_entry(c.entry("/A", 4), c.node("/LOGS/L05"), "MOVED")
    resize(c, "/A", 32)


@case("tree")
def entries_all_to_one_file(c):
    """All names in /LOGS of its second block name /LOGS/L00."""
    for index in range(32, 64):
        c.put_half(c.entry("/LOGS", index), c.node("/LOGS/L00"))


@case("tree")
def entry_not_yet_counted(c):
    """The last entry of the root is not counted, as a creation leaves it that was stopped."""
    resize(c, 1, -32)


@case("tree")
def entry_twice(c):
    """The last entry of /LOGS stands in the place of L10 too, as a removal leaves it that was stopped."""
    last = c.entry("/LOGS", "L67")
    c.put(c.entry("/LOGS", "L10"), c.sound[last:last + 32])


@case("tree")
def directory_block_zeros(c):
    """The second block of /LOGS, with 32 names, is zeros."""
    c.put(c.block(c.data_block("/LOGS", 1)), bytes(1024))


@case("tree")
def directory_block_text(c):
    """A text lies over the second block of /LOGS, with 32 names."""
    c.put(c.block(c.data_block("/LOGS", 1)), (b"All work and no play makes Jack a dull boy.\r\n" * 23)[:1024])


@case("tree")
def directory_block_half_text(c):
    """A text lies over the first entries of the second block of /LOGS; the last ten are sound."""
    c.put(c.block(c.data_block("/LOGS", 1)), b"All work and no play makes Jack " * 22)


@case("tree")
def directory_first_block_text(c):
    """A text lies over the first block of /LOGS, with its dots and 30 names."""
    c.put(c.block(c.data_block("/LOGS", 0)), b"All work and no play makes Jack " * 32)


@case("wide")
def directory_last_block_given_back(c):
    """The last block of /WIDE, with one entry, is a record of the free chain, as a stopped removal leaves it."""
    block = c.data_block("/WIDE", 6)
    c.put(c.block(block), b"FBC1" + bytes(1020))
    c.put_word(at.CHAIN_HEAD, block)


@case("wide")
def directory_indirect_block_outside(c):
    """The indirect block of /WIDE, which names its last block, lies beyond the container's end."""
    c.put_word(c.record("/WIDE") + at.INDIRECT, 9999)


# ---- Names ----------------------------------------------------------------------------------------------------------


@case("tree")
def name_lower_case(c):
    """/SMALL.TXT is called "small.txt"."""
    c.put_name(c.entry("/", "SMALL.TXT"), "small.txt")


@case("tree")
def name_illegal_characters(c):
    """/SMALL.TXT is called "SM/LL TXT" with a control character in front."""
    c.put_name(c.entry("/", "SMALL.TXT"), "\x01SM/LL TXT")


@case("tree")
def name_empty(c):
    """The directory /A has no name."""
    c.put_name(c.entry("/", "A"), "")


@case("tree")
def name_without_end(c):
    """The name of /SMALL.TXT has 30 characters and no end."""
    c.put_name(c.entry("/", "SMALL.TXT"), "X" * 30)


@case("tree")
def name_dot_dot(c):
    """/SMALL.TXT is called ".."."""
    c.put_name(c.entry("/", "SMALL.TXT"), "..")


@case("tree")
def name_twice(c):
    """/SMALL.TXT is called "DOUBLE.BIN" like the file behind it."""
    c.put_name(c.entry("/", "SMALL.TXT"), "DOUBLE.BIN")


@case("tree")
def name_twice_but_for_case(c):
    """/LOGS/L20 is called "l30" beside /LOGS/L30."""
    c.put_name(c.entry("/LOGS", "L20"), "l30")


# ---- Cycles ---------------------------------------------------------------------------------------------------------


@case("tree")
def cycle_of_directories(c):
    """The entry /A names DEEP.TXT, and the entry /A/B/C/DEEP.TXT names the directory A: A, B and C hang in the air."""
    c.put_half(c.entry("/", "A"), c.node("/A/B/C/DEEP.TXT"))
    c.put_half(c.entry("/A/B/C", "DEEP.TXT"), c.node("/A"))


@case("tree")
def cycle_directory_in_itself(c):
    """The entry /LOGS names the file L00, and the entry /LOGS/L00 names LOGS itself."""
    c.put_half(c.entry("/", "LOGS"), c.node("/LOGS/L00"))
    c.put_half(c.entry("/LOGS", "L00"), c.node("/LOGS"))


@case("tree")
def cycle_below_the_root(c):
    """An entry more in /A/B/C names /A, which keeps its place."""
    c.put_entry(c.entry("/A/B/C", 3), c.node("/A"), "UP")
    resize(c, "/A/B/C", 32)


@case("tree")
def directory_with_two_names(c):
    """An entry more in /LOGS names /A/B, as a move leaves it that was stopped before it changed the ".."."""
    c.put_entry(c.entry("/LOGS", 70), c.node("/A/B"), "MOVED")
    resize(c, "/LOGS", 32)


@case("tree")
def directory_with_two_names_and_new_dot_dot(c):
    """An entry more in /LOGS names /A/B, whose ".." already names /LOGS, as a move leaves it that was stopped there."""
    c.put_entry(c.entry("/LOGS", 70), c.node("/A/B"), "MOVED")
    resize(c, "/LOGS", 32)
    c.put_half(c.entry("/A/B", 1), c.node("/LOGS"))
