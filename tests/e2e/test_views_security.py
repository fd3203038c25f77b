"""The views of host security and of the rate limits, and the clearing of their counters. Whole answers, from the engine
and from a snapshot of it."""

import platform

import pytest

from conftest import nqecli, site_of, view

NOT_FOUND = "search result not found"
EMPTY = "datasize empty or invalid"
INVALID = "invalid input param"
UNSUPPORTED = "search is not supported"
FAIL = "search fail"

# Rates are shown by the processor's timer, whose frequency is 1 GHz everywhere but on AArch64.
timer_of_1_ghz = pytest.mark.skipif(platform.machine() == "aarch64", reason="the timer has a frequency of its own")

SCENARIO = """\
attack_smac:
  - {mac: 02:00:5e:00:53:01}
  - {mac: fe:dc:ba:98:76:54}

attack_sip:
  - {address: 192.0.2.1}
  - {address: 255.255.255.254}
  - {address: 0.0.0.0}

attack_sdata:
  - {address: 192.0.2.11, mac: 02:00:5e:00:53:11, last_second: 4000000001, last_count: 4000000002,
     last_alarm_second: 4000000003, published: 4000000004, total_count: 18446744073709551605, penalty_cycles: 4000000006,
     alarm_cycles: 4000000007}
  - {address: 198.51.100.12, mac: 02:00:5e:00:53:12, last_second: 21, last_count: 22, last_alarm_second: 23, published: 1,
     total_count: 25, penalty_cycles: 26, alarm_cycles: 27}

hsec_global_cfg:
  - penalty: 1
    defend_type: 201
    alarm_threshold: 60001
    penalty_threshold: 60002
    session_car_cause_min: 60003
    session_car_cause_max: 60004
    blacklist_group_type: 60005
    blacklist_group_id: 4000000001
    tcp_syn_attack: 1
    icmp_attack: 1
    fragment_attack: 1
    tcp_syn_car_id: 4000000002
    icmp_car_id: 4000000003
    fragment_car_id: 4000000004
    host_cpcar_dhcp: 1
    host_cpcar_pps: 4000000005
    mac_car_ids: {0: 500, 103: 65535, 19: 1234, 127: 627}
    total_cpcar: 1
    total_cpcar_car_id: 60006

car:
  - {car_id: 7, cir_offset: 2, pir_offset: 3, type: 254, lock_held: -1, lock_pid: 4711, lock_id: -2147483648,
     timestamp: 18446744073709551615, tc: 10000000002, tp_te: 10000000003, cir: 4294967296, cbs: 10000000005,
     pir: 53687092, pbs_ebs: 10000000007, ctrl_cbs: 10000000008, ctrl_pbs_ebs: 10000000009, green_permit: 1,
     red_permit: 1, pass_packets: 9223372036854775807, pass_bytes: -2, drop_packets: 10000000010, drop_bytes: -10000000011}
  # 2^45 * 10^6 needs 65 bits; of the product 2^45 * 10^6 mod 2^64 the upper half is shown
  - {car_id: 8, cir: 35184372088832, pir: 18446744073709551615}
  - {car_id: 4294967295, packet_mode: 1, cir_offset: 1, type: 3, cbs: 18446744069414584325, yellow_permit: 1,
     drop_packets: 17}
  - {repeat: 60, car_id: {from: 1001, step: 1}, packet_mode: 1, cbs: {from: 4294967296, step: 4294967296}}

cpcar_pro:
  - {protocol: 0, wireless: 0, car_id: 1001, priority: 4000000001, pass_packets: 70100, drop_packets: 12}
  - {protocol: 0, wireless: 1, car_id: 1002, priority: 2, pass_packets: 4294967295, drop_packets: 2147483648}
  - {protocol: 254, wireless: 0, car_id: 1003}
  - {protocol: 65535, wireless: 65534, car_id: 1060, priority: 7, pass_packets: 1}

session_cpcar:
  - {source: 192.0.2.21, destination: 198.51.100.22, src_port: 65535, dst_port: 443, protocol: 255, car_id: 4294967295}
  - {source: 192.0.2.31, destination: 198.51.100.32, src_port: 50000, dst_port: 22, protocol: 6, car_id: 77}

cpcar_port_map:
  - {port: 65535, protocol: 255, is_source: 254, host_protocol: 65534}
  - {port: 53, protocol: 17, is_source: 1, host_protocol: 12}
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


SMAC = ["  SrcMac  :  02:00:5e:00:53:01\n", "  SrcMac  :  fe:dc:ba:98:76:54\n"]
SIP = ["  SrcIp  :  192.0.2.1\n", "  SrcIp  :  255.255.255.254\n", "  SrcIp  :  0.0.0.0\n"]
SDATA = ["""\
  Ipv4Addr        :  192.0.2.11
  Mac             :  02:00:5e:00:53:11
  LastSec         :  4000000001
  LastCount       :  4000000002
  LastAlarmSec    :  4000000003
  MsgPubFlag      :  4000000004
  TotalCount      :  18446744073709551605
  PenaltyCycleCnt :  4000000006
  AlarmCycleCnt   :  4000000007

