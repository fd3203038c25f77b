"""The views of the access-control lists: rules of every group type with a value of its own in each field, and
examples/campus.yaml. Whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
EMPTY = "datasize empty or invalid"
INVALID = "invalid input param"

SCENARIO = """\
acl_group:
  - {group_type: 0, group_id: 10, instance_id: 71, data_group_type: 8, data_group_id: 18}
  - {group_type: 1, group_id: 11, instance_id: 72, data_group_type: 1, data_group_id: 11}
  - {group_type: 2, group_id: 12, instance_id: 73, data_group_type: 2, data_group_id: 12}
  - {group_type: 3, group_id: 13, instance_id: 74, data_group_type: 3, data_group_id: 13}
  - {group_type: 4, group_id: 14, instance_id: 75, data_group_type: 4, data_group_id: 14}
  - {group_type: 5, group_id: 15, instance_id: 76, data_group_type: 5, data_group_id: 15}
  - {group_type: 4294967295, group_id: 4294967294, instance_id: 4294967293}

acl_rule:
  - group_type: 0
    group_id: 10
    priority: 1023
    ipv4:
      key: {destination: 192.0.2.1, source: 192.0.2.2, src_port: 40001, dst_port: 40002, protocol: 6, tos: 200,
            ttl_expired: 1, fragment: 2, is_ipv4: 1, tcp_flags: 18, vrf: 301, src_user_group: 302, dst_user_group: 303}
      mask: {destination: 255.255.255.0, source: 255.255.0.0, src_port: 65535, dst_port: 65534, protocol: 255, tos: 252,
             domain: 1, fragment: 3, is_ipv6: 1, tcp_flags: 63, vrf: 1001, src_user_group: 1002, dst_user_group: 1003}
    action:
      deny: 1
      remark_dscp: 1
      stat: 1
      redirect_cp: 1
      new_dscp: 46
      observe_index: 2
      new_8021p: 5
      redirect_next_hop_v6: 1
      load_balance_redirect: 1
      reserved: 9
      car_id: 4000000001
      redirect_ip: 198.51.100.7
      redirect_ipv6: "2001:db8::a:b"
      redirect_fwd_if: 60001
      stat_id: 1023
      load_balance_fwd_if: 60002
      redirect_local_port: 60003
      domain_id: 60004
      stat_entry: {group_type: 0, group_id: 10, stat_id: 1023}
  # Finds its statistics where the rule before has them.
  - {group_type: 0, group_id: 10, priority: 1, action: {remark_8021p: 1, car: 1, redirect_next_hop: 1, mirror: 1,
     match_stat: 1, iptables_accept: 1, stat_entry: {group_type: 0, group_id: 10, stat_id: 1023}}}
  # Its statistics were replaced after it was bound to them.
  - {group_type: 0, group_id: 10, priority: 2, action: {stat_entry: {stale: {group_type: 0, group_id: 10, stat_id: 2}}}}
  # Has none, and none bound.
  - {group_type: 0, group_id: 10, priority: 3}
  - group_type: 1
    group_id: 11
    priority: 0
    ipv6: &ipv6
      key: {source: "2001:db8:1:2:3:4:5:6", destination: "fe80::7:8", src_port: 40011, dst_port: 40012, protocol: 58,
            tos: 201, reserved1: 1, fragment: 1, is_ipv6: 1, tcp_flags: 19, vrf: 311, reserved2: 312, reserved3: 313}
      mask: {source: "ffff:ffff::", destination: "::ffff", src_port: 65533, dst_port: 65532, protocol: 254, tos: 251,
             domain: 1, fragment: 2, is_ipv4: 1, tcp_flags: 62, vrf: 1011, reserved2: 1012, reserved3: 1013}
  - group_type: 2
    group_id: 12
    priority: 0
    l2:
      key: {dmac: 02:00:5e:00:53:01, smac: 02:00:5e:00:53:02, eth_type: 0x0806, vlan_id: 4094, dot1p: 6}
      mask: {dmac: ff:ff:ff:00:00:00, smac: ff:ff:ff:ff:ff:fe, eth_type: 0xffff, vlan_id: 4095, dot1p: 7}
  - group_type: 3
    group_id: 13
    priority: 0
    l2_ipv4:
      key:
        l2: {dmac: 02:00:5e:00:53:11, smac: 02:00:5e:00:53:12, eth_type: 0x0800, vlan_id: 100, dot1p: 3}
        ipv4: {destination: 192.0.2.11, source: 192.0.2.12, src_port: 40021, dst_port: 40022, protocol: 17, tos: 202,
               domain: 1, fragment: 3, is_ipv4: 1, tcp_flags: 20, vrf: 321, src_user_group: 322, dst_user_group: 323}
      mask:
        l2: {dmac: ff:00:00:00:00:00, smac: "00:00:00:00:00:ff", eth_type: 0xff00, vlan_id: 0x00ff, dot1p: 1}
        ipv4: {destination: 255.0.0.0, source: 0.0.0.255, src_port: 65531, dst_port: 65530, protocol: 253, tos: 250,
               ttl_expired: 1, fragment: 1, is_ipv6: 1, tcp_flags: 61, vrf: 1021, src_user_group: 1022,
               dst_user_group: 1023}
  # Marked as IPv6: no MAC address counts.
  - {group_type: 3, group_id: 13, priority: 1, ipv6: *ipv6}
  - group_type: 4
    group_id: 14
    priority: 0
    ports:
      key: {src_port: 40031, dst_port: 40032, protocol: 132, tos: 203, ttl_expired: 1, fragment: 2, is_ipv6: 1,
            tcp_flags: 21, vrf: 331, src_user_group: 332, dst_user_group: 333}
      mask: {src_port: 65529, dst_port: 65528, protocol: 252, tos: 249, domain: 1, fragment: 1, is_ipv4: 1,
             tcp_flags: 60, vrf: 1031, src_user_group: 1032, dst_user_group: 1033}
  - {group_type: 5, group_id: 15, priority: 0, action: {deny: 1}}

