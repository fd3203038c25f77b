"""The questions of docs/sql.md: each statement that stands there gives the answer that stands there."""

import re
import shutil

import pytest

from conftest import BIN, ROOT, engine_place, run, short_directory

DOCS = (ROOT / "docs" / "sql.md").read_text()
QUESTIONS = re.findall(r"^### (\d+\. .*?)\n.*?^```sql( site)?\n(.*?)^```\n\n```text\n(.*?)^```\n", DOCS, re.M | re.S)


@pytest.fixture(scope="module")
def site():
    """A directory with site/monday.snapshot of the campus, and site/tuesday.snapshot after some neighbours came."""
    with short_directory() as directory:
        (directory / "site").mkdir()
        examples = directory / "examples"
        shutil.copytree(ROOT / "examples", examples)
        for day, more in (("monday", {}), ("tuesday", {
                "routing": ("arp", "vpn: 0, next_hop: {from: 192.0.2.100, step: 1}, valid: 1, "
                                   "dmac: {from: 02:00:5e:30:01:01, step: 1}", 20),
                "switching": ("ssw_macinfo", "bridge_id: 1, vlan_id: 10, mac: {from: 02:00:5e:30:02:01, step: 1}, "
                                             "out_if_index: 101", 5)})):
            for name, (table, fields, count) in more.items():
                file = examples / "campus" / f"{name}.yaml"
                text = file.read_text()
                assert text.count(f"\n{table}:\n") == 1
                file.write_text(text.replace(f"\n{table}:\n", f"\n{table}:\n  - {{repeat: {count}, {fields}}}\n"))
            with engine_place() as place:
                place.scenario.unlink()
                place.scenario = examples / "campus.yaml"
                place.start()
                place.cli("snapshot", directory / "site" / f"{day}.snapshot").answered("")
                place.stop()
        yield directory


def test_there_are_enough():
    assert len(QUESTIONS) == len(re.findall("^### ", DOCS, re.M)) >= 20
    assert [int(title.split(".")[0]) for title, *_ in QUESTIONS] == list(range(1, len(QUESTIONS) + 1))


@pytest.mark.parametrize("title, many, statement, answer", QUESTIONS, ids=[title for title, *_ in QUESTIONS])
def test_question(site, title, many, statement, answer):
    assert answer.count("\n") > 1, title
    files = "site/*.snapshot" if many else "site/monday.snapshot"
    run(BIN / "nqecli", "--snapshot", files, "sql", statement, cwd=site).answered(answer)


def test_the_first_example(site):
    command, answer = re.search(r'^    \$ nqecli sql "(.*?)"\n((?:    .*\n)+)', DOCS, re.M).groups()
    run(BIN / "nqecli", "--snapshot", "site/monday.snapshot", "sql", command, cwd=site).answered(
        re.sub("^    ", "", answer, flags=re.M))
