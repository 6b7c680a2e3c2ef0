"""The header: fields that are wrong, alone and together."""
import struct

import container as at
from case import into

CASES = []
case = into(CASES)


@case("plain")
def header_signature(c):
    """The container begins with "ORBX"."""
    c.put(0, b"ORBX")


@case("plain")
def header_version(c):
    """The version is "2.0 "."""
    c.put(4, b"2.0 ")


@case("plain")
def header_size_zero(c):
    """The header's size is 0."""
    c.put_word(at.HEADER_SIZE, 0)


@case("plain")
def header_table_offset(c):
    """The node-block table lies 4 bytes too far behind, says the header."""
    c.put_word(at.TABLE_OFFSET, 132)


@case("plain")
def header_table_size(c):
    """The node-block table has one entry less, says the header."""
    c.put_word(at.TABLE_SIZE, 892)


@case("plain")
def header_bitmap_offset(c):
    """The node bitmap lies beyond the container's end, says the header."""
    c.put_word(at.BITMAP_OFFSET, 0x40000000)


@case("plain")
def header_bitmap_size_halved(c):
    """The node bitmap has half its size, says that field alone."""
    c.put_word(at.BITMAP_SIZE, 512)


@case("plain")
def header_bitmap_size_out_of_range(c):
    """The node bitmap has 2^32 - 1 bytes, says that field alone."""
    c.put_word(at.BITMAP_SIZE, 0xFFFFFFFF)


@case("plain")
def header_reserved_offset(c):
    """The reserved region begins in the middle of the bitmap."""
    c.put_word(at.RESERVED_OFFSET, 1536)


@case("plain")
def header_reserved_size_out_of_range(c):
    """The reserved region has 2^31 - 1 bytes."""
    c.put_word(at.RESERVED_SIZE, 0x7FFFFFFF)


@case("plain")
def header_data_offset(c):
    """The data area begins a block too far behind."""
    c.put_word(at.DATA_OFFSET, c.was(at.DATA_OFFSET) + 4096)


@case("plain")
def header_block_size_zero(c):
    """The block size is 0."""
    c.put_word(at.BLOCK_SIZE, 0)


@case("plain")
def header_block_size_no_power(c):
    """The block size is 3000, which no container can have."""
    c.put_word(at.BLOCK_SIZE, 3000)


@case("plain")
def header_block_shift_out_of_range(c):
    """The block shift is 40, more than a number of 32 bits can be shifted by."""
    c.put_word(at.BLOCK_SHIFT, 40)


@case("plain")
def header_block_size_halved(c):
    """Block size and block shift agree on 2048, but the blocks have 4096 bytes."""
    c.put_word(at.BLOCK_SIZE, 2048)
    c.put_word(at.BLOCK_SHIFT, 11)


@case("tree")
def header_block_size_doubled(c):
    """Block size and block shift agree on 2048, but the blocks have 1024 bytes."""
    c.put_word(at.BLOCK_SIZE, 2048)
    c.put_word(at.BLOCK_SHIFT, 11)


@case("tree")
def header_of_another_container(c):
    """The header is that of a container with larger blocks and a larger bitmap; in itself it is sound."""
    c.put(0, at.sound("plain")[:128])


@case("tree")
def header_zeros(c):
    """All of the header is zeros."""
    c.put(0, bytes(128))


@case("tree")
def header_and_table_zeros(c):
    """All of the header and of the node-block table is zeros."""
    c.put(0, bytes(1024))


@case("tree")
def header_text_and_table_zeros(c):
    """A text lies over the header, and all of the node-block table is zeros."""
    c.put(0, (b"The quick brown fox jumps over the lazy dog.\n" * 3)[:128])
    c.put(at.TABLE, bytes(896))


@case("plain")
def header_reserved_byte(c):
    """The last reserved byte of the header is set."""
    c.put(127, b"\x01")


@case("plain")
def header_flag_without_meaning(c):
    """A state flag is set that has no meaning."""
    c.put_word(at.STATE_FLAGS, 0x100)


@case("plain")
def header_shift_bits(c):
    """The block shift has bits above its lowest byte, which a reader leaves alone."""
    c.put_word(at.BLOCK_SHIFT, 0xABCD000C)


@case("tree")
def header_marked(c):
    """Only the mark of an update in progress is set."""
    c.put_word(at.STATE_FLAGS, 1)


@case("tree")
def header_every_word_out_of_range(c):
    """Every word of the header from the header's size to the free chain is 2^32 - 1."""
    c.put(at.HEADER_SIZE, struct.pack("<I", 0xFFFFFFFF) * 11)
