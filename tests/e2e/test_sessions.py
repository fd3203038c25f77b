"""Sessions and server maps: their diag view, the management commands, and the engine's aging."""

import os
import pty
import re
import subprocess
import threading

import pytest

from conftest import BIN, PATIENCE, nqecli, site_of, view, wait_until

def agent(site, *words):
    """The answer of a management command, which a snapshot gives as well. Seconds that pass are masked."""
    engine = site.engine.cli("agent", *words)
    copy = nqecli("--snapshot", site.snapshot, "agent", *words)
    for result in (engine, copy):
        assert (result.code, result.err) == (0, ""), result
    mask = lambda text: re.sub(r"(left-time: |Left: )[\d:]+", r"\1#", text)
    assert mask(engine.out) == mask(copy.out)
    return engine.out


def sources(answer):
    """The source addresses and ports that a session list shows."""
    return re.findall(r"^ (\S+?)(?:\[\S+\])? <--> ", answer, re.M)


def agent_list(site):
    return site.engine.cli("agent", "query-session", "session-number=255").out


def used(engine, table):
    """Entries of a table as the engine tells them."""
    found = re.search(rf"^table {table}  (\d+) of ", engine.cli("engine", "status").out, re.M)
    return int(found[1]) if found else 0


GUEST = """\
Session POS key:
  PosSrcIp     :  0xc0000247
  PosDstIp     :  0xc6336451
  PosSrcPort   :  40000
  PosDstPort   :  80
  PosProtocol  :  6
Session NEG key:
  NegSrcIp     :  0xc6336451
  NegDstIp     :  0xc0000247
  NegSrcPort   :  80
  NegDstPort   :  40000
  NegProtocol  :  6
SessionNode:
  Valid      :  1
  SessIdx    :  2
  TimeStamp  :  T
  AgingTime  :  36000
  IsIpv6     :  0
HttpsSession:
  SessIdx   :  2
  FwdIfIdx  :  102
  DstMac    :  02:00:5e:10:00:63
  SrcMac    :  02:00:5e:30:00:0b
  VlanId    :  20
  EthType   :  2048
NatSession:
  SessIdx             :  0
  ParentSessionIndex  :  0
  ServerMapIndex      :  0
  PolicyId            :  0
  AgingTime           :  0
  PosNewSip           :  0x00000000
  PosNewDip           :  0x00000000
  PosNewSport         :  0
  PosNewDport         :  0
  NegNewSip           :  0x00000000
  NegNewDip           :  0x00000000
  NegNewSport         :  0
  NegNewDport         :  0
IptablesSession:
  SessIdx             :  2
  DstIp               :  0xc000024e
  DstPort             :  8443
  Rsv1                :  1

"""


@pytest.mark.parametrize("keys", ["192.0.2.71:198.51.100.81 40000 80 6", "198.51.100.81:192.0.2.71 80 40000 6",
                                  "192.0.2.71:198.51.100.81 0 0 6", "198.51.100.81:192.0.2.71", "sip:192.0.2.71",
                                  "dip:192.0.2.71"])
def test_view_of_one_session(campus, keys):
    for result in (campus.engine.cli("show", "session", *keys.split()),
                   nqecli("--snapshot", campus.snapshot, "show", "session", *keys.split())):
        assert result.code == 0, result
        assert re.sub(r"TimeStamp  :  \d+", "TimeStamp  :  T", result.out) == view(GUEST), result


@pytest.mark.parametrize("keys, indexes", [
    ("all", [*range(1, 11), *range(101, 121), 201, 202, 203, 301, 302]),  # 303 has no second key
    ("num5", [1, 2, 3, 4, 5]),
    ("sip:192.0.2.13", [7, 8, 103]),
    ("192.0.2.11:198.51.100.80 51000 443 6", [1]),
])
def test_sessions_of_a_key(campus, keys, indexes):
    answer = campus.engine.cli("show", "session", *keys.split())
    shown = re.findall(r"SessionNode:\n  Valid      :  \d\n  SessIdx    :  (\d+)\n", answer.out)
    assert [int(index) for index in shown] == indexes, answer


@pytest.mark.parametrize("keys", ["192.0.2.71", "sip:192.0.2.71 1 0 0", "dip:192.0.2.71 0 0 6", "num0",
                                  "192.0.2.71:198.51.100.81 0 80 6", "192.0.2.71:198.51.100.82"])
