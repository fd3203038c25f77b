"""The engine's shared regions and its counters as data, and the documents' examples of both and of show."""

import csv
import io
import json
import re
import shlex

import pytest
import yaml

from conftest import BIN, ROOT, nqecli, run, site_of
from schemas import valid

REGIONS = yaml.safe_load((ROOT / "host" / "layout" / "regions.yaml").read_text())["regions"]


def both(site, *words):
    """The answer, which an engine and its snapshot give alike."""
    live = site.engine.cli(*words)
    saved = nqecli("--snapshot", site.snapshot, *words)
    assert (live.code, live.out, live.err) == (saved.code, saved.out, saved.err)
    return live


def document(site, *words):
    result = both(site, *words, "--json")
    assert (result.code, result.err) == (0, ""), result
    return valid(json.loads(result.out))


def test_regions_are_listed(campus):
    listed = document(campus, "regions")
    assert listed["regions"] == [{"name": name, "size": region["size"], "about": region["about"]}
                                 for name, region in REGIONS.items()]
    assert listed["count"] == len(REGIONS)
    rows = [line.split(None, 2) for line in both(campus, "regions").out.splitlines()]
    assert rows == [["name", "size", "about"]] + [
        [region["name"], str(region["size"]), region["about"]] for region in listed["regions"]]


@pytest.mark.parametrize("name", [name for name, region in REGIONS.items() if "fields" in region])
def test_a_region_shows_its_fields(campus, name):
    shown = document(campus, "regions", name)
    record, = shown["records"]
    assert (shown["region"], shown["count"], shown["truncated"]) == (name, 1, False)
    assert list(record) == list(REGIONS[name]["fields"])
    lines = dict(line.split(None, 1) for line in both(campus, "regions", name).out.splitlines())
    assert list(lines) == list(record)
    for field, value in record.items():
        if isinstance(value, list):
            assert json.loads(lines[field]) == value
        elif isinstance(value, bool):
            assert lines[field] == str(int(value))
        else:
            assert lines[field] == str(value)


def test_what_the_scenario_put_into_regions(campus):
    trace, = document(campus, "regions", "PKT_TRACE_CTX_PTR", "--fields", "station_count,stations")["records"]
    assert trace == {"station_count": 2, "stations": ["02:00:5e:30:00:15", "02:00:5e:30:00:28"]}
    packets, = document(campus, "regions", "IP_REASS_CTX_PTR")["records"]
    assert [packet["packet_id"] for packet in packets["packets"]] == [40961, 513, 7]
    campus.engine.cli("regions", "IPP_SESSION_AGING_TIME", "--csv").answered("tcp,udp,icmp\r\n600,0,0\r\n")


def test_regions_that_make_no_sense(campus):
    campus.engine.cli("regions", "IPP_SESSION_AGING_TIM").failed("did you mean IPP_SESSION_AGING_TIME?")
    campus.engine.cli("regions", "nothing_like_it_at_all").failed("nqecli regions")
    campus.engine.cli("regions", "FAST_STAT_SSMAP_PTR").failed("nothing is known of the fields")
    campus.engine.cli("regions", "IPP_SESSION_AGING_TIME", "--json", "--fields", "tpc").failed("did you mean tcp?")
    campus.engine.cli("regions", "a", "b").failed("one region")
    campus.engine.cli("regions", "--csv").failed("name a region")


def test_all_counters(campus):
    listed = document(campus, "statistics")
    counters = listed["statistics"]
    assert (listed["count"], listed["cores"]) == (831, 4)
    assert [counter["number"] for counter in counters] == list(range(831))
    kinds = [("normal", 100), ("error", 87), ("discard", 274), ("normal", 116), ("discard", 254)]
    assert [counter["class"] for counter in counters] == [kind for kind, count in kinds for _ in range(count)]
    for counter in counters:
        assert len(counter["cores"]) == 4 and sum(counter["cores"]) == counter["sum"]
    assert counters[577]["name"] == "CAR - arp-request" and counters[830]["name"] is None


def test_counters_are_those_of_the_listing(campus):
    listing = campus.engine.cli("agent", "sysstat-query", "type=all").out
    shown = [(name.strip(), int(value)) for name, value in re.findall(r"^ {3}(.*): (\d+)$", listing, re.M)]
    counted = [counter for counter in document(campus, "statistics")["statistics"] if counter["sum"] != 0]
    # One without a name goes by its number in its block there.
    block = lambda number: max(first for first in (0, 100, 187, 461, 541, 577) if first <= number)
    label = lambda counter: counter["name"] or str(counter["number"] - block(counter["number"]))
    assert counted and sorted(shown) == sorted((label(counter)[:60], counter["sum"]) for counter in counted)


def test_rows_and_columns_hold_the_same_counters(campus):
    counters = document(campus, "statistics")["statistics"]
    rows = list(csv.reader(io.StringIO(both(campus, "statistics", "--csv").out)))
    assert rows[0] == ["number", "name", "class", "sum", "cores[0]", "cores[1]", "cores[2]", "cores[3]"]
    assert rows[1:] == [[str(c["number"]), c["name"] or "", c["class"], str(c["sum"]), *map(str, c["cores"])]
                        for c in counters]
    lines = both(campus, "statistics").out.splitlines()
    assert [line.split(None, 7) for line in lines[1:]] == [
        [str(c["number"]), c["class"], str(c["sum"]), *map(str, c["cores"]), c["name"] or "-"] for c in counters]


def test_counters_are_chosen_by_name(campus):
    names = [counter["name"] for counter in document(campus, "statistics")["statistics"]]
    chosen = document(campus, "statistics", "*fib fail")
    assert chosen["count"] == len(chosen["statistics"]) > 1
    assert [c["name"] for c in chosen["statistics"]] == [name for name in names if name and name.endswith("fib fail")]
    none = both(campus, "statistics", "--json", "nothing like it")
    assert (none.code, valid(json.loads(none.out))) == (1, {"statistics": [], "count": 0, "cores": 4})
    assert (both(campus, "statistics", "nothing like it").code, both(campus, "statistics", "nothing like it").out) == (1, "")
    campus.engine.cli("statistics", "CAR", "-").failed("one pattern")


def test_large_counts_stay_exact():
    with site_of("statistics: {mac learn msg punt: [18446744073709551614, 1]}\n") as site:
        counter = document(site, "statistics", "mac learn msg punt")["statistics"][0]
        assert counter["sum"] == 2**64 - 1


def examples(title):
    """Command lines and what they print, of a section of the documents about data."""
    files = [*(ROOT / "docs").glob("data*.md"), *(ROOT / "docs").glob("data*.part")]
    text = "\n".join(file.read_text() for file in files)
    section = re.search(rf"^## {title}\n(.*?)(?=^## |\Z)", text, re.M | re.S)[1]
    found = []
    for line in re.findall(r"^ {4}(.*)\n", section, re.M):
        if line.startswith("$ nqecli "):
            found.append((line[9:], []))
        else:
            found[-1][1].append(line)
    return found


@pytest.mark.parametrize("title, count", [("Queries as data", 3), ("Regions and statistics", 4)])
def test_the_examples_are_true(campus, title, count):
    found = examples(title)
    assert len(found) == count
    for command, lines in found:
        result = both(campus, *shlex.split(command))
        assert (result.code, result.out.splitlines(), result.err) == (0, lines, ""), result
