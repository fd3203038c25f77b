"""nqed --linux against network namespaces that the tests make: the tables show what ip, bridge and conntrack show."""

import os
import random
import signal
import subprocess
import time

import pytest

from conftest import BIN, PATIENCE, engine_place, nqed, wait_until
from kernel_state import Kernel, Tables, Unsettled, connections, differences, kernel_state, object_hops


def can_make_namespaces():
    name = f"nqe-try-{os.getpid()}"
    made = subprocess.run(["ip", "netns", "add", name], stderr=subprocess.DEVNULL, check=False).returncode == 0
    if made:
        subprocess.run(["ip", "netns", "del", name], check=True)
    return made


pytestmark = pytest.mark.skipif(not can_make_namespaces(), reason="takes the right to make network namespaces")


class Mirrored:
    """Namespaces that a test makes, of which `near` is the one that an engine mirrors."""

    def __init__(self, name):
        self.near = Kernel(name)
        self.kernels = [self.near]
        self.engine = None

    def remove(self):
        for kernel in self.kernels:
            subprocess.run(["ip", "netns", "del", kernel.name], stderr=subprocess.DEVNULL, check=False)

    def tables(self):
        return Tables(self.engine)

    def differences(self):
        """A change between the two looks would be a difference that is none: what the kernel has must not move."""
        before = kernel_state(self.near)
        try:
            shown = self.tables().state()
        except Unsettled as unsettled:
            return [str(unsettled)]
        return differences(before, shown)

    def settle(self, patience=PATIENCE):
        """Waits until the engine shows what the kernel has; fails with what differs."""
        deadline = time.monotonic() + patience
        while lines := self.differences():
            assert time.monotonic() < deadline, "\n".join(lines)
            time.sleep(0.02)


class Pair(Mirrored):
    """The mirrored namespace with three links, of which `far` has the other ends."""

    LINKS = ("v0", "v1", "v2")

    def __init__(self, name):
        super().__init__(name)
        self.far = Kernel(name + "-far")
        self.kernels.append(self.far)
        for kernel in self.kernels:
            subprocess.run(["ip", "netns", "add", kernel.name], check=True)
            kernel.ip("link set lo up")
            kernel.run("sysctl", "-qw", "net.ipv4.ip_forward=1", "net.ipv6.conf.all.accept_dad=0",
                       "net.ipv6.conf.default.accept_dad=0", "net.ipv6.conf.default.router_solicitations=0")
        for i, link in enumerate(self.LINKS):
            self.near.ip(f"link add {link} type veth peer name {link} netns {self.far.name}\nlink set {link} up")
            self.far.ip(f"link set {link} up\naddr add 10.0.{i}.2/24 dev {link}\naddr add 2001:db8:{i}::2/64 dev {link}")
        self.near.ip("addr add 10.0.0.1/24 dev v0\naddr add 2001:db8::1/64 dev v0\naddr add 10.0.1.1/24 dev v1")


@pytest.fixture
def pair():
    made = Pair(f"nqe-{os.getpid()}")
    try:
        yield made
    finally:
        made.remove()


@pytest.fixture
def mirror(pair):
    """A pair and an engine that mirrors it."""
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name]
        place.start()
        pair.engine = place
        yield pair
        if place.process is not None:
            place.stop()


ROUTES = """
    route add 10.8.0.0/16 via 10.0.0.2
    route add 10.8.0.0/16 via 10.0.1.2 metric 50
    route add 10.9.0.0/16 nexthop via 10.0.0.2 weight 2 nexthop via 10.0.1.2
    route add 10.10.0.0/16 via 10.0.0.2 table 100
    route add blackhole 10.11.0.0/16
    route add unreachable 10.12.0.0/16 metric 9
    route add prohibit 10.13.0.0/16 table 1000
    route add 10.14.0.0/16 via inet6 2001:db8::2 dev v0
    route add 10.15.0.0/16 tos 0x10 via 10.0.0.2
    route add default via 10.0.0.2
    nexthop add id 1 via 10.0.0.3 dev v0
    nexthop add id 2 via 10.0.1.3 dev v1
    nexthop add id 3 via 2001:db8::3 dev v0
    nexthop add id 4 blackhole
    nexthop add id 10 group 1/2
    route add 10.20.0.0/16 nhid 1
    route add 10.21.0.0/16 nhid 10
    route add 10.22.0.0/16 nhid 3
    -6 route add 2001:db8:8::/48 via 2001:db8::2
    -6 route add 2001:db8:9::/48 nexthop via 2001:db8::2 nexthop via 2001:db8::3
    -6 route add 2001:db8:a::/48 nhid 3
    -6 route add blackhole 2001:db8:b::/48
    -6 route add 2001:db8:c::/48 via 2001:db8::2 metric 5 table 100
    -6 route add 2001:db8:d::/48 dev v0 metric 7
    -6 route append 2001:db8:d::/48 dev v1 metric 7
"""


