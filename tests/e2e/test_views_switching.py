"""The layer-2 switching views on examples/campus.yaml: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
INVALID = "invalid input param"
EMPTY = "datasize empty or invalid"


def test_vlans(campus):
    campus.shows("vlaninfo 1 10", """\
  VlanId           :  10
  MacLearnEn       :  1
  BcLimitEn        :  1
  MissUcAct        :  0
  MacLimitEn       :  1
  MacLimitFull     :  0
  MacLimitAct      :  2
  MacLimitAlarmEn  :  1
  RoamUserExistFlag:  1
  ArpReplyEnable   :  1
  IgmpsnpEnable    :  1
  DhcpEnable       :  1
  BcMid            :  1010
  StatId           :  2010
  MacLimitNum      :  512
  CurMacNum        :  45
  VlanIfIdx        :  201
  InstanceId       :  1
""")
    campus.shows("vlaninfo 1 20", """\
  VlanId           :  20
  MacLearnEn       :  1
  BcLimitEn        :  0
  MissUcAct        :  1
  MacLimitEn       :  1
  MacLimitFull     :  1
  MacLimitAct      :  1
  MacLimitAlarmEn  :  0
  RoamUserExistFlag:  0
  ArpReplyEnable   :  0
  IgmpsnpEnable    :  0
  DhcpEnable       :  1
  BcMid            :  1020
  StatId           :  2020
  MacLimitNum      :  21
  CurMacNum        :  21
  VlanIfIdx        :  202
  InstanceId       :  1
""")


@pytest.mark.parametrize("query", ["vlaninfo 10 1", "vlaninfo 0 10", "vlaninfo 1 11", "vlaninfo"])
def test_vlan_that_is_not_there(campus, query):
    campus.refuses(query, NOT_FOUND)


ZEROS = "00000000 00000000 00000000 00000000 "


def bitmap(lines):
    """128 words, two a line; `lines` gives those that are not zero."""
    return "".join(f"    {lines.get(i, (ZEROS, ZEROS))[0]}  {lines.get(i, (ZEROS, ZEROS))[1]}\n" for i in range(64))


def test_vlan_members(campus):
    campus.shows("vlan_bitmap 1000", "  IfIndex  :  1\n  Bitmap   :\n" + bitmap({
        0: ("01000000 00010000 00000100 00000000 ", "00010000 00000100 00000001 00000000 "),
        1: ("00000000 00000000 00000000 01000000 ", "00000000 00000000 00000000 00001000 "),
    }) + "  UntagBitmap   :\n" + bitmap({1: (ZEROS, "00000000 00000000 00000000 00001000 ")}))
    campus.shows("vlan_bitmap 1103", "  IfIndex  :  13\n  Bitmap   :\n" + bitmap({
        0: ("01000000 00000000 00000100 00000000 ", ZEROS),
    }) + "  UntagBitmap   :\n" + bitmap({0: ("00000000 00000000 00000100 00000000 ", ZEROS)}))
    campus.shows("vlan_bitmap 1224", "  IfIndex  :  64\n  Bitmap   :\n" + bitmap({
        0: ("10000000 00000000 00000000 00000001 ", ZEROS),
        63: (ZEROS, "10000000 00000000 00000000 00000000 "),
    }) + "  UntagBitmap   :\n" + bitmap({63: (ZEROS, "00000000 00000000 00000000 00000001 ")}))
    campus.refuses("vlan_bitmap 4711", NOT_FOUND)  # no such interface
    campus.refuses("vlan_bitmap 2001", NOT_FOUND)  # one without VLANs


def mac(vlan, address, out, static=0, drop=0, local=0, security=0, roam=0, aging=0, default=0):
    return (f"  BrId        :  1\n  VlanId      :  {vlan}\n  Mac         :  {address}\n  Static      :  {static}\n"
            f"  Drop        :  {drop}\n  Local       :  {local}\n  Security    :  {security}\n  Roam        :  {roam}\n"
            f"  Aging       :  {aging}\n  OutIfIndex  :  {out}\n  DefaultBit  :  {default}\n\n")


MACS = [
    mac(99, "02:00:5e:10:00:99", 208, static=1, local=1),
    mac(99, "02:00:5e:10:ff:01", 1, aging=250),
    mac(99, "02:00:5e:10:ff:02", 1, aging=250),
    mac(99, "02:00:5e:10:ff:03", 1, static=1, default=1),
    mac(20, "02:00:5e:30:00:2a", 0, static=1, drop=1),
    *[mac(10, f"02:00:5e:30:00:{i:02x}", 101) for i in range(1, 11)],
    *[mac(20, f"02:00:5e:30:00:{i:02x}", 102) for i in range(11, 21)],
    *[mac(10, f"02:00:5e:30:00:{i:02x}", 103) for i in range(21, 31)],
    *[mac(20, f"02:00:5e:30:00:{i:02x}", 104) for i in range(31, 41)],
    mac(10, "02:00:5e:30:01:01", 1, roam=1),
    *[mac(10, f"02:00:5e:40:01:{i:02x}", 10 + i, security=1, aging=10 * i) for i in range(1, 25)],
    *[mac(50, f"02:00:5e:40:02:{i:02x}", 40 + i, aging=75) for i in range(1, 17)],
]


def test_macs(campus):
    campus.shows("ssw_macinfo 02:00:5e:10:00:99 1 99", MACS[0])
    campus.shows("ssw_macinfo 02:00:5E:30:00:28 1 20", mac(20, "02:00:5e:30:00:28", 104))
    campus.shows("ssw_macinfo all", "".join(MACS))
    campus.shows("ssw_macinfo num5", "".join(MACS[:5]))
    campus.shows("ssw_macinfo num50", "".join(MACS[:50]))
    campus.shows("ssw_macinfo num51", "".join(MACS[:51]))
    campus.shows("ssw_macinfo num100", "".join(MACS))


def test_mac_refusals(campus):
    campus.refuses("ssw_macinfo 02:00:5e:10:00:99 1 98", NOT_FOUND)
    campus.refuses("ssw_macinfo 02:00:5e:10:00:99 2 99", NOT_FOUND)
    campus.refuses("ssw_macinfo num0", INVALID)
    campus.refuses("ssw_macinfo num101", INVALID)
    for key in ("02:00:5e:10:00", "gateway", "ALL"):
        campus.refuses(f"ssw_macinfo {key} 1 99", "search is not supported")


# 235 bytes a record: the answer has room for 1,048,576, which are 4,461 of them.
LONG = """\
ssw_macinfo:
  - {{repeat: {count}, bridge_id: 7, vlan_id: 1234, mac: {{from: 02:00:5e:50:00:00, step: 1}}, static: 1, aging: 200,
     out_if_index: {{from: 10000, step: 1}}}}
