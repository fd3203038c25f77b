"""nqecli explain: an address followed through the tables."""

import json

import pytest

from conftest import nqecli, site_of
from schemas import valid
from damage import damaged_copies

SERVER = """\
station  usf_user  ipv4_address|learnt_address=192.0.2.162  ->  nothing
binding  usf_macip  address|ipv4_address=192.0.2.162  ->  nothing
neighbour  arp  vpn=0 next_hop=192.0.2.162  ->  nothing
DHCP binding  dhcp_snooping_bind  ipv4_address=192.0.2.162  ->  mac=02:00:5e:40:02:01 vlan_id=50 ipv4_address=192.0.2.162 ipv6_address=::: fwd_if_index=41 protocol=0 bind_type=0
  station  usf_user  mac=02:00:5e:40:02:01  ->  nothing
  MAC entry  ssw_macinfo  mac=02:00:5e:40:02:01  ->  bridge_id=1 vlan_id=50 mac=02:00:5e:40:02:01: out_if_index=41
    interface  fwdif  if_index=41  ->  if_index=41: if_type=1 enable=1 vlan_id=50 ctrl_if_index=1201
      control interface  ctrlif_map_fwdif  ctrl_if_index=1201  ->  ctrl_if_index=1201: fwd_if_index=41
route  fib  vpn=0 destination=192.0.2.162  ->  prefix=28 vpn=0 destination=192.0.2.160: direct=1 nhp_index=50 next_hop=nhp/50
  next hop  nhp  index=50  ->  index=50: if_index=205 mtu=1500 arp_miss=1 fwdifs[0]=fwdif/205
    interface  fwdif  if_index=205  ->  if_index=205: if_type=16 enable=1 vlan_id=50 ctrl_if_index=3050
      control interface  ctrlif_map_fwdif  ctrl_if_index=3050  ->  ctrl_if_index=3050: fwd_if_index=205
session  session  negative.source|new_destination=192.0.2.162  ->  index=6: ingress=1 egress=205 positive.source=198.51.100.77 positive.source_port=33000 positive.destination=203.0.113.80 positive.destination_port=8080 positive.protocol=6 new_source=198.51.100.77 new_source_port=33000 new_destination=192.0.2.162 new_destination_port=80
server map  server_map  nat.address=192.0.2.162  ->  source=0.0.0.0 destination=203.0.113.80 source_port=0 destination_port=8080 vrf=0 protocol=6 type=0: zone=1 nat.address=192.0.2.162 nat.port=80
server map  server_map  source=192.0.2.162  ->  source=192.0.2.162 destination=0.0.0.0 source_port=80 destination_port=0 vrf=0 protocol=6 type=14: zone=2 nat.address=203.0.113.80 nat.port=8080
"""

ROUTER = """\
station  usf_user  mac=02:00:5e:10:ff:03  ->  nothing
binding  usf_macip  address|mac=02:00:5e:10:ff:03  ->  nothing
MAC entry  ssw_macinfo  mac=02:00:5e:10:ff:03  ->  bridge_id=1 vlan_id=99 mac=02:00:5e:10:ff:03: static=1 out_if_index=1
  interface  fwdif  if_index=1  ->  if_index=1: if_type=9 enable=1 ctrl_if_index=1000  [l1_services[2].acl_group: stale, leads to a place of acl_group where no entry is any more, should lead to acl_group/0/3002; l1_services[3]: service 9 takes an ACL group of type 0, has one of type 2]
    control interface  ctrlif_map_fwdif  ctrl_if_index=1000  ->  ctrl_if_index=1000: fwd_if_index=1
neighbour  arp  dmac=02:00:5e:10:ff:03  ->  nothing
neighbour  nd  dmac=02:00:5e:10:ff:03  ->  nothing
DHCP binding  dhcp_snooping_bind  mac=02:00:5e:10:ff:03  ->  nothing
"""

MANAGEMENT = """\
station  usf_user  ipv4_address|learnt_address=203.0.113.7  ->  nothing
binding  usf_macip  address|ipv4_address=203.0.113.7  ->  nothing
neighbour  arp  vpn=1 next_hop=203.0.113.7  ->  nothing
DHCP binding  dhcp_snooping_bind  ipv4_address=203.0.113.7  ->  nothing
route  fib  vpn=1 destination=203.0.113.7  ->  prefix=0 vpn=1 destination=0.0.0.0: default=1 nhp_index=1 next_hop=nhp/1
  next hop  nhp  index=1  ->  index=1: if_index=208 next_hop=198.51.100.1 mtu=9100 fwdifs[0]=fwdif/2 fwdifs[1]=fwdif/3
    router  arp  vpn=1 next_hop=198.51.100.1  ->  vpn=1 next_hop=198.51.100.1: valid=1 dmac=02:00:5e:10:ff:01 fwd_if_index=1 l3_fwd_if_index=208 vlan_id=99
"""