def test_what_was_there_before_is_shown_from_the_start(pair):
    pair.near.ip(ROUTES)
    pair.near.ip("""
        neigh add 10.0.0.2 lladdr 02:00:00:00:00:02 dev v0
        neigh add 2001:db8::3 lladdr 02:00:00:00:00:03 dev v0
        link add br0 type bridge ageing_time 5000
        link set v2 master br0
        link set br0 up
    """)
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name]
        pair.engine = place.start()
        pair.settle()
        status = place.cli("engine", "status").out
        assert f"\nlinux     namespace {pair.near.name}\n" in status, status
        place.stop()


def test_routes_of_all_kinds_come_and_go(mirror):
    mirror.settle()
    mirror.near.ip(ROUTES)
    mirror.settle()
    hops = mirror.tables()
    for family, objects in ((4, {1, 2}), (6, {3})):
        known = set(hops.hops(family).values())
        assert {hop for number, hop in object_hops(mirror.near).items() if number in objects} <= known
    mirror.near.ip("route del 10.8.0.0/16 via 10.0.0.2")  # the one behind it takes its place
    mirror.settle()
    assert mirror.tables().routes(4)[(0, "10.8.0.0", 16)][1] == 50
    mirror.near.ip("""
        route replace 10.9.0.0/16 via 10.0.0.2
        route append 10.9.0.0/16 via 10.0.1.2
        route prepend 10.9.0.0/16 via 10.0.1.9
        route change 10.12.0.0/16 via 10.0.0.9 metric 9
        nexthop replace id 1 via 10.0.0.4 dev v0
        nexthop replace id 10 group 2
        -6 route del 2001:db8:9::/48 via 2001:db8::2
        -6 route append 2001:db8:8::/48 via 2001:db8::4
        -6 route replace 2001:db8:c::/48 via 2001:db8::5 metric 5 table 100
        -6 route del 2001:db8:d::/48 dev v0 metric 7
    """)
    mirror.settle()
    mirror.near.run("sh", "-c", "ip route flush table all; ip -6 route flush table all; ip nexthop flush", check=False)
    mirror.settle()


def test_entries_keep_their_address_and_next_hops_leave_with_their_last_route(mirror):
    mirror.near.ip("route add 10.8.0.0/16 via 10.0.0.77\nroute add 10.9.0.0/16 via 10.0.0.77")
    mirror.settle()
    hops = mirror.tables().hops(4)
    number, = [n for n, hop in hops.items() if hop[1] == "10.0.0.77"]
    mirror.near.ip("route replace 10.8.0.0/16 via 10.0.0.78")
    mirror.settle()
    assert mirror.tables().hops(4)[number][1] == "10.0.0.77"
    mirror.near.ip("route del 10.9.0.0/16")
    wait_until(lambda: "10.0.0.77" not in [hop[1] for hop in mirror.tables().hops(4).values()], "the next hop to leave")


def test_a_neighbour_gives_its_next_hops_the_bytes_before_a_packet(mirror):
    mirror.near.ip("route add 10.8.0.0/16 via 10.0.0.9")
    mirror.settle()

    def hop():
        return next(r for r in mirror.tables().records("nhp") if r["next_hop"] == "10.0.0.9")

    assert (hop()["arp_miss"], hop()["encap_size"], hop()["dmac"]) == (1, 0, "00:00:00:00:00:00")
    mirror.near.ip("neigh add 10.0.0.9 lladdr 02:00:00:00:00:09 dev v0")
    mirror.settle()
    own = bytes.fromhex(mirror.near.show("link", "show", "v0")[0]["address"].replace(":", ""))
    wait_until(lambda: hop()["arp_miss"] == 0, "the neighbour")
    assert bytes(hop()["encap_data"]) == bytes.fromhex("020000000009") + own + b"\x08\x00"
    assert (hop()["encap_size"], hop()["dmac"], hop()["fwdif_count"]) == (14, "02:00:00:00:00:09", 1)
    mirror.near.ip("neigh replace 10.0.0.9 lladdr 02:00:00:00:00:0a dev v0")
    wait_until(lambda: hop()["dmac"] == "02:00:00:00:00:0a", "the other address")
    mirror.near.ip("neigh del 10.0.0.9 dev v0")
    wait_until(lambda: hop()["arp_miss"] == 1, "the neighbour to go")
    mirror.near.ip("link set v0 mtu 1400 address 02:00:00:00:aa:01")
    wait_until(lambda: (hop()["mtu"], hop()["smac"]) == (1400, "02:00:00:00:aa:01"), "the link's change")


