"""Lists that are longer than an answer of the diag command: show gives them whole."""

import re

import pytest

from conftest import BIN, nqecli, run, site_of

MACS = 16384
SESSIONS = 65536

SCENARIO = f"""\
ssw_macinfo:
  - {{repeat: {MACS}, bridge_id: 1, vlan_id: 1234, mac: {{from: 02:00:5e:50:00:00, step: 1}}, static: 1,
     out_if_index: {{from: 10000, step: 1}}}}
session:
  - {{repeat: {SESSIONS}, index: {{from: 0, step: 1}}, valid: 1, aging_time: 600,
     positive: {{source: {{from: 10.0.0.0, step: 1}}, destination: 192.0.2.1, source_port: 1000, destination_port: 80,
                protocol: 6}},
     negative: {{source: 192.0.2.1, destination: {{from: 10.0.0.0, step: 1}}, source_port: 80, destination_port: 1000,
                protocol: 6}},
     https: {{index: {{from: 0, step: 1}}}}, iptables: {{index: {{from: 0, step: 1}}}}}}
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as full:
        yield full


def both(site, *words):
    """The answer, which an engine and its snapshot give alike."""
    live = site.engine.cli("show", *words)
    saved = nqecli("--snapshot", site.snapshot, "show", *words)
    assert (live.code, live.err) == (saved.code, saved.err) == (0, "")
    assert live.out == saved.out
    return live.out


def framed(answer):
    """The records' text of a whole answer."""
    dashes = "-" * 30
    assert answer.startswith(dashes + "\n") and answer.endswith("\n" + dashes + "\n")
    return answer[len(dashes) + 1:-len(dashes) - 1]


def test_every_mac_of_a_full_table(site):
    shown = re.findall(r"^  OutIfIndex +:  (\d+)$", framed(both(site, "ssw_macinfo", "all")), re.M)
    assert [int(port) for port in shown] == list(range(10000, 10000 + MACS))


def test_every_session_of_a_full_table(site):
    records = framed(both(site, "session", "all")).split("Session POS key:\n")
    assert records[0] == "" and len(records) == SESSIONS + 1
    assert [int(re.search(r"SessIdx    :  (\d+)$", record, re.M)[1]) for record in records[1:]] == list(range(SESSIONS))
    # The line stands in place of the empty one behind the last session.
    assert all(record.endswith("  Rsv1                :  0\n\n") for record in records[1:-1])
    assert records[-1].endswith("  Rsv1                :  0\n")


def test_a_long_list_has_the_same_records_as_a_short_one(site):
    first = framed(both(site, "session", "num100"))
    assert framed(both(site, "session", "all")).startswith(first)


def test_sessions_are_filtered_to_the_last_one(site):
    assert both(site, "session", "dip:192.0.2.1") == both(site, "session", "all")
    last = both(site, "session", "sip:10.0.255.255")
    assert last.count("Session POS key:") == 1 and "SessIdx    :  65535\n" in last
    assert both(site, "session", "10.0.255.255:192.0.2.1", "1000", "80", "6") == last


@pytest.mark.parametrize("key", ["dip:198.51.100.1", "nonsense", "sip:10.0.0.1:1000", "x" * 40])
def test_a_filter_that_finds_nothing_fails_as_in_the_diag_command(site, key):
    shown, asked = site.engine.cli("show", "session", key), site.engine.cli("diag", "search", "nqpTable", "50", key,
                                                                           "0", "0", "0")
    assert (shown.code, shown.out) == (asked.code, asked.out) and asked.code == 1


def test_the_diag_command_keeps_its_room(site):
    full = site.engine.cli("diag", "search", "nqpTable", "23", "all", "0", "0", "0")
    assert (full.code, full.out) == (1, "parse data format fail\n")
    assert site.engine.cli("diag", "search", "nqpTable", "50", "all", "0", "0", "0").out.count("Session POS key:") == 682


def test_little_address_space_is_enough_for_what_fits(site):
    if ", sanitizers " in nqecli("--version").out:
        pytest.skip("sanitizers take address space of their own")
    result = run("sh", "-c", 'ulimit -v 400000 && exec "$@"', "sh", BIN / "nqecli", "--arena", site.engine.arena, "show",
                 "ssw_macinfo", "all")
    assert (result.code, result.out.count("OutIfIndex")) == (0, MACS), result