def test_keys_that_no_session_has(campus, keys):
    result = campus.engine.cli("show", "session", *keys.split())
    assert result.code == 1 and result.out.count("\n") == 1, result


def test_session_query(campus):
    assert agent(campus, "query-session", "session-number=1") == """
 tcp VPN: 0 <--> 0 
 192.0.2.11:51000[203.0.113.11:20011] <--> 198.51.100.80:443
 [sac info] appId: 1003, protocolId 12, classId 2

"""
    assert agent(campus, "query-session", "inside-source-ip=192.0.2.177") == """
 sctp VPN: 5 <--> 5 
 192.0.2.177:5060 <--> 198.51.100.90:5061

"""
    assert agent(campus, "query-session", "protocol=141") == """
 unknown(0x8d) VPN: 0 <--> 0 
 198.51.100.1:0 <--> 198.51.100.14:0

"""
    assert agent(campus, "query-session", "type=ipv6", "vpn-id=3") == """
 icmpv6 VPN: 3 <--> 3 
 2001:db8:0:10::a2.3 <--> 2001:db8:9::1.32768
"""
    assert agent(campus, "query-session", "session-number=0") == "Current Total Sessions : 0\n"


def test_verbose_session_query(campus):
    answer = agent(campus, "query-session", "verbose=true", "global-source-port=20011")
    assert re.fullmatch(r"""
 tcp VPN: 0 <--> 0 ID: (a18[0-9a-f]{10}|c18[0-9a-f]{12})1[0-9a-f]{8}000
 Create Time: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d
 Slot: 0 CPU: 0  TTL: 10:00:00  Left: 09:5\d:\d\d
 192\.0\.2\.11:51000\[203\.0\.113\.11:20011\] <--> 198\.51\.100\.80:443
 \[sac info\] appId: 1003, protocolId 12, classId 2

 UpTcpFlow:
 Wscale: 7  Up: 5  Action: 2
 BrakeCount: 3  AccCount: 40  HoldCount: 11
 Cwnd: 14600 Rwnd: 65160 RwndMin: 29200 Seq: 0x1234abcd Ack: 0x0badcafe
""", answer), answer
    assert "TTL: --:--:--  Left: --:--:--" in agent(campus, "query-session", "verbose=true", "protocol=132")


@pytest.mark.parametrize("words, ports", [
    ("", ["51000", "40000", "53012", "7", "5060", "33000", "42000", "20", "0", "0"]),  # ten, the state 1 left out
    ("feature=sac session-number=2", ["51000", "50000"]),
    ("service-id=ftp", ["42000", "20"]),
    ("ingress-ifindex=206", ["5060"]),
    ("egress-ifindex=205", ["33000"]),
    ("inside-destination-port=80 inside-destination-ip=192.0.2.162", ["33000"]),
    ("global-destination-ip=203.0.113.80 global-destination-port=8080", ["33000"]),
    ("global-source-ip=203.0.113.11 global-source-port=20110", ["50000"]),
    ("inside-source-port=42000", ["42000"]),
    ("create-in=255 service-id=http", ["40000", "33000"]),
    ("create-in=255 protocol=132", []),
    ("protocol=99", []),
])
def test_session_filters(campus, words, ports):
    answer = agent(campus, "query-session", *words.split())
    assert [source.rsplit(":", 1)[1] for source in sources(answer)] == ports, answer


@pytest.mark.parametrize("command", ["query-session", "reset-session"])
@pytest.mark.parametrize("parameter", ["global-source-ip", "global-destination-ip", "inside-source-ip",
                                       "inside-destination-ip"])
def test_addresses_that_are_none_are_refused(campus, command, parameter):
    """The library would take them for no filter, and reset every session."""
    before = used(campus.engine, 65)
    for text in ("10.0.0.256", "10.0.0", "2001:db8::zz", "10", "gateway", ""):
        refused = campus.engine.cli("agent", command, "inside-source-port=40000", f"{parameter}={text}")
        assert (refused.code, refused.out, refused.err) == (
            2, "", f'nqecli: "{text}" is no value for "{parameter}" (it takes an IPv4 or IPv6 address)\n'), refused
    assert used(campus.engine, 65) == before


def test_session_statistics(campus):
    assert agent(campus, "session-statistics") == """\
Session statistics:
  Sessions            :  35
  Capacity            :  65536
  Ipv4                :  32
  Ipv6                :  3
  Tcp                 :  8
  Udp                 :  22
  Icmp                :  2
  Other               :  3
  Translated          :  22
  Classified          :  22
  AgingOut            :  0
  ServerMaps          :  8
"""


