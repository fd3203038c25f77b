"""The IPv4 forwarding views on examples/campus.yaml: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import nqecli, site_of

NOT_FOUND = "search result not found"
INVALID = "invalid input param"


def route(op_code, many, default, direct, prefix, nhp_index, re_index, fault=""):
    return (f"  OpCode    :  {op_code}\n  MulNhp    :  {many}\n  Def       :  {default}\n  Dir       :  {direct}\n"
            f"  Prefix    :  {prefix}\n  NhpIndex  :  {nhp_index}\n  ReIndex   :  {re_index}\n{fault}")


@pytest.mark.parametrize("query, text", [
    ("fib 0.0.0.0", route(1, 1, 1, 0, 0, 1, 1)),
    ("fib 0.0.0.0 0 1", route(1, 0, 1, 0, 0, 1, 2)),
    ("fib 192.0.2.0 26", route(1, 0, 0, 1, 26, 10, 10)),
    ("fib 192.0.2.64 26 0", route(1, 0, 0, 1, 26, 20, 20)),
    ("fib 192.0.2.160 28", route(1, 0, 0, 1, 28, 50, 50)),
    ("fib 198.51.100.0 28", route(1, 0, 0, 1, 28, 99, 99)),
    ("fib 203.0.113.0 24", route(2, 1, 0, 0, 24, 2, 3)),  # the group is there, whatever its members are
    ("fib 203.0.113.128 25", route(2, 0, 0, 0, 25, 2, 4, "  NhpEntry  :  Error(0)\n")),
    ("fib 192.0.2.208 28", route(3, 0, 0, 0, 28, 4, 5, "  NhpEntry  :  Error(-7)\n")),
])
def test_route(campus, query, text):
    campus.shows(query, text)


@pytest.mark.parametrize("query", ["fib 192.0.2.0 27", "fib 192.0.2.11 26", "fib 192.0.2.0 26 1", "fib staff 26", "fib all"])
def test_route_that_is_not_there(campus, query):
    campus.refuses(query, NOT_FOUND)


def test_next_hop_with_everything_intact(campus):
    campus.shows("nhp 1", """\
  IfIndex    :  208
  NextHopIp  :  198.51.100.1
  PortId    : 25
  Mtu       : 9100
  ArpMiss   : 0
  arpFake   : 0
  EncapType : 1
  EncapSize : 18
  L3SvcNum  : 1
  L1SvcNum  : 3
  LinkSvcNum: 1
  FwdIfNum  : 2
  EncapData:
   02 00 5e 10  ff 01 02 00
   5e 10 00 99  81 00 00 63
   08 00\r
  L2AclKey:
    Dmac    : 02:00:5e:10:ff:01
    Smac    : 02:00:5e:10:00:99
    EthType : 0x0800
    VlanId  : 0x0063
  Egress Service:
    [0]L3Svc:2, a1=1, a2=-1, a3=208
    [0]L1Svc:1, a1=2, a2=5, a3=4002
    [1]L1Svc:2, a1=0, a2=6, a3=3002
    [2]L1Svc:17, a1=0, a2=0, a3=0
  OutFwdif:
    [0]CtrlIfIndex=1001, FwdifIndex=2
    [1]CtrlIfIndex=1002, FwdifIndex=3

""")


def test_next_hop_with_broken_services(campus):
    campus.shows("nhp 2", """\
  IfIndex    :  208
  NextHopIp  :  198.51.100.2
  PortId    : 26
  Mtu       : 9100
  ArpMiss   : 0
  arpFake   : 0
  EncapType : 1
  EncapSize : 4
  L3SvcNum  : 1
  L1SvcNum  : 2
  LinkSvcNum: 0
  FwdIfNum  : 1
  EncapData:
   02 00 5e 10\r
  L2AclKey:
    Dmac    : 02:00:5e:10:ff:02
    Smac    : 02:00:5e:10:00:99
    EthType : 0x0800
    VlanId  : 0x0063
  Egress Service:
    [0]L3Svc:2, a1=0, a2=0, a3=207, a4=Error
    [0]L1Svc:2, a1=0, a2=0, a3=3002, a4=Error
    [1]L1Svc:4, a1=2, a2=0, a3=4001, a4=Error
  OutFwdif:
    [0]CtrlIfIndex=1000, FwdifIndex=1