def both(site, *words):
    """The answers of the running engine and of its snapshot, which are alike."""
    live, saved = site.engine.cli(*words), nqecli("--snapshot", site.snapshot, *words)
    assert (live.code, live.out, live.err) == (saved.code, saved.out, saved.err), (live, saved)
    return live


def test_a_server_of_the_lab(campus):
    both(campus, "explain", "192.0.2.162").answered(SERVER)


def test_a_router_that_was_given_up(campus):
    both(campus, "explain", "02:00:5E:10:FF:03").answered(ROUTER)


def test_a_stale_route(campus):
    lines = both(campus, "explain", "203.0.113.200").out.splitlines()
    assert lines[4] == (
        "route  fib  vpn=0 destination=203.0.113.200  ->  prefix=25 vpn=0 destination=203.0.113.128: nhp_index=2 "
        "next_hop=nhp/stale  [next_hop: stale, leads to a place of nhp where no entry is any more, should lead to "
        "nhp/2]"), lines


def test_another_vpn(campus):
    result = both(campus, "explain", "203.0.113.7", "vpn=1")
    assert result.code == 0 and result.out.startswith(MANAGEMENT), result


def test_json(campus):
    result = both(campus, "explain", "203.0.113.200", "--json")
    answer = valid(json.loads(result.out))
    assert (result.code, result.err, answer["explain"], answer["kind"], answer["vpn"], answer["count"]) == (
        0, "", "203.0.113.200", "ipv4", 0, 2), result
    assert [(step["step"], step["found"] is None) for step in answer["steps"]] == [
        ("station", True), ("binding", True), ("neighbour", True), ("DHCP binding", True), ("route", False),
        ("tunnel", False), ("session", True), ("server map", True)]
    listed = json.loads(both(campus, "list", "fib", "destination=203.0.113.128", "--json").out)["records"]
    assert answer["steps"][4] == {
        "step": "route", "depth": 0, "table": "fib", "id": 1,
        "looked_for": {"vpn": 0, "destination": "203.0.113.200"}, "found": listed[0],
        "note": "next_hop: stale, leads to a place of nhp where no entry is any more, should lead to nhp/2"}
    assert answer["steps"][2] == {
        "step": "neighbour", "depth": 0, "table": "arp", "id": 4,
        "looked_for": {"vpn": 0, "next_hop": "203.0.113.200"}, "found": None, "note": ""}


def test_limit(campus):
    lines = both(campus, "explain", "198.51.100.100").out.splitlines()
    sessions = [line for line in lines if line.startswith("session")]
    assert len(sessions) == 11 and sessions[-1].endswith("=198.51.100.100  ->  nothing  [10 more (--limit)]"), lines
    assert len([line for line in both(campus, "explain", "198.51.100.100", "--limit", "20").out.splitlines()
                if line.startswith("session")]) == 20


def test_nothing():
    with site_of("fwdif: [{if_index: 1}]\n") as site:
        result = both(site, "explain", "2001:db8::1")
        assert (result.code, result.err) == (1, ""), result
        assert result.out == (
            "binding  usf_macip  address|ipv6_address=2001:db8::1  ->  nothing\n"
            "neighbour  nd  vpn=0 next_hop=2001:db8::1  ->  nothing\n"
            "DHCP binding  dhcp_snooping_bind  ipv6_address=2001:db8::1  ->  nothing\n"
            "route  ipv6_fib  vpn=0 destination=2001:db8::1  ->  nothing\n"
            "session  session  positive6.source|positive6.destination|negative6.source|negative6.destination=2001:db8::1"
            "  ->  nothing\n"), result


@pytest.mark.parametrize("words, part", [
    ((), "explain takes an IPv4, IPv6 or MAC address"),
    (("192.0.2.1", "vpn=1", "x"), "explain takes an IPv4, IPv6 or MAC address"),
    (("192.0.2.0/24",), "is no IPv4, IPv6 or MAC address"),
    (("101",), "is no IPv4, IPv6 or MAC address"),
    (("192.0.2.1", "vpn=65536"), "is no VPN"),
    (("192.0.2.1", "vpn=1x"), "is no VPN"),
    (("192.0.2.1", "vpn="), "is no VPN"),
    (("192.0.2.1", "7"), "is no VPN"),
    (("192.0.2.1", "--csv"), "unknown option"),
])
def test_wrong_words(campus, words, part):
    campus.engine.cli("explain", *words).failed(part)


@pytest.mark.parametrize("address", ["192.0.2.11", "02:00:5e:30:00:01", "2001:db8:9::1"])
def test_damaged_snapshots(campus, directory, address):
    codes = set()
    for damaged in damaged_copies(campus.snapshot, directory / "damaged"):
        result = nqecli("--snapshot", damaged, "explain", address, "--json")
        codes.add(result.code)
        if result.code == 2:
            assert result.err.startswith("nqecli: ") and result.err.count("\n") == 1, result
        else:
            assert (result.code, result.err) == (0, ""), result
            assert json.loads(result.out)["count"] > 0
    assert 0 in codes
