"""The wireless users' views on examples/campus.yaml: whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
INVALID = "invalid input param"
EMPTY = "datasize empty or invalid"
UNSUPPORTED = "search is not supported"

# A record in which nothing is set. Other answers are told by the lines in which they differ.
BARE = """\
UsfUserIngressSvc:
  IngCarEn           :  0
  IngStatEn          :  0
  IngPortalPushEn    :  0
  IngIpv4AuthAclEn   :  0
  IngIpv6AuthAclEn   :  0
  Ipv4RedirectAclEn  :  0
  Ipv6RedirectAclEn  :  0
  IngRmkDscpEn       :  0
  IngRmk8021pEn      :  0
  IngRmkLpEn         :  0
  StaFloodBlacklist  :  0
  McFloodEn          :  0
  IngSacEn           :  0
UsfUserEgressSvc:
  EgrCarEn          :  0
  EgrStatEn         :  0
  EgrIpv4AuthAclEn  :  0
  EgrIpv6AuthAclEn  :  0
  InnerIsolateEn    :  0
  InterIsolateEn    :  0
  EgrRmkDscpEn      :  0
  EgrRmk8021pEn     :  0
  EgrRmkLpEn        :  0
  EgrSacEn          :  0
UsfUserSvcParam:
  IngCarId            :  0
  EgrCarId            :  0
  StatId              :  0
  IngIpv4AuthAclGid   :  0
  IngIpv6AuthAclGid   :  0
  EgrIpv4AuthAclGid   :  0
  EgrIpv6AuthAclGid   :  0
  Ipv4RedirectAclGid  :  0
  Ipv6RedirectAclGid  :  0
  IngNewRmkDscp       :  0
  IngNewRmk8021p      :  0
  IngNewRmkLp         :  0
  EgrNewRmkDscp       :  0
  EgrNewRmk8021p      :  0
  EgrNewRmkLp         :  0
  AuthVlanEn          :  0
  AuthVlan            :  0
  DenyPushEn          :  0
  UserGroupEn         :  0
  UserVipFlag         :  0
  UserRoamFlag        :  0
  WifiUserGlobalId    :  0
  ShrinkUpQueueEn     :  0
  Tid6DowngradeEn     :  0
  UserPreRoamIpv4Addr :  0x0
  NeedSendUpMsg       :  0
  UserGroupId         :  0
  UserPktCacheType    :  0
  PeerId              :  0
  PfeVapIdx           :  0
  SessionInfo         :  0
  PqmEn               :  0
  SacRemarkDefaultEn  :  0
  SacId               :  0
  SacStatEn           :  0
  NormalSendTime      :  0
  McbcCarId-OTH-BC    :  0
  McbcCarId-OTH-MC    :  0
  McbcCarId-ARP       :  0
  McbcCarId-IGMP      :  0
  McbcCarId-ND        :  0
  McbcCarId-DHCP      :  0
  McbcCarId-DHCPV6    :  0
  McbcCarId-MDNS      :  0
  TcpWndTurnAct       :  0,0,0,0,0,0,0,0
UsfUserAuth:
  AuthStatus           :  0
  PreAuth              :  0
  DenyAll              :  0
  HttpSendToL4         :  0
  PortalEscape         :  0
  Ipv4PreAuthAclEn     :  0
  Ipv6PreAuthAclEn     :  0
  CheckUserIp          :  0
  DenyArpEn            :  0
  Ipv4PreAuthAclGid    :  0
  Ipv6PreAuthAclGid    :  0
  UserIpv4Addr         :  0.0.0.0
  MngUserIpv4Addr      :  0.0.0.0
  ParseEapLog          :  0
  EapLogReported       :  0
Ipv4Stat:
  InPassStatPkt        :  0
  InPassStatByte       :  0
  EgrPassStatPkt       :  0
  EgrPassStatByte      :  0
  InUnicastPackets     :  0
  InMulticastPackets   :  0
  InBroadcastPackets   :  0
  OutUnicastPackets    :  0
  OutMulticastPackets  :  0
  OutBroadcastPackets  :  0
Ipv6Stat:
  InPassStatPkt        :  0
  InPassStatByte       :  0
  EgrPassStatPkt       :  0
  EgrPassStatByte      :  0
  InUnicastPackets     :  0
  InMulticastPackets   :  0
  InBroadcastPackets   :  0
  OutUnicastPackets    :  0
  OutMulticastPackets  :  0
  OutBroadcastPackets  :  0