""", """\
  Ipv4Addr        :  198.51.100.12
  Mac             :  02:00:5e:00:53:12
  LastSec         :  21
  LastCount       :  22
  LastAlarmSec    :  23
  MsgPubFlag      :  1
  TotalCount      :  25
  PenaltyCycleCnt :  26
  AlarmCycleCnt   :  27

"""]
SESSIONS = ["""\
  Sip      :  192.0.2.21
  Dip      :  198.51.100.22
  Sport    :  65535
  Dport    :  443
  Protocol :  255
  CarId    :  -1

""", """\
  Sip      :  192.0.2.31
  Dip      :  198.51.100.32
  Sport    :  50000
  Dport    :  22
  Protocol :  6
  CarId    :  77

"""]
PORTS = ["""\
  PortId       :  65535
  Protocol     :  255
  isSrc        :  254
  hostType     :  65534

""", """\
  PortId       :  53
  Protocol     :  17
  isSrc        :  1
  hostType     :  12

"""]


@pytest.mark.parametrize("name, records", [
    ("attack_smac", SMAC), ("attack_sip", SIP), ("attack_sdata", SDATA), ("session_cpcar", SESSIONS),
    ("cpcar_port_map", PORTS)])
def test_lists(site, name, records):
    site.shows(f"{name} all", "".join(records))
    site.shows(f"{name} num1", records[0])
    site.shows(f"{name} num2", "".join(records[:2]))
    site.shows(f"{name} num100", "".join(records))
    # They have no keys.
    for keys in ("0", "02:00:5e:00:53:01", "192.0.2.1", "ALL", "num0", "num101", "number"):
        site.refuses(f"{name} {keys}", INVALID)


@pytest.mark.parametrize("name", ["attack_smac", "attack_sip", "attack_sdata", "session_cpcar", "cpcar_port_map",
                                  "cpcar_pro", "cpcar_pro_pps"])
def test_empty_lists(name):
    with site_of("ctrlif_map_fwdif: []\n") as site:
        site.refuses(f"{name} all", EMPTY)
        site.refuses(f"{name} num7", EMPTY)


def test_more_than_one_batch():
    with site_of("attack_sip:\n  - {repeat: 120, address: {from: 192.0.2.1, step: 1}}\n") as site:
        lines = [f"  SrcIp  :  192.0.2.{i}\n" for i in range(1, 121)]
        site.shows("attack_sip all", "".join(lines))
        site.shows("attack_sip num50", "".join(lines[:50]))
        site.shows("attack_sip num51", "".join(lines[:51]))
        site.shows("attack_sip num100", "".join(lines[:100]))


def test_host_security(site):
    text = """\
Attack Src:
  AlarmEnable       :  0
  PenaltyEnable     :  1
  DefendType        :  201
  AlarmThres        :  60001
  PenaltyThres      :  60002
  SessCarCauseIdMin :  60003
  SessCarCauseIdMax :  60004
Blacklist:
  AclGrpType       :  60005
  AclGrpId         :  4000000001
Anti Attack:
  TcpSyncAtkFlag   :  1
  UdpAtkFlag       :  0
  IcmpAtkFlag      :  1
  AbnormalAtkFlag  :  0
  FragmentAtkFlag  :  1
  TcpSyncAtkCarId  :  4000000002
  IcmpAtkCarId     :  4000000003
  FragmentAtkCarId :  4000000004
Host CpCar:
  HostCpCarArpFlag   :  0
  HostCpCarDhcpFlag  :  1
  HostCpCar8021XFlag :  0
  Pps                :  4000000005
Total CpCar:
  Enable :  1
  CarId  :  60006
"""
    site.shows("hsec_global_cfg", text)
    site.shows("hsec_global_cfg all", text)  # there is only the one
    site.shows("hsec_global_cfg num3 4 5 6", text)


@pytest.mark.parametrize("mac, car", [
    # The lower seven bits of CRC-32C without its last inversion, worked out with a program of their own.
    ("02:00:5e:00:53:01", 65535),  # 103
    ("02:00:5e:00:53:02", 1234),  # 19
    ("02:00:5e:30:00:0b", 0),  # 93
])
def test_car_of_a_mac_address(site, mac, car):
    site.shows(f"mac_carId {mac}", f"  CarId       :  {car}\n")


def test_car_of_no_mac_address(site):
    for key in ("0", "all", "02:00:5e:00:53", "02:00:5e:00:53:", "02-00-5e-00-53-01"):
        site.refuses(f"mac_carId {key}", UNSUPPORTED)


def test_without_host_security_record():
    with site_of("ctrlif_map_fwdif: []\n") as site:
        site.refuses("hsec_global_cfg", NOT_FOUND)
        site.refuses("mac_carId 02:00:5e:00:53:01", NOT_FOUND)
        site.refuses("mac_carId 02:00:5e:00:53", UNSUPPORTED)


@timer_of_1_ghz
def test_car_that_counts_bytes(site):
    site.shows("car 7", """\
