"""Node-block table, node bitmap and node records."""
import container as at
from case import into

CASES = []
case = into(CASES)


def table(index):
    return at.TABLE + 4 * index


# ---- Node-block table -----------------------------------------------------------------------------------------------


@case("tree")
def table_first_entry_zero(c):
    """The table names no block for nodes 1 to 16, the root among them."""
    c.put_word(table(0), 0)


@case("tree")
def table_entry_zero(c):
    """The table names no block for nodes 17 to 32."""
    c.put_word(table(1), 0)


@case("tree")
def table_entry_outside(c):
    """The table names a block beyond the container's end for nodes 33 to 48."""
    c.put_word(table(2), 5000)


@case("tree")
def table_entry_foreign(c):
    """The table names a block of /DOUBLE.BIN for nodes 33 to 48."""
    c.put_word(table(2), c.data_block("/DOUBLE.BIN", 100))


@case("tree")
def table_entries_swapped(c):
    """The table's entries for nodes 17 to 32 and 33 to 48 are swapped."""
    c.put_word(table(1), c.was(table(2)))
    c.put_word(table(2), c.was(table(1)))


@case("tree")
def table_entry_twice(c):
    """The table names for nodes 49 to 64 the block of nodes 33 to 48."""
    c.put_word(table(3), c.was(table(2)))


@case("tree")
def table_entry_unneeded(c):
    """The table has an entry for nodes that the bitmap does not reach, which names a block of /DOUBLE.BIN."""
    c.put_word(table(100), c.data_block("/DOUBLE.BIN", 100))


@case("tree")
def table_zeros(c):
    """All of the node-block table is zeros."""
    c.put(at.TABLE, bytes(896))


# ---- Node bitmap ----------------------------------------------------------------------------------------------------


@case("tree")
def bitmap_file_free(c):
    """The bitmap calls the node of /SMALL.TXT free."""
    c.flip("/SMALL.TXT")


@case("tree")
def bitmap_directory_free(c):
    """The bitmap calls the node of /LOGS free, which holds 68 files."""
    c.flip("/LOGS")


@case("tree")
def bitmap_root_free(c):
    """The bitmap calls the root's node free."""
    c.flip(1)


@case("tree")
def bitmap_all_free(c):
    """The bitmap calls every node free."""
    c.put(at.BITMAP, b"\xff" * 12)


@case("tree")
def bitmap_all_used(c):
    """The bitmap calls every node used."""
    c.put(at.BITMAP, bytes(12))


@case("tree")
def bitmap_free_node_used(c):
    """The bitmap calls a node used that was deleted."""
    c.flip(8)


@case("plain")
def bitmap_zeros(c):
    """The bitmap calls all of 8192 nodes used."""
    c.put(at.BITMAP, bytes(1024))


@case("plain")
def bitmap_used_without_a_block(c):
    """The bitmap calls node 100 used, for which there is no node block yet."""
    c.flip(100)


# ---- Records --------------------------------------------------------------------------------------------------------


@case("tree")
def node_signature(c):
    """The record of /SMALL.TXT does not begin with "INO1"."""
    c.put(c.record("/SMALL.TXT"), b"ino1")


@case("tree")
def node_number(c):
    """The record of /SMALL.TXT carries the number of /SINGLE.BIN."""
    c.put_half(c.record("/SMALL.TXT") + at.NUMBER, c.node("/SINGLE.BIN"))


@case("tree")
def node_signature_and_number(c):
    """The record of /LOGS has zeros where signature and number should be."""
    c.put(c.record("/LOGS"), bytes(6))


@case("tree")
def node_zeros(c):
    """The record of /SMALL.TXT is zeros."""
    c.put(c.record("/SMALL.TXT"), bytes(64))


@case("tree")
def node_of_directory_zeros(c):
    """The record of /A is zeros; its block is still there."""
    c.put(c.record("/A"), bytes(64))


@case("tree")
def node_of_large_directory_zeros(c):
    """The record of /LOGS is zeros; its three blocks are still there."""
    c.put(c.record("/LOGS"), bytes(64))


