"""Flash that was erased, so that all bytes are 0xFF, or never written, so that they are zeros."""
import container as at
from case import into

CASES = []
case = into(CASES)


def erase(c, start, end):
    c.put(start, b"\xff" * (end - start))


@case("tree")
def erased_header_table_and_bitmap(c):
    """The header, the node-block table and the bitmap are erased."""
    erase(c, 0, c.block(1))


@case("tree")
def erased_bitmap_and_first_blocks(c):
    """The bitmap, the block of nodes 1 to 16 and the root's block are erased."""
    erase(c, at.BITMAP, c.block(3))


@case("tree")
def erased_table_entry_and_bits(c):
    """The table names no block for nodes 17 to 32, and the bitmap calls them free."""
    c.put_word(at.TABLE + 4, 0)
    erase(c, at.BITMAP + 2, at.BITMAP + 4)


@case("tree")
def erased_bit_and_name(c):
    """The bitmap calls the node of /SMALL.TXT free, and its entry is zeros."""
    c.flip("/SMALL.TXT")
    c.put(c.entry("/", "SMALL.TXT"), bytes(32))


@case("tree")
def erased_first_4096_bytes(c):
    """The first 4096 bytes are erased: all before the data area, the blocks of nodes 1 to 16, the root and /A."""
    erase(c, 0, 4096)


@case("plain")
def erased_first_4096_bytes_default(c):
    """The first 4096 bytes are zeros: all before the data area and the first half of the node block, all nodes used."""
    c.put(0, bytes(4096))