CarCfg:
  PktNumOrPktLen     :  0
  CirOffset          :  2
  CarType            :  254
  SpinLock.locked    :  -1
  SpinLock.pid       :  4711
  SpinLock.lockId    :  -2147483648
  Timestamp          :  18446744073709551615
  Tc                 :  10000000002
  TpTe               :  10000000003
  Cir                :  4294967296
  Cbs                :  10000000005
  Pir                :  53687092
  PbsEbs             :  10000000007
  CtrlCir            :  1000000
  CtrlCbs            :  10000000008
  CtrlPir            :  12500
  CtrlPbsEbs         :  10000000009
  CirOffset          :  2
  PirOffset          :  3
CarAction:
  GreenActionPermit  :  1
  YellowActionPermit :  0
  RedActionPermit    :  1
CarStat:
  PassStatPkt        :  9223372036854775807
  PassStatByte       :  -2
  DropStatPkt        :  10000000010
  DropStatByte       :  -10000000011
""")


@timer_of_1_ghz
def test_car_whose_rates_lose_upper_bits(site):
    # 2^45 * 10^6 = 2^51 * 15625, of which 2^51 * (15625 mod 2^13 = 7433) is left: 7433 * 2^19 after the shift.
    # (2^64 - 1) * 10^6 leaves 2^64 - 10^6, whose upper half is 2^32 - 1.
    site.shows("car 8", """\
CarCfg:
  PktNumOrPktLen     :  0
  CirOffset          :  0
  CarType            :  0
  SpinLock.locked    :  0
  SpinLock.pid       :  0
  SpinLock.lockId    :  0
  Timestamp          :  0
  Tc                 :  0
  TpTe               :  0
  Cir                :  35184372088832
  Cbs                :  0
  Pir                :  18446744073709551615
  PbsEbs             :  0
  CtrlCir            :  3897032704
  CtrlCbs            :  0
  CtrlPir            :  4294967295
  CtrlPbsEbs         :  0
  CirOffset          :  0
  PirOffset          :  0
CarAction:
  GreenActionPermit  :  0
  YellowActionPermit :  0
  RedActionPermit    :  0
CarStat:
  PassStatPkt        :  0
  PassStatByte       :  0
  DropStatPkt        :  0
  DropStatByte       :  0
""")


def test_car_that_counts_packets(site):
    # 0xffffffff00000005: the upper half is the limit
    text = """\
CarCfg:
  PktNumOrPktLen     :  1
  CirOffset          :  1
  CarType            :  3
  SpinLock.locked    :  0
  SpinLock.pid       :  0
  SpinLock.lockId    :  0
  Timestamp          :  0
  Tc                 :  0
  TpTe               :  0
  Cir                :  0
  Cbs                :  18446744069414584325
  Pir                :  0
  PbsEbs             :  0
  Pps                :  4294967295
CarAction:
  GreenActionPermit  :  0
  YellowActionPermit :  1
  RedActionPermit    :  0
CarStat:
  PassStatPkt        :  0
  PassStatByte       :  0
  DropStatPkt        :  17
  DropStatByte       :  0
