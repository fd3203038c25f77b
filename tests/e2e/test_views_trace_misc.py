"""The views of traced stations, packet sockets, ARP tests, discard reasons and the tables' memory: whole answers."""

import re
import shutil

import pytest

from conftest import ROOT, nqecli, site_of

FAIL = "search fail"
INVALID = "invalid input param"
EMPTY = "datasize empty or invalid"


def trace(enable, everyone, count, *stations):
    return (f"  Enable :  {enable} \n  IsAll  :  {everyone} \n  StaNum :  {count} \n" +
            "".join(f"  StaMac :  {mac}\n" for mac in stations))


def test_traced_stations(campus):
    stations = trace(1, 0, 2, "02:00:5e:30:00:15", "02:00:5e:30:00:28")
    for keys in ("", "0", "all", "num5", "anna 1 2 3"):
        campus.shows(f"station_trace {keys}", stations)
    campus.refuses("station_trace num0", INVALID)


def test_stations_change_while_the_engine_runs():
    region = "PKT_TRACE_CTX_PTR"
    with site_of("regions: {PKT_TRACE_CTX_PTR: {trace_packets: 1, all_stations: 201, station_count: 1, "
                 "stations: [02:00:5e:00:53:01, 02:00:5e:00:53:02]}}\n") as site:
        first, second = "02:00:5e:00:53:01", "02:00:5e:00:53:02"
        site.shows("station_trace", trace(0, 201, 1, first))

        def change(name, value):
            site.engine.cli("engine", "region", region, name, value).answered(f"{name} {value}\n")

        def shows(text):
            result = site.engine.cli("show", "station_trace")
            assert (result.code, result.out) == (0, "-" * 30 + "\n" + text + "-" * 30 + "\n"), result

        change("trace_stations", "1")
        change("station_count", "2")
        change("all_stations", "0")
        shows(trace(1, 0, 2, first, second))
        change("station_count", "10")
        change("stations[9]", "02:00:5e:00:53:0a")
        ten = [first, second, *["00:00:00:00:00:00"] * 7, "02:00:5e:00:53:0a"]
        shows(trace(1, 0, 10, *ten))
        # There is no place for more: an eleventh shares its bytes with the switches, and the block ends behind it.
        for count in ("11", "12", "127"):
            change("station_count", count)
            shows(trace(1, 0, count, *ten, "00:00:05:00:00:00"))
        # Negative to the engine, shown without a sign.
        for count, shown in (("0", 0), ("-1", 255), ("-128", 128)):
            change("station_count", count)
            shows(trace(1, 0, shown))
        # The copy was made before all this.
        assert nqecli("--snapshot", site.snapshot, "show", "station_trace").out.count(first) == 1


@pytest.mark.parametrize("shape", ["", "  PKT_TRACE_CTX_PTR: {size: 216}\n"])
def test_engine_without_a_whole_trace_block(directory, shape):
    layouts = directory / "layouts"
    shutil.copytree(ROOT / "host" / "layout", layouts, ignore=lambda _, names: [n for n in names if not n.endswith(".yaml")])
    text = (layouts / "regions.yaml").read_text()
    text, count = re.subn(r"  PKT_TRACE_CTX_PTR:\n(    .*\n|\n)+", lambda _: shape, text)
    assert count == 1
    (layouts / "regions.yaml").write_text(text)
    with site_of("trunk: [{trunk_id: 1}]\n", "--layout", layouts) as site:
        site.refuses("station_trace", "search internal error")


def socket(protocol, descriptor, interface):
    return (f"  Ethernet protocol  :  0x{protocol}\n  Fd                 :  {descriptor}\n"
            f"  IfIndex            :  {interface}\n\n")


def test_packet_sockets(campus):
    campus.shows("afpacket_filter 0x0806", socket("806", 17, 208) + socket("806", 23, 201))
    campus.shows("afpacket_filter 0x888e", socket("888e", 19, 101))
    campus.shows("afpacket_filter 0x88CC", socket("88cc", -1, 4294967295))
    campus.refuses("afpacket_filter 0x86dd", EMPTY)
    for key in ("0806", "0x", "0x08", "arp", "0", "all", "num1"):
        campus.refuses(f"afpacket_filter {key}", FAIL)


def test_more_packet_sockets_than_a_batch():
    with site_of("""\
afpacket_filter:
  - {repeat: 120, eth_type: 0xffff, protocol: 4294967295, fd: {from: 2147483647, step: -1}, if_index: {from: 1, step: 1}}
  - {eth_type: 0xff, protocol: 7, fd: -2147483648}
""") as site:
        site.shows("afpacket_filter 0xffff",
                   "".join(socket("ffffffff", 2147483647 - i, 1 + i) for i in range(120)))
        site.shows("afpacket_filter 0x00ff", socket("7", -2147483648, 0))


