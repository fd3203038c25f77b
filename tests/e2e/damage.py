"""Snapshots with words at random all over them: tools have to answer, or to say in one line why not, in good time."""

import random


def damaged_copies(snapshot, file, count=12):
    """Makes `file` a damaged copy of the snapshot, `count` times, each another one."""
    generator = random.Random(7)
    for _ in range(count):
        file.write_bytes(b"")
        damage(snapshot, file, generator)
        yield file


def damage(snapshot, file, generator):
    """Copies with holes as holes, and a word in every eighth page of the contents replaced."""
    with open(snapshot, "rb") as source, open(file, "r+b") as target:
        target.truncate(source.seek(0, 2))
        at = 0
        while True:
            try:
                at = source.seek(at, 3)  # SEEK_DATA
            except OSError:
                return
            page = bytearray(source.read(4096))
            if at >= 65536 and generator.randrange(8) == 0:
                word = generator.randrange(len(page) // 8) * 8
                value = generator.getrandbits(64) if generator.randrange(3) == 0 else generator.randrange(64)
                page[word:word + 8] = value.to_bytes(8, "little")
            target.seek(at)
            target.write(page)
            at += 4096