UsfIpLearn:
  userIp:      0x00000000
"""


def user(**changed):
    """BARE with other values: label and value, with _ for - in labels."""
    text = BARE
    for label, value in changed.items():
        start = text.index(f"\n  {label.replace('_', '-')} ") + 1
        end = text.index("\n", start)
        line = text[start:end]
        text = text[:start] + line[:line.rindex(" ") + 1] + str(value) + text[end:]
    return text


# The sums of four blocks each; InUnicastPackets has counted past 32 bits.
STAFF_COUNTERS = """\
Ipv4Stat:
  InPassStatPkt        :  4
  InPassStatByte       :  11000000000
  EgrPassStatPkt       :  30
  EgrPassStatByte      :  40002
  InUnicastPackets     :  0
  InMulticastPackets   :  2
  InBroadcastPackets   :  3
  OutUnicastPackets    :  4
  OutMulticastPackets  :  5
  OutBroadcastPackets  :  6
Ipv6Stat:
  InPassStatPkt        :  11
  InPassStatByte       :  1200
  EgrPassStatPkt       :  13
  EgrPassStatByte      :  1400
  InUnicastPackets     :  7
  InMulticastPackets   :  8
  InBroadcastPackets   :  9
  OutUnicastPackets    :  10
  OutMulticastPackets  :  11
  OutBroadcastPackets  :  42
UsfIpLearn:
  userIp:      0x{learnt:08x}
