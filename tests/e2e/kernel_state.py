"""What the Linux kernel has, as its own tools show it, and what an engine's tables say of it, in one and the same shape.

Both sides are dictionaries by what a thing is known by; they are compared whole, so that nothing may be missing and
nothing may be too much.
"""

import ipaddress
import json
import re
import subprocess


LOCAL, MAIN, DEFAULT = 255, 254, 253
TABLES = {"local": LOCAL, "main": MAIN, "default": DEFAULT}
TYPES = {"unicast": 1, "local": 2, "broadcast": 3, "anycast": 4, "multicast": 5, "blackhole": 6, "unreachable": 7,
         "prohibit": 7, "throw": 7}
NOWHERE = ("blackhole", "unreachable", "prohibit", "throw")
RESOLVED = {"REACHABLE", "STALE", "DELAY", "PROBE", "PERMANENT"}
UNRESOLVED = {"INCOMPLETE", "FAILED"}
TCP = {"SYN_SENT": 2, "SYN_RECV": 3, "ESTABLISHED": 4, "FIN_WAIT": 5, "CLOSE_WAIT": 6, "LAST_ACK": 7, "TIME_WAIT": 8,
       "CLOSE": 9}
NO_MAC = "00:00:00:00:00:00"


class Kernel:
    """A network namespace."""

    def __init__(self, name):
        self.name = name

    def run(self, *words, check=True, **options):
        return subprocess.run(["ip", "netns", "exec", self.name, *words], check=check, text=True, timeout=60,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options).stdout

    def ip(self, text):
        """Runs `ip` with each of the lines."""
        for line in filter(None, map(str.strip, text.splitlines())):
            self.run("ip", *line.split())

    def batch(self, lines, tool="ip"):
        """Runs all lines in one process; some may be refused."""
        subprocess.run([tool, "-n", self.name, "-force", "-batch", "-"], input="\n".join(lines) + "\n", text=True,
                       timeout=60, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)

    def show(self, *words, tool="ip"):
        return json.loads(self.run(tool, "-j", "-d", *words) or "[]")

    def links(self):
        return self.show("link")


def index_of(links):
    return {link["ifname"]: link["ifindex"] for link in links}


def is_up(link):
    return "UP" in link["flags"]


def interfaces(kernel):
    links = kernel.links()
    index = index_of(links)
    shown = {}
    for link in links:
        port = link.get("linkinfo", {}).get("info_slave_kind") == "bridge"
        data = link.get("linkinfo", {}).get("info_slave_data", {})
        running = is_up(link) and "NO-CARRIER" not in link["flags"] and "LOWER_UP" in link["flags"]
        mac = link.get("address", NO_MAC)
        shown[link["ifindex"]] = (is_up(link), not running, min(link["mtu"], 65535), mac if len(mac) == 17 else NO_MAC,
                                  index[link["master"]] if port else 0, bool(port and data.get("isolated")))
    return shown


def bridges(kernel):
    shown = {}
    for link in kernel.links():
        info = link.get("linkinfo", {})
        if info.get("info_kind") == "bridge":
            shown[link["ifindex"]] = info["info_data"]["ageing_time"] // 100
    return shown


def port_states(kernel):
    names = {"disabled": 0, "listening": 1, "learning": 2, "forwarding": 3, "blocking": 4}
    return {link["ifindex"]: names[link["linkinfo"]["info_slave_data"]["state"]] for link in kernel.links()
            if link.get("linkinfo", {}).get("info_slave_kind") == "bridge"}


def isolated_pairs(kernel):
    ports = [link for link in kernel.links() if link.get("linkinfo", {}).get("info_slave_kind") == "bridge"
             and link["linkinfo"]["info_slave_data"].get("isolated")]
    return {(a["ifindex"], b["ifindex"]) for a in ports for b in ports if a is not b and a["master"] == b["master"]}


def macs(kernel):
    index = index_of(kernel.links())
    shown = {}
    for entry in kernel.show("fdb", "show", tool="bridge"):
        if "master" in entry and entry["ifname"] in index and entry["master"] in index:
            state = entry["state"]
            shown[(index[entry["master"]], entry.get("vlan", 0), entry["mac"])] = (
                index[entry["ifname"]], state in ("static", "permanent"), state == "permanent")
    return shown


def groups(kernel):
    index = index_of(kernel.links())
    found = set()
    for bridge in kernel.show("mdb", "show", tool="bridge"):
        for entry in bridge.get("mdb", []):
            if ":" not in entry["grp"]:
                found.add((entry["grp"], entry.get("src", "0.0.0.0"), entry.get("vid", 0), index[entry["port"]]))
    return found


