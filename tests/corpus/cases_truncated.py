"""Containers that are too short, or too long."""
import container as at
from case import into

CASES = []
case = into(CASES)


@case("tree")
def truncated_to_nothing(c):
    """Nothing is left of the container."""
    c.cut(0)


@case("tree")
def truncated_in_the_header(c):
    """The container ends in the middle of the header."""
    c.cut(64)


@case("tree")
def truncated_in_the_table(c):
    """The container ends in the middle of the node-block table."""
    c.cut(500)


@case("tree")
def truncated_in_the_bitmap(c):
    """The container ends in the middle of the node bitmap."""
    c.cut(1030)


@case("tree")
def truncated_before_the_first_block(c):
    """The container ends before its data area."""
    c.cut(1036)


@case("tree")
def truncated_in_the_first_block(c):
    """The container ends in the middle of the block of nodes 1 to 16."""
    c.cut(c.block(1) + 500)


@case("tree")
def truncated_behind_the_first_block(c):
    """The container ends before the root's block."""
    c.cut(c.block(2))


@case("tree")
def truncated_behind_the_root(c):
    """The container ends behind the root's block."""
    c.cut(c.block(3))


@case("tree")
def truncated_in_a_large_file(c):
    """The container ends in the middle of /DOUBLE.BIN, and of its block 99."""
    c.cut(c.block(c.data_block("/DOUBLE.BIN", 99)) + 512)


@case("tree")
def truncated_in_the_logs(c):
    """The container ends before the second block of /LOGS, with half of the files there and their nodes."""
    c.cut(c.block(c.data_block("/LOGS", 1)))


@case("tree")
def truncated_last_block(c):
    """The container has lost its last block, which is that of /LOGS/L67."""
    c.cut(c.block(c.blocks))


@case("tree")
def truncated_last_byte(c):
    """The container has lost its last byte, behind the end of /LOGS/L67."""
    c.cut(len(c.data) - 1)


@case("tree")
def truncated_in_the_data_of_the_last_file(c):
    """The container ends after 30 of the 40 bytes of /LOGS/L67."""
    c.cut(c.block(c.blocks) + 30)


@case("tree")
def truncated_in_a_node_block(c):
    """The container ends in the middle of the last block of nodes, behind the records of the two last files."""
    c.cut(c.record(81) + 64)


@case("freed")
def truncated_in_the_free_chain(c):
    """The container has lost its last 20 blocks, all free, the first record of the free chain among them."""
    c.cut(c.block(c.blocks - 19))


@case("tree")
def longer_by_half_a_block(c):
    """512 bytes follow the last block, as an append leaves them that was stopped."""
    c.data += b"\xee" * 512


@case("tree")
def longer_by_three_blocks(c):
    """Three blocks follow that nothing names."""
    c.data += b"\xee" * 3072


@case("plain")
def truncated_to_a_header_of_zeros(c):
    """The container has its 2048 bytes before the data area, all zeros, and nothing else."""
    c.data = bytearray(2048)


@case("plain")
def no_container(c):
    """The file is a text of 5000 bytes."""
    c.data = bytearray((b"Not a container at all, just some lines of text.\n" * 103)[:5000])
