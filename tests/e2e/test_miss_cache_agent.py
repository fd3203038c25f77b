"""nqecli agent arpmiss and ndmiss: packets that wait for their next hop, by next hop."""

import re
import time

import pytest

from conftest import nqecli, site_of

# Stamped in the future, so that all of their time is left; and one that was held for ten seconds and more.
NOW = int(time.monotonic())
SCENARIO = f"""\
arp_miss_cache:
  - {{repeat: 2, vpn: 0, next_hop: 192.0.2.146, create_time: {NOW + 100000}, source: {{from: 192.0.2.11, step: 1}},
     destination: 192.0.2.146, ttl: 3725}}
  - {{vpn: 1, next_hop: 198.51.100.3, create_time: {NOW + 100000}, source: 198.51.100.14, destination: 203.0.113.200,
     ttl: 5}}
  - {{vpn: 0, next_hop: 192.0.2.146, create_time: {NOW + 100000}, source: 192.0.2.13, destination: 192.0.2.146, ttl: 5}}
nd_miss_cache:
  - {{vpn: 0, next_hop: "2001:db8:0:40::17", create_time: {NOW + 100000}, source: "2001:db8:0:10::a1",
     destination: "2001:db8:0:40::17", ttl: 59}}
  - {{vpn: 0, next_hop: "2001:db8:0:40::18", create_time: {max(NOW - 10, 0)}, source: "2001:db8:0:10::a1",
     destination: "2001:db8:9::1", ttl: 5}}
"""

RULE = "\n" + "-" * 65


def arp_group(number, next_hop, *rows):
    return (f"{RULE}\nSession           :  {number:<15}\nVrf               :  0       "
            f"\nNext Hop          :  {next_hop:<15}\nTotal Cached Pkt  :  {len(rows):<8}{RULE}"
            "\nPkt   SrcIp            DstIp             TTL       LeftTime" +
            "".join(f"\n{i:<5} {source:<16} {destination:<16}  {ttl}  {ttl}"
                    for i, (source, destination, ttl) in enumerate(rows, 1)) + RULE)


def nd_group(number, next_hop, source, destination, times):
    return (f"{RULE}\nSession           :  {number:<15}\nVrf               :  0       "
            f"\nNext Hop          :  {next_hop:<46}\nTotal Cached Pkt  :  1       {RULE}"
            f"\nPkt   {'SrcIp':<46} {'DstIp':<46}  TTL       LeftTime"
            f"\n1     {source:<46} {destination:<46}  {times}{RULE}")


ARP = (arp_group(1, "192.0.2.146", ("192.0.2.11", "192.0.2.146", "01:02:05"),
                 ("192.0.2.12", "192.0.2.146", "01:02:05")) +
       arp_group(2, "198.51.100.3", ("198.51.100.14", "203.0.113.200", "00:00:05")) +
       arp_group(3, "192.0.2.146", ("192.0.2.13", "192.0.2.146", "00:00:05")) + "\n")
ND = nd_group(1, "2001:db8:0:40::17", "2001:db8:0:10::a1", "2001:db8:0:40::17", "00:00:59  00:00:59")


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


def test_arp(site):
    for words in (["arpmiss"], ["arpmiss", "next-hop=0.0.0.0"]):
        site.engine.cli("agent", *words).answered(ARP)
        nqecli("--snapshot", site.snapshot, "agent", *words).answered(ARP)


def test_arp_of_one_next_hop(site):
    """VPN 0 is meant, as in the other family."""
    whole = arp_group(1, "192.0.2.146", ("192.0.2.11", "192.0.2.146", "01:02:05"),
                      ("192.0.2.12", "192.0.2.146", "01:02:05"), ("192.0.2.13", "192.0.2.146", "00:00:05"))
    site.engine.cli("agent", "arpmiss", "next-hop=192.0.2.146").answered(whole + "\n")
    nqecli("--snapshot", site.snapshot, "agent", "arpmiss", "next-hop=192.0.2.146").answered(whole + "\n")
    site.engine.cli("agent", "arpmiss", "next-hop=198.51.100.3").answered("")  # waits in VPN 1


def test_nd(site):
    listing = site.engine.cli("agent", "ndmiss")
    # Held longer than it may be: its left time has wrapped.
    late = nd_group(2, "2001:db8:0:40::18", "2001:db8:0:10::a1", "2001:db8:9::1", "00:00:05  LEFT")
    shown = re.sub(r"  1193046:\d\d:\d\d", "  LEFT", listing.out)
    assert (listing.code, shown, listing.err) == (0, ND + late + "\n", ""), listing


def test_nd_of_one_next_hop(site):
    site.engine.cli("agent", "ndmiss", "next-hop=2001:db8:0:40::17").answered(ND + "\n")
    site.engine.cli("agent", "ndmiss", "next-hop=2001:db8:0:40::19").answered("")


def test_empty_caches(engine):
    """Nothing is answered, and that is success."""
    for handler in ("arpmiss", "ndmiss"):
        engine.cli("agent", handler).answered("")
        engine.cli("agent", handler, "next-hop=10.1.0.7").answered("")