def neighbours(kernel, family):
    """Those that are resolved, and the addresses of those that are not."""
    index = index_of(kernel.links())
    resolved, unresolved = {}, []
    for entry in sorted(kernel.show(f"-{family}", "neigh", "show", "nud", "all"), key=lambda e: index[e["dev"]]):
        states = set(entry["state"])
        if "proxy" in entry:
            continue
        if states & RESOLVED:
            resolved.setdefault(entry["dst"], (index[entry["dev"]], entry.get("lladdr", NO_MAC)))
        elif states & UNRESOLVED:
            unresolved.append(entry["dst"])
    return resolved, sorted(unresolved)


def addresses(kernel):
    found = set()
    for link in kernel.show("addr"):
        for info in link["addr_info"]:
            if info["family"] in ("inet", "inet6"):
                secondary = info.get("secondary") or info.get("temporary")
                found.add((link["ifindex"], info["local"], info["prefixlen"], 2 if secondary else 1))
    return found


def ways(route, index, family):
    """Interface and gateway of each way of a route, sorted. An IPv4 route's next hop has no place for an IPv6 gateway."""
    if route.get("type", "unicast") in NOWHERE:
        return ()
    legs = route.get("nexthops") or [route]
    foreign = ":" if family == 4 else "no such thing"
    return tuple(sorted((index[leg["dev"]], "" if foreign in gateway(leg) else gateway(leg)) for leg in legs
                        if "dev" in leg))


def gateway(leg):
    return leg.get("gateway") or leg.get("via", {}).get("host") or ""


def routes(kernel, family):
    """By VPN, prefix and its bits: type, metric and ways of the route that packets of no special type of service take."""
    index = index_of(kernel.links())
    best = {}
    for route in kernel.show(f"-{family}", "route", "show", "table", "all"):
        table = route.get("table", MAIN)
        table = int(TABLES.get(table, table))
        everything = "0.0.0.0/0" if family == 4 else "::/0"
        network = ipaddress.ip_network(everything if route["dst"] == "default" else route["dst"])
        key = (0 if table == MAIN else table, str(network.network_address), network.prefixlen)
        rank = (route.get("tos", "0") not in ("0", "0x00"), route.get("metric", 0))
        if key not in best or rank < best[key][0]:
            best[key] = (rank, (TYPES[route.get("type", "unicast")], route.get("metric", 0), ways(route, index, family)))
    return {key: shown for key, (_, shown) in best.items()}


def object_hops(kernel):
    """Interface and gateway of the next-hop objects, whose family the gateway tells."""
    index = index_of(kernel.links())
    return {entry["id"]: (index[entry["dev"]], gateway(entry)) for entry in kernel.show("nexthop")
            if "dev" in entry and gateway(entry)}


def connections(kernel):
    """By protocol and the four ends of both directions: state, and whether an end is translated."""
    shown = {}
    for line in kernel.run("conntrack", "-L", "-o", "extended", check=False).splitlines():
        words = line.split()
        ends = [re.findall(rf"\b{name}=(\S+)", line) for name in ("src", "dst", "sport", "dport")]
        if len(ends[0]) != 2:
            continue
        protocol = int(words[3])
        numbers = re.findall(r"\bid=(\d+)", line)
        if protocol in (1, 58):
            types = [int(a) << 8 | int(b) for a, b in zip(*(re.findall(rf"\b{n}=(\d+)", line) for n in ("type", "code")))]
            ports = [(int(numbers[i]), types[i]) for i in range(2)]
        else:
            ports = [(int(s), int(d)) for s, d in zip(ends[2] or [0, 0], ends[3] or [0, 0])]
        state = TCP[words[5]] if protocol == 6 else 0
        one, two = [(ends[0][i], ends[1][i], *ports[i]) for i in range(2)]
        shown[(protocol, one, two)] = (state, two[1] != one[0], two[0] != one[1])
    return shown


def kernel_state(kernel):
    resolved4, unresolved4 = neighbours(kernel, 4)
    resolved6, unresolved6 = neighbours(kernel, 6)
    return {"interfaces": interfaces(kernel), "bridges": bridges(kernel), "states": port_states(kernel),
            "isolated": isolated_pairs(kernel), "macs": macs(kernel), "groups": groups(kernel), "arp": resolved4,
            "arp_miss": unresolved4, "nd": resolved6, "nd_miss": unresolved6, "addresses": addresses(kernel),
            "routes4": routes(kernel, 4), "routes6": routes(kernel, 6)}


class Unsettled(Exception):
    """Tables that were read one after the other, while the engine still follows the kernel, contradict each other."""


def hold(together, *records):
    if not together:
        raise Unsettled(f"these do not belong together: {records}")


