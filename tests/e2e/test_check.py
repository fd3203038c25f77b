"""nqecli check: an engine's tables held against each other."""

import json

import pytest

from conftest import ROOT, nqecli, site_of
from schemas import valid
from damage import damaged_copies

# What the campus site's scenario plants, and nothing else.
CAMPUS = """\
error  fib  prefix=25 vpn=0 destination=203.0.113.128  next_hop  stale, leads to a place of nhp where no entry is any more, should lead to nhp/2
error  fib  prefix=28 vpn=0 destination=192.0.2.208  next_hop  leads nowhere, should lead to nhp/4, which is not there
error  nhp  index=2  l3_services[0].fwdif  leads to fwdif/208, should lead to fwdif/207
error  nhp  index=2  l1_services[0].acl_group  stale, leads to a place of acl_group where no entry is any more, should lead to acl_group/0/3002
error  nhp  index=2  l1_services[1]  service 4 takes an ACL group of type 0, has one of type 2
error  nhp_group  index=2  primary_next_hops[1]  stale, leads to a place of nhp where no entry is any more, should lead to nhp/2
error  nhp_group  index=2  primary_next_hops[2]  leads nowhere, should lead to nhp/4, which is not there
error  ipv6_fib  prefix=48 vpn=0 destination=2001:db8:8::  next_hop  stale, leads to a place of ipv6_nhp where no entry is any more, should lead to ipv6_nhp/2
error  ipv6_nhp_group  index=2  primary_next_hops[1]  stale, leads to a place of nhp where no entry is any more, should lead to nhp/2
error  fwdif  if_index=1  l1_services[2].acl_group  stale, leads to a place of acl_group where no entry is any more, should lead to acl_group/0/3002
error  fwdif  if_index=1  l1_services[3]  service 9 takes an ACL group of type 0, has one of type 2
error  acl_rule  group_type=0 group_id=3002 priority=1  action.stat_entry  leads to acl_stat/0/3002/0, should lead to acl_stat/0/3002/1
error  capwap_tunnel  tunnel_id=2  route  leads to fib/24/0/203.0.113.0, should lead to fib/25/0/203.0.113.128
error  capwap_tunnel  tunnel_id=3  route  leads nowhere, should lead to fib/28/0/198.51.100.0
"""

HEALTHY = """\
ctrlif_map_fwdif: [{ctrl_if_index: 1001, fwd_if_index: 1}]
fwdif: [{if_index: 1, ctrl_if_index: 1001}]
arp: [{vpn: 0, next_hop: 192.0.2.1, fwd_if_index: 1}]
"""


def both(site, *words):
    """The answers of the running engine and of its snapshot, which are alike."""
    live, saved = site.engine.cli(*words), nqecli("--snapshot", site.snapshot, *words)
    assert (live.code, live.out, live.err) == (saved.code, saved.out, saved.err), (live, saved)
    return live


def test_campus(campus):
    result = both(campus, "check")
    assert (result.code, result.out, result.err) == (1, CAMPUS, ""), result


def test_campus_as_json(campus):
    result = both(campus, "check", "--json")
    assert (result.code, result.err) == (1, ""), result
    answer = valid(json.loads(result.out))
    assert list(answer) == ["findings", "count"]
    assert answer["count"] == len(answer["findings"]) == 14
    assert answer["findings"][0] == {
        "severity": "error", "table": "fib", "id": 1, "key": {"prefix": 25, "vpn": 0, "destination": "203.0.113.128"},
        "field": "next_hop",
        "problem": "stale, leads to a place of nhp where no entry is any more, should lead to nhp/2"}
    assert [finding["table"] for finding in answer["findings"]] == [line.split("  ")[1]
                                                                    for line in CAMPUS.splitlines()]


def test_healthy():
    with site_of(HEALTHY) as site:
        both(site, "check").answered("")
        both(site, "check", "--json").answered('{"findings":[],"count":0}\n')


def test_under_traffic():
    """What changes all the time is no fault."""
    with site_of(ROOT / "examples" / "campus.yaml", "--traffic", "20000") as site:
        for _ in range(10):
            result = site.engine.cli("check")
            assert (result.code, result.out, result.err) == (1, CAMPUS, ""), result


def test_warnings_and_regions_count():
    with site_of("portip_head: [{fwd_if_index: 1, list_id: 7}]\n"
                 "regions: {PKT_TRACE_CTX_PTR: {station_count: 11}}\n") as site:
        result = both(site, "check")
        assert (result.code, result.out) == (1, (
            "warning  portip_head  fwd_if_index=1  list_id  portip/7 has no entries\n"
            "error  PKT_TRACE_CTX_PTR  -  station_count  11, but stations has 10 places\n")), result
        assert valid(json.loads(both(site, "check", "--json").out))["findings"][1] == {
            "severity": "error", "region": "PKT_TRACE_CTX_PTR", "field": "station_count",
            "problem": "11, but stations has 10 places"}


@pytest.mark.parametrize("words, part", [
    (("check", "fib"), "check takes no words"),
    (("check", "--csv"), "unknown option"),
])
def test_wrong_words(campus, words, part):
    campus.engine.cli(*words).failed(part)


def test_no_engine(directory):
    nqecli("--arena", directory / "none", "check").failed("none")


@pytest.mark.parametrize("command", [("check",), ("check", "--json")])
def test_damaged_snapshots(campus, directory, command):
    codes = set()
    for damaged in damaged_copies(campus.snapshot, directory / "damaged"):
        result = nqecli("--snapshot", damaged, *command)
        codes.add(result.code)
        if result.code == 2:
            assert result.err.startswith("nqecli: ") and result.err.count("\n") == 1, result
        else:
            assert (result.code, result.err) == (1, ""), result
            assert command != ("check", "--json") or json.loads(result.out)["count"] > 0
    assert 1 in codes
