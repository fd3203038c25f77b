"""nqed --pcap: packets of files on the engine's path. What the trace prints is held against tcpdump."""

import re
import subprocess
import time

import pytest

from conftest import engine_place, nqed, short_directory, wait_until
from packets import COOKED, RAW, arp, ethernet, icmp, ipv4, ipv6, pcap, tcp, udp

# A router: stations behind 11, the Internet behind 12.
SITE = """\
fwdif:
  - {if_index: 11, enable: 1, source_mac: "02:00:5e:00:00:02"}
  - {if_index: 12, enable: 1, source_mac: "02:00:5e:00:00:03"}
portip_head: [{fwd_if_index: 11, list_id: 1}]
portip: [{list_id: 1, address: 192.0.2.1, mask: 255.255.255.0}]
fib: [{prefix: 24, vpn: 0, destination: 198.51.100.0, nhp_index: 1}]
nhp: [{index: 1, if_index: 12, next_hop: 203.0.113.1}]
session:
  - {index: 17, valid: 1, aging_time: 65535, ingress: 11, egress: 12,
     positive: {source: 192.0.2.11, source_port: 50000, destination: 198.51.100.7, destination_port: 443, protocol: 6}}
"""


def distinct(frames):
    """The frames filled up so that each has a length of its own, by which the tools' lines tell it."""
    return [frame + bytes(300 + 2 * number - len(frame)) for number, frame in enumerate(frames)]


PIECE = b"x" * 16
FRAMES = distinct([
    ethernet(0x0800, ipv4(6, tcp(50000, 443, 0x02))),
    ethernet(0x0800, ipv4(6, tcp(50000, 443, 0x18, b"GET"))),
    ethernet(0x0800, ipv4(6, tcp(443, 50000, 0x12), source="198.51.100.7", destination="192.0.2.11")),
    ethernet(0x0800, ipv4(6, tcp(50001, 80, 0x00), ttl=1)),
    ethernet(0x0800, ipv4(17, udp(50000, 53, PIECE))),
    ethernet(0x0800, ipv4(17, udp(53, 50000, PIECE), options=b"\x01" * 8)),
    ethernet(0x0800, ipv4(17, udp(5247, 5247, bytes.fromhex("0010000800000000")))),
    ethernet(0x0800, ipv4(17, udp(9, 2049, PIECE), more=True)),
    ethernet(0x0800, ipv4(17, PIECE, offset=16, more=True)),
    ethernet(0x0800, ipv4(17, PIECE, offset=32)),
    ethernet(0x0800, ipv4(1, icmp(8))),
    ethernet(0x0800, ipv4(1, icmp(0), destination="192.0.2.1")),
    ethernet(0x0800, ipv4(1, icmp(3, 1), source="10.1.2.3", destination="192.0.2.1")),
    ethernet(0x0800, ipv4(89, PIECE, destination="224.0.0.5")),
    ethernet(0x0800, ipv4(6, tcp(50000, 22, 0x02), destination="100.64.0.1")),
    ethernet(0x0800, ipv4(6, tcp(50000, 22, 0x02)), vlans=[30]),
    ethernet(0x0800, ipv4(17, udp(50000, 53)), vlans=[30, 31]),
    ethernet(0x0800, ipv4(17, udp(50000, 53)), vlans=[31]),
    ethernet(0x86dd, ipv6(6, tcp(50000, 443, 0x02))),
    ethernet(0x86dd, ipv6(17, udp(50000, 53), source="2001:db8::c")),
    ethernet(0x86dd, ipv6(58, icmp(128))),
    ethernet(0x86dd, ipv6(58, icmp(135, 0, 0, bytes(16)), destination="ff02::1:ff00:1"), destination="33:33:ff:00:00:01"),
    ethernet(0x0806, arp(), destination="ff:ff:ff:ff:ff:ff"),
    ethernet(0x0806, arp(2)),
    ethernet(0x888e, bytes.fromhex("0203000500")),
    ethernet(0x8863, bytes.fromhex("110900000000")),
    ethernet(0x8864, bytes.fromhex("1100000700060021") + PIECE),
    ethernet(0x9999, PIECE),
    ethernet(0x0800, b"\x45\x00\xff\xff" + bytes(16)),  # longer than the frame
    ethernet(0x0800, ipv4(6, tcp(50000, 443, 0x02), source="192.0.2.12"), source="02:00:5e:00:00:0c"),
])

