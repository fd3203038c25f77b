"""nqed --capture: packets of network interfaces, in namespaces of the test's own, held against tcpdump."""

import contextlib
import json
import re
import signal
import subprocess
import uuid

import pytest

from conftest import BIN, PATIENCE, Engine, short_directory, wait_until
from packets import ethernet, ipv4, udp

pytestmark = pytest.mark.skipif(subprocess.run(["unshare", "--net", "true"], stderr=subprocess.DEVNULL).returncode != 0,
                                reason="network namespaces take a right that is missing here")


def ip(*words):
    return subprocess.run(["ip", *words], check=True, stdout=subprocess.PIPE, text=True).stdout


class Site:
    """The engine's namespace with the interface `lab0` (192.0.2.1), and a peer's with `peer0` (192.0.2.2)."""

    def __init__(self, name, directory):
        self.here, self.there = f"{name}a", f"{name}b"
        self.log = directory / "stderr"
        self.file = directory / "tcpdump.pcap"
        self.place = None

    def link(self):
        ip("link", "add", "lab0", "netns", self.here, "type", "veth", "peer", "name", "peer0", "netns", self.there)
        for netns, interface, own in ((self.here, "lab0", "192.0.2.1/24"), (self.there, "peer0", "192.0.2.2/24")):
            # Nothing but the test's packets: no neighbour discovery.
            ip("-n", netns, "link", "set", interface, "addrgenmode", "none")
            ip("-n", netns, "addr", "add", own, "dev", interface)
            ip("-n", netns, "link", "set", interface, "up")

    def index(self):
        return json.loads(ip("-n", self.here, "-j", "link", "show", "lab0"))[0]["ifindex"]

    def mac(self, interface="lab0"):
        return json.loads(ip("-n", self.here, "-j", "link", "show", interface))[0]["address"]

    def start(self, *words, before=(), scenario=None):
        """Starts nqed in its namespace on a scenario, or on one that knows its interface."""
        index = self.index()
        self.place.scenario.write_text(
            scenario or
            f'fwdif: [{{if_index: {index}, enable: 1, source_mac: "{self.mac()}"}}]\n'
            f"portip_head: [{{fwd_if_index: {index}, list_id: 1}}]\n"
            "portip: [{list_id: 1, address: 192.0.2.1, mask: 255.255.255.0}]\n")
        command = ["ip", "netns", "exec", self.here, *before, BIN / "nqed", "--scenario", self.place.scenario, "--arena",
                   self.place.arena, *words]
        with open(self.log, "wb") as stderr:
            self.place.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=stderr)
        line = self.place.process.stdout.readline().decode()
        assert line.startswith("nqed: ready, "), line + self.log.read_text()

    def inside(self, netns, *words, **options):
        return subprocess.Popen(["ip", "netns", "exec", netns, *words], stdin=subprocess.DEVNULL, **options)

    def lines(self):
        return [line for line in self.log.read_text().splitlines() if line.startswith("nqed: trace: ")]

    def trace(self, *words):
        result = self.place.cli("pkt_trace", *words)
        assert result.code == 0 and "rror" not in result.out, result
        return result.out

    def counted(self):
        """Packets that the trace has counted: from the driver, and from the control plane."""
        return [int(n) for n in re.findall(r"Packets from .*: (\d+)$", self.trace("counter"), re.M)]

    def statistics(self):
        out = self.place.cli("agent", "sysstat-query", "type=all").out
        return {name: int(count) for name, count in re.findall(r"^ +(\S.*): (\d+)$", out, re.M)}

    @contextlib.contextmanager
    def tcpdump(self, *words):
        """Runs tcpdump at lab0; afterwards the number of packets that passed its filter stands in the list given."""
        dump = self.inside(self.here, "tcpdump", "-i", "lab0", "-nn", "-U", "--immediate-mode", "-w", self.file, *words,
                           stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        try:
            line = ""
            while "listening on" not in line:
                line = dump.stderr.readline()
                assert line, "tcpdump has ended"
            counted = []
            yield counted
        finally:
            dump.send_signal(signal.SIGINT)
            said = dump.communicate(timeout=PATIENCE)[1]
        counted.append(int(re.search(r"(\d+) packets? received by filter", said).group(1)))


@contextlib.contextmanager
def two_hosts():
    name = "nqe" + uuid.uuid4().hex[:8]
    with short_directory() as directory, short_directory() as files:
        site = Site(name, files)
        site.place = Engine(directory)
        try:
            for netns in (site.here, site.there):
                ip("netns", "add", netns)
            site.link()
            yield site
        finally:
            if site.place.process is not None:
                site.place.process.kill()
                site.place.process.communicate()
            for netns in (site.here, site.there):
                subprocess.run(["ip", "netns", "del", netns], check=False)


@pytest.fixture
def site():
    with two_hosts() as made:
        yield made


def ping(site, count=5, size="56"):
    done = site.inside(site.there, "ping", "-c", str(count), "-i", "0.02", "-W", "5", "-s", size, "192.0.2.1",
                       stdout=subprocess.PIPE)
    out = done.communicate(timeout=PATIENCE)[0].decode()
    assert f"{count} received" in out, out


SERVER = """
import socket, sys
stream = socket.create_server(("192.0.2.1", 7001))
packets = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
packets.bind(("192.0.2.1", 7002))
print("ready", flush=True)
for _ in range(20):
    packets.recv(100)
link, _ = stream.accept()
while link.recv(65536):
    pass
"""
CLIENT = """
import socket
packets = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for _ in range(20):
    packets.sendto(b"x" * 50, ("192.0.2.1", 7002))
with socket.create_connection(("192.0.2.1", 7001)) as link:
    link.sendall(b"y" * 100000)
"""


def flows(site):
    """Twenty datagrams to port 7002, then 100,000 bytes to port 7001."""
    server = site.inside(site.here, "/usr/bin/python3", "-c", SERVER, stdout=subprocess.PIPE)
    assert server.stdout.readline() == b"ready\n"
    assert site.inside(site.there, "/usr/bin/python3", "-c", CLIENT).wait(timeout=PATIENCE) == 0
    server.communicate(timeout=PATIENCE)
    assert server.returncode == 0


def everything(site):
    ping(site)
    flows(site)


@pytest.mark.parametrize("words, filter_words", [
    ([], []),
    (["icmp"], ["icmp"]),
    (["icmp_type", "8"], ["icmp[0] = 8"]),
    (["arp"], ["arp"]),
    (["dport", "7002"], ["dst port 7002"]),
    (["protocol", "6"], ["tcp"]),
    (["sport", "7001"], ["src port 7001"]),
    (["tcp_flags", "2"], ["tcp[13] & 2 = 2"]),
    (["sip", "192.0.2.2"], ["ip src 192.0.2.2"]),
    (["from_cp", "1"], ["ether src {mac}"]),
    (["dmac", "{mac}"], ["ether dst {mac}"]),
    (["min_pkt_len", "1000"], ["greater 1000"]),
])
def test_the_trace_counts_and_prints_what_tcpdump_captures(site, words, filter_words):
    words, filter_words = ([word.format(mac=site.mac()) for word in some] for some in (words, filter_words))
    site.start("--capture", "lab0")
    if words:
        site.trace("set", *words)
    site.trace("set", "print_num", "256")
    site.trace("enable")
    with site.tcpdump(*filter_words) as captured:
        everything(site)
        ping(site, 1)  # when it is answered, all packets before it have passed
    assert captured[0] > 0
    wait_until(lambda: sum(site.counted()) == captured[0], f"{captured[0]} packets, not {site.counted()}")
    assert len(site.lines()) == captured[0]


SENDER = """
import socket, sys
link = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
link.bind(("peer0", 0))
for frame in sys.argv[1:]:
    link.send(bytes.fromhex(frame))
"""
TAGGED = [ethernet(0x0800, ipv4(17, udp(50000, 9, b"x" * size)), vlans=vlans)
          for size, vlans in enumerate([[], [30], [30, 40], [40], [40, 30], [30]], 50)]


@pytest.mark.parametrize("words, filter_words, least", [
    (["vlan", "30"], ["vlan 30"], 3),
    (["not_first_frag"], ["ip[6:2] & 0x1fff != 0"], 12),  # of three pings, there and back, two pieces behind the first
    (["dport", "9"], ["dst port 9 or (vlan and dst port 9) or (vlan and dst port 9)"], 6),
])
def test_tags_and_fragments(site, words, filter_words, least):
    site.start("--capture", "lab0")
    site.trace("set", *words)
    site.trace("set", "print_num", "256")
    site.trace("enable")
    with site.tcpdump(*filter_words) as captured:
        sender = site.inside(site.there, "/usr/bin/python3", "-c", SENDER, *(frame.hex() for frame in TAGGED))
        assert sender.wait(timeout=PATIENCE) == 0
        ping(site, 3, "4000")
    assert captured[0] == least
    wait_until(lambda: sum(site.counted()) == least, f"{least} packets, not {site.counted()}")
    assert len(site.lines()) == least


def test_flows_of_known_size_move_statistics_and_counters(site):
    site.start("--capture", "lab0")
    everything(site)
    wait_until(lambda: site.statistics().get("ICMP packets transmitted", 0) >= 5, "the echoes")
    wait_until(lambda: site.statistics().get("UDP packets received", 0) >= 20, "the datagrams")
    statistics = site.statistics()
    assert statistics["ICMP packets received"] == 10  # five came in, five are the control plane's
    assert statistics["ICMP packets transmitted"] == 5
    assert statistics["UDP packets received"] == 20
    assert "UDP packets transmitted" not in statistics

    def bytes_in():
        interface = json.loads(site.place.cli("list", "fwdif", "--json").out)["records"][0]
        return sum(block["in_bytes"] for block in interface["counters"])

    wait_until(lambda: bytes_in() > 100000, "the stream")
    assert bytes_in() < 130000  # 100,000 bytes, and the headers of some hundred packets


def test_an_interface_that_vanishes_and_the_engine_goes_on(site):
    site.start("--capture", "lab0")
    ping(site, 1)
    ip("-n", site.here, "link", "del", "lab0")
    wait_until(lambda: "--capture lab0: The interface disappeared; the engine goes on without its packets"
               in site.log.read_text(), "the line about the interface")
    assert site.place.cli("engine", "status").code == 0
    assert site.log.read_text().count("\n") == 1
    assert site.place.end()[0] == 0


def test_an_interface_that_is_down_for_a_while(site):
    site.start("--capture", "lab0")
    site.trace("set", "icmp")
    site.trace("enable")
    ping(site, 1)
    wait_until(lambda: sum(site.counted()) == 2, "an echo and its reply")
    ip("-n", site.here, "link", "set", "lab0", "down")
    ip("-n", site.here, "link", "set", "lab0", "up")
    ping(site, 1)
    wait_until(lambda: sum(site.counted()) == 4, "another one")
    assert site.log.read_text() == ""


def test_without_the_right_the_engine_runs(site):
    site.start("--capture", "lab0", before=["setpriv", "--bounding-set=-net_raw"])
    assert site.log.read_text() == ("nqed: --capture lab0: no right to capture packets; run as root or with the capability "
                                    "CAP_NET_RAW\n")
    assert site.place.cli("engine", "status").code == 0
    assert site.place.end()[0] == 0


def test_another_number_stands_for_the_interface(site):
    site.start("--capture", "lab0:77")
    site.trace("set", "src_fwdif", "77")
    site.trace("set", "print_num", "9")
    site.trace("enable")
    ping(site, 1)
    wait_until(lambda: any(" ICMP type 8" in line and "discarded: recvif null" in line for line in site.lines()),
               "an echo at an interface that no table has")


def test_a_flood_leaves_the_engine_responsive(site):
    site.start("--capture", "lab0")
    flood = site.inside(site.there, "ping", "-f", "-q", "-c", "20000", "192.0.2.1", stdout=subprocess.DEVNULL)
    while flood.poll() is None:
        assert site.place.cli("engine", "status").code == 0  # a client gives up on an engine that hangs

    def all_there_or_told():
        lost = "--capture lab0: packets come faster than they are taken; some are lost from now on"
        return site.statistics().get("ICMP packets received", 0) == 40000 or lost in site.log.read_text()

    wait_until(all_there_or_told, "all of its packets, or the line about those that are lost")


@pytest.fixture
def router(site):
    """A site whose engine's namespace routes to a third one: `lab1` (198.51.100.1) there, `far0` (198.51.100.2) beyond."""
    beyond = site.here + "c"
    try:
        ip("netns", "add", beyond)
        ip("link", "add", "lab1", "netns", site.here, "type", "veth", "peer", "name", "far0", "netns", beyond)
        for netns, interface, own in ((site.here, "lab1", "198.51.100.1/24"), (beyond, "far0", "198.51.100.2/24")):
            ip("-n", netns, "link", "set", interface, "addrgenmode", "none")
            ip("-n", netns, "addr", "add", own, "dev", interface)
            ip("-n", netns, "link", "set", interface, "up")
        ip("-n", site.there, "route", "add", "198.51.100.0/24", "via", "192.0.2.1")
        ip("-n", beyond, "route", "add", "192.0.2.0/24", "via", "198.51.100.1")
        forward = site.inside(site.here, "sh", "-c", "echo 1 >/proc/sys/net/ipv4/ip_forward")
        assert forward.wait(timeout=PATIENCE) == 0
        yield site
    finally:
        subprocess.run(["ip", "netns", "del", beyond], check=False)


ROUTER = """\
fwdif:
  - {if_index: 11, enable: 1, source_mac: "%s"}
  - {if_index: 12, enable: 1, source_mac: "%s"}
portip_head: [{repeat: 2, fwd_if_index: {from: 11, step: 1}, list_id: {from: 1, step: 1}}]
portip:
  - {list_id: 1, address: 192.0.2.1, mask: 255.255.255.0}
  - {list_id: 2, address: 198.51.100.1, mask: 255.255.255.0}
fib:
  - {prefix: 24, vpn: 0, destination: 192.0.2.0, direct: 1, nhp_index: 1}
  - {prefix: 24, vpn: 0, destination: 198.51.100.0, direct: 1, nhp_index: 2}
nhp: [{repeat: 2, index: {from: 1, step: 1}, if_index: {from: 11, step: 1}}]
arp:
  - {vpn: 0, next_hop: 192.0.2.2, valid: 1, fwd_if_index: 11}
  - {vpn: 0, next_hop: 198.51.100.2, valid: 1, fwd_if_index: 12}
session:
  - {index: 5, valid: 1, aging_time: 65535, ingress: 11, egress: 12,
     positive: {source: 192.0.2.2, source_port: 4711, destination: 198.51.100.2, destination_port: 2048, protocol: 1},
     negative: {source: 198.51.100.2, source_port: 4711, destination: 192.0.2.2, destination_port: 0, protocol: 1}}
"""


def test_a_forwarded_packet_is_seen_twice_and_counted_once(router):
    router.start("--capture", "lab0:11", "--capture", "lab1:12",
                 scenario=ROUTER % (router.mac(), router.mac("lab1")))
    router.trace("set", "icmp")
    router.trace("set", "print_num", "9")
    router.trace("enable")
    echo = router.inside(router.there, "ping", "-c", "1", "-e", "4711", "-W", "5", "198.51.100.2", stdout=subprocess.PIPE)
    assert b"1 received" in echo.communicate(timeout=PATIENCE)[0]
    wait_until(lambda: len(router.lines()) == 4, "an echo and its reply, each on its way in and out")
    ways = sorted(re.search(r"from if (\d+ to if \d+), .* ICMP (type \d), session 5, 98 bytes, (sent)$", line).groups()
                  for line in router.lines())
    assert ways == [("11 to if 12", "type 8", "sent")] * 2 + [("12 to if 11", "type 0", "sent")] * 2
    statistics = router.statistics()
    assert statistics["ICMP packets received"] == 2
    assert statistics["ICMP packets transmitted"] == 2
