"""nqecli find: a value wherever a field holds it."""

import json

import pytest

from conftest import nqecli, site_of
from schemas import valid
from damage import damaged_copies

STATION = """\
arp  vpn=0 next_hop=192.0.2.14  dmac  02:00:5e:30:00:04
nd  vpn=0 next_hop=2001:db8:0:10::a4  dmac  02:00:5e:30:00:04
ssw_macinfo  bridge_id=1 vlan_id=10 mac=02:00:5e:30:00:04  mac  02:00:5e:30:00:04
usf_user  mac=02:00:5e:30:00:04  mac  02:00:5e:30:00:04
usf_stat  stat_id=104  mac  02:00:5e:30:00:04
usf_macip  address=192.0.2.14 key_type=0  mac  02:00:5e:30:00:04
usf_macip  address=2001:db8:0:10::a4 key_type=1  mac  02:00:5e:30:00:04
local_mng_user  address=192.0.2.14  source_mac  02:00:5e:30:00:04
vap_to_sta  fwd_if_index=101 vlan_id=10  mac  02:00:5e:30:00:04
dhcp_snooping_bind  mac=02:00:5e:30:00:04 vlan_id=10 ipv4_address=192.0.2.14 ipv6_address=::  mac  02:00:5e:30:00:04
"""

PORT = """\
nhp  index=1  fwdifs[0]  fwdif/2
ctrlif_map_fwdif  ctrl_if_index=1001  fwd_if_index  2
flowif_map_fwdif  flow_if_index=1  fwd_if_index  2
flowif_map_fwdif  flow_if_index=2  flow_if_index  2
trunk  trunk_id=1  members[0]  2
fwdif  if_index=2  if_index  2
fwdif  if_index=3  flow_if_index  2
"""


def both(site, *words):
    """The answers of the running engine and of its snapshot, which are alike."""
    live, saved = site.engine.cli(*words), nqecli("--snapshot", site.snapshot, *words)
    assert (live.code, live.out, live.err) == (saved.code, saved.out, saved.err), (live, saved)
    return live


def test_a_station(campus):
    both(campus, "find", "02:00:5e:30:00:04").answered(STATION)
    both(campus, "find", "02-00-5E-30-00-04").answered(STATION)


def test_a_port(campus):
    result = both(campus, "find", "2")
    for line in PORT.splitlines():
        assert line in result.out.splitlines(), result
    assert {line.split("  ")[0] for line in result.out.splitlines()} == {
        "nhp", "ipv6_nhp", "ctrlif_map_fwdif", "flowif_map_fwdif", "trunk", "fwdif"}


def test_prefixes_and_regions(campus):
    both(campus, "find", "192.0.2.144/31").answered(
        "fib  prefix=28 vpn=0 destination=192.0.2.144  destination  192.0.2.144\n"
        "portip  list_id=504  address  192.0.2.145\n"
        "arp_simulator  source=192.0.2.145 destination=192.0.2.146 vlan_id=40  source  192.0.2.145\n")
    both(campus, "find", "198.51.100.77").answered(
        "session  index=6  new_source  198.51.100.77\n"
        "session  index=6  reply_new_destination  198.51.100.77\n"
        "session  index=6  positive.source  198.51.100.77\n"
        "session  index=6  negative.destination  198.51.100.77\n"
        "IP_REASS_CTX_PTR  -  packets[0].source  198.51.100.77\n")
    both(campus, "find", "2001:db8:8::/48").answered(
        "ipv6_fib  prefix=48 vpn=0 destination=2001:db8:8::  destination  2001:db8:8::\n")


def test_texts(campus):
    both(campus, "find", "*.example.com*").answered(
        "web_proxy_portal  index=1  url  http://portal.example.com/login\n"
        "dns_domain  domain=portal.example.com  domain  portal.example.com\n")


def test_json(campus):
    result = both(campus, "find", "02:00:5e:30:00:04", "--json")
    answer = valid(json.loads(result.out))
    assert (result.code, result.err) == (0, ""), result
    assert list(answer) == ["find", "kind", "matches", "count", "truncated"]
    assert (answer["find"], answer["kind"], answer["count"], answer["truncated"]) == (
        "02:00:5e:30:00:04", "mac", 10, False)
    assert answer["matches"][0] == {"table": "arp", "id": 4, "key": {"vpn": 0, "next_hop": "192.0.2.14"},
                                    "field": "dmac", "value": "02:00:5e:30:00:04"}
    assert [f'{match["table"]}  {match["field"]}' for match in answer["matches"]] == [
        "  ".join(line.split("  ")[0::2]) for line in STATION.splitlines()]
    port = valid(json.loads(both(campus, "find", "2", "--json", "--limit", "1").out))
    assert (port["kind"], port["count"], port["truncated"]) == ("interface", 1, True)
    assert port["matches"] == [{"table": "nhp", "id": 2, "key": {"index": 1}, "field": "fwdifs[0]",
                                "value": {"if_index": 2}}]
    region = valid(json.loads(both(campus, "find", "198.51.100.77", "--json").out))["matches"][-1]
    assert region == {"region": "IP_REASS_CTX_PTR", "field": "packets[0].source", "value": "198.51.100.77"}


def test_limit(campus):
    result = both(campus, "find", "02:00:5e:30:00:04", "--limit", "2")
    assert (result.code, result.out, result.err) == (
        0, "".join(STATION.splitlines(True)[:2]), "more fields follow behind these 2; raise --limit\n"), result
    both(campus, "find", "02:00:5e:30:00:04", "--limit", "10").answered(STATION)


def test_nothing(campus):
    result = both(campus, "find", "192.0.2.254")
    assert (result.code, result.out, result.err) == (1, "", ""), result
    result = both(campus, "find", "192.0.2.254", "--json")
    assert (result.code, result.out) == (
        1, '{"find":"192.0.2.254","kind":"ipv4","matches":[],"count":0,"truncated":false}\n'), result


@pytest.mark.parametrize("words, part", [
    ((), "find takes one value"),
    (("192.0.2.1", "192.0.2.2"), "find takes one value"),
    (("",), "an empty text"),
    (("a\\b",), "a text with a backslash"),
    (("1", "--csv"), "unknown option"),
    (("1", "--limit", "x"), "is not a number"),
])
def test_wrong_words(campus, words, part):
    campus.engine.cli("find", *words).failed(part)


MANY = """\
ssw_macinfo: [{repeat: 16384, bridge_id: 1, vlan_id: 10, mac: {from: 02:00:5e:30:00:01, step: 1}, out_if_index: 101}]
session: [{repeat: 30000, index: {from: 1, step: 1}, valid: 1, aging_time: 65535, ingress: 101, egress: 1,
           positive: {source: {from: 10.0.0.1, step: 1}, protocol: 6}}]
"""


def test_many_entries():
    with site_of(MANY) as site:
        both(site, "find", "10.0.117.48").answered("session  index=30000  positive.source  10.0.117.48\n")
        assert len(both(site, "find", "101").out.splitlines()) == 16384 + 30000


@pytest.mark.parametrize("value", ["101", "192.0.2.0/24", "*a*"])
def test_damaged_snapshots(campus, directory, value):
    codes = set()
    for damaged in damaged_copies(campus.snapshot, directory / "damaged"):
        result = nqecli("--snapshot", damaged, "find", value)
        codes.add(result.code)
        if result.code == 2:
            assert result.err.startswith("nqecli: ") and result.err.count("\n") == 1, result
        else:
            assert (result.code, result.err) == (0, "") and result.out.endswith("\n"), result
    assert 0 in codes