# Conditions, and tcpdump's words for the same packets.
CONDITIONS = [
    ([], ""),
    (["ip_type", "ipv4"], "ip or (vlan and ip) or (vlan and ip)"),
    (["ip_type", "ipv6"], "ip6"),
    (["arp"], "arp"),
    (["eth_type", "0x888e"], "ether proto 0x888e"),
    (["eth_type", "0x8863"], "pppoed"),
    (["sip", "192.0.2.12"], "ip src 192.0.2.12"),
    (["dip", "192.0.2.1"], "ip dst 192.0.2.1"),
    (["sip6", "2001:db8::c"], "ip6 src 2001:db8::c"),
    (["dip6", "ff02::1:ff00:1"], "ip6 dst ff02::1:ff00:1"),
    (["protocol", "89"], "ip proto 89"),
    (["protocol", "58"], "ip6 proto 58"),
    (["icmp"], "icmp"),
    (["icmp_type", "8"], "icmp[0] = 8"),
    (["icmp_type", "135"], "icmp6 and ip6[40] = 135"),
    (["sport", "443"], "src port 443"),
    (["dport", "443"], "dst port 443"),
    (["dport", "2049"], "dst port 2049"),
    (["tcp_flags", "0x12"], "tcp[13] & 0x12 = 0x12"),
    (["tcp_flags", "0"], "tcp[13] = 0"),
    (["not_first_frag"], "ip[6:2] & 0x1fff != 0"),
    (["first_frag"], "ip[6:2] & 0x3fff = 0x2000"),
    (["last_frag"], "ip[6:2] & 0x2000 = 0 and ip[6:2] & 0x1fff != 0"),
    (["vlan", "30"], "vlan 30"),
    (["vlan", "31"], "vlan 31"),
    (["smac", "02:00:5e:00:00:0c"], "ether src 02:00:5e:00:00:0c"),
    (["dmac", "ff:ff:ff:ff:ff:ff"], "ether broadcast"),
    (["min_pkt_len", "330"], "greater 330"),
    (["max_pkt_len", "310"], "less 310"),
]


def played(file, *words, regions="", read=f"{len(FRAMES)} packets were"):
    """What nqed writes on standard error while it plays the file, without the line at its end."""
    with engine_place() as place, short_directory() as directory:
        place.scenario.write_text(SITE + regions)
        log = directory / "stderr"
        with open(log, "wb") as stderr:
            place.start("--pcap", file, "--fast", "--at", "11", *words, stderr=stderr)
        end = f"nqed: {file}: end of file; {read} read"
        wait_until(lambda: end in log.read_text().splitlines(), "the end of the file")
        statistics = place.cli("agent", "sysstat-query", "type=all").out
        counters = place.cli("pkt_trace", "counter").out
        code, _ = place.end()
        assert code == 0
        lines = [line for line in log.read_text().splitlines() if line != end]
        return lines, dict(re.findall(r"^ +(\S.*): (\d+)$", statistics, re.M)), re.findall(r": (\d+)$", counters, re.M)


@pytest.fixture(scope="module")
def preset():
    """Makes the trace region that the words of pkt_trace set lead to, as a scenario writes it."""
    with engine_place() as place:
        place.start()

        def region_of(words):
            for line in (["clear"], *([["set", *words]] if words else []), ["set", "print_num", "256"], ["enable"]):
                result = place.cli("pkt_trace", *line)
                assert result.code == 0 and "rror" not in result.out, result
            values = [line.split(maxsplit=1) for line in place.cli("engine", "region", "PKT_TRACE_CTX_PTR").out.splitlines()]
            fields = [f'{name}: "{value}"' for name, value in values
                      if "[" not in name and value.strip("0:.") not in ("", "x")]
            return "regions: {PKT_TRACE_CTX_PTR: {" + ", ".join(fields) + "}}\n"

        yield region_of
        place.stop()


@pytest.fixture(scope="module")
def capture():
    with short_directory() as directory:
        file = directory / "site.pcap"
        file.write_bytes(pcap(FRAMES))
        yield file