acl_stat:
  - group_type: 0
    group_id: 10
    stat_id: 1023
    counters:
      - {pass_packets: 1, pass_bytes: 10, filter_packets: 100, filter_bytes: 1000, match_packets: 10000, match_bytes: 5}
      - {pass_packets: 2, pass_bytes: 20, filter_packets: 200, filter_bytes: 2000, match_packets: 20000, match_bytes: 5}
      - {pass_packets: 3, pass_bytes: 30, filter_packets: 300, filter_bytes: 3000, match_packets: 30000, match_bytes: 5}
      - {pass_packets: 4000000000000, pass_bytes: 40, filter_packets: 400, filter_bytes: 4000, match_packets: 40000,
         match_bytes: 18446744073709551615}
  - {group_type: 0, group_id: 10, stat_id: 1}
  - {group_type: 0, group_id: 10, stat_id: 2, counters: [{pass_packets: 7}]}
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


def block(title, width, labels, values, suffix=""):
    """A title and lines of label and value."""
    values = [value.strip() for value in values.split(",")]
    labels = labels.split()
    assert len(labels) == len(values), (title, labels, values)
    lines = "".join(f"  {label + suffix:{width}}:  {value}\n" for label, value in zip(labels, values))
    return f"{title}:\n{lines}"


def rule(priority, group_type):
    return block("AclRuleCommonInfo", 13, "Priority GroupType", f"{priority}, {group_type}")


ACTION = """IfDeny Rmk8021p RmkDscp CarEn StatEn RedirectNhp RedirectCP Mirror NewDscp ObserveIdx New8021p RedirectNhpV6
    AclMatchStatEn LoadBalanceRedirectEn IptablesAccept Rsv2 CarId RedirectIP RedirectIPV6[0] RedirectIPV6[1]
    RedirectIPV6[2] RedirectIPV6[3] RedirectFwdif StatId LoadBalanceRedirectFwdif RedirectToLocalPort DomainID"""
NO_ACTION = "0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0"


def action(values, statistics):
    return block("AclAction", 25, ACTION, values) + f"  AclStatEntry             :  {statistics}\n"


L4 = """IsIpv4 IsIpv6 DstIpAddr SrcIpAddr SrcPort DstPort Protocol Tos TtlExpired DomainFlag FragFlag TcpFlag VrfIndex
    SrcUsrGroupId DstUsrGroupId"""
L2 = "DstMac SrcMac EthType VlanId Dot1p"
ADDRESSES_6 = """SrcIpv6Addr[0] SrcIpv6Addr[1] SrcIpv6Addr[2] SrcIpv6Addr[3] DstIpv6Addr[0] DstIpv6Addr[1] DstIpv6Addr[2]
    DstIpv6Addr[3] IsIpv4 IsIpv6"""
ADDRESSES_6_MASK = """SrcIpv6AddrMask[0] SrcIpv6AddrMask[1] SrcIpv6AddrMask[2] SrcIpv6AddrMask[3] DstIpv6AddrMask[0]
    DstIpv6AddrMask[1] DstIpv6AddrMask[2] DstIpv6AddrMask[3] IsIpv4Mask IsIpv6Mask"""