""")


def test_next_hop_that_is_not_resolved(campus):
    campus.shows("nhp 3", """\
  IfIndex    :  208
  NextHopIp  :  198.51.100.3
  PortId    : 0
  Mtu       : 1500
  ArpMiss   : 1
  arpFake   : 1
  EncapType : 0
  EncapSize : 0
  L3SvcNum  : 0
  L1SvcNum  : 0
  LinkSvcNum: 0
  FwdIfNum  : 0
  EncapData:\r
  L2AclKey:
    Dmac    : 00:00:00:00:00:00
    Smac    : 00:00:00:00:00:00
    EthType : 0x0800
    VlanId  : 0x0063
  Egress Service:
  OutFwdif:

""")


def test_next_hop_of_a_connected_subnet(campus):
    campus.shows("nhp 40", """\
  IfIndex    :  204
  NextHopIp  :  0.0.0.0
  PortId    : 0
  Mtu       : 1500
  ArpMiss   : 1
  arpFake   : 0
  EncapType : 0
  EncapSize : 0
  L3SvcNum  : 0
  L1SvcNum  : 0
  LinkSvcNum: 0
  FwdIfNum  : 1
  EncapData:\r
  L2AclKey:
    Dmac    : 00:00:00:00:00:00
    Smac    : 00:00:00:00:00:00
    EthType : 0x0800
    VlanId  : 0x0028
  Egress Service:
  OutFwdif:
    [0]CtrlIfIndex=3040, FwdifIndex=204

""")
    campus.refuses("nhp 4", NOT_FOUND)


def test_groups(campus):
    campus.shows("nhp_group 1", """\
  BsFrr:         1
  BsNhpNum:      1
  HashIndex:     7
  PrimaryNum:    2
  PrimaryBitmap: 00000003
  NhpIndex[0]:     3
  PrimaryNhpIndex[0]:     1
  PrimaryNhpIndex[1]:     2
""")
    campus.shows("nhp_group 2", """\
  BsFrr:         0
  BsNhpNum:      0
  HashIndex:     8
  PrimaryNum:    3
  PrimaryBitmap: 00000007
  PrimaryNhpIndex[0]:     1
  PrimaryNhpIndex[1]:     2
  PrimaryEntry of 1 :     Error
  PrimaryNhpIndex[2]:     4
  PrimaryEntry of 2 :     Error
