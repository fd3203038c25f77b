"""nqecli diff and usage: what two states of an engine have differently, and how full its tables are."""

import json
import os
import subprocess

import pytest

from conftest import BIN, PATIENCE, ROOT, engine_on, nqecli, short_directory
from schemas import valid

BEFORE = """\
arp:
  - {next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:01, valid: 1}
  - {next_hop: 192.0.2.8, vpn: 0, dmac: 02:00:5e:00:00:03}
nhp: [{index: 5, mtu: 1500}]
fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 5}}}]
"""
AFTER = """\
arp:
  - {next_hop: 192.0.2.9, vpn: 0, dmac: 02:00:5e:00:00:03}
  - {next_hop: 192.0.2.7, vpn: 0, dmac: 02:00:5e:00:00:02}
nhp: [{index: 5, mtu: 1500}, {index: 6}]
fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, next_hop: {nhp: {index: 6}}}]
"""
LINES = """\
~ fib prefix=24 vpn=0 destination=192.0.2.0: next_hop nhp/5 -> nhp/6
+ nhp index=6
~ arp vpn=0 next_hop=192.0.2.7: valid true -> false, dmac 02:00:5e:00:00:01 -> 02:00:5e:00:00:02
- arp vpn=0 next_hop=192.0.2.8
+ arp vpn=0 next_hop=192.0.2.9
"""


def saved(directory, name, scenario):
    """A snapshot of an engine on the scenario."""
    with engine_on(scenario) as place:
        place.cli("snapshot", directory / name).answered("")
    return directory / name


@pytest.fixture(scope="module")
def pair():
    with short_directory() as directory:
        yield saved(directory, "before", BEFORE), saved(directory, "after", AFTER)


def test_two_snapshots(pair):
    result = nqecli("diff", *pair)
    assert (result.code, result.out, result.err) == (1, LINES, ""), result
    for same in pair:
        nqecli("diff", same, same).answered("")
    result = nqecli("diff", *pair, "nhp")
    assert (result.code, result.out) == (1, "+ nhp index=6\n"), result
    nqecli("diff", *pair, "usf_user", "IPP_SESSION_AGING_TIME").answered("")


def test_the_example_of_the_documentation():
    texts = [file.read_text() for file in sorted((ROOT / "docs").glob("data*"))]
    example = "".join(f"    {line}\n" for line in LINES.splitlines())
    assert any("    $ nqecli diff monday.arena tuesday.arena\n" + example in text for text in texts)


def test_as_json(pair):
    result = nqecli("diff", "--json", *pair)
    assert (result.code, result.err) == (1, ""), result
    assert valid(json.loads(result.out)) == {"diff": [
        {"table": "fib", "id": 1, "change": "changed", "key": {"prefix": 24, "vpn": 0, "destination": "192.0.2.0"},
         "fields": {"next_hop": {"from": {"nhp": {"index": 5}}, "to": {"nhp": {"index": 6}}}}},
        {"table": "nhp", "id": 2, "change": "added", "key": {"index": 6}},
        {"table": "arp", "id": 4, "change": "changed", "key": {"vpn": 0, "next_hop": "192.0.2.7"},
         "fields": {"valid": {"from": True, "to": False},
                    "dmac": {"from": "02:00:5e:00:00:01", "to": "02:00:5e:00:00:02"}}},
        {"table": "arp", "id": 4, "change": "removed", "key": {"vpn": 0, "next_hop": "192.0.2.8"}},
        {"table": "arp", "id": 4, "change": "added", "key": {"vpn": 0, "next_hop": "192.0.2.9"}},
    ], "count": 5}
    nqecli("diff", pair[0], pair[0], "--json").answered('{"diff":[],"count":0}\n')