"""
    site.shows("car 4294967295", text)
    site.shows("car all 4294967295", text)  # always one by its key


def test_car_that_is_not_there(site):
    site.refuses("car 9", NOT_FOUND)
    site.refuses("car all 0", NOT_FOUND)


def cpcar(protocol, name, wireless, priority, car, passed, dropped):
    return (f"  HostProType     :  {protocol}\n  HostProName     :  {name}\n  Wireless        :  {wireless}\n"
            f"  Priority        :  {priority}\n  CarId           :  {car}\n  TotalCarPassPkt :  {passed}\n"
            f"  TotalCarDropPkt :  {dropped}\n\n")


CPCARS = [
    cpcar(0, "arp-request", 0, 4000000001, 1001, 70100, 12),
    cpcar(0, "arp-request", 1, 2, 1002, -1, -2147483648),
    cpcar(254, "", 0, 0, 1003, 0, 0),
    cpcar(65535, "", 65534, 7, 1060, 1, 0),
]


def pps(protocol, name, wireless, limit):
    return (f"  HostProType    :  {protocol}\n  HostProName    :  {name}\n  Wireless       :  {wireless}\n"
            f"  Pps            :  {limit}\n\n")


LIMITS = [pps(0, "arp-request", 0, 1), pps(0, "arp-request", 1, 2), pps(254, "", 0, 3), pps(65535, "", 65534, 60)]


@pytest.mark.parametrize("name, records", [("cpcar_pro", CPCARS), ("cpcar_pro_pps", LIMITS)])
def test_cpcar(site, name, records):
    site.shows(f"{name} 0 0 0", records[0])
    site.shows(f"{name} 0 0 1", records[1])
    site.shows(f"{name} 0 65536 65537", records[1])  # 16 bits of each
    site.shows(f"{name} arp-request 0 0", records[0])
    site.shows(f"{name} arp-request 8 1", records[1])  # the name counts
    site.shows(f"{name} 0 254 0", records[2])
    site.shows(f"{name} all", "".join(records))
    site.shows(f"{name} num3", "".join(records[:3]))
    site.refuses(f"{name} 0 1 0", NOT_FOUND)
    site.refuses(f"{name} dns 0 0", NOT_FOUND)  # a protocol without a limit
    site.refuses(f"{name} no-protocol 0 0", FAIL)
    site.refuses(f"{name} ARP-REQUEST 0 0", FAIL)
    site.refuses(f"{name} num0", INVALID)


def test_cpcar_without_its_car():
    with site_of("cpcar_pro:\n  - {protocol: 12, wireless: 0, car_id: 5}\n  - {protocol: 13, wireless: 0, car_id: 6}\n"
                 "car:\n  - {car_id: 5, packet_mode: 1, cbs: 0x6300000000}\n") as site:
        site.shows("cpcar_pro_pps dns", pps(12, "dns", 0, 99))
        site.refuses("cpcar_pro_pps icmp", NOT_FOUND)
        site.refuses("cpcar_pro_pps all", NOT_FOUND)
        site.shows("cpcar_pro all", cpcar(12, "dns", 0, 0, 5, 0, 0) + cpcar(13, "icmp", 0, 0, 6, 0, 0))


def test_clearing():
    with site_of(SCENARIO) as site:
        engine = site.engine
        engine.cli("show", "cpcar_pro", "all").answered(view("".join(CPCARS)))
        engine.cli("diag", "clear", "cpcar", "status").answered("")
        cleared = [
            cpcar(0, "arp-request", 0, 4000000001, 1001, 0, 0),
            cpcar(0, "arp-request", 1, 2, 1002, 0, 0),
            cpcar(254, "", 0, 0, 1003, 0, 0),
            cpcar(65535, "", 65534, 7, 1060, 0, 0),
        ]
        engine.cli("show", "cpcar_pro", "all").answered(view("".join(cleared)))
        engine.cli("show", "cpcar_pro", "0", "0", "1").answered(view(cleared[1]))
        # The limits themselves stay, and so do the counters of the rate limits that others use as well.
        engine.cli("show", "cpcar_pro_pps", "all").answered(view("".join(LIMITS)))
        assert "DropStatPkt        :  17\n" in engine.cli("show", "car", "4294967295").out
        # Over the engine's own command line, and with nothing left to clear.
        client = engine.client()
        assert client.ask("clear cpcar") == (0, "cpcar statistics cleared: 4 entries\n")
        assert client.ask("diag clear cpcar status") == (0, "")
        client.close()


def test_a_snapshot_cannot_be_cleared():
    with site_of(SCENARIO) as site:
        nqecli("--snapshot", site.snapshot, "diag", "clear", "cpcar", "status").failed("a saved arena has none")
        site.shows("cpcar_pro all", "".join(CPCARS))  # neither the copy nor the engine was touched


def test_campus(campus):
    campus.shows("attack_smac all", "  SrcMac  :  02:00:5e:30:00:0d\n  SrcMac  :  02:00:5e:30:00:2a\n")
    campus.shows("cpcar_pro 8021x 0 1", cpcar(32, "8021x", 1, 5, 803, 960, 1))
    campus.shows("cpcar_pro_pps capwap-control", pps(35, "capwap-control", 0, 1024))
    campus.shows("mac_carId 02:00:5e:30:00:0b", "  CarId       :  821\n")  # the first guest
    campus.shows("mac_carId 02:00:5e:30:00:56", "  CarId       :  821\n")  # whoever hashes alike shares its limit
    campus.shows("mac_carId 02:00:5e:30:00:0c", "  CarId       :  822\n")
    campus.shows("session_cpcar num1", """\
  Sip      :  198.51.100.2
  Dip      :  198.51.100.14
  Sport    :  51022
  Dport    :  22
  Protocol :  6
  CarId    :  804

""")
    campus.shows("cpcar_port_map num1", "  PortId       :  5246\n  Protocol     :  17\n  isSrc        :  0\n"
                 "  hostType     :  35\n\n")
