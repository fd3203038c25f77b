"""nqecli agent frag-reass and its companions: packets that wait for fragments."""

import re
import struct

import pytest

from conftest import nqecli, site_of

# The IPv4 listing needs the engine's global record.
SCENARIO = """\
global: [{system_mac: 02:00:5e:10:00:99}]
regions:
  IP_REASS_CTX_PTR:
    packets:
      - {vrf: 5, protocol: 17, source: 198.51.100.77, destination: 192.0.2.11, packet_id: 40961, src_port: 5004,
         dst_port: 61004, vlan: 10, fragments: 2, ttl: 1000, waited: 1001, first_arrived: 1}
      - {protocol: 1, source: 198.51.100.78, destination: 192.0.2.11, packet_id: 513, vlan: 20, fragments: 3,
         ttl: 65535, last_arrived: 1}
      - {protocol: 17, source: 198.51.100.77, destination: 192.0.2.12, packet_id: 514, reassemble: 1, ttl: 7, waited: 7}
  IP6_REASS_CTX_PTR:
    packets:
      3: {vrf: 1, protocol: 58, source: "2001:db8:0:99::3", destination: "2001:db8:0:10::a1", packet_id: 9, vlan: 99,
          src_port: 1, dst_port: 2, fragments: 4, ttl: 60000, waited: 90000, last_arrived: 1}
      7: {protocol: 17, source: "2001:db8:9::53", destination: "2001:db8:0:20::a71", packet_id: 65537, src_port: 53,
          dst_port: 53012, vlan: 20, fragments: 1, ttl: 60000, waited: 61000, first_arrived: 1, reassemble: 1}
"""