def test_neighbours_that_answer_and_that_do_not(mirror):
    mirror.near.run("ping", "-c1", "-W1", "10.0.0.2")
    mirror.near.run("ping", "-c1", "-W1", "2001:db8::2")
    mirror.near.run("ping", "-c1", "-W1", "10.0.0.200", check=False)
    mirror.near.run("ping", "-c1", "-W1", "2001:db8::200", check=False)
    mirror.settle()
    tables = mirror.tables()
    assert "10.0.0.2" in tables.neighbours("arp") and "2001:db8::2" in tables.neighbours("nd")
    wait_until(lambda: "10.0.0.200" in tables.misses("arp_miss_cache"), "the one that does not answer, IPv4")
    wait_until(lambda: "2001:db8::200" in tables.misses("nd_miss_cache"), "the one that does not answer, IPv6")


def test_one_address_behind_two_links_is_shown_once(mirror):
    mirror.near.ip("neigh add fe80::77 lladdr 02:00:00:00:00:71 dev v1\nneigh add fe80::77 lladdr 02:00:00:00:00:70 dev v0")
    mirror.settle()
    mirror.near.ip("neigh del fe80::77 dev v0")
    mirror.settle()
    assert mirror.tables().neighbours("nd")["fe80::77"][1] == "02:00:00:00:00:71"


def test_addresses(mirror):
    mirror.near.ip("""
        addr add 10.0.0.5/24 dev v0
        addr add 10.7.0.1 peer 10.7.0.2/32 dev v1
        addr add 192.0.2.1/32 dev lo
        addr add 2001:db8:5::1/128 dev v1
    """)
    mirror.settle()
    mirror.near.ip("addr del 10.0.0.1/24 dev v0\naddr del 2001:db8::1/64 dev v0")
    mirror.settle()


def test_a_bridge_its_ports_addresses_and_groups(mirror):
    mirror.near.ip("""
        link add br0 type bridge ageing_time 3000 mcast_snooping 1
        link set br0 up
        link set v1 master br0
        link set v2 master br0
        link set v1 type bridge_slave isolated on
        link set v2 type bridge_slave isolated on
    """)
    for words in ("fdb add 02:00:00:00:00:11 dev v1 master static", "fdb add 02:00:00:00:00:12 dev v2 master dynamic",
                  "mdb add dev br0 port v1 grp 239.1.1.1", "mdb add dev br0 port v2 grp 239.1.1.2 permanent"):
        mirror.near.run("bridge", *words.split())
    mirror.settle()
    tables = mirror.tables()
    index = {link["ifname"]: link["ifindex"] for link in mirror.near.links()}
    assert len(tables.state()["isolated"]) == 2 and len(tables.groups()) == 2
    assert {r["fwd_if_index"] for r in tables.records("ssw_global_boardcast")} == {index["v1"], index["v2"]}
    counted, = [r["mac_count"] for r in tables.records("bridgeinfo")]
    assert counted == len(tables.macs())
    # A station that is learnt, and moves.
    mirror.far.ip("link set v1 address 02:00:00:00:00:77")
    mirror.far.run("ping", "-c1", "-W1", "10.0.1.9", check=False)
    wait_until(lambda: (index["br0"], 0, "02:00:00:00:00:77") in mirror.tables().macs(), "the station")
    mirror.settle()
    mirror.near.run("bridge", *"fdb replace 02:00:00:00:00:11 dev v2 master static".split())
    mirror.near.run("bridge", *"mdb del dev br0 port v1 grp 239.1.1.1".split())
    mirror.near.ip("link set v1 type bridge_slave isolated off\nlink set v2 nomaster")
    mirror.settle()
    mirror.near.ip("link del br0")
    mirror.settle()
    for table in ("bridgeinfo", "ssw_macinfo", "ssw_global_boardcast", "port_inst_state", "mc_elb"):
        assert mirror.tables().records(table) == [], table