L4_6 = "SrcPort DstPort Protocol Tos V6-rsv1 DomainFlag FragFlag TcpFlag VrfIndex V6-rsv2 V6-rsv3"
L2L4_L2 = "L2L4DstMac L2L4SrcMac L2L4EthType L2L4VlanId L2L4Dot1p"
L2L4_L4 = """L2L4DstIpAddr L2L4SrcIpAddr L2L4SrcPort L2L4DstPort L2L4Protocol L2L4Tos L2L4TtlExpired L2L4DomainFlag
    L2L4FragFlag L2L4TcpFlag L2L4VrfIndex L2L4SrcUsrGroupId L2L4DstUsrGroupId"""
PORTS = """IsIpv4 IsIpv6 SrcPort DstPort Protocol Tos V4-TtlExpired/V6-rsv DomainFlag FragFlag TcpFlag VrfIndex
    V4-SrcUsrGroupId/V6-rsv V4-DstUsrGroupId/V6-rsv"""
PORTS_MASK = """IsIpv4Mask IsIpv6Mask SrcPortMask DstPortMask ProtocolMask TosMask V4-TtlExpiredMask/V6-rsv
    DomainFlagMask FragFlagMask TcpFlagMask VrfIndexMask V4-SrcUsrGroupIdMask/V6-rsv V4-DstUsrGroupIdMask/V6-rsv"""

NOTHING_4 = "0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0"
IPV6_BLOCKS = (
    block("AclL4V6RuleInfo1", 21, ADDRESSES_6,
          "0x20010db8, 0x10002, 0x30004, 0x50006, 0xfe800000, 0x0, 0x0, 0x70008, 0, 1")
    + block("AclL4V6RuleInfoMask1", 21, ADDRESSES_6_MASK, "0xffffffff, 0x0, 0x0, 0x0, 0x0, 0x0, 0x0, 0xffff, 1, 0")
    + block("AclL4V6RuleInfo2", 31, L4_6, "40011, 40012, 58, 201, 1, 0, 1, 19, 311, 312, 313")
    + block("AclL4V6RuleInfoMask2", 31, L4_6, "65533, 65532, 254, 251, 0, 1, 2, 62, 1011, 1012, 1013", "Mask"))


def test_ipv4_rule_and_every_field_of_an_action(site):
    site.shows("acl_rule 0 10 1023", (
        rule(1023, 0)
        # 192.0.2.1 is 0xc0000201, 192.0.2.2 is 0xc0000202
        + block("AclL4RuleInfo", 17, L4,
                "1, 0, 3221225985, 3221225986, 40001, 40002, 6, 200, 1, 0, 2, 18, 301, 302, 303")
        + block("AclL4RuleInfoMask", 17, L4,
                "0, 1, 4294967040, 4294901760, 65535, 65534, 255, 252, 0, 1, 3, 63, 1001, 1002, 1003", "Mask")
        # 198.51.100.7 is 0xc6336407, 0x20010db8 is 536939960
        + action("1, 0, 1, 0, 1, 0, 1, 0, 46, 2, 5, 1, 0, 1, 0, 9, 4000000001, 3325256711, 536939960, 0, 0, 655371, 60001, "
                 "1023, 60002, 60003, 60004", "OK")))


@pytest.mark.parametrize("priority, flags, statistics", [
    (1, "0, 1, 0, 1, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0", "Error(0)"),
    (2, NO_ACTION, "Error(0)"),
    (3, NO_ACTION, "Error(-7)"),
])
def test_statistics_that_are_not_the_rules_own(site, priority, flags, statistics):
    site.shows(f"acl_rule 0 10 {priority}", (
        rule(priority, 0)
        + block("AclL4RuleInfo", 17, L4, NOTHING_4)
        + block("AclL4RuleInfoMask", 17, L4, NOTHING_4, "Mask")
        + action(flags, statistics)))


def test_ipv6_rule(site):
    site.shows("acl_rule 1 11 0", rule(0, 1) + IPV6_BLOCKS + action(NO_ACTION, "Error(-7)"))


def test_layer_2_rule(site):
    site.shows("acl_rule 2 12 0", (
        rule(0, 2)
        + block("AclL2RuleInfo", 17, L2, "02:00:5e:00:53:01, 02:00:5e:00:53:02, 2054, 4094, 6")
        + block("AclL2RuleInfoMask", 17, L2, "ff:ff:ff:00:00:00, ff:ff:ff:ff:ff:fe, 65535, 4095, 7", "Mask")
        + action(NO_ACTION, "Error(-7)")))