def test_a_snapshot_and_the_live_engine(campus):
    site = campus.engine
    with short_directory() as directory:
        site.cli("snapshot", directory / "copy").answered("")
        site.cli("diff", directory / "copy", "live").answered("")
        site.cli("diff", "live", "live").answered("")
        site.cli("engine", "region", "IPP_SESSION_AGING_TIME", "tcp", "300").answered("tcp 300\n")
        line = "~ IPP_SESSION_AGING_TIME: tcp 600 -> 300\n"
        result = site.cli("diff", directory / "copy", "live")
        assert (result.code, result.out, result.err) == (1, line, ""), result
        result = nqecli("diff", "live", directory / "copy", "--arena", site.arena)
        assert (result.code, result.out) == (1, "~ IPP_SESSION_AGING_TIME: tcp 300 -> 600\n"), result
        site.cli("engine", "region", "IPP_SESSION_AGING_TIME", "tcp", "600").answered("tcp 600\n")
        site.cli("diff", directory / "copy", "live").answered("")


def test_the_same_scenario_twice_is_equal(campus, directory):
    other = saved(directory, "other", f"include: [{ROOT}/examples/campus.yaml]\n")
    nqecli("diff", campus.snapshot, other).answered("")


def test_an_engine_with_tables_of_other_shapes(pair, directory):
    """One line, whatever is asked."""
    layouts = directory / "layouts"
    layouts.mkdir()
    for file in (ROOT / "host" / "layout").glob("*.yaml"):
        text = file.read_text()
        if file.stem == "ipv4":
            assert text.count("record_size: 44\n") == 1
            text = text.replace("record_size: 44\n", "record_size: 52\n")
        (layouts / file.name).write_text(text)
    with engine_on(BEFORE, "--layout", str(layouts)) as place:
        place.cli("diff", pair[0], "live").failed("the table arp of", "was made with another layout")
        place.cli("diff", pair[0], "live", "--json").failed("the table arp of", "was made with another layout")
        place.cli("diff", pair[0], "live", "fib", "nhp").answered("")


@pytest.mark.parametrize("words, message", [
    ([], "diff takes two snapshots, or a snapshot and the word live"),
    (["{0}"], "diff takes two snapshots"),
    (["{0}", ""], "diff takes two snapshots"),
    (["{0}", "{0}", "arpp"], 'unknown table "arpp" (did you mean arp?)'),
    (["{0}", "{0}", "--jso"], 'unknown option "--jso" (did you mean --json?)'),
    (["{0}", "{0}", "--csv"], 'unknown option "--csv"'),
    (["{0}", "{0}", "--snapshot", "{0}"], "leave --snapshot out"),
    (["{0}", "/nowhere/at/all"], "there is no snapshot at /nowhere/at/all"),
    (["/dev/null", "{0}"], "/dev/null is not an arena"),
    (["{0}", "live", "--arena", "/nowhere/at/all"], "there is no arena at /nowhere/at/all"),
])
def test_bad_usage(pair, words, message):
    nqecli("diff", *[word.format(pair[0]) for word in words]).failed(message)


def pages_of(fd):
    """Where the pages stand that have storage."""
    pages, at, size = [], 0, os.fstat(fd).st_size
    while at < size:
        try:
            first = os.lseek(fd, at, os.SEEK_DATA)
        except OSError:
            break
        at = os.lseek(fd, first, os.SEEK_HOLE)
        pages += range(first, at, 4096)
    assert len(pages) > 20
    return pages


def test_damage_never_crashes(pair, directory):
    """Whatever piece of a snapshot is overwritten, there is an answer or one line."""
    damaged = directory / "damaged"
    subprocess.run(["cp", "--sparse=always", pair[1], damaged], check=True)
    codes = set()
    with open(damaged, "r+b", buffering=0) as file:
        for at in (page + piece for page in pages_of(file.fileno()) for piece in range(0, 4096, 256)):
            kept = os.pread(file.fileno(), 256, at)
            os.pwrite(file.fileno(), b"\xff" * len(kept), at)
            result = nqecli("diff", pair[0], damaged)
            os.pwrite(file.fileno(), kept, at)
            assert result.code in (0, 1, 2), (at, result)
            assert result.err.count("\n") <= 1, (at, result)
            codes.add(result.code)
    nqecli("diff", pair[1], damaged).answered("")
    assert {1, 2} <= codes