"""


def long_mac(i):
    return (f"  BrId        :  7\n  VlanId      :  1234\n  Mac         :  02:00:5e:50:{i >> 8:02x}:{i & 255:02x}\n"
            f"  Static      :  1\n  Drop        :  0\n  Local       :  0\n  Security    :  0\n  Roam        :  0\n"
            f"  Aging       :  200\n  OutIfIndex  :  {10000 + i}\n  DefaultBit  :  0\n\n")


def test_four_thousand_macs():
    with site_of(LONG.format(count=4000)) as site:
        site.shows("ssw_macinfo all", "".join(long_mac(i) for i in range(4000)))


def test_more_macs_than_an_answer_of_the_diag_command_holds():
    with site_of(LONG.format(count=16384)) as site:  # as many as the table holds
        full = site.engine.cli("diag", "search", "nqpTable", "23", "all", "0", "0", "0")
        assert (full.code, full.out) == (1, "parse data format fail\n")
        site.shows("ssw_macinfo all", "".join(long_mac(i) for i in range(16384)))
        site.shows("ssw_macinfo num100", "".join(long_mac(i) for i in range(100)))
        site.shows("ssw_macinfo 02:00:5e:50:3f:ff 7 1234", long_mac(16383))


def test_port_tags(campus):
    tags = [f"  PortId       :  {port}\n  PortEncType  :  {kind}\n\n" for port, kind in ((25, 1), (26, 1), (28, 2))]
    campus.shows("port_tag 28", tags[2])
    campus.shows("port_tag all", "".join(tags))
    campus.shows("port_tag num2", "".join(tags[:2]))
    campus.shows("port_tag num100", "".join(tags))
    campus.refuses("port_tag 27", NOT_FOUND)
    campus.refuses("port_tag num0", INVALID)


def test_isolated_ports(campus):
    for query, source, destination, on in (("1201 1202", 41, 42, 1), ("1202 1201", 42, 41, 1), ("1201 1203", 41, 43, 0)):
        campus.shows(f"port_isolate {query}", f"  SrcFwdIfIndex    :  {source}\n  DstFwdIfIndex    :  {destination}\n"
                                              f"  PortIsolateEn    :  {on}\n")
    campus.refuses("port_isolate 1203 1201", NOT_FOUND)  # one direction only
    campus.refuses("port_isolate 4711 1201", NOT_FOUND)
    campus.refuses("port_isolate 1201 4711", NOT_FOUND)


def out(*interfaces):
    return "".join(f"  OutFwdIfIndex  :  {interface}\n" for interface in interfaces)


def to(*interfaces):
    return "".join(f"  FwdIfIdx  :  {interface}\n" for interface in interfaces)


def test_broadcasts(campus):
    staff = [1, *range(11, 35), 101, 103]
    campus.shows("ssw_boardcast all 1 10", out(*staff))
    campus.shows("ssw_boardcast num5 1 10", out(*staff[:5]))
    campus.shows("ssw_boardcast num100 1 10", out(*staff))
    campus.shows("ssw_boardcast all 1 20", out(102, 104))
    campus.shows("ssw_boardcast all 1 50", out(1, *range(41, 57)))
    campus.refuses("ssw_boardcast all 1 30", EMPTY)
    campus.refuses("ssw_boardcast all 10 1", EMPTY)
    campus.refuses("ssw_boardcast 0 1 10", INVALID)
    campus.shows("ssw_global_boardcast all", out(1, 208))
    campus.shows("ssw_global_boardcast num1", out(1))
    campus.refuses("ssw_global_boardcast", INVALID)


def test_multicast_lists_of_a_vlan(campus):
    campus.shows("mc_route_port all 10", to(1))
    campus.shows("mc_route_port all 60", to(1, 206))
    campus.shows("mc_route_port num1 60", to(1))
    campus.shows("exclude_mc_elb all 20", to(102, 104))
    for view in ("mc_route_port", "exclude_mc_elb"):
        campus.refuses(f"{view} all 40", EMPTY)
        campus.refuses(f"{view} 0 10", INVALID)


def test_multicast_groups(campus):
    campus.shows("mc_elb 233.252.0.1:192.0.2.178 10", to(101, 103))
    campus.shows("mc_elb 233.252.0.1:0.0.0.0 10", to(11, 12, 13))
    campus.refuses("mc_elb 233.252.0.1:192.0.2.178 20", EMPTY)
    campus.refuses("mc_elb 233.252.0.2:192.0.2.178 10", EMPTY)
    campus.refuses("mc_elb all 10", "search fail")
    campus.refuses("mc_elb 233.252.0.1 10", "search fail")
    campus.refuses("mc_elb num0 10", INVALID)


def test_multicast_to_stations(campus):
    def users(*last):
        return "".join(f"  UsrMac  :  02:00:5e:30:00:{byte}\n" for byte in last)
    campus.shows("mc2uc_elb 233.252.0.1:192.0.2.178 10 2001", users("01", "05", "09"))
    campus.shows("mc2uc_elb 233.252.0.1:192.0.2.178 10 2003", users("15"))
    campus.refuses("mc2uc_elb 233.252.0.1:192.0.2.178 10 2002", EMPTY)
    campus.refuses("mc2uc_elb all 10 2001", "search fail")
    campus.refuses("mc2uc_elb 233.252.0.1:192.0.2.178 10 4711", "format raw data fail")


def state(instance, interface, number):
    return (f"  BrId         :  0\n  InstId       :  {instance}\n  FwdIfIdx     :  {interface}\n"
            f"  State        :  {number}\n\n")


def test_spanning_tree(campus):
    everything = state(0, 1, 2) + state(1, 1, 2) + state(1, 11, 1) + state(2, 41, 0)
    # Its usage does not tell of walks, so all four keys are given.
    campus.shows("port_inst_state all 0 0 0", everything)
    campus.shows("port_inst_state num2 0 0 0", state(0, 1, 2) + state(1, 1, 2))
    campus.shows("port_inst_state 1 1101", state(1, 11, 1))
    campus.shows("port_inst_state 2 1201", state(2, 41, 0))
    campus.refuses("port_inst_state 0 1101", NOT_FOUND)
    campus.refuses("port_inst_state 1 4711", NOT_FOUND)


def test_unwanted_multicast(campus):
    first = ("  BrId         :  1\n  VlanId       :  20\n  SrcIp        :  192.0.2.71\n  GroupIp      :  233.252.0.77\n"
             "  Aging        :  35\n\n")
    second = ("  BrId         :  1\n  VlanId       :  50\n  SrcIp        :  192.0.2.162\n  GroupIp      :  233.252.0.78\n"
              "  Aging        :  200\n\n")
    campus.shows("mfib_dummy all", first + second)
    campus.shows("mfib_dummy num1", first)
    campus.refuses("mfib_dummy", INVALID)


def test_causes(campus):
    causes = [f"  CpCauseId       :  {cause}\n  CauseIdx        :  {index}\n  PktCount        :  {count}\n\n"
              for cause, index, count in ((3, 40, 70112), (17, 41, 4123456789), (900, 47, 0))]
    campus.shows("cause all", "".join(causes))
    campus.shows("cause num2", "".join(causes[:2]))
    campus.refuses("cause 3", INVALID)


def test_lists_of_more_than_one_batch():
    group = "group: 233.252.0.9, source: 192.0.2.9"
    with site_of(f"""\