""")
    campus.refuses("nhp_group 3", NOT_FOUND)


def neighbour(valid, fake, ctrl, l3_ctrl, fwd, l3_fwd, vlan, dmac):
    return (f"  BsValid       : {valid}\n  BsFake        : {fake}\n  CtrlIfIdx     : {ctrl}\n  L3CtrlIfIdx   : {l3_ctrl}\n"
            f"  FwdIfIndex    : {fwd}\n  L3FwdIfIndex  : {l3_fwd}\n  VlanId        : {vlan}\n  Dmac          : {dmac}\n")


@pytest.mark.parametrize("query, text", [
    ("arp 192.0.2.11", neighbour(1, 0, 2001, 3010, 101, 201, 10, "02:00:5e:30:00:01")),
    ("arp 192.0.2.30", neighbour(1, 0, 2003, 3010, 103, 201, 10, "02:00:5e:30:00:1e")),
    ("arp 192.0.2.90 0", neighbour(1, 0, 2004, 3020, 104, 202, 20, "02:00:5e:30:00:28")),
    ("arp 198.51.100.2", neighbour(1, 0, 1000, 3099, 1, 208, 99, "02:00:5e:10:ff:02")),
    ("arp 198.51.100.3", neighbour(0, 1, 1000, 3099, 1, 208, 99, "00:00:00:00:00:00")),
    ("arp 198.51.100.1 1", neighbour(1, 0, 1000, 3099, 1, 208, 99, "02:00:5e:10:ff:01")),
])
def test_neighbour(campus, query, text):
    campus.shows(query, text)


def test_neighbour_that_is_not_there(campus):
    campus.refuses("arp 192.0.2.31", NOT_FOUND)
    campus.refuses("arp 192.0.2.11 1", NOT_FOUND)
    campus.refuses("arp all", NOT_FOUND)


def waiting(next_hop, create, ttl, source, destination):
    return (f"  NextHop   :  {next_hop}\n  Create    :  {create}\n  Ttl(sec)  :  {ttl}\n"
            f"  SrcIP     :  {source}\n  DstIP     :  {destination}\n\n")


PRINTER = "".join(waiting("192.0.2.146", at, 5, "192.0.2.11", "192.0.2.146") for at in (86401, 86403, 86405))
CAMERA = (waiting("192.0.2.180", 86404, 5, "192.0.2.71", "192.0.2.180") +
          waiting("192.0.2.180", 86405, 5, "192.0.2.72", "192.0.2.180"))
ROUTER = waiting("198.51.100.3", 86406, 3, "198.51.100.14", "203.0.113.200")


def test_miss_cache(campus):
    campus.shows("arp_miss_cache 192.0.2.146", PRINTER)
    campus.shows("arp_miss_cache 192.0.2.180 0", CAMERA)
    campus.shows("arp_miss_cache 198.51.100.3 1", ROUTER)
    campus.shows("arp_miss_cache all", PRINTER + CAMERA + ROUTER)


def test_miss_cache_refusals(campus):
    campus.refuses("arp_miss_cache 198.51.100.3 0", "datasize empty or invalid")
    for key in ("0x", "num5", "printer", "ALL"):
        campus.refuses(f"arp_miss_cache {key}", INVALID)
    campus.refuses("arp_miss_cache num101", INVALID)


def test_port_addresses(campus):
    staff = ("  IpAddr  :  192.0.2.1\n  IpMask  :  255.255.255.192\n  IpType  :  1\n\n"
             "  IpAddr  :  192.0.2.2\n  IpMask  :  255.255.255.192\n  IpType  :  2\n\n")
    campus.shows("portip 3010", staff)
    campus.shows("portip all 3010", staff)
    campus.shows("portip num1 3010", staff)  # the table is always walked to its end
    campus.shows("portip 3050", "  IpAddr  :  192.0.2.161\n  IpMask  :  255.255.255.240\n  IpType  :  1\n\n")
    campus.shows("portip 3099", "  IpAddr  :  198.51.100.14\n  IpMask  :  255.255.255.240\n  IpType  :  1\n\n")
    campus.refuses("portip 4711", NOT_FOUND)  # no such interface
    campus.refuses("portip 1000", NOT_FOUND)  # one without addresses


def test_bridges(campus):
    campus.shows("bridgeinfo 1", """\
  BrId         :  1
  BrIfIndex    :  5001
  VlanFilter   :  1
  MacLimitEn   :  1
  MacAgeTime   :  300
  MacLimitNum  :  4096
  CurMacNum    :  324
""")
    campus.shows("bridgeinfo 2", """\
  BrId         :  2
  BrIfIndex    :  5002
  VlanFilter   :  0
  MacLimitEn   :  0
  MacAgeTime   :  60
  MacLimitNum  :  0
  CurMacNum    :  0
""")
    campus.refuses("bridgeinfo 3", NOT_FOUND)


def test_trunks(campus):
    campus.shows("trunk 1", """\
  ActivePortNum  :  2
  HashType       :  3
  TrunkIfIdx     :  1
  MemfwdifIdx[1]  :  2
  MemfwdifIdx[2]  :  3
""")
    campus.shows("trunk 2", "  ActivePortNum  :  0\n  HashType       :  1\n  TrunkIfIdx     :  9\n")
    campus.refuses("trunk 3", NOT_FOUND)


def test_duplicate_macs(campus):
    first = "  IfIndex  :  41  BrId     :  1  VlanId   :  50  SrcMac   :  02:00:5e:30:00:2a\n\n"
    second = "  IfIndex  :  42  BrId     :  1  VlanId   :  50  SrcMac   :  02:00:5e:30:00:2a\n\n"
    campus.shows("arp_dup_mac all", first + second)
    campus.shows("arp_dup_mac num1", first)
    campus.shows("arp_dup_mac num100", first + second)
    campus.refuses("arp_dup_mac", INVALID)
    campus.refuses("arp_dup_mac num0", INVALID)


def test_nat_addresses(campus):
    campus.shows("nat_arp_pool_section 203.0.113.16", "  IpNum       : 16\n")
    campus.shows("nat_arp_pool_section 203.0.113.64", "  IpNum       : 8\n")
    campus.shows("nat_arp_pool_exclude 203.0.113.20", "  IpNum       : 2\n")
    campus.shows("nat_arp_host 203.0.113.80", "  IpNum       : 1\n")
    campus.refuses("nat_arp_pool_section 203.0.113.17", NOT_FOUND)
    campus.refuses("nat_arp_pool_exclude 203.0.113.16", NOT_FOUND)
    campus.refuses("nat_arp_host pool", NOT_FOUND)


def test_nat_rules_come_from_the_engine(campus):
    result = campus.engine.cli("show", "nat_policy", "guest-out")
    result.answered("""\