def test_layer_2_and_4_rule(site):
    site.shows("acl_rule 3 13 0", (
        rule(0, 3)
        + block("AclL2L4RuleInfoL2", 21, L2L4_L2, "02:00:5e:00:53:11, 02:00:5e:00:53:12, 2048, 100, 3")
        + block("AclL2L4RuleInfoL2Mask", 21, L2L4_L2, "ff:00:00:00:00:00, 00:00:00:00:00:ff, 65280, 255, 1", "Mask")
        + block("AclL2L4RuleInfoL4", 21, L2L4_L4,
                "3221225995, 3221225996, 40021, 40022, 17, 202, 0, 1, 3, 20, 321, 322, 323")
        + block("AclL2L4RuleInfoMaskL4", 21, L2L4_L4,
                "4278190080, 255, 65531, 65530, 253, 250, 1, 0, 1, 61, 1021, 1022, 1023", "Mask")
        + action(NO_ACTION, "Error(-7)")))


def test_layer_2_and_4_rule_marked_as_ipv6(site):
    site.shows("acl_rule 3 13 1", rule(1, 3) + IPV6_BLOCKS + action(NO_ACTION, "Error(-7)"))


def test_rule_without_addresses(site):
    site.shows("acl_rule 4 14 0", (
        rule(0, 4)
        + block("AclL4Info", 31, PORTS, "0, 1, 40031, 40032, 132, 203, 1, 0, 2, 21, 331, 332, 333")
        + block("AclL4InfoMask", 31, PORTS_MASK, "1, 0, 65529, 65528, 252, 249, 0, 1, 1, 60, 1031, 1032, 1033")
        + action(NO_ACTION, "Error(-7)")))


def test_rule_of_another_group_type_shows_no_match(site):
    site.shows("acl_rule 5 15 0", rule(0, 5) + action("1" + NO_ACTION[1:], "Error(-7)"))


def test_rules_that_are_not_there(site):
    for query in ("acl_rule 0 10 0", "acl_rule 0 10 1024", "acl_rule 0 10 4294967295", "acl_rule 0 11 0",
                  "acl_rule 4294967295 4294967294 0"):
        site.refuses(query, NOT_FOUND)
    # Always one rule by its key: here the one of group type 0, group 0, priority 0.
    site.refuses("acl_rule all 0 0 0", NOT_FOUND)
    site.refuses("acl_rule num0 0 10 1023", INVALID)


def group(key_type, key_id, instance, data_type, data_id, rules):
    text = (f"  KeyGroupType         :  {key_type}\n  KeyGroupId           :  {key_id}\n"
            f"  DataInstanceId       :  {instance}\n  DataGroupType        :  {data_type}\n"
            f"  DataGroupId          :  {data_id}\n  RuleNum              :  {rules}\n")
    if rules:
        text += f"  PriorityBegin        :  0\n  PriorityEnd          :  {rules - 1}\n"
    return text + "\n"


GROUPS = [
    group(0, 10, 71, 8, 18, 4),  # the priorities follow from the number of rules
    group(1, 11, 72, 1, 11, 1),
    group(2, 12, 73, 2, 12, 1),
    group(3, 13, 74, 3, 13, 2),
    group(4, 14, 75, 4, 14, 1),
    group(5, 15, 76, 5, 15, 1),
    group(4294967295, 4294967294, 4294967293, 0, 0, 0),
]


def test_groups(site):
    site.shows("acl_group 0 10", GROUPS[0])
    site.shows("acl_group 3 13", GROUPS[3])
    site.shows("acl_group 4294967295 4294967294", GROUPS[6])
    site.shows("acl_group all", "".join(GROUPS))
    site.shows("acl_group num3", "".join(GROUPS[:3]))
    site.shows("acl_group num100", "".join(GROUPS))
    site.refuses("acl_group 10 0", NOT_FOUND)
    site.refuses("acl_group num101", INVALID)


def counted(group_type, group_id, stat_id, counts):
    return block("", 17, """GroupType GroupId StatId AclPassPktCnt AclPassByte AclFilterPktCnt AclFilterByte AclMatchPktCnt
        AclMatchByte""", f"{group_type}, {group_id}, {stat_id}, {counts}")[2:] + "\n"


STATISTICS = [
    # Sums over the four blocks; the last one runs over 64 bits: 15 + 2^64 - 1.
    counted(0, 10, 1023, "4000000000006, 100, 1000, 10000, 100000, 14"),
    counted(0, 10, 1, "0, 0, 0, 0, 0, 0"),
    counted(0, 10, 2, "7, 0, 0, 0, 0, 0"),
]