"""


def staff(i, learnt):
    text = user(
        IngCarEn=1, IngStatEn=1, IngIpv4AuthAclEn=1, IngIpv6AuthAclEn=1, Ipv4RedirectAclEn=1, Ipv6RedirectAclEn=1,
        IngRmkDscpEn=1, IngRmk8021pEn=1, IngRmkLpEn=1, IngSacEn=1, EgrCarEn=1, EgrStatEn=1, EgrIpv4AuthAclEn=1,
        EgrIpv6AuthAclEn=1, EgrRmkDscpEn=1, EgrRmk8021pEn=1, EgrRmkLpEn=1, EgrSacEn=1, IngCarId=900 + i, EgrCarId=950 + i,
        StatId=100 + i, IngIpv4AuthAclGid=3002, IngIpv6AuthAclGid=3601, EgrIpv4AuthAclGid=3012, EgrIpv6AuthAclGid=3611,
        Ipv4RedirectAclGid=3022, Ipv6RedirectAclGid=3621, IngNewRmkDscp=46, IngNewRmk8021p=5, IngNewRmkLp=6,
        EgrNewRmkDscp=34, EgrNewRmk8021p=4, EgrNewRmkLp=3, AuthVlanEn=1, AuthVlan=10, UserGroupEn=1, UserVipFlag=1,
        WifiUserGlobalId=i, UserGroupId=17, UserPktCacheType=2, PeerId=i, SessionInfo=12, PqmEn=1, SacRemarkDefaultEn=1,
        SacId=1, SacStatEn=1, NormalSendTime=86400123456789, McbcCarId_OTH_BC=701, McbcCarId_OTH_MC=702, McbcCarId_ARP=703,
        McbcCarId_IGMP=704, McbcCarId_ND=705, McbcCarId_DHCP=706, McbcCarId_DHCPV6=707, McbcCarId_MDNS=708,
        TcpWndTurnAct="1,2,3,4,5,6,7,8", AuthStatus=1, CheckUserIp=1, UserIpv4Addr=f"192.0.2.{10 + i}", ParseEapLog=1)
    return text[:text.index("Ipv4Stat:")] + STAFF_COUNTERS.format(learnt=learnt)


def test_staff(campus):
    campus.shows("usf_user 02:00:5e:30:00:01", staff(1, 0xc000020b))
    campus.shows("usf_user 02:00:5e:30:00:0a", staff(10, 0xc0000214))


def test_guests(campus):
    text = user(IngPortalPushEn=1, StaFloodBlacklist=129, InnerIsolateEn=1, InterIsolateEn=1, StatId=112, AuthVlan=20,
                WifiUserGlobalId=12, UserGroupId=18, PeerId=12, PfeVapIdx=1, PreAuth=1, HttpSendToL4=1, Ipv4PreAuthAclEn=1,
                Ipv6PreAuthAclEn=1, Ipv4PreAuthAclGid=6001, Ipv6PreAuthAclGid=6601, UserIpv4Addr="192.0.2.72")
    campus.shows("usf_user 02:00:5e:30:00:0c", text.replace("0x00000000", "0xc0000248"))
    campus.shows("usf_user 02:00:5e:30:00:27", user(StatId=139, PeerId=39, PfeVapIdx=3, PortalEscape=1,
                                                    UserIpv4Addr="192.0.2.89"))
    campus.shows("usf_user 02:00:5e:30:00:28", user(StatId=140, PeerId=40, PfeVapIdx=3, DenyPushEn=1, DenyAll=1, DenyArpEn=1))


def test_roamed_staff(campus):
    campus.shows("usf_user 02:00:5e:30:00:1e", user(
        McFloodEn=255, StatId=130, UserRoamFlag=1, WifiUserGlobalId=65535, ShrinkUpQueueEn=1, Tid6DowngradeEn=1,
        UserPreRoamIpv4Addr="0xc0000282", NeedSendUpMsg=1, PeerId=30, PfeVapIdx=2, AuthStatus=1, UserIpv4Addr="192.0.2.30",
        MngUserIpv4Addr="198.51.100.2", EapLogReported=1))


@pytest.mark.parametrize("view", ["usf_user", "usf_roam", "eaplog_info"])
def test_wrong_stations(campus, view):
    campus.refuses(f"{view} 02:00:5e:30:00:29", NOT_FOUND)
    for key in ("all", "02:00:5e:30:00", "anna"):
        campus.refuses(f"{view} {key}", UNSUPPORTED)
    campus.refuses(f"{view} num101", INVALID)


def test_statistics_ids(campus):
    for i in (1, 2, 20, 40):
        campus.shows(f"usf_stat {100 + i}", f"  StaMac   :  02:00:5e:30:00:{i:02x}\n")
    campus.refuses("usf_stat 141", NOT_FOUND)


def binding(ip_type, learn_mode, mac, ipv4, ipv6):
    return (f"  IpType     :  {ip_type}\n  LearnMode  :  {learn_mode}\n  MacData    :  {mac}\n  Ipv4Data   :  {ipv4}\n"
            f"  Ipv6Data   :  {ipv6}\n")


def test_addresses(campus):
    campus.shows("usf_macip 192.0.2.11", binding(0, 2, "0200-5e30-0001", "192.0.2.11", "::"))
    campus.shows("usf_macip 192.0.2.80 0", binding(0, 1, "0200-5e30-0014", "192.0.2.80", "::"))
    campus.shows("usf_macip 2001:db8:0:10::aa 1", binding(1, 3, "0200-5e30-000a", "0.0.0.0", "2001:db8:0:10::aa"))
    campus.shows("usf_macip 02:00:5e:30:00:01 2 7", binding(2, 1, "0200-5e30-0001", "192.0.2.11", "2001:db8:0:10::a1"))


def test_addresses_that_are_not_there(campus):
    campus.refuses("usf_macip 192.0.2.21", NOT_FOUND)
    campus.refuses("usf_macip 2001:db8:0:10::ab 1", NOT_FOUND)
    campus.refuses("usf_macip 02:00:5e:30:00:01 2 6", NOT_FOUND)
    campus.refuses("usf_macip 02:00:5e:30:00 2 7", UNSUPPORTED)
    campus.refuses("usf_macip 192.0.2.11 3", INVALID)


def test_local_managers(campus):
    campus.shows("local_mng_user 192.0.2.14", """\
  MngUserIpv4Addr  :  192.0.2.14
  FwdIfIndex       :  101
  VlanId           :  10
  LocalMngSrcMac   :  02:00:5e:30:00:04
  LocalMngDstMac   :  02:00:5e:10:00:99
""")
    campus.refuses("local_mng_user 192.0.2.15", NOT_FOUND)


def test_roaming(campus):
    campus.shows("usf_roam 02:00:5e:30:00:15", """\
  RoamRole         :  2
  InterIsolate     :  1
  InnerIsolate     :  0
  UserIsolate      :  1
  TunnelDstRole    :  5
  UsrGroupId       :  17
  HomeVapFwdif     :  101
  TunnelId         :  1
""")
    campus.shows("usf_roam 02:00:5e:30:00:16", """\
  RoamRole         :  7
  InterIsolate     :  0
  InnerIsolate     :  1
  UserIsolate      :  0
  TunnelDstRole    :  1
  UsrGroupId       :  0
  HomeVapFwdif     :  103
  TunnelId         :  2
