"""Programs whose memory runs out at any of their allocations, by tests/short_memory/failing_heap.cc."""

import mmap
import os
import pathlib
import struct

from conftest import BIN

HEAP = BIN / "tests" / "failing_heap.so"
FOREVER = 1 << 62


class Heap:
    """The control of the heap of a program, with the processes that it starts."""

    def __init__(self, directory):
        self.path = pathlib.Path(directory) / "heap"
        self.path.write_bytes(bytes(mmap.PAGESIZE))
        with open(self.path, "r+b") as file:
            self.words = mmap.mmap(file.fileno(), mmap.PAGESIZE)

    def environment(self):
        return {**os.environ, "LD_PRELOAD": str(HEAP), "QDT_FAILING_HEAP": str(self.path)}

    def fail(self, number, count=FOREVER):
        """From the allocation of this number on, 1 for the next, `count` of them fail; none with 0."""
        self.words[:32] = struct.pack("<4Q", 0, number, 0, count)

    def asked(self):
        return struct.unpack_from("<Q", self.words, 0)[0]

    def failed(self):
        return struct.unpack_from("<Q", self.words, 16)[0]


def chosen(count, runs):
    """At most `runs` of the allocations 1 to `count`: the first ones, the last ones, and evenly those between."""
    if runs is None or count <= runs:
        return list(range(1, count + 1))
    ends = runs // 4
    steps = runs - 2 * ends
    between = {ends + 1 + (count - 2 * ends - 1) * i // max(1, steps - 1) for i in range(steps)}
    return sorted({*range(1, ends + 1), *between, *range(count - ends + 1, count + 1)})