def test_statistics(site):
    site.shows("acl_stat 0 10 1023", STATISTICS[0])
    site.shows("acl_stat 0 10 1", STATISTICS[1])
    site.shows("acl_stat all", "".join(STATISTICS))
    site.shows("acl_stat num1", STATISTICS[0])
    site.shows("acl_stat num2", "".join(STATISTICS[:2]))
    site.refuses("acl_stat 0 10 3", NOT_FOUND)
    site.refuses("acl_stat num", INVALID)


def capacity(groups, rules):
    return block("AclTbmRule", 21, "AclGroupSpec AclGroupNum AclGroupRuleSpec AclRuleNum", f"1024, {groups}, 1024, {rules}")


def test_capacity(site):
    site.shows("acl_whole_machine_spec", capacity(7, 10))
    site.shows("acl_whole_machine_spec 7 8 9", capacity(7, 10))


def test_no_groups_at_all():
    with site_of("ctrlif_map_fwdif: []\n") as site:
        site.refuses("acl_group all", EMPTY)
        site.refuses("acl_group num5", EMPTY)
        site.refuses("acl_stat all", EMPTY)
        site.refuses("acl_rule 0 0 0", NOT_FOUND)
        site.shows("acl_whole_machine_spec", capacity(0, 0))


def test_more_groups_and_statistics_than_one_batch():
    with site_of("acl_group:\n  - {repeat: 120, group_type: 2, group_id: {from: 1, step: 1}, instance_id: {from: 9, step: 2}}\n"
                 "acl_rule:\n  - {repeat: 120, group_type: 2, group_id: {from: 1, step: 1}, priority: 0}\n"
                 "  - {repeat: 1023, group_type: 2, group_id: 60, priority: {from: 1, step: 1}}\n"
                 "acl_stat:\n  - {repeat: 101, group_type: 2, group_id: 1, stat_id: {from: 0, step: 1}}\n") as site:
        groups = [group(2, i, 7 + 2 * i, 0, 0, 1024 if i == 60 else 1) for i in range(1, 121)]
        site.shows("acl_group all", "".join(groups))
        site.shows("acl_group num100", "".join(groups[:100]))
        statistics = [counted(2, 1, i, "0, 0, 0, 0, 0, 0") for i in range(101)]
        site.shows("acl_stat all", "".join(statistics))
        site.shows("acl_stat num51", "".join(statistics[:51]))
        site.shows("acl_whole_machine_spec", capacity(120, 1143))
        site.shows("acl_rule 2 60 1023", (
            rule(1023, 2)
            + block("AclL2RuleInfo", 17, L2, "00:00:00:00:00:00, 00:00:00:00:00:00, 0, 0, 0")
            + block("AclL2RuleInfoMask", 17, L2, "00:00:00:00:00:00, 00:00:00:00:00:00, 0, 0, 0", "Mask")
            + action(NO_ACTION, "Error(-7)")))


def test_campus(campus):
    campus.shows("acl_whole_machine_spec", capacity(9, 11))
    campus.shows("acl_group 0 3002", group(0, 3002, 4, 0, 3002, 2))
    campus.shows("acl_group 0 3900", group(0, 3900, 9, 0, 3900, 0))
    # The staff filter's second rule still counts where the first one does.
    campus.shows("acl_rule 0 3002 1", (
        rule(1, 0)
        + block("AclL4RuleInfo", 17, L4, "1, 0, 0, 3221225984, 0, 0, 0, 184, 0, 0, 0, 0, 0, 17, 0")
        + block("AclL4RuleInfoMask", 17, L4, "1, 0, 0, 4294967232, 0, 0, 0, 252, 0, 0, 0, 0, 0, 65535, 0", "Mask")
        + action("0, 0, 1, 0, 1, 0, 0, 0, 46, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0", "Error(0)")))
    campus.shows("acl_rule 2 4002 0", (
        rule(0, 2)
        + block("AclL2RuleInfo", 17, L2, "00:00:00:00:00:00, 00:00:00:00:00:00, 2048, 30, 0")
        + block("AclL2RuleInfoMask", 17, L2, "00:00:00:00:00:00, 00:00:00:00:00:00, 65535, 4095, 0", "Mask")
        + action("0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0", "OK")))
    campus.shows("acl_stat 2 4002 0", counted(2, 4002, 0, "250000, 54500000, 0, 0, 250000, 54500000"))
    campus.shows("acl_stat 3 5001 0", counted(3, 5001, 0, "5000000000, 6500000000000, 0, 0, 5000000000, 6500000000000"))
