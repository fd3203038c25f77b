"""nqed --linux where a table is full, and where the kernel says less than usual or a whole namespace goes."""

import subprocess

import pytest

from conftest import engine_place, wait_until
from test_linux import can_make_namespaces, mirror, pair  # noqa: F401 (fixtures)

pytestmark = pytest.mark.skipif(not can_make_namespaces(), reason="takes the right to make network namespaces")


@pytest.mark.parametrize("capacity, first, last", [
    # The next hops of lo, v0 and v1, and one more.
    ("nhp=4", "route add 10.60.0.0/16 via 10.0.0.3",
     "route add 10.61.0.0/16 via 10.0.0.4\nroute add 10.62.0.0/16 nexthop via 10.0.0.4 nexthop via 10.0.0.4"),
    ("nhp_group=1", "route add 10.60.0.0/16 nexthop via 10.0.0.3 nexthop via 10.0.1.3",
     "route add 10.61.0.0/16 nexthop via 10.0.0.4 nexthop via 10.0.1.4"),
    ("ipv6_nhp_group=1", "-6 route add 2001:db8:60::/48 nexthop via 2001:db8::3 nexthop via 2001:db8::4",
     "-6 route add 2001:db8:61::/48 nexthop via 2001:db8::5 nexthop via 2001:db8::6"),
])
def test_routes_lead_to_next_hops_that_have_found_room(pair, capacity, first, last):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--capacity", capacity]
        pair.engine = place.start()
        pair.near.ip(first)
        pair.settle()
        pair.near.ip(last)
        wait_until(lambda: " times, as tables were full\n" in place.cli("engine", "status").out, "the count")
        pair.near.ip(first.replace(" add ", " del "))
        pair.settle()
        place.stop()


@pytest.mark.parametrize("capacity", ["portip=1", "ipv6_portip=1"])
def test_a_list_of_addresses_that_found_no_room_has_no_head(pair, capacity):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--capacity", capacity]
        pair.engine = place.start()
        table = capacity.removesuffix("=1")
        head, = pair.tables().records(table + "_head")
        address, = pair.tables().records(table)
        assert head["list_id"] == address["list_id"]
        pair.near.run("sh", "-c", "ip link set lo down; for i in lo v0 v1 v2; do ip addr flush dev $i; done")
        pair.settle()
        place.stop()


def test_a_full_map_of_numbers_is_counted(pair):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--capacity", "ctrlif_map_fwdif=1"]
        pair.engine = place.start()
        wait_until(lambda: " times, as tables were full\n" in place.cli("engine", "status").out, "the count")
        place.stop()


def test_an_object_that_leads_nowhere_and_somewhere_again_in_silence(mirror):
    mirror.near.run("sysctl", "-qw", "net.ipv4.nexthop_compat_mode=0")
    mirror.near.ip("nexthop add id 1 blackhole\nroute add 10.60.0.0/16 nhid 1")

    def shown():
        record, = [r for r in mirror.tables().records("fib") if r["destination"] == "10.60.0.0"]
        hop = record["next_hop"] or {}
        return record["op_code"], record["direct"], hop.get("nhp", {}).get("index", 0) == record["nhp_index"]

    for change, expected in (("blackhole", (6, 0, True)), ("via 10.0.0.3 dev v0", (1, 0, True)),
                             ("dev v0", (1, 1, True)), ("via 10.0.0.4 dev v0", (1, 0, True)), ("blackhole", (6, 0, True))):
        mirror.near.ip(f"nexthop replace id 1 {change}")
        wait_until(lambda: shown() == expected, change)


def test_a_namespace_that_only_a_process_stands_for_disappears_with_it():
    with engine_place() as place:
        holder = subprocess.Popen(["unshare", "--net", "cat"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        try:
            holder.stdin.write(b"on\n")
            holder.stdin.flush()
            assert holder.stdout.readline() == b"on\n"  # the process is in its namespace
            place.linux = ["--linux", "--netns", f"/proc/{holder.pid}/ns/net"]
            place.start()
            assert place.cli("engine", "status").out.count("CAP_TABLE_FWDIF") == 1
        finally:
            holder.communicate()
        wait_until(lambda: "tables    0 in use" in place.cli("engine", "status").out, "the tables to be empty")
        place.stop()


def test_a_namespace_that_disappears_takes_what_is_captured_there_along(pair):
    with engine_place() as place:
        place.linux = ["--linux", "--netns", pair.near.name, "--capture", "v0", "--capture", "v1"]
        said = place.directory / "stderr"
        with open(said, "wb") as stderr:
            place.start(stderr=stderr)
        subprocess.run(["ip", "netns", "del", pair.near.name], check=True)
        # The other ends go when nothing keeps the namespace alive.
        wait_until(lambda: [link["ifname"] for link in pair.far.links()] == ["lo"], "the links to go")
        assert said.read_text().splitlines() == [
            f"nqed: --capture {link}: the network namespace is gone; the engine goes on without its packets"
            for link in ("v0", "v1")]
        assert place.cli("engine", "status").code == 0
        assert place.end()[0] == 0