NAT = """\

 Type: Nat Server,  ANY -> 203.0.113.80:8080[192.0.2.162:80],  protocol:6

 Type: Nat Server,  ANY -> 203.0.113.81[192.0.2.163],  protocol:---

 Type: Nat Server Reverse,  192.0.2.162:80[203.0.113.80:8080] -> ANY,  protocol:6,  counter: 48
"""
NO_PAT = r"""
 vrf: 0, pro: 0, 0x00000000:0 -> 0xcb00715a:0
 zone: 1, type: 15, flag: 0x00000012, ttl: 36000, left-time: 35\d{3}

 vrf: 0, pro: 0, 0xc00002c1:0 -> 0x00000000:0
 zone: 2, type: 1, flag: 0x00000011, ttl: 36000, left-time: 35\d{3}
"""
ASPF = r"""
 vrf: 0, pro: 6, 0xc6336415:20 -> 0xc000020d:42001
 zone: 1, type: 2, flag: 0x00000021, ttl: 36000, left-time: 35\d{3}

 vrf: 5, pro: 17, 0x00000000:0 -> 0xcb00710c:5004
 zone: 1, type: 16, flag: 0x00000022, ttl: 36000, left-time: 3(6000|5\d{3})
"""
OTHER = r"""
 vrf: 7, pro: 17, 0xc6336463:1000 -> 0xc0000214:2000
 zone: 3, type: 21, flag: 0xffffffff
"""


def by_entry(text):
    """The entries of a list in alphabetical order: buckets have no order that matters."""
    return sorted(re.findall(r"\n (?:[^\n]+\n)+", text))


@pytest.mark.parametrize("words, entries", [
    ("type=nat-server", [re.escape(entry) for entry in by_entry(NAT)]),
    ("type=no-pat", by_entry(NO_PAT)),
    ("type=aspf", by_entry(ASPF)),
    ("", [re.escape(entry) for entry in by_entry(NAT)] + by_entry(ASPF + NO_PAT + OTHER)),
    ("type=all ip=198.51.100.99", by_entry(OTHER)),
    ("ip=192.0.2.162", [re.escape(entry) for entry in by_entry(NAT) if "192.0.2.162" in entry]),
    ("type=no-pat ip=203.0.113.90", by_entry(NO_PAT)),
    ("type=aspf ip=192.0.2.12", by_entry(ASPF)[1:]),
    ("type=nat-server ip=192.0.2.12", []),
])
def test_server_maps(campus, words, entries):
    total, _, listing = agent(campus, "query-server-map", *words.split()).partition("\n")
    assert total == "Total servermap number : 8 "
    shown = by_entry(listing)
    assert len(entries) == len(shown), listing
    for entry in entries:
        assert len([one for one in shown if re.fullmatch(entry, one)]) == 1, (entry, listing)


MAP = """\
  - {{type: {0}, source: 0.0.0.0, source_port: 1, destination: {1}, destination_port: 2, vrf: 0, protocol: 6,
     aging_time: 0xffffffff}}
"""
MAPS = [(2, "10.1.0.1"), (0, "10.1.0.1"), (1, "10.1.0.1"), (14, "10.1.0.1"), (15, "10.1.0.1"), (16, "10.1.0.2")]


@pytest.fixture
def lab():
    """Sessions and server maps that only a reset ends."""
    with site_of("""\
session:
  - {repeat: 30, index: {from: 1, step: 1}, valid: 1, aging_time: 65535,
     positive: {source: {from: 10.0.0.1, step: 1}, protocol: 6}, negative: {protocol: 6}}
  - {index: 100, is_ipv6: 1, valid: 1, aging_time: 65535, positive6: {protocol: 17}, negative6: {protocol: 17}}
server_map:
""" + "".join(MAP.format(*one) for one in MAPS)) as site:
        yield site


def told_to_end(result, told):
    assert (result.code, result.out, result.err) == (0, "", told + "\n"), result


def one_ends(lab, command, table, *words):
    """Has one entry end and waits until it has gone: whatever was told to end before it is gone by then as well."""
    left = used(lab.engine, table) - 1
    assert lab.engine.cli("agent", command, *words).code == 0
    wait_until(lambda: used(lab.engine, table) <= left, "the entry to leave")