""")


ROAMED = ["""\
  VlanId       : 10
  IPType       : 1
  UserMac      : 02:00:5e:30:00:15
  HapMac       : 02:00:5e:50:00:01
  UserIsolate  : 1

  Ipv4         : 0xc0000215
""", """\
  VlanId       : 10
  IPType       : 0
  UserMac      : 02:00:5e:30:00:16
  HapMac       : 02:00:5e:50:00:02
  UserIsolate  : 0

""", """\
  VlanId       : 20
  IPType       : 1
  UserMac      : 02:00:5e:30:00:28
  HapMac       : 02:00:5e:50:00:01
  UserIsolate  : 0

  Ipv4         : 0xc000025a
"""]


def test_roaming_list(campus):
    campus.shows("usf_roam_ap2sta_elb all", "".join(ROAMED))
    campus.shows("usf_roam_ap2sta_elb num1", ROAMED[0])
    campus.shows("usf_roam_ap2sta_elb num2", ROAMED[0] + ROAMED[1])
    campus.refuses("usf_roam_ap2sta_elb", INVALID)


def test_portal_ports(campus):
    ports = "  Port    :  80\n  Port    :  8080\n  Port    :  3128\n"
    campus.shows("http_portal_port", ports)
    campus.shows("http_portal_port num1", ports)  # always all of them, and at most eight


def test_more_portal_ports_than_are_shown():
    with site_of("http_portal_port: [{repeat: 10, port: {from: 8001, step: 1}}]\n") as site:
        eight = "".join(f"  Port    :  {port}\n" for port in range(8001, 8009))
        site.shows("http_portal_port", eight)
        site.shows("http_portal_port num10", eight)


def test_web_proxies(campus):
    campus.shows("web_proxy_portal 1", "  ProxyPort  :  3128\n  Url        :  http://portal.example.com/login\n")
    campus.shows("web_proxy_portal 2", "  ProxyPort  :  65535\n  Url        :  http://192.0.2.198:8080/\n")
    campus.refuses("web_proxy_portal 3", NOT_FOUND)


def test_url_that_fills_its_field():
    url = "http://192.0.2.198/" + "u" * (204 - 19)
    with site_of(f"web_proxy_portal: [{{index: 5, port: 1, url: '{url}'}}]\n") as site:
        site.shows("web_proxy_portal 5", f"  ProxyPort  :  1\n  Url        :  {url}\n")


def stations(*last):
    return "".join(f"  StaMac   :  02:00:5e:30:00:{i:02x}\n" for i in last)


def test_stations_of_a_vap(campus):
    campus.shows("vap_to_sta all 2001 10", stations(*range(1, 11)))
    campus.shows("vap_to_sta all 2004 20", stations(*range(31, 41)))
    campus.shows("vap_to_sta num3 2002 20", stations(11, 12, 13))
    campus.refuses("vap_to_sta all 2001 20", EMPTY)
    campus.refuses("vap_to_sta all 4711 10", EMPTY)
    campus.refuses("vap_to_sta 0 2001 10", INVALID)


def test_more_stations_than_a_batch():
    with site_of("""\
ctrlif_map_fwdif: [{ctrl_if_index: 5, fwd_if_index: 6}]
vap_to_sta:
  - {repeat: 120, fwd_if_index: 6, vlan_id: 7, mac: {from: 02:00:5e:30:00:01, step: 1}}
  - {repeat: 50, fwd_if_index: 6, vlan_id: 8, mac: {from: 02:00:5e:30:00:81, step: 1}}
