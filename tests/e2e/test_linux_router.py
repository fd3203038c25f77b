"""nqed --linux --capture against a site of network namespaces: two hosts on a bridge, a router that translates their
addresses, and a server outside. What the tables and the trace say is what ip, bridge, conntrack and tcpdump say."""

import contextlib
import json
import os
import re
import signal
import subprocess

import pytest

from conftest import PATIENCE, engine_place, wait_until
from kernel_state import Kernel, connections
from test_linux import Mirrored, can_make_namespaces, running

pytestmark = pytest.mark.skipif(not can_make_namespaces(), reason="takes the right to make network namespaces")

SERVER = "198.51.100.2"
ROUTER_OUTSIDE = "198.51.100.1"
HOSTS = ("10.0.0.11", "10.0.0.12")
NAT = """
add table ip nat
add chain ip nat out {type nat hook postrouting priority 100;}
add rule ip nat out oifname "u0" masquerade
"""
# Takes 100,000 bytes of one stream, says so, and keeps it open until its input ends; answers datagrams.
SERVE = f"""
import socket, sys, threading
stream = socket.create_server(("{SERVER}", 7001))
packets = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
packets.bind(("{SERVER}", 7002))
def answer():
    while True:
        data, sender = packets.recvfrom(100)
        packets.sendto(data, sender)
threading.Thread(target=answer, daemon=True).start()
print("on", flush=True)
link, _ = stream.accept()
assert len(link.recv(100000, socket.MSG_WAITALL)) == 100000
link.sendall(b"had them")
sys.stdin.read()
"""
# Sends 100,000 bytes and 20 datagrams, and keeps the answered stream until its input ends.
ASK = f"""
import socket, sys
packets = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
packets.bind(("", 5002))
for _ in range(20):
    packets.sendto(b"x" * 50, ("{SERVER}", 7002))
    assert len(packets.recv(100)) == 50
link = socket.create_connection(("{SERVER}", 7001), source_address=("", 5001))
link.sendall(b"y" * 100000)
assert link.recv(100) == b"had them"
print("on", flush=True)
sys.stdin.read()
"""