def test_links_come_change_and_go_and_count(mirror):
    mirror.near.ip("link add w0 type veth peer name w1\nlink set w0 up\nlink set w1 mtu 1300")
    mirror.settle()
    mirror.near.ip("link set w1 up\nlink set w0 address 02:00:00:00:00:50\nlink set w0 name w2")
    mirror.settle()
    mirror.near.run("ping", "-c3", "-i0.01", "-W1", "10.0.0.2")

    def counters():
        link = mirror.near.show("-s", "link", "show", "v0")[0]
        record, = [r for r in mirror.tables().records("fwdif") if r["if_index"] == link["ifindex"]]
        have, stats = record["counters"][0], link["stats64"]
        return [(have[f"{way}_{what}"], stats[side][what]) for way, side in (("in", "rx"), ("out", "tx"))
                for what in ("bytes", "packets")]

    wait_until(lambda: all(have == want and want > 0 for have, want in counters()), "the counters")
    mirror.near.ip("link del w2")
    mirror.settle()


@pytest.mark.parametrize("loss", ["nexthop del id 1", "link set v0 down", "link del v0", "addr del 10.0.0.1/24 dev v0",
                                  "link set v0 carrier off"])
def test_what_the_kernel_drops_without_a_word(mirror, loss):
    mirror.near.ip(ROUTES)
    mirror.near.ip("route add 10.30.0.0/16 via 10.0.1.2 src 10.0.0.1")
    mirror.settle()
    if "carrier" in loss:
        mirror.far.ip("link set v0 down")
    else:
        mirror.near.ip(loss)
    mirror.settle()


def test_next_hop_objects_that_go_again_and_again(mirror):
    for i in range(60):
        mirror.near.ip(f"nexthop add id 7 via 10.0.0.7 dev v0\nroute add 10.{i}.7.0/24 nhid 7\nnexthop del id 7")
    mirror.settle()
    assert not [key for key in mirror.tables().routes(4) if key[1].endswith(".7.0")]


class Changes:
    """Random changes of a namespace with three links and a bridge."""

    def __init__(self, seed):
        self.random = random.Random(seed)

    def way(self):
        link = self.random.randrange(2)
        return f"via 10.0.{link}.{self.random.randrange(2, 9)}"

    def one(self):
        """The tool and its line."""
        draw = self.random
        net, low, table = draw.randrange(12), draw.randrange(2, 9), draw.choice(["", "", " table 100"])
        metric = draw.choice(["", "", " metric 20", " metric 30"])
        link = draw.choice(Pair.LINKS)
        choices = [
            ("ip", f"route {draw.choice(['add', 'replace', 'append'])} 10.50.{net}.0/24 {self.way()}{metric}{table}"),
            ("ip", f"route del 10.50.{net}.0/24{metric}{table}"),
            ("ip", f"route replace 10.51.{net}.0/24 nexthop {self.way()} nexthop {self.way()}{metric}"),
            ("ip", f"route replace 10.52.{net}.0/24 nhid {draw.choice([1, 2, 10])}"),
            ("ip", f"route {draw.choice(['replace', 'del'])} blackhole 10.53.{net}.0/24"),
            ("ip", f"-6 route {draw.choice(['add', 'replace', 'append'])} 2001:db8:5{net:x}::/48 via 2001:db8::{low}{metric}"),
            ("ip", f"-6 route del 2001:db8:5{net:x}::/48{metric}"),
            ("ip", f"-6 route del 2001:db8:5{net:x}::/48 via 2001:db8::{low}{metric}"),
            ("ip", f"nexthop replace id {draw.choice([1, 2])} {self.way()} dev v{draw.randrange(2)}"),
            ("ip", f"nexthop replace id 10 group {draw.choice(['1', '2', '1/2'])}"),
            ("ip", f"nexthop del id {draw.choice([1, 2, 10])}"),
            ("ip", f"neigh replace 10.0.{draw.randrange(2)}.{low} lladdr 02:00:00:00:0{net % 9}:0{low} dev {link}"),
            ("ip", f"neigh replace 2001:db8::{low} lladdr 02:00:00:00:0{net % 9}:0{low} dev {link}"),
            ("ip", f"neigh del 10.0.{draw.randrange(2)}.{low} dev {link}"),
            ("ip", f"addr {draw.choice(['add', 'del'])} 10.0.{draw.randrange(2)}.{100 + net}/24 dev v{draw.randrange(2)}"),
            ("ip", f"addr {draw.choice(['add', 'del'])} 2001:db8:f{net:x}::1/64 dev {link}"),
            ("bridge", f"fdb replace 02:00:00:00:ff:0{low} dev v2 master {draw.choice(['static', 'dynamic'])}"),
            ("bridge", f"fdb del 02:00:00:00:ff:0{low} dev v2 master"),
            ("bridge", f"mdb {draw.choice(['add', 'del'])} dev br0 port v2 grp 239.0.0.{low}"),
            ("ip", f"link set {link} mtu {draw.choice([1400, 1500])}"),
        ]
        if draw.random() < 0.03:
            choices = [("ip", f"link set {link} {draw.choice(['up', 'down', 'up'])}"),
                       ("ip", f"link set v2 {draw.choice(['master br0', 'nomaster'])}"),
                       ("ip", "addr add 10.0.0.1/24 dev v0"), ("ip", "addr add 2001:db8::1/64 dev v0")]
        return draw.choice(choices)

    def hundred(self, kernel, after_each=lambda: None):
        lines, tool = [], "ip"
        for line_tool, line in [self.one() for _ in range(100)]:
            if line_tool != tool and lines:
                kernel.batch(lines, tool)
                after_each()
                lines = []
            tool = line_tool
            lines.append(line)
        kernel.batch(lines, tool)


