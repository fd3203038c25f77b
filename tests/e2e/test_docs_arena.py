"""docs/arena.md: the header of a file is what the page says, and the tests that it names exist."""

import re

import pytest

from conftest import ROOT

PAGE = (ROOT / "docs/arena.md").read_text()
TESTS = "\n".join(path.read_text() for path in sorted((ROOT / "tests").rglob("*.cc")))


def header_rows():
    """Offset, size and meaning by the field's name."""
    table = PAGE.split("### Header\n", 1)[1].split("\n### ", 1)[0]
    rows = re.findall(r"^\| (\d+) \| (\d+) \| (\w+) \|(.*)\|$", table, re.MULTILINE)
    assert len(rows) > 20
    return {name: (int(offset), int(size), meaning.strip()) for offset, size, name, meaning in rows}


def test_the_header_is_that_of_the_page(engine):
    rows = header_rows()
    with open(engine.arena, "rb") as file:
        header = file.read(728)
    assert sum(size for _, size, _ in rows.values()) == len(header)
    end = 0
    for name, (offset, size, _) in rows.items():
        assert offset == end, name
        end += size

    def stored(name):
        offset, size, _ = rows[name]
        return int.from_bytes(header[offset:offset + size], "little")

    assert header[:8].decode() == rows["magic"][2].strip('"')
    for name in ("version", "byteOrder", "pointerSize", "headerSize", "tableCount"):
        assert stored(name) == int(re.match(r"\w+", rows[name][2]).group(), 0), name
    assert stored("enginePid") == engine.process.pid
    assert stored("state") == int(re.search(r"ready (0x\w+)", rows["state"][2]).group(1), 0)


@pytest.mark.parametrize("named", sorted(set(re.findall(r"`(\w+Test(?:\.[\w*]+)?)`", PAGE))))
def test_a_test_that_is_named_exists(named):
    suite, _, name = named.partition(".")
    pattern = rf"\bTEST(_F|_P)?\({suite},\s*{name}\)" if name not in ("", "*") else rf"\bTEST(_F|_P)?\({suite},"
    assert re.search(pattern, TESTS), named