def lengths_by_tcpdump(file, words):
    out = subprocess.run(["tcpdump", "-nn", "-e", "-r", file, *([words] if words else [])], stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, check=True, text=True).stdout
    return [int(re.search(r", length (\d+):", line).group(1)) for line in out.splitlines() if line[:1].isdigit()]


def test_the_trace_prints_what_tcpdump_shows(capture, preset):
    for words, filter_words in CONDITIONS:
        expected = lengths_by_tcpdump(capture, filter_words)
        assert expected, filter_words
        lines, _, counters = played(capture, regions=preset(words))
        printed = [int(re.search(r", (\d+) bytes", line).group(1)) for line in lines]
        assert printed == expected, (words, filter_words, lines)
        assert int(counters[0]) == len(expected), words


def test_a_capture_that_was_cut_tells_what_it_has(preset):
    with short_directory() as directory:
        file = directory / "cut.pcap"
        file.write_bytes(pcap(FRAMES, snap=38))  # ports, but no TCP flags
        for words, filter_words in ([], ""), (["dport", "443"], "dst port 443"), (["sip", "192.0.2.12"], "src 192.0.2.12"):
            lines, _, _ = played(file, regions=preset(words))
            assert [int(re.search(r", (\d+) bytes", line).group(1)) for line in lines] == \
                lengths_by_tcpdump(file, filter_words), words


def test_fates_and_counters(capture, preset):
    lines, statistics, _ = played(capture, "--cores", "1", regions=preset([]))
    fates = [re.search(r" bytes(?:, inside: .*)?, (\D[^,]*)$", line).group(1) for line in lines]
    assert fates == [
        "sent", "sent", "discarded: Fib miss packets discarded", "discarded: ttl exceed", "sent", "sent", "sent", "sent",
        "sent", "sent", "sent", "to the control plane", "to the control plane", "to the control plane",
        "discarded: Fib miss packets discarded", "sent", "sent", "sent", "discarded: IPv6 search fib fail",
        "discarded: IPv6 search fib fail", "discarded: IPv6 search fib fail", "to the control plane",
        "to the control plane", "to the control plane", "to the control plane", "to the control plane",
        "discarded: ip head illegal", "discarded: The eth type of packet is not not supported",
        "discarded: ip head illegal", "sent"], lines
    assert lines[0] == (
        "nqed: trace: core 0, from if 11 to if 12, vlan 0, 02:00:5e:00:00:01 > 02:00:5e:00:00:02, type 0x0800, 192.0.2.11 > "
        "198.51.100.7 TCP port 50000 > 443 flags 0x02, session 17, 300 bytes, sent")
    assert lines[22] == (
        "nqed: trace: core 0, from if 11, vlan 0, 02:00:5e:00:00:01 > ff:ff:ff:ff:ff:ff, type 0x0806, 192.0.2.11 > 192.0.2.1 "
        "ARP request, cause 1, 344 bytes, to the control plane")
    assert statistics == {
        "sta to ap to cp eap log key": "1", "Total IP packets received": "19", "ICMP packets received": "3",
        "icmp unreachable inpkt": "1", "UDP packets received": "9", "TCP packets received": "8", "receive pkt from drv": "30",
        "dns pkt recv": "4", "pppoe pkt recv": "1", "pppoe disc pkt recv": "1", "arp pkt recv": "2", "nd pkt recv": "1",
        "ipv6 pkt recv": "4", "icmpv6 pkt recv": "2", "Pkt with cause-id recv": "5",
        "Total IPV4 packets transmitted": "13", "ICMP packets transmitted": "1", "UDP packets transmitted": "8",
        "TCP packets transmitted": "4", "IP fragment packets transmitted": "3",
        "Fib miss packets discarded": "2", "ttl exceed": "1", "IPv6 search fib fail": "3",
        "The eth type of packet is not not supported": "1", "ip head illegal": "2"}


def test_interfaces_count():
    with engine_place() as place, short_directory() as directory:
        place.scenario.write_text(SITE + "ctrlif_map_fwdif: [{ctrl_if_index: 1011, fwd_if_index: 11}]\n")
        file = directory / "site.pcap"
        file.write_bytes(pcap(FRAMES[:5]))
        with open(directory / "log", "wb") as stderr:
            place.start("--pcap", file, "--fast", "--at", "11", stderr=stderr)
        shown = lambda: place.cli("show", "fwdif", "1011").out
        wait_until(lambda: re.search(r"^  InPkts +: +5$", shown(), re.M), "five packets")
        assert re.search(r"^  InBytes +: +1520$", shown(), re.M), shown()
        assert place.end()[0] == 0