""") as site:
        site.shows("vap_to_sta all 5 7", stations(*range(1, 121)))
        site.shows("vap_to_sta num75 5 7", stations(*range(1, 76)))
        site.shows("vap_to_sta all 5 8", stations(*range(0x81, 0x81 + 50)))


EAP_LOG = """\
 StaEapLog data:
  RadioId             :  0
  VapIndex            :  0
  AuthId              :  4711
  AuthStatus          :  3
  CurLogNum           :  4
  Identify            :  anna@example.com
 UpLastEapExt data:
  UpCode                :  2
  UpId                  :  3
  UpType                :  13
  UpRsv                 :  1
  UpLen                 :  212
  UpSslFlags            :  128
  UpIsFragmentErr       :  1
  UpIsEncryped          :  1
  UpRsv1                :  4
  UpTlsV1Offset         :  10
  UpHandshakeOffset     :  15
  UpTlsV1Flags          :  22
  UpHandshakeFlags      :  16777217
  UpTlsV1Header[0]      :  22
  UpTlsV1Header[1]      :  3
  UpTlsV1Header[2]      :  1
  UpTlsV1Header[3]      :  0
  UpTlsV1Header[4]      :  200
  UpHandshakeHeader[0]  :  1
  UpHandshakeHeader[1]  :  2
  UpHandshakeHeader[2]  :  4
  UpHandshakeHeader[3]  :  196
 DownLastEapExt data:
  DownCode                :  3
  DownId                  :  4
  DownType                :  14
  DownRsv                 :  2
  DownLen                 :  1004
  DownSslFlags            :  64
  DownIsFragmentErr       :  2
  DownIsEncryped          :  3
  DownRsv1                :  5
  DownTlsV1Offset         :  11
  DownHandshakeOffset     :  16
  DownTlsV1Flags          :  23
  DownHandshakeFlags      :  17
  DownTlsV1Header[0]      :  23
  DownTlsV1Header[1]      :  4
  DownTlsV1Header[2]      :  5
  DownTlsV1Header[3]      :  6
  DownTlsV1Header[4]      :  7
  DownHandshakeHeader[0]  :  8
  DownHandshakeHeader[1]  :  9
  DownHandshakeHeader[2]  :  12
  DownHandshakeHeader[3]  :  14
"""


def item(number, kind, reserved, size, cost, eapol, code, eap_type, eap_id, tls, handshake):
    return (f" StaEapLog item:\n  Item            :  {number}\n  PktType         :  {kind}\n  Rsv             :  {reserved}\n"
            f"  PktSize         :  {size}\n  TimeCost        :  {cost}\n  EapolType       :  {eapol}\n"
            f"  EapCode         :  {code}\n  EapType         :  {eap_type}\n  EapId           :  {eap_id}\n"
            f"  TlsV1Flags      :  {tls}\n  HandshakeFlags  :  {handshake}\n")


def test_eap_exchange(campus):
    campus.shows("eaplog_info 02:00:5e:30:00:01", EAP_LOG + item(0, 1, 0, 25, 12, 0, 2, 1, 1, 0, 0) +
                 item(1, 2, 0, 6, 3, 0, 1, 13, 2, 0, 0) + item(2, 1, 9, 212, 41000, 3, 2, 13, 2, 22, 1) +
                 item(3, 2, 0, 4, 8, 0, 3, 0, 3, 0, 0))


def test_eap_exchange_that_never_began(campus):
    labels = ["Code", "Id", "Type", "Rsv", "Len", "SslFlags", "IsFragmentErr", "IsEncryped", "Rsv1", "TlsV1Offset",
              "HandshakeOffset", "TlsV1Flags", "HandshakeFlags", *[f"TlsV1Header[{i}]" for i in range(5)],
              *[f"HandshakeHeader[{i}]" for i in range(4)]]
    campus.shows("eaplog_info 02:00:5e:30:00:15",
                 " StaEapLog data:\n  RadioId             :  1\n  VapIndex            :  2\n  AuthId              :  4712\n"
                 "  AuthStatus          :  0\n  CurLogNum           :  0\n  Identify            :  \n UpLastEapExt data:\n" +
                 "".join(f"  {'Up' + label:22}:  0\n" for label in labels) + " DownLastEapExt data:\n" +
                 "".join(f"  {'Down' + label:24}:  0\n" for label in labels))


def test_eap_log_that_is_full_and_one_that_claims_more():
    items = ", ".join(f"{{packet_size: {i}}}" for i in range(64))
    with site_of(f"""\
eaplog_info:
  - {{mac: 02:00:5e:30:00:01, item_count: 64, identity: '{"i" * 256}', items: [{items}]}}
  - {{mac: 02:00:5e:30:00:02, item_count: 255, items: [{items}]}}
""") as site:
        every = "".join(item(i, 0, 0, i, 0, 0, 0, 0, 0, 0, 0) for i in range(64))
        for station in ("01", "02"):
            answer = site.engine.cli("show", "eaplog_info", f"02:00:5e:30:00:{station}")
            assert answer.code == 0 and answer.out.endswith(
                "  DownHandshakeHeader[3]  :  0\n" + every + "-" * 30 + "\n"), answer
            assert ("  Identify            :  " + "i" * 256 + "\n" in answer.out) == (station == "01"), answer


@pytest.mark.parametrize("query", ["usf_roam_ap2sta_elb all", "http_portal_port", "vap_to_sta all 2001 10"])
def test_empty_tables(query):
    with site_of("usf_stat: []\n") as site:
        site.refuses(query, EMPTY)