@case("tree")
def node_text(c):
    """A text lies over the record of /SMALL.TXT."""
    c.put(c.record("/SMALL.TXT"), b"0123456789abcdef" * 4)


@case("tree")
def node_block_zeros(c):
    """The block of nodes 33 to 48, with 16 files of /LOGS, is zeros."""
    c.put(c.block(c.was(table(2))), bytes(1024))


@case("tree")
def node_first_block_zeros(c):
    """The block of nodes 1 to 16, with the root, every directory and all large files, is zeros."""
    c.put(c.block(1), bytes(1024))


@case("tree")
def node_free_record_damaged(c):
    """The record of a free node has neither signature nor number."""
    c.put(c.record(8), b"\xff" * 64)


@case("tree")
def node_copied_over_another(c):
    """The record of /A/NOTE.TXT is that of /SMALL.TXT."""
    c.put(c.record("/A/NOTE.TXT"), c.sound[c.record("/SMALL.TXT"):][:64])


@case("tree")
def node_attributes_unknown(c):
    """The record of /SMALL.TXT has attribute bits that no file has, and the read-only bit."""
    c.put_half(c.record("/SMALL.TXT") + at.ATTRIBUTES, 0xF0F1)


@case("tree")
def node_file_as_directory(c):
    """The record of /SMALL.TXT says that it is a directory."""
    c.put_half(c.record("/SMALL.TXT") + at.ATTRIBUTES, 8)


@case("tree")
def node_directory_as_file(c):
    """The record of /LOGS says that it is a file."""
    c.put_half(c.record("/LOGS") + at.ATTRIBUTES, 0)


@case("tree")
def node_reserved_bytes(c):
    """The record of /SMALL.TXT has reserved bytes that are set, in both places."""
    c.put(c.record("/SMALL.TXT") + at.TIME_RESERVED, b"\x07")
    c.put_word(c.record("/SMALL.TXT") + at.NODE_RESERVED + 8, 0x01020304)


@case("tree")
def node_time(c):
    """The record of /SMALL.TXT has the 30th of February as its day."""
    c.put(c.record("/SMALL.TXT") + at.TIME + 2, b"\x02\x1e")


# ---- Sizes of files -------------------------------------------------------------------------------------------------


@case("tree")
def size_out_of_range(c):
    """The size of /SMALL.TXT is 2^32 - 1."""
    c.put_word(c.record("/SMALL.TXT") + at.SIZE, 0xFFFFFFFF)


@case("tree")
def size_too_large(c):
    """The size of /SMALL.TXT, of two blocks, is 5000."""
    c.put_word(c.record("/SMALL.TXT") + at.SIZE, 5000)


@case("tree")
def size_too_small(c):
    """The size of /SINGLE.BIN, of ten blocks, is 100."""
    c.put_word(c.record("/SINGLE.BIN") + at.SIZE, 100)


@case("tree")
def size_zero(c):
    """The size of /DOUBLE.BIN, of 264 blocks, is 0."""
    c.put_word(c.record("/DOUBLE.BIN") + at.SIZE, 0)


@case("tree")
def size_of_empty_file(c):
    """The size of /EMPTY.TXT, which has no block, is 1."""
    c.put_word(c.record("/EMPTY.TXT") + at.SIZE, 1)


# ---- The root -------------------------------------------------------------------------------------------------------


@case("tree")
def root_record_zeros(c):
    """The root's record is zeros; its block is still there."""
    c.put(c.record(1), bytes(64))


@case("tree")
def root_attributes(c):
    """The root's record has a directory's attributes and not the root's."""
    c.put_half(c.record(1) + at.ATTRIBUTES, 8)


@case("tree")
def root_as_file(c):
    """The root's record says that it is a file."""
    c.put_half(c.record(1) + at.ATTRIBUTES, 0)


@case("tree")
def root_without_block(c):
    """The root's record names no first block; the block is still there."""
    c.put_word(c.record(1) + at.DIRECT, 0)


@case("tree")
def root_block_zeros(c):
    """The root's only block is zeros: all names in the root are gone."""
    c.put(c.block(c.data_block(1, 0)), bytes(1024))