def test_arp_tests(campus):
    under_way = """\
  Type             :  1
  Interval         :  5
  TestTimes        :  20
  VlanId           :  40
  SrcMac           :  02:00:5e:10:00:99
  DstMac           :  ff:ff:ff:ff:ff:ff
  SrcIp            :  192.0.2.145
  DstIp            :  192.0.2.146
  SentTimes        :  8
  Testing          :  1
  TestSendTimeMs   :  86400123
  TestReplyTimeMs  :  86400121

"""
    # Of the times the lower 32 bits: 4,300,000,000,000 is 1001 times 2^32 and 737,736,704.
    ended = """\
  Type             :  2
  Interval         :  1
  TestTimes        :  10
  VlanId           :  10
  SrcMac           :  02:00:5e:10:00:98
  DstMac           :  02:00:5e:30:00:01
  SrcIp            :  192.0.2.1
  DstIp            :  192.0.2.11
  SentTimes        :  10
  Testing          :  0
  TestSendTimeMs   :  737736704
  TestReplyTimeMs  :  737736707

"""
    campus.shows("arp_simulator all", under_way + ended)
    campus.shows("arp_simulator num1", under_way)
    campus.refuses("arp_simulator", INVALID)
    campus.refuses("arp_simulator 192.0.2.145", INVALID)


def test_more_arp_tests_than_a_batch():
    """As many as the engine has room for; the values are the greatest that there are."""
    with site_of("""\
arp_simulator:
  - {repeat: 64, source: 255.255.255.255, destination: 0.0.0.0, vlan_id: {from: 65535, step: -1},
     dmac: 01:23:45:67:89:ab, type: 65535, smac: fe:dc:ba:98:76:54, interval: 4294967295, test_times: 4294967294,
     sent_times: 4294967293, send_time: 18446744073709551615, reply_time: 4294967296}
""") as site:
        every = [f"""\
  Type             :  65535
  Interval         :  4294967295
  TestTimes        :  4294967294
  VlanId           :  {65535 - i}
  SrcMac           :  fe:dc:ba:98:76:54
  DstMac           :  01:23:45:67:89:ab
  SrcIp            :  255.255.255.255
  DstIp            :  0.0.0.0
  SentTimes        :  4294967293
  Testing          :  0
  TestSendTimeMs   :  4294967295
  TestReplyTimeMs  :  0

""" for i in range(64)]
        site.shows("arp_simulator all", "".join(every))
        site.shows("arp_simulator num60", "".join(every[:60]))


def test_discard_reasons(campus):
    campus.shows("dropid 0", "  Discard Type:  not defined\n")
    campus.shows("dropid 1", "  Discard Type:  arp miss\n")
    campus.shows("dropid 16", "  Discard Type:  Fib miss packets discarded\n")
    campus.shows("dropid 273", "  Discard Type:  host if isolate\n")
    campus.shows("dropid all 1", "  Discard Type:  arp miss\n")
    for reason in (121, 274, 4294967295):  # without a name, behind the last
        campus.refuses(f"dropid {reason}", INVALID)


# Each table's name behind CAP_TABLE_ and its capacity, in order of id; 0 where it is not defined.
TABLES = """
    GLOBAL:1 FIB:8192 NHP:8192 NHP_GROUP:1024 ARP:16384 IPV6_FIB:4096 IPV6_NHP:8192 IPV6_NHP_GROUP:1024 IPV6_ND:16384
    VRF:0 VRF_PORT:0 CTRLIF_MAP:4096 FLOWIF_MAP:4096 TRUNK:64 PORT_IP_HEAD:4096 PORT_IP_LIST:8192 IPV6_PORT_IP_HEAD:4096
    IPV6_PORT_IP_LIST:8192 TUNNEL:0 GRE_TUNNEL:0 IPSEC_SA:0 IPSEC_POLICY:0 VLAN:4096 NAT_ARP_POOL_SECTION:256
    ACL_GROUP:1024 ACL_STAT:32768 MAC:16384 BRIDGE:64 CAPTURE_CFG:8 FWDIF:4096 NAT_ARP_POOL_EXCLUDE:256 NAT_POOL:0
    NAT_SERVER:0 NAT_OUTBOUND:0 NAT_ALG:0 ACL_RULE:16384 MIRROR_OBSERVE:4 ATTACK_SOURCE_DATA:1024 ATTACK_SOURCE_MAC:512
    ATTACK_SOURCE_IP:512 VLAN_BITMAP:4096 PORT_TAG:4096 BROADCAST_ELB:32768 PORT_ISOLATE:4096 NAT_ARP_HOST:1024
    USF_USER:8192 USF_STAT:8192 USF_ROAM:8192 USF_ROAM_AP2STA_ELB:8192 USF_GROUP:0 USF_ISOLATE:0 PORTAL_HTTP_PORT:16
    CAPWAP_DECAP:4096 CAPWAP_TUNNEL:4096 CAR:32768 AF_PACKET_LISTEN:256 USF_MAC_IP:32768 ARP_MISS_CACHE:1024 HOST_ROUTE:0
    REASSEMBLY:0 IPV6_REASSEMBLY:0 PKT_CACHE_STAT:1 CPCAR_PROTOCOL:512 CPCAR_CAUSE:0 SERVER_MAP:1024 SESSION:65536
    ASPF_POLICY:0 SESSION_LIMIT:0 HSEC_GLOBAL_CFG:1 PRIORITY:256 LOCAL_MNG_USER:64 TIMER_STAT:64 ARP_DUP_MAC:1024
    PPPOE_SESSION:0 MODINFO:256 WEB_PROXY_PORTAL:16 GLOBAL_BROADCAST_ELB:4096 MC_ROUTE_PORT_ELB:4096 MC_ELB:8192
    EXCLUDE_MC_ELB:4096 MC2UC_ELB:8192 VAP_TO_STA:8192 DHCP_SNOOPING_BIND:16384 CPCAR_PORT_MAP:256 SESSION_CPCAR:1024
    PFE_VAP_IF_MAP:8192 VAP:0 RADIO:0 MESH_LINK:0 ND_MISS_CACHE:1024 DNS_DOMAIN:1024 DNS_SNOOPING:0 SAC_APP_MAPPING:8192
    SAC_APP_RVS_MAPPING:8192 SAC_APP_GROUP:256 SAC_PROTOCOL_MAPPING:8192 PORT_INSTANCE_STATE:4096 MFIB_DUMMY:1024
    CAUSE:512 SAC_PROFILE:256 SAC_RULE:0 SAC_PRIORITY_MAPPING:8192 SAC_POLICY_CAR:4096 SAC_IF_STAT:256 SAC_USF_STAT:8192
    IOT_PORT:0 WIFI_LOCATION:0 EAP_LOG:8192 ARP_SIMULATOR:64
"""
RULE = "-" * 99 + "\n"
COLUMNS = "TableId    TableName                        Enable     Spec        EntryNum     MemorySize(Bytes)  \n"