class Site(Mirrored):
    """The mirrored router with the bridge br0 of the ports h1 and h2, and the uplink u0."""

    def __init__(self, name):
        super().__init__(name)
        self.log = None
        self.hosts = [Kernel(f"{name}-h{i}") for i in (1, 2)]
        self.server = Kernel(name + "-srv")
        self.kernels = [self.near, self.server, *self.hosts]
        for kernel in self.kernels:
            subprocess.run(["ip", "netns", "add", kernel.name], check=True)
            kernel.ip("link set lo up")
            kernel.run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.disable_ipv6=1",
                       "net.ipv6.conf.default.disable_ipv6=1")
        self.near.ip("link add br0 type bridge\nlink set br0 up\naddr add 10.0.0.1/24 dev br0")
        for i, host in enumerate(self.hosts, 1):
            self.near.ip(f"link add h{i} type veth peer name e0 netns {host.name}\nlink set h{i} master br0\nlink set h{i} up")
            host.ip(f"link set e0 up\naddr add {HOSTS[i - 1]}/24 dev e0\nroute add default via 10.0.0.1")
        self.near.ip(f"link add u0 type veth peer name e0 netns {self.server.name}\nlink set u0 up\n"
                     f"addr add {ROUTER_OUTSIDE}/24 dev u0")
        self.server.ip(f"link set e0 up\naddr add {SERVER}/24 dev e0")
        self.near.run("nft", "-f", "-", input=NAT)

    def start(self, place, *words):
        self.log = place.directory / "stderr"
        place.linux = ["--linux", "--netns", self.near.name]
        with open(self.log, "wb") as stderr:
            place.start(*words, stderr=stderr)
        self.engine = place
        self.settle()

    def lines(self):
        return [line for line in self.log.read_text().splitlines() if line.startswith("nqed: trace: ")]

    def ask(self, *words):
        result = self.engine.cli(*words)
        assert result.code == 0, (words, result)
        return result.out

    def traced(self):
        return sum(int(n) for n in re.findall(r"Packets from .*: (\d+)$", self.ask("pkt_trace", "counter"), re.M))

    def ping(self, host, address, *words):
        out = host.run("ping", "-i", "0.02", "-W", "5", *words, address)
        assert " 0% packet loss" in out, out

    @contextlib.contextmanager
    def tcpdump(self, interface, *words):
        """Runs tcpdump; afterwards the number of packets that passed its filter stands in the list given."""
        file = self.engine.directory / "tcpdump.pcap"
        dump = subprocess.Popen(
            ["ip", "netns", "exec", self.near.name, "tcpdump", "-i", interface, "-nn", "-U", "--immediate-mode", "-w", file,
             *words], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        counted = []
        try:
            line = ""
            while "listening on" not in line:
                line = dump.stderr.readline()
                assert line, "tcpdump has ended"
            yield counted
        finally:
            dump.send_signal(signal.SIGINT)
            said = dump.communicate(timeout=PATIENCE)[1]
            file.unlink(missing_ok=True)
        counted.append(int(re.search(r"(\d+) packets? received by filter", said).group(1)))


@pytest.fixture
def site():
    made = Site(f"nqe-r{os.getpid()}")
    try:
        with engine_place() as place:
            made.place = place
            yield made
    finally:
        made.remove()


def test_hosts_a_bridge_and_a_router_with_translation(site):
    site.start(site.place)
    site.ping(site.hosts[0], HOSTS[1], "-c3")
    site.settle()
    macs = {json.loads(host.run("ip", "-j", "link", "show", "e0"))[0]["address"] for host in site.hosts}
    assert macs <= {mac for _, _, mac in site.tables().macs()}

    with running(site.server, SERVE), running(site.hosts[0], ASK):
        wait_until(lambda: connections(site.near) == site.tables().connections(), "the connections")
        site.settle()
        stream, = [key for key in site.tables().connections() if key[0] == 6]
        assert stream == (6, (HOSTS[0], SERVER, 5001, 7001), (SERVER, ROUTER_OUTSIDE, 7001, stream[2][3]))
        record, = [r for r in site.tables().records("session") if r["positive"]["protocol"] == 6]
        assert (record["nat_source"], record["new_source"]) == (True, ROUTER_OUTSIDE)
        assert re.search(r"^tcp .* ESTABLISHED src=10.0.0.11 ", site.near.run("conntrack", "-L", "-p", "tcp"), re.M)
        assert record["state"] == 4


@pytest.mark.parametrize("interface, words, filter_words", [
    ("u0", ["sip", ROUTER_OUTSIDE], ["ip src " + ROUTER_OUTSIDE]),
    ("br0", ["dport", "7002"], ["udp dst port 7002"]),
    ("br0", ["tcp_flags", "2"], ["tcp[13] & 2 = 2"]),
])
def test_the_trace_of_a_mirrored_router_is_that_of_tcpdump(site, interface, words, filter_words):
    site.start(site.place, "--capture", interface)
    for setting in (words, ["print_num", "256"]):
        site.ask("pkt_trace", "set", *setting)
    site.ask("pkt_trace", "enable")
    with site.tcpdump(interface, *filter_words) as captured:
        with running(site.server, SERVE), running(site.hosts[0], ASK):
            site.ping(site.hosts[1], SERVER, "-c3")
    assert captured[0] > 0
    wait_until(lambda: site.traced() == captured[0], f"{captured[0]} packets, not {site.traced()}")
    assert len(site.lines()) == captured[0]


def test_a_packet_meets_the_session_route_and_interface_that_the_kernel_has(site):
    site.start(site.place, "--capture", "br0", "--capture", "u0")
    site.ping(site.hosts[0], SERVER, "-c1", "-e", "4711")
    wait_until(lambda: any(key[0] == 1 for key in site.tables().connections()), "the session")
    site.ask("pkt_trace", "set", "icmp")
    site.ask("pkt_trace", "set", "print_num", "9")
    site.ask("pkt_trace", "enable")
    site.ping(site.hosts[0], SERVER, "-c1", "-e", "4711")
    wait_until(lambda: len(site.lines()) == 4, "the echo and its reply, each on its way in and out")
    index = {link["ifname"]: link["ifindex"] for link in site.near.links()}
    session, = [r["index"] for r in site.tables().records("session") if r["positive"]["protocol"] == 1]
    told = [re.search(r"from if (\d+) to if (\d+), .* ICMP type (\d), session (\d+), 98 bytes, sent$", line)
            for line in site.lines()]
    assert all(told), site.lines()
    inside, outside, session = (str(number) for number in (index["br0"], index["u0"], session))
    # Of a packet that leaves the kernel does not tell where it came in.
    assert {one.groups() for one in told} == {(inside, outside, "8", session), ("0", outside, "8", session),
                                              (outside, inside, "0", session), ("0", inside, "0", session)}


def test_every_tool_works_on_a_mirror(site):
    site.start(site.place)
    with running(site.server, SERVE), running(site.hosts[0], ASK):
        site.hosts[1].run("ping", "-c1", "-W1", SERVER)
        site.near.run("ping", "-c1", "-W1", "10.0.0.200", check=False)
        wait_until(lambda: connections(site.near) == site.tables().connections(), "the connections")
        site.settle()
        queried = site.ask("agent", "query-session", "inside-source-ip=" + HOSTS[0], "protocol=6")
        assert HOSTS[0] in queried and SERVER in queried and ROUTER_OUTSIDE in queried
        assert HOSTS[1] not in queried
        wait_until(lambda: "10.0.0.200" in site.ask("agent", "arpmiss"), "the neighbour that does not answer")
        usage = {r["table"]: r["entries"] for r in json.loads(site.ask("usage", "--json"))["usage"]}
        assert usage["session"] == len(site.tables().records("session"))
        used, = re.findall(r"^CAP_TABLE_FIB +8192 +(\d+) ", site.ask("agent", "tbl-usage"), re.M)
        assert int(used) == len(site.tables().records("fib"))
        index = {link["ifname"]: link["ifindex"] for link in site.near.links()}
        mac, = (link["address"] for link in site.server.links() if link["ifname"] == "e0")
        asked = site.ask("diag", "search", "nqpTable", "6", SERVER, "0", "0", "0")
        assert f"  L3FwdIfIndex  : {index['u0']}\n" in asked and f"  Dmac          : {mac}\n" in asked
        assert SERVER in site.ask("find", SERVER)
        steps = {step["table"]: step["found"] for step in json.loads(site.ask("explain", SERVER, "--json"))["steps"]
                 if step["found"]}
        assert steps["fib"]["destination"] == "198.51.100.0" and steps["arp"]["next_hop"] == SERVER
        counted = site.ask("sql", "--csv", "SELECT count(*) FROM session WHERE positive_protocol = 6 AND "
                                           f"new_source = '{ROUTER_OUTSIDE}'")
        assert counted.splitlines()[1] == "1"
        assert site.engine.cli("check").code == 0
