"""The free chain."""
import container as at
from case import into

CASES = []
case = into(CASES)


@case("tree")
def chain_head_outside(c):
    """The free chain begins in a block beyond the container's end."""
    c.put_word(at.CHAIN_HEAD, c.blocks + 1)


@case("tree")
def chain_head_zero(c):
    """The header names no free chain: all free blocks are leaked."""
    c.put_word(at.CHAIN_HEAD, 0)


@case("tree")
def chain_head_in_a_file(c):
    """The free chain begins in block 0 of /SMALL.TXT."""
    c.put_word(at.CHAIN_HEAD, c.data_block("/SMALL.TXT", 0))


@case("wide")
def chain_head_in_a_file_and_no_free_block(c):
    """The free chain, of a container without free blocks, begins in the block of /WIDE/W000."""
    c.put_word(at.CHAIN_HEAD, c.data_block("/WIDE/W000", 0))


@case("tree")
def chain_signature(c):
    """The record of the free chain does not begin with "FBC1"."""
    c.put(c.chain(), b"fbc1")


@case("tree")
def chain_count_above_capacity(c):
    """The record of the free chain counts one entry more than fits in a block."""
    c.put_word(c.chain() + at.COUNT, 254)


@case("tree")
def chain_count_out_of_range(c):
    """The record of the free chain counts 2^32 - 1 entries."""
    c.put_word(c.chain() + at.COUNT, 0xFFFFFFFF)


@case("tree")
def chain_count_too_small(c):
    """The record of the free chain counts its first three entries alone."""
    c.put_word(c.chain() + at.COUNT, 3)


@case("tree")
def chain_count_too_large(c):
    """The record of the free chain counts two entries more than it has, which are zeros."""
    c.put_word(c.chain() + at.COUNT, c.was(c.chain() + at.COUNT) + 2)


@case("tree")
def chain_entry_zero(c):
    """The free chain lists block 0."""
    c.put_word(c.chain() + at.ENTRIES, 0)


@case("tree")
def chain_entry_outside(c):
    """The free chain lists a block beyond the container's end."""
    c.put_word(c.chain() + at.ENTRIES + 32, 100000)


@case("tree")
def chain_entry_in_a_file(c):
    """The free chain lists block 3 of /SINGLE.BIN."""
    c.put_word(c.chain() + at.ENTRIES + 32, c.data_block("/SINGLE.BIN", 3))


@case("tree")
def chain_entry_in_a_map(c):
    """The free chain lists the indirect block of /DOUBLE.BIN."""
    c.put_word(c.chain() + at.ENTRIES + 32, c.was(c.record("/DOUBLE.BIN") + at.INDIRECT))


@case("tree")
def chain_entry_in_a_directory(c):
    """The free chain lists the second block of /LOGS."""
    c.put_word(c.chain() + at.ENTRIES + 32, c.data_block("/LOGS", 1))


@case("tree")
def chain_entry_of_nodes(c):
    """The free chain lists block 1, which holds the root's node."""
    c.put_word(c.chain() + at.ENTRIES, 1)


@case("tree")
def chain_entry_twice(c):
    """The free chain lists one block twice, and another one not at all."""
    c.put_word(c.chain() + at.ENTRIES + 32, c.free_blocks()[7])


@case("tree")
def chain_entry_is_the_record(c):
    """The record of the free chain lists itself."""
    c.put_word(c.chain() + at.ENTRIES, c.was(at.CHAIN_HEAD))


@case("tree")
def chain_heap_order(c):
    """The first and the last entry of the free chain's record are swapped, so that it is no heap."""
    first, last = c.chain() + at.ENTRIES, c.chain() + at.ENTRIES + 4 * len(c.free_blocks()) - 4
    c.put_word(first, c.was(last))
    c.put_word(last, c.was(first))


@case("freed")
def chain_link_outside(c):
    """The first of two records of the free chain names a next one beyond the container's end."""
    c.put_word(c.chain() + at.NEXT, 0x7FFFFFFF)


@case("freed")
def chain_link_lost(c):
    """The first of two records of the free chain names no next one."""
    c.put_word(c.chain() + at.NEXT, 0)


@case("freed")
def chain_cycle_of_two(c):
    """The second record of the free chain names the first as its next."""
    c.put_word(c.chain(1) + at.NEXT, c.was(at.CHAIN_HEAD))


@case("tree")
def chain_cycle_of_one(c):
    """The only record of the free chain names itself as its next."""
    c.put_word(c.chain() + at.NEXT, c.was(at.CHAIN_HEAD))


@case("freed")
def chain_second_record_signature(c):
    """The second record of the free chain is zeros."""
    c.put(c.chain(1), bytes(1024))


@case("freed")
def chain_second_record_partial(c):
    """The second record of the free chain counts one entry less than fits."""
    c.put_word(c.chain(1) + at.COUNT, 252)


@case("freed")
def chain_block_in_both_records(c):
    """The first record of the free chain lists a block that the second lists as well."""
    c.put_word(c.chain() + at.ENTRIES, c.free_blocks(1)[0])