def one_session_ends(lab):
    one_ends(lab, "reset-session", 65, "inside-source-ip=10.0.0.30")


def test_what_a_reset_would_end(lab):
    before = sources(agent_list(lab))
    for words, number in ((["inside-source-ip=10.0.0.7"], 1), (["protocol=6", "--dry-run"], 30), (["protocol=17"], 0),
                          (["type=ipv6"], 1), ([], 30)):
        result = lab.engine.cli("agent", "reset-session", *words, *(["--dry-run"] if "--dry-run" not in words else []))
        plural = "" if number == 1 else "s"
        assert (result.code, result.err) == (0, f"{number} session{plural} would end\n"), result
        assert len(sources(result.out)) == number, result
    assert "10.0.0.7:" in lab.engine.cli("agent", "reset-session", "inside-source-ip=10.0.0.7", "--dry-run").out
    one_session_ends(lab)
    assert used(lab.engine, 65) == 30
    assert sources(agent_list(lab)) == before[:-1]


@pytest.mark.parametrize("command, what", [("reset-session", "session"), ("reset-server-map", "server map")])
def test_resets_without_a_filter_are_not_done_by_a_slip(lab, command, what):
    wanted = f"without a filter {command} ends every {what} (name a filter, or say --yes; --dry-run tells how many)"
    numbers = used(lab.engine, 64), used(lab.engine, 65)
    lab.engine.cli("agent", command).failed(wanted)
    lab.engine.cli("agent", command, "type=ipv4" if what == "session" else "type=all").failed(wanted)
    # Commands that come on standard input are not answers.
    result = lab.engine.cli("agent", "-", input=f"{command}\ny\n".encode())
    assert result.code == 2 and wanted in result.err, result
    assert on_a_terminal(lab, command, "n") == (2, f"without a filter {command} ends every {what}. Go on? [y/N] ")
    one_session_ends(lab)
    one_ends(lab, "reset-server-map", 64, "type=aspf", "ip=10.1.0.2")
    assert (used(lab.engine, 64) + 1, used(lab.engine, 65) + 1) == numbers


@pytest.mark.parametrize("command, parameter, wanted", [
    ("reset-session", "service-id=gopher",
     "http|dns|ftp|ras|telnet|rtsp|sip|pptp|https|ssh|dns-tcp"),
    ("reset-session", "feature=foo", "sac"),
    ("reset-session", "type=ipv5", "ipv4|ipv6"),
    ("reset-session", "inside-source-ip=192.0.2.0/24", "an IPv4 or IPv6 address"),
    ("reset-server-map", "type=napt", "all|aspf|nat-server|no-pat"),
    ("reset-server-map", "ip=192.0.2", "an IPv4 address"),
    ("reset-server-map", "ip=2001:db8::1", "an IPv4 address"),
    ("reset-session", "protocol=0", "another value than 0, which filters nothing"),
    ("reset-session", "inside-source-ip=0.0.0.0", "another value than 0, which filters nothing"),
    ("reset-session", "global-source-ip=::", "another value than 0, which filters nothing"),
    ("reset-server-map", "ip=0.0.0.0", "another value than 0, which filters nothing"),
])
def test_filters_that_mean_nothing_are_refused(lab, command, parameter, wanted):
    name, value = parameter.split("=")
    for more in ([], ["--dry-run"], ["--yes"]):
        lab.engine.cli("agent", command, parameter, *more).failed(f'"{value}" is no value for "{name}" (it takes {wanted})')


def test_care_is_for_resets(lab):
    for option in ("--dry-run", "--yes"):
        lab.engine.cli("agent", "query-session", option).failed(f"{option} is for reset-session and reset-server-map")