# "Vrf" shows the protocol in its upper half.
CALL = """
  Vrf : 1114117                   Protocol : 17
  SRC Addr : 198.51.100.77        First Arrived Flag: 1
  DST Addr : 192.0.2.11           Last Arrived Flag : 0
  SRC Port : 5004                 DST Port : 61004       
  Vlan : 10                       Reassemble : 0           
  Packet ID : 40961               Frag Count: 2
  TTL(ms) : 1000                  Left-time(ms) : 0
"""
ECHO = """
  Vrf : 65536                     Protocol : 1
  SRC Addr : 198.51.100.78        First Arrived Flag: 0
  DST Addr : 192.0.2.11           Last Arrived Flag : 1
  SRC Port : 0                    DST Port : 0           
  Vlan : 20                       Reassemble : 0           
  Packet ID : 513                 Frag Count: 3
  TTL(ms) : 65535                 Left-time(ms) : LEFT
"""
LATE = """
  Vrf : 1114112                   Protocol : 17
  SRC Addr : 198.51.100.77        First Arrived Flag: 0
  DST Addr : 192.0.2.12           Last Arrived Flag : 0
  SRC Port : 0                    DST Port : 0           
  Vlan : 0                        Reassemble : 1           
  Packet ID : 514                 Frag Count: 0
  TTL(ms) : 7                     Left-time(ms) : 0
"""
ROUTER6 = """
  Vrf : 3801089                   Protocol : 58
  SRC Addr : 2001:db8:0:99::3                               First Arrived Flag: 0
  DST Addr : 2001:db8:0:10::a1                              Last Arrived Flag : 1
  SRC Port : 1                    DST Port : 2           
  Vlan : 99                       Reassemble : 0           
  Packet ID : 9                   Frag Count: 4
  TTL(ms) : 60000                 Left-time(ms) : 0
"""
DNS6 = """
  Vrf : 1114112                   Protocol : 17
  SRC Addr : 2001:db8:9::53                                 First Arrived Flag: 1
  DST Addr : 2001:db8:0:20::a71                             Last Arrived Flag : 0
  SRC Port : 53                   DST Port : 53012       
  Vlan : 20                       Reassemble : 1           
  Packet ID : 65537               Frag Count: 1
  TTL(ms) : 60000                 Left-time(ms) : 0
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


def shows(listing, text):
    """Asserts the answer; a left time that runs stands as LEFT. One that only says what is wrong is a failure."""
    shown = re.sub(r"(TTL\(ms\) : 65535 +Left-time\(ms\) : )\d+", r"\1LEFT", listing.out)
    assert (listing.code, shown, listing.err) == (int("Input error" in text), text, ""), listing


def test_ipv4(site):
    for words in (["frag-reass"], ["ipv4-frag-reass"], ["frag-reass", "type=ipv4"]):
        shows(site.engine.cli("agent", *words), CALL + ECHO + LATE)


def test_ipv6(site):
    for words in (["ipv6-frag-reass"], ["frag-reass", "type=ipv6"]):
        site.engine.cli("agent", *words).answered(ROUTER6 + DNS6)


def test_time_runs(site):
    listing = lambda: site.engine.cli("agent", "frag-reass", "source-ip=198.51.100.78")
    first, second = (int(re.search(r"Left-time\(ms\) : (\d+)", listing().out)[1]) for _ in range(2))
    assert 65535 >= first >= second > 0 or first == second == 0, (first, second)


def test_snapshot(site):
    """Links and addresses hold in a copy."""
    shows(nqecli("--snapshot", site.snapshot, "agent", "frag-reass"), CALL + ECHO + LATE)
    nqecli("--snapshot", site.snapshot, "agent", "ipv6-frag-reass").answered(ROUTER6 + DNS6)


@pytest.mark.parametrize("words, text", [
    (["source-ip=198.51.100.77"], CALL + LATE),
    (["destination-ip=192.0.2.11"], CALL + ECHO),
    (["source-ip=198.51.100.77", "destination-ip=192.0.2.12"], LATE),
    (["source-ip=192.0.2.12", "destination-ip=198.51.100.77"], ""),
    (["source-ip=0.0.0.0"], CALL + ECHO + LATE),
    (["source-ip=2001:db8:9::53"], "  Input error, source-ip is 2001:db8:9::53, but ip-type is 4\n"),
    (["destination-ip=::"], "  Input error, destination-ip is ::, but ip-type is 4\n"),
    (["type=ipv6", "source-ip=2001:db8:9::53"], DNS6),
    (["type=ipv6", "destination-ip=2001:db8:0:10::a1"], ROUTER6),
    (["type=ipv6", "source-ip=2001:db8:9::54"], ""),
    (["type=ipv6", "source-ip=::"], ROUTER6 + DNS6),
    (["type=ipv6", "source-ip=192.0.2.11"], "  Input error, source-ip is 192.0.2.11, but ip-type is 6\n"),
])
def test_filters(site, words, text):
    shows(site.engine.cli("agent", "frag-reass", *words), text)


def test_nothing_waits(place):
    place.scenario.write_text("global: [{system_mac: 02:00:5e:10:00:99}]\n")
    place.start()
    place.cli("agent", "frag-reass").answered("")
    place.cli("agent", "frag-reass", "type=ipv6").answered("")
    place.stop()


def test_without_global_record(engine):
    engine.cli("agent", "frag-reass").failed("frag-reass failed (-7)", code=1)
    engine.cli("agent", "frag-reass", "type=ipv6").answered("")


@pytest.mark.parametrize("link", [0, 1, 0xdead0000dead0000, 0xffffffffffffffff])
def test_broken_link(place, link):
    """What stands before it is shown; nothing hangs or falls over."""
    place.scenario.write_text(SCENARIO)
    place.start()
    with open(place.arena, "r+b") as arena:
        data = arena.read()
        # Source, destination and packet id of the second packet, 36 bytes into it; its next link is at 24.
        packet = data.index(struct.pack("<III", 0xC633644E, 0xC000020B, 513)) - 36
        arena.seek(packet + 24)
        arena.write(struct.pack("<Q", link))
    shows(place.cli("agent", "frag-reass"), CALL + ECHO)
    place.stop()