ctrlif_map_fwdif: [{{ctrl_if_index: 5, fwd_if_index: 6}}]
ssw_boardcast:
  - {{repeat: 130, bridge_id: 1, vlan_id: 2, fwd_if_index: {{from: 1, step: 1}}}}
  - {{bridge_id: 1, vlan_id: 3, fwd_if_index: 999}}
ssw_global_boardcast: [{{repeat: 50, fwd_if_index: {{from: 1, step: 1}}}}]
mc_route_port: [{{repeat: 101, bridge_id: 0, vlan_id: 2, fwd_if_index: {{from: 1, step: 1}}}}]
exclude_mc_elb: [{{repeat: 51, bridge_id: 0, vlan_id: 2, fwd_if_index: {{from: 1, step: 1}}}}]
mc_elb: [{{repeat: 120, bridge_id: 0, vlan_id: 2, {group}, fwd_if_index: {{from: 1, step: 1}}}}]
mc2uc_elb: [{{repeat: 120, bridge_id: 0, vlan_id: 2, fwd_if_index: 6, {group}, user_mac: {{from: 02:00:5e:00:53:01, step: 1}}}}]
port_tag: [{{repeat: 120, port_id: {{from: 1, step: 1}}, encap_type: 3}}]
""") as site:
        site.shows("ssw_boardcast all 1 2", out(*range(1, 131)))
        site.shows("ssw_boardcast num75 1 2", out(*range(1, 76)))
        site.shows("ssw_boardcast all 1 3", out(999))
        site.shows("ssw_global_boardcast all", out(*range(1, 51)))  # just one full batch
        site.shows("mc_route_port all 2", to(*range(1, 102)))
        site.shows("exclude_mc_elb all 2", to(*range(1, 52)))
        site.shows("mc_elb 233.252.0.9:192.0.2.9 2", to(*range(1, 121)))  # walked to its end without "all"
        site.shows("mc2uc_elb 233.252.0.9:192.0.2.9 2 5",
                   "".join(f"  UsrMac  :  02:00:5e:00:53:{i:02x}\n" for i in range(1, 121)))
        site.shows("port_tag all", "".join(f"  PortId       :  {i}\n  PortEncType  :  3\n\n" for i in range(1, 121)))


@pytest.mark.parametrize("query", ["ssw_macinfo all", "port_tag all", "ssw_boardcast all 1 10", "ssw_global_boardcast all",
                                   "mc_route_port all 10", "exclude_mc_elb all 20", "mc_elb 233.252.0.1:192.0.2.178 10",
                                   "port_inst_state all 0 0 0", "mfib_dummy all", "cause all"])
def test_empty_tables(query, empty_site):
    empty_site.refuses(query, EMPTY)


@pytest.fixture(scope="module")
def empty_site():
    with site_of("cause: []\n") as site:
        yield site