def on_a_terminal(lab, command, reply):
    """Exit code of a command whose standard input is a terminal, and what it has asked."""
    master, slave = pty.openpty()
    tool = subprocess.Popen([BIN / "nqecli", "--arena", lab.engine.arena, "agent", command],
                            stdin=slave, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    os.close(slave)
    os.write(master, reply.encode() + b"\n")
    out, err = tool.communicate(timeout=PATIENCE)
    os.close(master)
    assert out == b""
    return tool.returncode, err.decode().split("nqecli: ")[0]


def test_session_reset(lab):
    def run(told, *words):
        told_to_end(lab.engine.cli("agent", "reset-session", *words), told)

    run("1 session told to end", "inside-source-ip=10.0.0.7")
    wait_until(lambda: used(lab.engine, 65) == 30, "one session to leave")
    assert "10.0.0.7:" not in agent_list(lab)
    run("0 sessions told to end", "protocol=17")
    one_session_ends(lab)
    assert used(lab.engine, 65) == 29  # no IPv4 session has the protocol
    run("28 sessions told to end", "--yes")
    wait_until(lambda: used(lab.engine, 65) == 1, "all of IPv4 to leave")
    run("1 session told to end", "type=ipv6", "--yes")
    wait_until(lambda: used(lab.engine, 65) == 0, "the last session to leave")
    asked = "without a filter reset-session ends every session. Go on? [y/N] "
    assert on_a_terminal(lab, "reset-session", "y") == (0, asked + "0 sessions told to end\n")


def test_a_reset_of_a_snapshot_changes_nothing(lab):
    nqecli("--snapshot", lab.snapshot, "agent", "reset-session").answered("")
    answer = nqecli("--snapshot", lab.snapshot, "agent", "query-session", "session-number=255")
    assert len(sources(answer.out)) == 30
    one_session_ends(lab)
    assert used(lab.engine, 65) == 30


def test_server_map_reset(lab):
    def run(told, *words):
        told_to_end(lab.engine.cli("agent", "reset-server-map", *words), told)

    types = lambda: sorted(re.findall(r"type: (\d+)", lab.engine.cli("agent", "query-server-map").out))
    run("0 server maps told to end", "type=nat-server")
    run("1 server map would end", "type=aspf", "ip=10.1.0.2", "--dry-run")
    run("3 server maps would end", "--dry-run")
    run("1 server map told to end", "type=aspf", "ip=10.1.0.2")
    wait_until(lambda: used(lab.engine, 64) == 5, "one hole to close")
    assert types() == ["1", "15", "2"]
    run("2 server maps told to end", "--yes")
    wait_until(lambda: used(lab.engine, 64) == 3, "what can be reset to leave")
    assert types() == ["1"]


def test_reset_of_65536_sessions_under_a_query():
    with site_of("""\
session:
  - {repeat: 65536, index: {from: 1, step: 1}, valid: 1, aging_time: 65535,
     positive: {source: {from: 10.0.0.0, step: 1}, source_port: 1, destination: 192.0.2.1, destination_port: 2,
                protocol: 6},
     negative: {source: 192.0.2.1, source_port: 2, destination: {from: 10.0.0.0, step: 1}, destination_port: 1,
                protocol: 6}}
""") as site:
        engine = site.engine
        answers = []
        over = threading.Event()

        def query():
            while not over.is_set():
                answers.append(engine.cli("agent", "query-session", "session-number=200"))
                answers.append(engine.cli("show", "session", "sip:10.0.255.255"))

        assert len(sources(agent_list(site))) == 255
        reader = threading.Thread(target=query)
        reader.start()
        try:
            told_to_end(engine.cli("agent", "reset-session", "--yes"), "65536 sessions told to end")
            wait_until(lambda: used(engine, 65) == 0, "all sessions to leave")
        finally:
            over.set()
            reader.join()
        assert len(answers) >= 4
        for answer in answers:
            assert answer.code == 0 or answer.out == "datasize empty or invalid\n", answer
            for source in sources(answer.out):
                assert re.fullmatch(r"10\.0\.\d+\.\d+:1", source), answer
        assert engine.cli("agent", "query-session").out == "Current Total Sessions : 0\n"
        statistics = engine.cli("agent", "session-statistics").out
        assert statistics.startswith("Session statistics:\n  Sessions            :  0\n"), statistics


def test_sessions_age():
    with site_of("""\
session:
  - {index: 1, valid: 1, aging_time: 65535, refreshed: 100000, positive: {source: 10.0.0.1}}
  - {index: 2, valid: 1, aging_time: 0, positive: {source: 10.0.0.2}}
  - {index: 3, valid: 1, aging_time: 3, positive: {source: 10.0.0.3}}
  - {index: 4, valid: 1, aging_time: 600, refreshed: 1, positive: {source: 10.0.0.4}}
  - {index: 5, valid: 0, aging_time: 0}
""") as site:
        wait_until(lambda: used(site.engine, 65) == 3, "two sessions to age")
        assert sources(agent_list(site)) == ["10.0.0.1:0", "10.0.0.4:0"]