def prepare_changes(mirror):
    mirror.near.ip("link add br0 type bridge mcast_snooping 1\nlink set br0 up\nlink set v2 master br0")


# QDT_LINUX_CHANGES and QDT_LINUX_SEED make a longer run or another one.
ROUNDS = int(os.environ.get("QDT_LINUX_CHANGES", "1000")) // 100
SEED = int(os.environ.get("QDT_LINUX_SEED", "17"))


@pytest.mark.apart
def test_random_changes(mirror):
    prepare_changes(mirror)
    changes = Changes(SEED)
    for _ in range(ROUNDS):
        changes.hundred(mirror.near)
        mirror.settle()


@pytest.mark.apart
def test_random_changes_of_which_the_kernel_loses_messages(pair):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--netlink-buffer", "1"]
        pair.engine = place.start()
        prepare_changes(pair)
        changes = Changes(SEED + 1)
        pid = place.process.pid
        for _ in range(max(2, ROUNDS // 2)):
            # An engine that stands still cannot receive: its buffer, the smallest that the kernel gives, overflows.
            os.kill(pid, signal.SIGSTOP)
            changes.hundred(pair.near)
            os.kill(pid, signal.SIGCONT)
            pair.settle()
        drops = [int(line.split()[8]) for line in pair.near.run("cat", "/proc/net/netlink").splitlines()[1:]]
        assert max(drops) > 0
        place.stop()


def test_connections_with_translation_and_their_end(mirror):
    rules = "add table ip nat; add chain ip nat o {type nat hook output priority -100;}; " \
            "add rule ip nat o ip daddr 10.99.0.1 dnat to 10.0.0.2; " \
            "add chain ip nat p {type nat hook postrouting priority 100;}; " \
            "add rule ip nat p ip daddr 10.0.0.2 tcp dport 7001 snat to 10.0.0.66:5000"
    mirror.near.ip("addr add 10.0.0.66/24 dev v0\nroute add 10.99.0.0/16 via 10.0.0.2")
    mirror.near.run("nft", rules)
    server = "import socket,sys;s=socket.create_server(('10.0.0.2',7001));print('on',flush=True);c=s.accept()[0];" \
             "c.recv(9);sys.stdin.read()"
    client = "import socket,sys;c=socket.create_connection(('10.0.0.2',7001));print('on',flush=True);sys.stdin.read()"
    with running(mirror.far, server), running(mirror.near, client):
        mirror.near.run("ping", "-c1", "-W1", "10.99.0.1")
        mirror.near.run("ping", "-c1", "-W1", "10.0.0.2")
        mirror.near.run("ping", "-c1", "-W1", "2001:db8::2")
        wait_until(lambda: connections(mirror.near) == mirror.tables().connections(), "the connections")
        shown = mirror.tables().connections()
        tcp, = [key for key in shown if key[0] == 6]
        assert shown[tcp] == (4, True, False)
        record, = [r for r in mirror.tables().records("session") if r["positive"]["protocol"] == 6]
        assert (record["new_source"], record["new_source_port"]) == ("10.0.0.66", 5000)
        assert (record["reply_new_destination"], record["reply_new_destination_port"]) == tcp[1][0:1] + tcp[1][2:3]
        ping, = [r for r in mirror.tables().records("session") if (r.get("positive") or {}).get("destination") == "10.99.0.1"]
        assert (ping["nat_destination"], ping["new_destination"]) == (True, "10.0.0.2")
    mirror.near.run("conntrack", "-D", "-p", "icmp", check=False)
    wait_until(lambda: connections(mirror.near) == mirror.tables().connections(), "the connections to go")


def test_a_connection_that_is_expected_is_a_server_map(mirror):
    mirror.near.run("nft", "add table ip h; add ct helper ip h f {type \"ftp\" protocol tcp;}; "
                           "add chain ip h o {type filter hook output priority 0;}; "
                           "add rule ip h o tcp dport 21 ct helper set \"f\"")
    server = "import socket,sys;s=socket.create_server(('10.0.0.2',21));print('on',flush=True);c=s.accept()[0];" \
             "c.sendall(b'220 hello\\r\\n');c.recv(99);" \
             "c.sendall(b'227 Entering Passive Mode (10,0,0,2,31,65)\\r\\n');sys.stdin.read()"
    client = "import socket,sys;c=socket.create_connection(('10.0.0.2',21));c.recv(99);c.sendall(b'PASV\\r\\n');c.recv(99);" \
             "print('on',flush=True);sys.stdin.read()"
    with running(mirror.far, server), running(mirror.near, client):
        assert "dport=8001" in mirror.near.run("conntrack", "-L", "expect")
        wait_until(lambda: len(mirror.tables().records("server_map")) == 1, "the server map")
        record, = mirror.tables().records("server_map")
        assert (record["source"], record["destination"], record["source_port"], record["destination_port"]) == (
            "10.0.0.1", "10.0.0.2", 0, 31 * 256 + 65)
        assert (record["protocol"], record["type"]) == (6, 2)
    mirror.near.run("conntrack", "-F", "expect")
    wait_until(lambda: mirror.tables().records("server_map") == [], "the server map to go")


class running:
    """A Python program in a namespace that says "on" when it is ready and ends with its input."""

    def __init__(self, kernel, program):
        self.argv = ["ip", "netns", "exec", kernel.name, "python3", "-c", program]

    def __enter__(self):
        self.process = subprocess.Popen(self.argv, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self.process.stdout.readline() == b"on\n"
        return self

    def __exit__(self, *_):
        self.process.communicate(timeout=PATIENCE)


def test_a_reset_ends_the_connection_in_the_kernel(mirror):
    # The kernel tracks connections where a rule asks for their state.
    mirror.near.run("nft", "add table ip t; add chain ip t o {type filter hook output priority 0;}; "
                           "add rule ip t o ct state new accept")
    mirror.near.run("ping", "-c1", "-W1", "10.0.0.2")
    wait_until(lambda: any(key[0] == 1 for key in mirror.tables().connections()), "the session")
    reset = mirror.engine.cli("agent", "reset-session", "protocol=1")
    assert reset.code == 0, reset
    wait_until(lambda: not any(key[0] == 1 for key in connections(mirror.near)), "the connection to end")
    wait_until(lambda: not any(key[0] == 1 for key in mirror.tables().connections()), "the session to leave")


def test_a_namespace_that_disappears(mirror):
    mirror.near.ip(ROUTES)
    mirror.settle()
    mirror.remove()
    wait_until(lambda: "tables    0 in use" in mirror.engine.cli("engine", "status").out, "the tables to be empty")
    assert mirror.engine.process.poll() is None


def test_kill_and_restart(mirror):
    mirror.near.ip(ROUTES)
    mirror.settle()
    mirror.engine.end(signal.SIGKILL)
    mirror.near.ip("route del 10.9.0.0/16\nroute add 10.77.0.0/16 via 10.0.0.2")
    mirror.engine.start()
    mirror.settle()


def test_a_full_table_goes_on_and_takes_the_rest_when_there_is_room(pair):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--capacity", "fib=20"]
        pair.engine = place.start()
        pair.near.ip("\n".join(f"route add 10.60.{i}.0/24 via 10.0.0.2" for i in range(30)))
        wait_until(lambda: len(pair.tables().records("fib")) == 20, "the table to be full")
        wait_until(lambda: " times, as tables were full\n" in place.cli("engine", "status").out, "the count")
        pair.near.ip("\n".join(f"route del 10.60.{i}.0/24 via 10.0.0.2" for i in range(25)))
        pair.settle()
        place.stop()


def test_statistics_of_ip(mirror):
    names = {"Ip": {"InReceives": "Total IP packets received"}, "Icmp": {"InMsgs": "ICMP packets received"}}

    def both():
        """Pairs of what the kernel and what the engine has counted."""
        shown = dict(line.strip().rsplit(": ", 1) for line in
                     mirror.engine.cli("agent", "sysstat-query", "type=normal").out.splitlines() if ": " in line)
        lines = [line.split() for line in mirror.near.run("cat", "/proc/net/snmp").splitlines()]
        for heads, values in zip(lines[::2], lines[1::2]):
            for head, value in zip(heads, values):
                name = names.get(heads[0].rstrip(":"), {}).get(head)
                if name is not None:
                    yield int(value), int(shown.get(name, 0))

    mirror.near.run("ping", "-c3", "-i0.01", "-W1", "10.0.0.2")
    wait_until(lambda: [kernel >= 3 and kernel == engine for kernel, engine in both()] == [True] * 2, "the counters")


def test_without_rights_all_but_connections_is_shown(pair):
    pair.near.ip(ROUTES)
    with engine_place() as place:
        os.chown(place.directory, 65534, 65534)
        place.trusted = ("--trust", "65534")
        errors = place.directory / "scenario.yaml"
        with open(errors, "w") as file:
            # In the namespace already: to enter it by its name takes rights.
            place.process = subprocess.Popen(
                ["ip", "netns", "exec", pair.near.name, "setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                 BIN / "nqed", "--linux", "--arena", place.arena], stdout=subprocess.PIPE, stderr=file)
            assert place.process.stdout.readline().startswith(b"nqed: ready")
        pair.engine = place
        pair.settle()
        assert errors.read_text() == "nqed: no sessions: tracked connections cannot be seen (it takes CAP_NET_ADMIN)\n"
        pair.near.ip("route add 10.66.0.0/16 via 10.0.0.2")
        pair.settle()
        place.process.terminate()
        place.process.communicate(timeout=PATIENCE)
        place.process = None


def test_what_cannot_be_is_refused_in_one_line(directory):
    nqed("--linux", "--netns", "no-such-namespace", "--arena", directory / "a").failed(
        '--netns "no-such-namespace": there is no such network namespace', tool="nqed")
    nqed("--netns", "x", "--arena", directory / "a").failed("go with --linux", tool="nqed")
    for bad in ("fib", "fib=", "fib=0", "fib=x", "fib=16777217"):
        nqed("--linux", "--capacity", bad, "--arena", directory / "a").failed(
            f'--capacity "{bad}" is not TABLE=N with a number from 1 to 16777216', tool="nqed")
    nqed("--linux", "--capacity", "fob=9", "--arena", directory / "a").failed(
        '--capacity "fob": there is no such table', tool="nqed")
    scenario = directory / "s.yaml"
    scenario.write_text("arp: [{vpn: 0, next_hop: 10.0.0.1}]\n")
    nqed("--linux", "--scenario", scenario, "--arena", directory / "a").failed(
        "arp: the kernel fills this table with --linux (leave it out of the scenario)", tool="nqed")


def test_a_scenario_fills_what_the_kernel_has_nothing_for(pair):
    with engine_place() as place:
        place.scenario.write_text("flowif_map_fwdif: [{flow_if_index: 1, fwd_if_index: 2}]\n")
        place.linux = ["--linux", "--netns", pair.near.name, "--scenario", place.scenario]
        pair.engine = place.start()
        pair.settle()
        assert len(pair.tables().records("flowif_map_fwdif")) == 1
        place.stop()
