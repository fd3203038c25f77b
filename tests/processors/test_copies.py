"""Engines of two processors on one scenario: the same bytes in their copies, which the programs of both read alike.

QDT_BIN names the programs of one processor, QDT_OTHER_BIN those of the other, and this machine runs both.
"""

import contextlib
import json
import os
import pathlib
import re
import struct
import sys
from unittest import mock

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

import conftest as processes  # noqa: E402
from test_show_data import QUERIES, TABLES, VIEWS, Asker  # noqa: E402

BINS = {"one": processes.BIN, "other": pathlib.Path(os.environ["QDT_OTHER_BIN"]).resolve()}
COPIES = tuple(BINS)

# Where the header tells of the arena itself and not of its form: process, start, identity, key of the hash, paths, when it
# was saved, by whom, the sum over all that.
OWN = range(112, 720)
SHAPE = 112

# Words of records that hold a moment, by table: the engines were not started at the same one.
MOMENTS = {"CAP_TABLE_SESSION": {16, 144}, "CAP_TABLE_SERVER_MAP": {40}}


# The view of a rate limiter turns amounts a tick into amounts a second by the timer of the processor that it runs on.
RATES = re.compile(r"^  Ctrl[CP]ir +:  \d+\n", re.MULTILINE)


def tool(name, *words):
    """nqecli of a processor."""
    with mock.patch.object(processes, "BIN", BINS[name]):
        return processes.nqecli(*words)


@pytest.fixture(scope="module")
def copies():
    """A copy of an engine of each processor, both on the same scenario."""
    with contextlib.ExitStack() as stack:
        made = {}
        for name in COPIES:
            with mock.patch.object(processes, "BIN", BINS[name]):
                made[name] = stack.enter_context(processes.site_of(ROOT / "examples" / "campus.yaml")).snapshot
        yield made


class Copy:
    """The bytes of a copy."""

    def __init__(self, path):
        self.bytes = path.read_bytes()

    def longs(self, at, count):
        return struct.unpack_from(f"<{count}Q", self.bytes, at)

    def places(self):
        """Where the directory begins and how long it is; where the records begin and end."""
        return self.longs(48, 2) + self.longs(88, 2)

    def form(self):
        """The header without what is the arena's own, and the directory."""
        begin, size = self.places()[:2]
        header = bytes(0 if place in OWN else byte for place, byte in enumerate(self.bytes[:begin]))
        return header, self.bytes[begin:begin + size]

    def slots(self):
        """Of each table that has records: its name, where its slots begin and end, and what one takes."""
        for table in range(109):
            at = self.places()[0] + SHAPE * table
            capacity, = struct.unpack_from("<I", self.bytes, at + 12)
            name, _, slot = struct.unpack_from("<III", self.bytes, at + 24)
            begin, = struct.unpack_from("<Q", self.bytes, at + 96)
            if capacity:
                yield self.bytes[name:self.bytes.index(b"\0", name)].decode(), begin, begin + slot * capacity, slot


def differing_words(a, b, begin, end):
    if a.bytes[begin:end] == b.bytes[begin:end]:
        return []
    return [at for at in range(begin, end, 8) if a.bytes[at:at + 8] != b.bytes[at:at + 8]]


def test_every_byte_of_a_copy_stands_where_it_stands_on_the_other_processor(copies):
    one, other = (Copy(copies[name]) for name in COPIES)
    assert one.form() == other.form()
    assert one.longs(24, 1)[0] < 1 << 39, "at an address that not every machine has"
    # Records hold addresses of other records; there too both have the same.
    moments, records = set(), 0
    for name, begin, end, slot in one.slots():
        records += one.bytes[begin:end].count(0) != end - begin
        for at in differing_words(one, other, begin, end):
            assert (at - begin) % slot in MOMENTS.get(name, ()), f"{name}, slot {(at - begin) // slot}, byte {(at - begin) % slot}"
            moments.add(name)
    assert records > 80 and moments <= set(MOMENTS)


def answers(copy, *words):
    """What the programs of both say of a copy, which is the same; it is returned."""
    one, other = (tool(name, "--snapshot", copy, *words) for name in COPIES)
    said = [RATES.sub("", result.out) if words[:2] == ("show", "car") else result.out for result in (one, other)]
    assert (one.code, said[0], one.err) == (other.code, said[1], other.err), (one, other)
    return one


@pytest.mark.parametrize("copy", COPIES)
def test_lists(copies, copy):
    listed = 0
    for table in TABLES:
        text = answers(copies[copy], "list", table)
        assert answers(copies[copy], "list", table, "--csv").code == text.code
        document = answers(copies[copy], "list", table, "--json")
        listed += len(json.loads(document.out)["records"]) if document.code == 0 else 0
    assert listed > 900


def queries(copy):
    """A query of each view, with the keys of the first entry that it can be asked for."""
    asker = Asker("--snapshot", copy)
    for view in VIEWS:
        keys = "all"
        if QUERIES.get(view) is not None:
            for record in asker.list(view):
                with contextlib.suppress(KeyError):  # an interface that the control plane does not know
                    keys = QUERIES[view](record, asker.ctrl)
                    break
        yield [view, *keys.split()]


@pytest.mark.parametrize("copy", COPIES)
def test_views(copies, copy):
    shown = 0
    for query in queries(copies[copy]):
        text = answers(copies[copy], "show", *query)
        data = answers(copies[copy], "show", *query, "--json")
        assert text.code == data.code, (text, data)
        shown += text.code == 0
    assert shown >= len(QUERIES)


@pytest.mark.parametrize("copy", COPIES)
def test_questions_in_sql(copies, copy):
    statements = "; ".join(f'SELECT * FROM "{table}"' for table in TABLES if TABLES[table].get("fields"))
    for form in ("--json", "--column"):
        assert answers(copies[copy], "sql", form, statements).code == 0


@pytest.mark.parametrize("copy", COPIES)
def test_check_and_what_else_tells_of_all_tables(copies, copy):
    assert answers(copies[copy], "check").code == 1
    assert json.loads(answers(copies[copy], "check", "--json").out)["findings"]
    for words in (["usage"], ["usage", "--json"], ["regions", "--json"], ["statistics"], ["statistics", "--json"],
                  ["find", "192.0.2.11"], ["explain", "192.0.2.11"], ["export", "-"],
                  ["diag", "search", "nqpTable", "26", "all", "0", "0", "0"]):
        assert answers(copies[copy], *words).code == 0
    assert answers(copies[copy], "snapshot", "--info", copies[copy]).code == 2


def test_neither_has_what_the_other_has_not(copies):
    for name in COPIES:
        for words in ([], ["--json"]):
            result = tool(name, "diff", *(copies[copy] for copy in COPIES), *words)
            assert (result.code, result.err) == (0, ""), result