def test_cooked_captures_tell_what_leaves(preset):
    frame = bytes.fromhex("000400010006 02005e000002 0000 0800") + ipv4(1, icmp(0), source="192.0.2.1",
                                                                        destination="192.0.2.11")
    with short_directory() as directory:
        file = directory / "cooked.pcap"
        file.write_bytes(pcap([frame], link=COOKED))
        lines, _, _ = played(file, regions=preset([]), read="1 packet was")
        assert len(lines) == 1 and "from the control plane to if 11, " in lines[0], lines


def test_a_file_keeps_its_pace(preset):
    with engine_place() as place, short_directory() as directory:
        place.scenario.write_text(SITE + preset([]))
        file = directory / "slow.pcap"
        file.write_bytes(pcap(FRAMES[:3], gap=0.5))
        log = directory / "log"
        begun = time.monotonic()
        with open(log, "wb") as stderr:
            place.start("--pcap", file, "--at", "11", stderr=stderr)
        wait_until(lambda: "end of file; 3 packets" in log.read_text(), "the end of the file")
        assert time.monotonic() - begun >= 1  # from the first packet to the last
        assert [int(n) for n in re.findall(r", (\d+) bytes", log.read_text())] == [300, 302, 304]
        assert place.end()[0] == 0


GOOD = pcap(FRAMES)


@pytest.mark.parametrize("data, part", [
    (None, "No such file or directory"),
    (b"", "not a file of captured packets: truncated dump file"),
    (b"fwdif: [{if_index: 1, enable: 1}]\n", "not a file of captured packets: unknown file format"),
    (GOOD[:20], "not a file of captured packets: truncated dump file"),
    (GOOD[:60], "damaged: truncated dump file"),
    (GOOD[:32] + b"\xff\xff\xff\xff" + GOOD[36:], "damaged: invalid packet capture length"),
    (pcap(FRAMES, link=RAW), "packets of the link type RAW are not read; Ethernet and Linux cooked captures are"),
])
def test_wrong_files_are_refused(place, directory, data, part):
    file = directory / "wrong.pcap"
    if data is not None:
        file.write_bytes(data)
    place.scenario.write_text(SITE)
    result = nqed("--scenario", place.scenario, "--arena", place.arena, "--pcap", file)
    result.failed(str(file), part, tool="nqed")
    assert place.leftovers() == []


@pytest.mark.parametrize("data, said", [
    (GOOD[:-1], "damaged: truncated dump file; tried to read 358 captured bytes, only got 357; 29 packets were read"),
    (pcap(FRAMES[:2]) + b"\0" * 8 + b"\xff\xff\xff\x7f" + b"\0" * 4,
     "damaged: invalid packet capture length 2147483647, bigger than snaplen of 262144; 2 packets were read"),
])
def test_damage_in_a_file_is_told_and_the_engine_goes_on(place, directory, data, said):
    file = directory / "damaged.pcap"
    file.write_bytes(data)
    place.scenario.write_text(SITE)
    with open(directory / "log", "wb") as stderr:
        place.start("--pcap", file, "--fast", stderr=stderr)
    wait_until(lambda: (directory / "log").read_text() == f"nqed: {file}: {said}\n", "the line about the damage")
    assert place.cli("engine", "status").code == 0
    assert place.end()[0] == 0


@pytest.mark.parametrize("words, part", [
    (["--fast"], "--fast and --at go with --pcap FILE"),
    (["--at", "11"], "--fast and --at go with --pcap FILE"),
    (["--pcap"], "--pcap needs a value"),
    (["--capture", "nosuch0"], '--capture "nosuch0": there is no such network interface (see ip link)'),
    (["--capture", "lo:x"], '--capture "lo:x": behind the colon stands the number of a forwarding interface'),
    (["--capture", "lo:0"], '--capture "lo:0": behind the colon stands the number of a forwarding interface'),
])
def test_wrong_options(place, words, part):
    place.scenario.write_text(SITE)
    nqed("--scenario", place.scenario, "--arena", place.arena, *words).failed(part, tool="nqed")
    assert place.leftovers() == []