def memory(used, total):
    """The whole answer; `used` has entries and bytes of the tables that are not empty."""
    rows = ""
    for table, (name, capacity) in enumerate(word.split(":") for word in TABLES.split()):
        entries, size = used.get(table, (0, 0))
        rows += f"  {table:<9}{'CAP_TABLE_' + name:<35}{int(capacity != '0'):<11}{capacity:<13}{entries:<13}{size}\n"
    assert table == 108
    return RULE + COLUMNS + RULE + rows + RULE + f"Total Table Memory Size: {total} (Bytes)\n" + RULE


def test_memory_of_tables():
    """The bytes as docs/arena.md tells: 8 for each bucket, a spare record, the first heads, log entries and slots."""
    with site_of("""\
global: [{}]
trunk: [{repeat: 3, trunk_id: {from: 1, step: 1}}]
fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0}]
""") as site:
        # What readers of a small table follow has its storage at once, each part at a multiple of 64: index with a
        # spare record, heads, two logs.
        answer = memory({0: (1, 14720 + 64 + 2 * 258 * 16 + 14688),  # one slot, of 16 bytes and 14,672 of record
                         # Its first heads have their storage with the buckets. Of the routes' index its head, the roots of
                         # 1,024 VPNs, and blocks with what removals need.
                         1: (1, 8192 * 8 + 64 + 4096 + 4096 + 16384 + 4096 + 4096 + 32768),
                         13: (3, 1600 + 64 * 32 + 2 * 416 * 16 + 16384)}, 37728 + 131136 + 33344)
        for keys in ([], ["all"], ["num5"], ["x", "1", "2", "3"]):
            site.engine.cli("show", "tbm_memory_stat", *keys).answered(answer)
            nqecli("--snapshot", site.snapshot, "show", "tbm_memory_stat", *keys).answered(answer)
        site.refuses("tbm_memory_stat num101", INVALID)


def test_memory_of_the_site(campus):
    """Entries as the scenario has them; the bytes add up."""
    status = campus.engine.cli("engine", "status")
    counts = {int(table): int(entries) for table, entries in re.findall(r"^table (\d+) +(\d+) of", status.out, re.M)}
    assert counts.items() >= {11: 63, 55: 4, 69: 2, 92: 5, 93: 4, 94: 2, 95: 2, 99: 2, 101: 3, 102: 2, 103: 3, 104: 2,
                              108: 2}.items(), status
    result = campus.engine.cli("show", "tbm_memory_stat")
    sizes = [int(line.split()[-1]) for line in result.out.splitlines() if re.match(r"  \d", line)]
    assert len(sizes) == 109 and all(size > 0 for table, size in enumerate(sizes) if table in counts), result
    answer = memory({table: (entries, sizes[table]) for table, entries in counts.items()}, sum(sizes))
    result.answered(answer)
    nqecli("--snapshot", campus.snapshot, "show", "tbm_memory_stat").answered(answer)


@pytest.mark.parametrize("query, message", [
    ("afpacket_filter 0x0806", EMPTY), ("arp_simulator all", EMPTY), ("arp_simulator num1", EMPTY),
])
def test_empty_tables(query, message):
    with site_of("trunk: [{trunk_id: 1}]\n") as site:
        site.refuses(query, message)