------------------------------
  RuleName     :  guest-out
  Source       :  192.0.2.64/26
  Destination  :  any
  Service      :  tcp 80 443
  EgressIfIdx  :  3099
  Action       :  source-nat
  AddressGroup :  2
  Hits         :  48211
------------------------------
""")
    for name in ("nobody", "all", "guest-out2", ""):
        result = campus.engine.cli("show", "nat_policy", name)
        assert (result.code, result.out) == (1, "search fail\n"), result


def test_nat_rules_are_not_in_a_snapshot(campus):
    result = nqecli("--snapshot", campus.snapshot, "show", "nat_policy", "guest-out")
    assert (result.code, result.out) == (2, "search fail\n"), result
    assert result.err == "nqecli: only the engine itself can tell, and a saved arena has none\n", result


def test_walks_of_more_than_one_batch():
    macs = "".join(f"  IfIndex  :  {i}  BrId     :  1  VlanId   :  9  SrcMac   :  02:00:5e:00:53:07\n\n"
                   for i in range(1, 121))
    line = len(macs[:macs.index("\n\n") + 2])
    misses = "".join(waiting("192.0.2.1", 1000 + i, 4, "192.0.2.9", "192.0.2.1") for i in range(120))
    others = "".join(waiting("192.0.2.2", 2000 + i, 4, "192.0.2.9", "192.0.2.2") for i in range(50))
    with site_of("""\
arp_dup_mac:
  - {repeat: 120, if_index: {from: 1, step: 1}, bridge_id: 1, source_mac: 02:00:5e:00:53:07, vlan_id: 9}
arp_miss_cache:
  - {repeat: 120, vpn: 7, next_hop: 192.0.2.1, create_time: {from: 1000, step: 1}, ttl: 4, source: 192.0.2.9,
     destination: 192.0.2.1}
  - {repeat: 50, vpn: 7, next_hop: 192.0.2.2, create_time: {from: 2000, step: 1}, ttl: 4, source: 192.0.2.9,
     destination: 192.0.2.2}
""") as site:
        site.shows("arp_dup_mac all", macs)
        first_hundred = macs[:macs.index("  IfIndex  :  101 ")]
        site.shows("arp_dup_mac num100", first_hundred)
        site.shows("arp_dup_mac num1", macs[:line])
        site.shows("arp_miss_cache all", misses + others)
        site.shows("arp_miss_cache 192.0.2.1 7", misses)
        site.shows("arp_miss_cache 192.0.2.2 7", others)  # just one full batch


def test_trunk_of_all_its_members():
    with site_of("trunk: [{trunk_id: 7, active_ports: 300, members: {0: 11, 255: 22}}]\n") as site:
        members = [11] + [0] * 254 + [22]
        site.shows("trunk 7", "  ActivePortNum  :  300\n  HashType       :  0\n  TrunkIfIdx     :  0\n" +
                   "".join(f"  MemfwdifIdx[{i}]  :  {member}\n" for i, member in enumerate(members, 1)))


def test_encapsulation_and_service_limits():
    full = ", ".join(str(i) for i in range(64))
    with site_of(f"""\
nhp:
  - {{index: 1, encap_size: 64, encap_data: [{full}]}}
  - {{index: 2, encap_size: 65}}
  - {{index: 3, l3_service_count: 5}}
  - {{index: 4, l1_service_count: 25}}
  - {{index: 5, fwdif_count: 5}}
""") as site:
        rows = "".join("   " + " ".join(f"{i:02x}" for i in range(row, row + 4)) + "  " +
                       " ".join(f"{i:02x}" for i in range(row + 4, row + 8)) + "\n" for row in range(0, 64, 8))
        answer = site.engine.cli("show", "nhp", "1")
        assert answer.code == 0 and "  EncapData:\n" + rows[:-1] + "\r\n  L2AclKey:\n" in answer.out, answer
        for index in (2, 3, 4, 5):
            site.refuses(f"nhp {index}", "parse data format fail")
