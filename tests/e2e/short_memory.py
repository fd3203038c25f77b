"""Programs whose memory runs out at any of their allocations, by tests/preloads/failing_heap.cc."""

import contextlib
import mmap
import os
import pathlib
import shutil
import struct

from conftest import BIN

HEAP = BIN / "tests" / "failing_heap.so"
FOREVER = 1 << 62
# How many of a program's allocations fail, each in a run of its own; "all" in the long form.
RUNS = os.environ.get("QDT_SHORT_MEMORY", "4")
LINE = "there is not enough memory; end other programs, or allow this one more (ulimit -v)"


class Heap:
    """The control of the heap of a program, and of those that it starts."""

    def __init__(self, directory, spares=""):
        self.path = pathlib.Path(directory) / "heap"
        self.path.write_bytes(bytes(mmap.PAGESIZE))
        with open(self.path, "r+b") as file:
            self.words = mmap.mmap(file.fileno(), mmap.PAGESIZE)
        self.settings = {"LD_PRELOAD": str(HEAP), "QDT_FAILING_HEAP": str(self.path), "QDT_HEAP_SPARES": spares}

    def environment(self):
        return {**os.environ, **self.settings}

    @contextlib.contextmanager
    def inherited(self):
        """Programs that are started meanwhile have the heap."""
        os.environ.update(self.settings)
        try:
            yield self
        finally:
            for name in self.settings:
                del os.environ[name]

    def fail(self, number, count=FOREVER):
        """From the allocation of this number on, 1 for the next, `count` of them fail; none with 0."""
        self.words[:32] = struct.pack("<4Q", 0, number, 0, count)

    def asked(self):
        return struct.unpack_from("<Q", self.words, 0)[0]

    def failed(self):
        return struct.unpack_from("<Q", self.words, 16)[0]


def chosen(count, runs=None):
    """Which of the allocations 1 to `count` fail: the first ones, the last ones, and evenly those between."""
    runs = runs or RUNS
    if runs == "all" or count <= int(runs):
        return list(range(1, count + 1))
    ends = int(runs) // 4
    steps = int(runs) - 2 * ends
    between = {ends + 1 + (count - 2 * ends - 1) * i // max(1, steps - 1) for i in range(steps)}
    return sorted({*range(1, ends + 1), *between, *range(count - ends + 1, count + 1)})


def shared_tools(directory):
    """nqecli as a program of shared libraries, beside its companions."""
    place = pathlib.Path(directory) / "bin"
    place.mkdir()
    shutil.copy(BIN / "tests" / "nqecli", place / "nqecli")
    for name in ("nqecli-sql", "nqecli-agent"):
        shutil.copy(BIN / name, place / name)
    return place / "nqecli"
