"""nqecli agent tbl-usage, packet-drop-nobuff and memory-usage: how full the engine is."""

import re

import pytest

from conftest import nqecli, site_of

SCENARIO = """\
ctrlif_map_fwdif:
  - {repeat: 1365, ctrl_if_index: {from: 1001, step: 1}, fwd_if_index: {from: 1, step: 1}}
acl_group:
  - {group_type: 2, group_id: 4001}
statistics:
  priority ensurence drop when water line 2: [1, 20]
  priority ensurence drop when water line 3: [0, 0, 4000]
  priority ensurence drop when water line 4: [50000, 0, 0, 600000]
  priority ensurence drop when water line 5: 300
  host cpcar discarded: 7
  tcp mss ingress if null: 8
"""

RULE = "-" * 65
HEAD = f"\n{RULE}\nTableName                      Spec   Used   Usage(%) Trapstate \n{RULE}\n"
# In XML a list's keys stand in the data model's order, whatever order they were added in.
DOCUMENT = """\
<software-fwd xmlns="urn:tavrix:params:xml:ns:yang:tavrix-software-fwd">
  <fwd-statistics-infos>
    <fwd-statistics-info>
      <slot-id>0</slot-id>
      <cpu-id>0</cpu-id>
      {}
    </fwd-statistics-info>
  </fwd-statistics-infos>
</software-fwd>
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


def test_table_usage(site):
    listing = site.engine.cli("agent", "tbl-usage")
    assert (listing.code, listing.err) == (0, ""), listing
    assert listing.out.startswith(HEAD) and listing.out.rstrip("\n").endswith("\n" + RULE), listing
    rows = listing.out[len(HEAD):].rstrip("\n").split("\n")[:-1]
    assert "CAP_TABLE_CTRLIF_MAP           4096   1365   33       0" in rows, listing
    assert "CAP_TABLE_ACL_GROUP            1024   1      0        0" in rows, listing
    assert "CAP_TABLE_ARP                  16384  0      0        0" in rows, listing
    assert len(rows) > 50 and len(set(row.split()[0] for row in rows)) == len(rows), listing
    for row in rows:
        assert re.fullmatch(r"CAP_TABLE_\w+ +\d+ +\d+ +\d+ +\d+", row), listing


def test_packets_dropped_without_buffers(site):
    """The four water lines on all cores, and neither counter beside them."""
    site.engine.cli("agent", "packet-drop-nobuff").answered(
        DOCUMENT.format("<packet-drop-nobuff>654321</packet-drop-nobuff>"))


def test_memory_usage(site):
    """What share of the arena has storage; its file tells that as well, in blocks of 512 bytes."""
    answer = site.engine.cli("agent", "memory-usage")
    found = re.search(r"<fwd-memory-usage>(\d+)</fwd-memory-usage>", answer.out)
    assert found, answer
    answer.answered(DOCUMENT.format(found[0]))
    file = site.engine.arena.stat()
    assert abs(int(found[1]) - file.st_blocks * 512 * 100 // file.st_size) <= 1, (answer, file)


@pytest.mark.parametrize("handler", ["tbl-usage", "packet-drop-nobuff", "memory-usage"])
def test_saved_arenas_answer_alike(site, handler):
    nqecli("agent", "--snapshot", site.snapshot, handler).answered(site.engine.cli("agent", handler).out)


@pytest.mark.parametrize("handler", ["tbl-usage", "packet-drop-nobuff", "memory-usage"])
def test_without_engine(place, handler):
    place.cli("agent", handler).failed(str(place.arena))
