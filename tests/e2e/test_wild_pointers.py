"""Addresses in records that lead nowhere, or where they should not: the tool answers, it does not crash."""

import struct

import pytest

from conftest import Result, engine_place, site_of, view

# Whatever stands in a record, the tool ends by itself and says one of the view's texts.
UNMAPPED = ["0x1", "0x10", "0xfff8", "0x7fffffffffff", "0x7ffffffffff8", "0x8000000000000000", "0xdeadbeefdeadbeef",
            "0xffff800000000000", "0xffffffff81000000", "0xfffffffffffffff0", "0xffffffffffffffff"]


def next_hop_head(fwdif_count, l3=0, l1=0):
    return f"""\
  IfIndex    :  7
  NextHopIp  :  192.0.2.7
  PortId    : 0
  Mtu       : 0
  ArpMiss   : 0
  arpFake   : 0
  EncapType : 0
  EncapSize : 0
  L3SvcNum  : {l3}
  L1SvcNum  : {l1}
  LinkSvcNum: 0
  FwdIfNum  : {fwdif_count}
  EncapData:\r
  L2AclKey:
    Dmac    : 00:00:00:00:00:00
    Smac    : 00:00:00:00:00:00
    EthType : 0x0000
    VlanId  : 0x0000
  Egress Service:
"""


@pytest.mark.parametrize("address", UNMAPPED)
def test_output_interface_that_is_not_mapped(address):
    with site_of(f"""\
fwdif: [{{if_index: 9, ctrl_if_index: 1009}}]
nhp:
  - {{index: 1, if_index: 7, next_hop: 192.0.2.7, fwdif_count: 2, fwdifs: [{{if_index: 9}}, {address}]}}
  - {{index: 2, if_index: 7, next_hop: 192.0.2.7, fwdif_count: 1, fwdifs: [{{if_index: 9}}, {address}]}}
ipv6_nhp:
  - {{index: 1, if_index: 7, next_hop: "2001:db8::7", fwdif_count: 4, fwdifs: [0, 0, 0, {address}]}}
""") as site:
        # It counts as none, and the rest of the view stands.
        wild = next_hop_head(2) + ("  OutFwdif:\n    [0]CtrlIfIndex=1009, FwdifIndex=9\n"
                                   "    [1]CtrlIfIndex=0, FwdifIndex=0\n\n")
        site.shows("nhp 1", wild)
        answer = site.engine.cli("show", "ipv6_nhp", "1")
        assert answer.code == 0 and answer.out.endswith(
            "  OutFwdif:\n" + "".join(f"    [{i}]CtrlIfIndex=0, FwdifIndex=0\n" for i in range(4)) + "-" * 30 + "\n"), answer
        # What is not counted is not looked at.
        site.shows("nhp 2", next_hop_head(1) + "  OutFwdif:\n    [0]CtrlIfIndex=1009, FwdifIndex=9\n\n")
        # The engine's own process survives it as well.
        assert site.engine.client().ask("diag search nqpTable 4 0 1 0 0") == (0, view(wild)[:-1])


def test_null_output_interfaces():
    with site_of("""\
nhp: [{index: 1, if_index: 7, next_hop: 192.0.2.7, fwdif_count: 4}]
ipv6_nhp: [{index: 1, fwdif_count: 1}]
""") as site:
        site.shows("nhp 1", next_hop_head(4) + "  OutFwdif:\n" +
                   "".join(f"    [{i}]CtrlIfIndex=0, FwdifIndex=0\n" for i in range(4)) + "\n")
        answer = site.engine.cli("show", "ipv6_nhp", "1")
        assert answer.code == 0 and "  OutFwdif:\n    [0]CtrlIfIndex=0, FwdifIndex=0\n" in answer.out, answer


def test_output_interface_that_was_replaced_and_negative_counts():
    with site_of("""\
fwdif: [{if_index: 9, ctrl_if_index: 1009}]
nhp:
  - {index: 1, if_index: 7, next_hop: 192.0.2.7, fwdif_count: 1, fwdifs: [{stale: {if_index: 9}}]}
  - {index: 2, if_index: 7, next_hop: 192.0.2.7, fwdif_count: -1, l3_service_count: -128, l1_service_count: -1,
     encap_size: -1, fwdifs: [0xdeadbeefdeadbeef]}
""") as site:
        # The place still holds what was there: the address is read, not judged.
        site.shows("nhp 1", next_hop_head(1) + "  OutFwdif:\n    [0]CtrlIfIndex=1009, FwdifIndex=9\n\n")
        head = next_hop_head(-1, l3=-128, l1=-1).replace("EncapSize : 0", "EncapSize : -1")
        site.shows("nhp 2", head + "  OutFwdif:\n\n")