def test_a_closed_pipe_and_a_full_disk(pair):
    reader, writer = os.pipe()
    os.close(reader)  # before anything could be written
    done = subprocess.run([BIN / "nqecli", "diff", *pair], stdout=writer, stderr=subprocess.PIPE, timeout=PATIENCE)
    os.close(writer)
    assert (done.returncode, done.stderr) == (2, b"")
    with open("/dev/full", "wb") as full:
        done = subprocess.run([BIN / "nqecli", "diff", *pair], stdout=full, stderr=subprocess.PIPE, timeout=PATIENCE)
    assert (done.returncode, done.stderr) == (2, b"nqecli: cannot write the answer: No space left on device\n")


USAGE = """\
trunk: [{repeat: 48, trunk_id: {from: 1, step: 1}}]
global: [{}]
nhp: [{repeat: 4096, index: {from: 1, step: 1}}]
mirr_observe: [{repeat: 4, observe_id: {from: 1, step: 1}}]
http_portal_port: [{repeat: 3, port: {from: 80, step: 1}}]
"""


def test_usage(place):
    place.scenario.write_text(USAGE)
    place.start()
    result = place.cli("usage")
    assert (result.code, result.err) == (0, ""), result
    lines = [line.split() for line in result.out.splitlines()]
    assert lines[0] == ["table", "entries", "capacity", "percent", "bytes"]
    # The fullest first, then by id; empty ones as well.
    assert [line[:4] for line in lines[1:6]] == [
        ["global", "1", "1", "100.0"], ["mirr_observe", "4", "4", "100.0"], ["trunk", "48", "64", "75.0"],
        ["nhp", "4096", "8192", "50.0"], ["http_portal_port", "3", "16", "18.8"]], result
    assert {line[1] for line in lines[6:]} == {"0"}, result
    answer = place.cli("usage", "--json")
    assert answer.code == 0, answer
    usage = valid(json.loads(answer.out))
    assert usage["count"] == len(usage["usage"]) == len(lines) - 1
    assert [str(row["percent"]) for row in usage["usage"]] == [line[3] for line in lines[1:]]
    trunk = next(row for row in usage["usage"] if row["table"] == "trunk")
    assert trunk["bytes"] >= 48 * 1032
    del trunk["bytes"]
    assert trunk == {"table": "trunk", "id": 13, "entries": 48, "capacity": 64, "percent": 75.0}
    assert sum(row["entries"] for row in usage["usage"]) == 1 + 4 + 48 + 4096 + 3
    # Above, not at. A table of one entry is no news.
    for percent, code in ((1, 1), (50, 1), (74, 1), (75, 1), (99, 1), (100, 0)):
        assert place.cli("usage", "--warn", str(percent)).code == code, percent
    place.cli("usage", "--warn", "0").failed("--warn", "from 1 to 100")
    place.cli("usage", "--warn", "101").failed("--warn", "from 1 to 100")
    place.cli("usage", "trunk").failed("usage takes no words")
    place.stop()


def test_usage_warns_above_and_not_at(place):
    place.scenario.write_text("trunk: [{repeat: 48, trunk_id: {from: 1, step: 1}}]\nglobal: [{}]\n")
    place.start()
    assert place.cli("usage", "--warn", "74").code == 1
    assert place.cli("usage", "--warn", "75").code == 0
    assert place.cli("usage", "--warn", "75", "--json").code == 0
    told = place.cli("usage", "--help").out
    assert "exit code 1 when a table is fuller than that" in told and "1 a table is fuller than --warn says" in told
    place.stop()
