"""Compares containers byte by byte, the time stamps of nodes set aside: compare_containers.py REFERENCE OTHER..."""

import struct
import sys

NODE_SIZE, STAMP_OFFSET, STAMP_SIZE = 64, 8, 8
NODE_SIGNATURE = b"INO1"


def without_stamps(path):
    """The container with the stamp of every node in its node blocks zeroed, and how many nodes there were."""
    with open(path, "rb") as file:
        data = bytearray(file.read())
    header = struct.unpack_from("<14I", data, 0)
    table_offset, table_size, data_offset, block_size = header[3], header[4], header[9], header[10]
    nodes = 0
    for block in struct.unpack_from(f"<{table_size // 4}I", data, table_offset):
        start = data_offset + (block - 1) * block_size
        for node in range(start, start + block_size, NODE_SIZE) if block else ():
            if data[node:node + 4] != NODE_SIGNATURE:
                sys.exit(f"{path}: no node at offset {node}")
            data[node + STAMP_OFFSET:node + STAMP_OFFSET + STAMP_SIZE] = bytes(STAMP_SIZE)
            nodes += 1
    if nodes == 0:
        sys.exit(f"{path}: no nodes in it")
    return data, nodes


def main(reference, *others):
    expected, nodes = without_stamps(reference)
    for other in others:
        found, _ = without_stamps(other)
        if found != expected:
            differing = [i for i, (a, b) in enumerate(zip(expected, found)) if a != b]
            sys.exit(f"{other} differs from {reference}: {len(expected)} and {len(found)} bytes, "
                     f"{len(differing)} of them differ, the first at {differing[:1]}")
    print(f"{len(others)} containers equal {reference}: {len(expected)} bytes, {nodes} nodes")


if len(sys.argv) < 3:
    sys.exit(__doc__)
main(*sys.argv[1:])