def arena_of(path):
    """Base and size of the mapping, from the arena's header."""
    header = path.read_bytes()[:400]
    assert header[:8] == b"QDTARENA"
    return struct.unpack_from("<QQ", header, 24)


def test_nonsense_inside_the_arena():
    with engine_place() as place:
        place.start()
        base, size = arena_of(place.arena)
        place.stop()
        # The magic, byte order and base of the arena taken for an interface record, aligned and not; its last bytes;
        # and a record that would reach past its end.
        places = [base, base + 1, base + size - 16, base + size - 12, base + size]
        place.scenario.write_text("nhp:\n" + "".join(
            f"  - {{index: {i}, if_index: 7, next_hop: 192.0.2.7, fwdif_count: 1, fwdifs: [{address}]}}\n"
            for i, address in enumerate(places)))
        place.start()
        assert arena_of(place.arena) == (base, size)

        def shows(index, record):
            fwd_if, ctrl_if = struct.unpack("<i8xi", record)
            place.cli("show", "nhp", str(index)).answered(view(
                next_hop_head(1) + f"  OutFwdif:\n    [0]CtrlIfIndex={ctrl_if}, FwdifIndex={fwd_if}\n\n"))

        with open(place.arena, "rb") as file:
            start = file.read(32)
        shows(0, start[:16])
        shows(1, start[1:17])
        shows(2, bytes(16))
        for index in (3, 4):
            shows(index, bytes(16))
        place.stop()


@pytest.mark.parametrize("address", ["0", "0x7", *UNMAPPED])
def test_bound_addresses_are_compared_and_never_followed(address):
    with site_of(f"""\
acl_group: [{{group_type: 2, group_id: 4001}}]
fwdif: [{{if_index: 9}}]
fib: [{{prefix: 24, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {address}}}]
ipv6_fib: [{{prefix: 32, vpn: 0, destination: "2001:db8::", nhp_index: 1, multi_next_hop: 1, next_hop: {address}}}]
nhp:
  - index: 1
    if_index: 7
    next_hop: 192.0.2.7
    l3_service_count: 1
    l3_services: [{{type: 1, fwd_if_index: 9, fwdif: {address}}}]
    l1_service_count: 1
    l1_services: [{{type: 1, acl_group_type: 2, acl_group_id: 4001, acl_group: {address}}}]
nhp_group:
  - {{index: 1, backup_count: 1, nhp_indexes: [1], next_hops: [{address}], primary_count: 1,
     primary_nhp_indexes: [1], primary_next_hops: [{address}]}}
ipv6_nhp_group:
  - {{index: 1, backup_count: 1, nhp_indexes: [1], next_hops: [{address}]}}
""") as site:
        fib = site.engine.cli("show", "fib", "192.0.2.0", "24")
        assert fib.code == 0 and fib.out.count("  NhpEntry  :  Error(0)\n") == 1, fib
        fib = site.engine.cli("show", "ipv6_fib", "2001:db8::", "32")
        assert fib.code == 0 and fib.out.count("  NhpEntry  :  Error(0)\n") == 1, fib
        site.shows("nhp 1", next_hop_head(0, l3=1, l1=1) + "    [0]L3Svc:1, a1=0, a2=0, a3=9, a4=Error\n"
                   "    [0]L1Svc:1, a1=2, a2=0, a3=4001, a4=Error\n  OutFwdif:\n\n")
        group = site.engine.cli("show", "nhp_group", "1")
        assert "  Entry of 0 :     Error\n" in group.out and "  PrimaryEntry of 0 :     Error\n" in group.out, group
        group = site.engine.cli("show", "ipv6_nhp_group", "1")
        assert "  Entry of 0 :     Error\n" in group.out, group


def test_counts_beyond_the_arrays():
    with site_of("""\
nhp_group: [{index: 1, backup_count: 255, primary_count: 255}]
ipv6_nhp_group: [{index: 1, backup_count: 33, primary_count: 32}]
""") as site:
        for table in ("nhp_group", "ipv6_nhp_group"):
            group = site.engine.cli("show", table, "1")
            assert isinstance(group, Result) and group.code == 0, group
            assert group.out.count("  NhpIndex[") == 32 and group.out.count("  PrimaryNhpIndex[") == 32, group
            assert group.out.count("Error\n") == 64 and "  PrimaryEntry of 31 :     Error\n" in group.out, group