class Tables:
    """An engine's tables. What combines several of them raises Unsettled while they are being changed."""

    def __init__(self, engine):
        self.engine = engine

    def records(self, table):
        result = self.engine.cli("list", table, "--json")
        assert result.code == 0, result
        answer = json.loads(result.out)
        assert not answer["truncated"], table
        return answer["records"]

    def interfaces(self):
        return {r["if_index"]: (r["enable"], r["down"], r["mtu"], r["source_mac"], r["bridge_id"], r["port_isolate"])
                for r in self.records("fwdif")}

    def macs(self):
        return {(r["bridge_id"], r["vlan_id"], r["mac"]): (r["out_if_index"], r["static"], r["local"])
                for r in self.records("ssw_macinfo")}

    def groups(self):
        return {(r["group"], r["source"], r["vlan_id"], r["fwd_if_index"]) for r in self.records("mc_elb")}

    def neighbours(self, table):
        assert all(r["valid"] and r["fwd_if_index"] == r["ctrl_if_index"] for r in self.records(table))
        return {r["next_hop"]: (r["fwd_if_index"], r["dmac"]) for r in self.records(table)}

    def addresses(self):
        found = set()
        for r in self.records("portip"):
            bits = bin(int(ipaddress.ip_address(r["mask"]))).count("1")
            found.add((r["list_id"], r["address"], bits, r["type"]))
        for r in self.records("ipv6_portip"):
            found.add((r["list_id"], r["address"], r["prefix"], r["type"]))
        heads = {r["fwd_if_index"] for t in ("portip_head", "ipv6_portip_head") for r in self.records(t)}
        hold(heads == {link for link, *_ in found}, heads, found)
        return found

    def misses(self, table):
        return sorted(r["next_hop"] for r in self.records(table))

    def hops(self, family):
        nothing = "0.0.0.0" if family == 4 else "::"
        return {r["index"]: (r["if_index"], "" if r["next_hop"] == nothing else r["next_hop"])
                for r in self.records("nhp" if family == 4 else "ipv6_nhp")}

    def routes(self, family):
        prefix = "" if family == 4 else "ipv6_"
        hops = self.hops(family)
        # Where a reference may lead to several tables, it says to which.
        members = {r["index"]: [m.get(prefix + "nhp", m)["index"] for m in r["primary_next_hops"][:r["primary_count"]]]
                   for r in self.records(prefix + "nhp_group")}
        shown = {}
        for r in self.records(prefix + "fib"):
            bound = r["next_hop"] or {}
            hold("stale" not in json.dumps(bound), r)
            numbers = []
            if prefix + "nhp" in bound:
                numbers = [bound[prefix + "nhp"]["index"]]
                assert numbers == [r["nhp_index"]] and not r["multi_next_hop"], r
            elif bound:
                assert r["multi_next_hop"] and bound[prefix + "nhp_group"]["index"] == r["nhp_index"], r
                hold(r["nhp_index"] in members, r, members)
                numbers = members[r["nhp_index"]]
            hold(hops.keys() >= set(numbers), r, hops)
            shown[(r["vpn"], r["destination"], r["prefix"])] = (
                r["op_code"], r["re_index"], tuple(sorted(hops[n] for n in numbers)))
        return shown

    def connections(self):
        shown = {}
        for r in self.records("session"):
            one, two = [r.get(key) or r[key + "6"] for key in ("positive", "negative")]
            ends = [(e["source"], e["destination"], e["source_port"], e["destination_port"]) for e in (one, two)]
            shown[(one["protocol"], *ends)] = (r["state"], r["nat_source"], r["nat_destination"])
        return shown

    def state(self):
        return {"interfaces": self.interfaces(),
                "bridges": {r["bridge_id"]: r["mac_aging_time"] for r in self.records("bridgeinfo")},
                "states": {r["fwd_if_index"]: r["state"] for r in self.records("port_inst_state")},
                "isolated": {(r["source_if_index"], r["destination_if_index"]) for r in self.records("port_isolate")},
                "macs": self.macs(), "groups": self.groups(), "arp": self.neighbours("arp"),
                "arp_miss": self.misses("arp_miss_cache"), "nd": self.neighbours("nd"),
                "nd_miss": self.misses("nd_miss_cache"),
                "addresses": self.addresses(), "routes4": self.routes(4), "routes6": self.routes(6)}


def differences(expected, shown):
    """What differs, part by part, in a form that a failing test can show."""
    lines = []
    for part, want in expected.items():
        have = shown[part]
        if want == have:
            continue
        if isinstance(want, dict):
            keys = sorted(set(want) | set(have), key=str)
            lines += [f"{part} {k}: kernel {want.get(k)}, engine {have.get(k)}" for k in keys if want.get(k) != have.get(k)]
        else:
            lines.append(f"{part}: kernel only {[x for x in want if x not in have]}, "
                         f"engine only {[x for x in have if x not in want]}")
    return lines
