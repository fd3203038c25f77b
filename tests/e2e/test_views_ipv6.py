"""The IPv6 forwarding views on examples/campus.yaml: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of
from test_views_ipv4 import INVALID, NOT_FOUND, neighbour, route, waiting


@pytest.mark.parametrize("query, text", [
    ("ipv6_fib ::", route(1, 1, 1, 0, 0, 1, 1)),
    ("ipv6_fib 2001:db8:0:10:: 64", route(1, 0, 0, 1, 64, 10, 10)),
    ("ipv6_fib 2001:0db8:0000:0020::0 64 0", route(1, 0, 0, 1, 64, 20, 20)),
    ("ipv6_fib 2001:db8:9:: 48", route(2, 1, 0, 0, 48, 2, 3)),
    ("ipv6_fib 2001:db8:8:: 48", route(2, 0, 0, 0, 48, 2, 4, "  NhpEntry  :  Error(0)\n")),
])
def test_route(campus, query, text):
    campus.shows(query, text)


def test_route_that_is_not_there(campus):
    for query in ("ipv6_fib 2001:db8:0:10:: 63", "ipv6_fib 2001:db8:0:10:: 64 1", "ipv6_fib :: 0 1"):
        campus.refuses(query, NOT_FOUND)


def test_next_hops(campus):
    campus.shows("ipv6_nhp 2", """\
  IfIndex    :  208
  NextHopIp  :  2001:db8:0:99::2
  PortId    : 25
  Mtu       : 9100
  NdMiss   : 0
  NdFake   : 0
  EncapType : 1
  EncapSize : 18
  L3SvcNum  : 1
  L1SvcNum  : 2
  LinkSvcNum: 3
  FwdIfNum  : 2
  OutFwdif:
    [0]CtrlIfIndex=1001, FwdifIndex=2
    [1]CtrlIfIndex=1002, FwdifIndex=3

""")
    campus.shows("ipv6_nhp 20", """\
  IfIndex    :  202
  NextHopIp  :  ::
  PortId    : 0
  Mtu       : 1500
  NdMiss   : 1
  NdFake   : 1
  EncapType : 0
  EncapSize : 0
  L3SvcNum  : 0
  L1SvcNum  : 0
  LinkSvcNum: 0
  FwdIfNum  : 1
  OutFwdif:
    [0]CtrlIfIndex=3020, FwdifIndex=202

""")
    campus.refuses("ipv6_nhp 3", NOT_FOUND)


def test_group_of_ipv6_next_hops_is_compared_with_those_of_ipv4(campus):
    campus.shows("ipv6_nhp_group 1", """\
  BsFrr:         0
  BsNhpNum:      0
  HashIndex:     9
  PrimaryNum:    2
  PrimaryBitmap: 00000003
  PrimaryNhpIndex[0]:     1
  PrimaryEntry of 0 :     Error
  PrimaryNhpIndex[1]:     2
  PrimaryEntry of 1 :     Error
""")


def test_group_of_ipv4_next_hops(campus):
    campus.shows("ipv6_nhp_group 2", """\
  BsFrr:         1
  BsNhpNum:      1
  HashIndex:     10
  PrimaryNum:    2
  PrimaryBitmap: 00000003
  NhpIndex[0]:     3
  PrimaryNhpIndex[0]:     1
  PrimaryNhpIndex[1]:     2
  PrimaryEntry of 1 :     Error
""")
    campus.refuses("ipv6_nhp_group 3", NOT_FOUND)


@pytest.mark.parametrize("query, text", [
    ("nd 2001:db8:0:10::a1", neighbour(1, 0, 2001, 3010, 101, 201, 10, "02:00:5e:30:00:01")),
    ("nd 2001:db8:0:20::aa 0", neighbour(1, 0, 2002, 3020, 102, 202, 20, "02:00:5e:30:00:14")),
    ("nd 2001:db8:0:10::b1", neighbour(1, 0, 2003, 3010, 103, 201, 10, "02:00:5e:30:00:15")),
    ("nd 2001:db8:0:20::ba", neighbour(1, 0, 2004, 3020, 104, 202, 20, "02:00:5e:30:00:28")),
    ("nd 2001:db8:0:99::1", neighbour(0, 1, 1000, 3099, 1, 208, 99, "00:00:00:00:00:00")),
])
def test_neighbour(campus, query, text):
    campus.shows(query, text)


def test_neighbour_that_is_not_there(campus):
    campus.refuses("nd 2001:db8:0:10::1", NOT_FOUND)
    campus.refuses("nd 2001:db8:0:10::a1 1", NOT_FOUND)


def test_every_station_has_both_families(campus):
    stations = [(f"192.0.2.{11 + i}", f"2001:db8:0:10::{'ab'[i // 10]}{1 + i % 10:x}") for i in range(20)]
    stations += [(f"192.0.2.{71 + i}", f"2001:db8:0:20::{'ab'[i // 10]}{1 + i % 10:x}") for i in range(20)]
    assert len(stations) == 40
    for ipv4, ipv6 in stations:
        arp, nd = campus.engine.cli("show", "arp", ipv4), campus.engine.cli("show", "nd", ipv6)
        assert arp.code == 0 and arp.out == nd.out, (arp, nd)


PRINTER = "".join(waiting("2001:db8:0:40::17", at, 5, "2001:db8:0:10::a1", "2001:db8:0:40::17")
                  for at in (86501, 86503, 86505))
ROUTER = "".join(waiting("2001:db8:0:99::3", at, 3, "2001:db8:0:99::14", "2001:db8:9::1") for at in (86504, 86505))


def test_miss_cache(campus):
    campus.shows("nd_miss_cache 2001:db8:0:40::17", PRINTER)
    campus.shows("nd_miss_cache 2001:db8:0:99::3 1", ROUTER)
    campus.shows("nd_miss_cache all", PRINTER + ROUTER)
    campus.refuses("nd_miss_cache 2001:db8:0:99::3", "datasize empty or invalid")
    for key in ("::", "192.0.2.1", "num3", "printer"):
        campus.refuses(f"nd_miss_cache {key}", INVALID)


def test_miss_cache_of_more_than_one_batch():
    packets = [waiting("2001:db8::1", 100 + i, 9, f"2001:db8::{256 + i:x}", "2001:db8::1") for i in range(110)]
    with site_of("""\
nd_miss_cache:
  - {repeat: 110, vpn: 2, next_hop: "2001:db8::1", create_time: {from: 100, step: 1}, ttl: 9,
     source: {from: "2001:db8::100", step: 1}, destination: "2001:db8::1"}
  - {vpn: 3, next_hop: "2001:db8::1", create_time: 1, ttl: 9, source: "::1", destination: "::2"}
""") as site:
        site.shows("nd_miss_cache 2001:db8::1 2", "".join(packets))
        site.shows("nd_miss_cache all", "".join(packets) + waiting("2001:db8::1", 1, 9, "::1", "::2"))


def test_port_addresses(campus):
    campus.shows("ipv6_portip 3010", """\
  IpAddr  :  2001:db8:0:10::1
  Prefix  :  64
  IpType  :  1

  IpAddr  :  fe80::5eff:fe10:99
  Prefix  :  10
  IpType  :  3

""")
    campus.shows("ipv6_portip all 3099", "  IpAddr  :  2001:db8:0:99::14\n  Prefix  :  64\n  IpType  :  1\n\n")
    campus.refuses("ipv6_portip 4711", NOT_FOUND)
    campus.refuses("ipv6_portip 3030", NOT_FOUND)
