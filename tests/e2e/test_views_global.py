"""The global view with the session aging times, mirror observe ports and modules: whole answers."""

import shutil

import pytest

from conftest import ROOT, nqecli, site_of, view

GLOBAL = """\
  SysMac                 :  02:00:5e:10:00:99
  RuncNum                :  4
  FwdIngMap              :  0x1027
  FwdEgrMap              :  0x258
  EthProtAllNum          :  3
  EthProtIpNum           :  2
  ArpGatewayDupEnable    :  1
  FibLoadBalanceMode     :  1
  FibHashType            :  2
  HostModeEn             :  1
  IgmpSnpEnable          :  1
  DnsSnpEnable           :  1
  NdSnpEnable            :  1
  LinuxPort              :  1
  SshPort                :  22
  TelnetPort             :  23
  AcMac                  :  02:00:5e:10:00:ac
  DaaAclGid              :  3101
  Ipv6DaaAclGid          :  3611
  PortalFreeRuleGid      :  3001
  Ipv6PortalFreeRuleGid  :  3612
  PortalServerIpv6       :  2001:0db8:0000:0070:0000:0000:0000:0080
  ManageIpAddr           :  198.51.100.14
  ManageIpv6Addr         :  321:13184:00:0153:00:00:00:020
  HttpsPortalDstPort     :  8443
  LocalManageEn          :  1
  HttpsPortalEn          :  1
  DomainFreeRuleEn       :  1
  PortalDstIp            :  192.0.2.198
  PortalDstPort          :  8080
  BlackHoleMacNum        :  4
  PortalEnable           :  1
  PortalDnsDisable       :  1
  CapwapFwdifIndex       :  208
  DenyDnsRqFromWan       :  1
  StaIpv6SvcEnable       :  1
  CpCarEn                :  1
  McbcCarEn              :  1
  McbcCarId-OTH-BC       :  701
  McbcCarId-OTH-MC       :  702
  McbcCarId-ARP          :  703
  McbcCarId-IGMP         :  704
  McbcCarId-ND           :  705
  McbcCarId-DHCP         :  706
  McbcCarId-DHCPV6       :  707
  McbcCarId-MDNS         :  708
  EthTrunkL2HashType     :  1
  EthTrunkL2HashField    :  0x1f
  EthTrunkL3HashType     :  1
  EthTrunkL3HashField    :  0x3c
  SacGlobalVersion       :  20240611
  SacGlobalSessNum       :  512
  CpuPort                :  28
  CpuPortTp              :  29
SessionAgingTime:
  Session aging time tcp        : 600
  Session aging time udp        : 120
  Session aging time icmp       : 20
  Session aging time http       : 240
  Session aging time ftp        : 240
  Session aging time dns        : 15
  Session aging time sip        : 600
  Session aging time rtsp       : 240
  Session aging time pptp       : 240
IngGlobalAclEnInfo:
  L2GlobalAclFilterEn           :  1
  L2GlobalAclCarEn              :  1
  L2GlobalAclRemarkEn           :  1
  L2GlobalAclMirrorEn           :  1
  L2GlobalAclRedirectEn         :  1
  L2GlobalAclMatchStatEn        :  1
  L4GlobalAclFilterEn           :  1
  L4GlobalAclCarEn              :  1
  L4GlobalAclRemarkEn           :  1
  L4GlobalAclMirrorEn           :  1
  L4GlobalAclRedirectEn         :  1
  L4GlobalAclMatchStatEn        :  1
  L2L4GlobalAclFilterEn         :  1
  L2L4GlobalAclCarEn            :  1
  L2L4GlobalAclRemarkEn         :  1
  L2L4GlobalAclMirrorEn         :  1
  L2L4GlobalAclRedirectEn       :  1
  L2L4GlobalAclMatchStatEn      :  1
  Ipv6GlobalAclFilterEn         :  1
  Ipv6GlobalAclCarEn            :  1
  Ipv6GlobalAclRemarkEn         :  1
  Ipv6GlobalAclMirrorEn         :  1
  Ipv6GlobalAclRedirectEn       :  1
  Ipv6GlobalAclMatchStatEn      :  1
EgrGlobalAclEnInfo:
  L2GlobalAclFilterEn           :  1
  L4GlobalAclFilterEn           :  1
  L2L4GlobalAclFilterEn         :  1
  Ipv6GlobalAclFilterEn         :  1
  L2GlobalAclCarEn              :  1
  L4GlobalAclCarEn              :  1
  L2L4GlobalAclCarEn            :  1
  Ipv6GlobalAclCarEn            :  1
  L2GlobalAclRemarkEn           :  1
  L4GlobalAclRemarkEn           :  1
  L2L4GlobalAclRemarkEn         :  1
  Ipv6GlobalAclRemarkEn         :  1
  L2GlobalAclMirrorEn           :  1
  L4GlobalAclMirrorEn           :  1
  L2L4GlobalAclMirrorEn         :  1
  Ipv6GlobalAclMirrorEn         :  1
  L2GlobalAclMatchStatEn        :  1
  L4GlobalAclMatchStatEn        :  1
  L2L4GlobalAclMatchStatEn      :  1
  Ipv6GlobalAclMatchStatEn      :  1
GlobalIngAclGidInfo:
  IngL2GlobalAclFilterGid       :  4101
  IngL4GlobalAclFilterGid       :  4102
  IngL2GlobalAclMatchStatGid    :  4103
  IngL4GlobalAclMatchStatGid    :  4104
  IngL2GlobalAclRemarkGid       :  4105
  IngL4GlobalAclRemarkGid       :  4106
  IngL2GlobalAclRedirectGid     :  4107
  IngL4GlobalAclRedirectGid     :  4108
  IngL2GlobalAclCarGid          :  4109
  IngL4GlobalAclCarGid          :  4110
  IngL2GlobalAclMirrorGid       :  4111
  IngL4GlobalAclMirrorGid       :  4112
GlobalEgrAclGidInfo:
  EgrL2GlobalAclRemarkGid       :  4201
  EgrL4GlobalAclRemarkGid       :  4202
  EgrL2GlobalAclCarGid          :  4203
  EgrL4GlobalAclCarGid          :  4204
  EgrL2GlobalAclFilterGid       :  4205
  EgrL4GlobalAclFilterGid       :  4206
  EgrL2GlobalAclMirrorGid       :  4207
  EgrL4GlobalAclMirrorGid       :  4208
  EgrL2GlobalAclMatchStatGid    :  4209
  EgrL4GlobalAclMatchStatGid    :  4210
"""


def test_global_record(campus):
    campus.shows("global", GLOBAL)
    campus.shows("global all 1 2 3", GLOBAL)  # there is one record, whatever the keys


def test_flags_stand_at_their_labels():
    """Bits that the printing order does not follow, each beside bits that are clear."""
    with site_of("""\
global:
  - {ingress_l2_mirror: 1, ingress_l4_redirect: 1, ingress_l2l4_match_stat: 1, ingress_ipv6_car: 1,
     egress_l4_filter: 1, egress_l2l4_car: 1, egress_ipv6_remark: 1, egress_l2_mirror: 1, egress_l4_match_stat: 1,
     host_mode: 1, dns_snooping: 1, portal: 1, https_portal: 1, control_plane_car: 1, station_ipv6_service: 1,
     trunk_l3_hash_type: 1, sac_version: -2, eth_protocols_ip: 65535, mc_bc_car: 255}
""") as site:
        answer = site.engine.cli("show", "global")
        lines = [line.split() for line in answer.out.splitlines() if ":  " in line]
        sections = answer.out.split("GlobalAclEnInfo:\n")
        assert len(sections) == 3, answer
        ones = [[line.split()[0] for line in section.splitlines() if line.endswith("  1") and "GlobalAcl" in line]
                for section in sections]
        assert ones[1] == ["L2GlobalAclMirrorEn", "L4GlobalAclRedirectEn", "L2L4GlobalAclMatchStatEn", "Ipv6GlobalAclCarEn"]
        assert ones[2] == ["L4GlobalAclFilterEn", "L2L4GlobalAclCarEn", "Ipv6GlobalAclRemarkEn", "L2GlobalAclMirrorEn",
                           "L4GlobalAclMatchStatEn"]
        set_flags = [line[0] for line in lines if line[-1] == "1" and "GlobalAcl" not in line[0]]
        assert set_flags == ["HostModeEn", "DnsSnpEnable", "HttpsPortalEn", "PortalEnable", "StaIpv6SvcEnable", "CpCarEn",
                             "EthTrunkL3HashType"], answer
        for part in ("  SacGlobalVersion       :  -2\n", "  EthProtIpNum           :  65535\n",
                     "  McbcCarEn              :  255\n", "  ManageIpAddr           :  0.0.0.0\n",
                     "  SysMac                 :  00:00:00:00:00:00\n"):
            assert part in answer.out, answer


AGING = """\
  Session aging time tcp        : {tcp}
  Session aging time udp        : {udp}
  Session aging time icmp       : {icmp}
  Session aging time http       : {http}
  Session aging time ftp        : 240
  Session aging time dns        : {dns}
  Session aging time sip        : 600
  Session aging time rtsp       : 240
  Session aging time pptp       : 240
"""


def aging_of(result):
    assert result.code == 0, result
    return result.out[result.out.index("  Session aging time tcp"):result.out.index("IngGlobalAclEnInfo")]


def test_aging_times_change_while_the_engine_runs():
    with site_of("global: [{}]\n") as site:
        engine = site.engine
        times = dict(tcp=240, udp=120, icmp=20, http=240, dns=30)  # what is in force when nothing is set
        assert aging_of(engine.cli("show", "global")) == AGING.format(**times)
        for region, value, name in (("IPP", "tcp", "tcp"), ("IPP", "udp", "udp"), ("IPP", "icmp", "icmp"),
                                    ("APP", "apps[1].ttl", "http"), ("APP", "apps[2].ttl", "dns")):
            before = times[name]
            for seconds in ("1", "65535", "0x12c"):
                engine.cli("engine", "region", f"{region}_SESSION_AGING_TIME", value, seconds).answered(
                    f"{value} {int(seconds, 0)}\n")
                times[name] = int(seconds, 0)
                assert aging_of(engine.cli("show", "global")) == AGING.format(**times)
            engine.cli("engine", "region", f"{region}_SESSION_AGING_TIME", value, "0").answered(f"{value} 0\n")
            times[name] = before
            assert aging_of(engine.cli("show", "global")) == AGING.format(**times)
        engine.cli("engine", "region", "IPP_SESSION_AGING_TIME", "tcp", "77").answered("tcp 77\n")
        # The copy was made before.
        assert aging_of(nqecli("--snapshot", site.snapshot, "show", "global")) == AGING.format(**times)


def test_aging_times_of_the_scenario(campus):
    campus.engine.cli("engine", "region", "IPP_SESSION_AGING_TIME").answered("tcp 600\nudp 0\nicmp 0\n")
    apps = ["0"] * 53
    apps[2] = "15"
    campus.engine.cli("engine", "region", "APP_SESSION_AGING_TIME").answered(
        "".join(f"apps[{i}].ttl {seconds}\n" for i, seconds in enumerate(apps)))


def test_global_record_that_is_not_there():
    with site_of("trunk: [{trunk_id: 1}]\n") as site:
        site.refuses("global", "search result not found")


def test_observe_ports(campus):
    campus.shows("mirr_observe 1", "  CtrlIfIdx  :  1124\n  FwdIfIdx   :  34\n")
    campus.shows("mirr_observe 2", "  CtrlIfIdx  :  1224\n  FwdIfIdx   :  64\n")
    campus.refuses("mirr_observe 3", "search result not found")


def modules(names):
    return "".join(f"  ModId       :  {i}\n  ModName     :  {name}\n\n" for i, name in enumerate(names, 1))


def test_modules(campus):
    names = ["dispatch", "parser", "bridge", "ipv4-forward", "ipv6-forward", "neighbour", "acl", "rate-limit", "nat",
             "session", "application-control", "capwap", "user-services", "host-path"]
    campus.shows("mod_info all", modules(names))
    campus.shows("mod_info num3", modules(names[:3]))
    campus.refuses("mod_info", "invalid input param")
    campus.refuses("mod_info session", "invalid input param")


def test_only_fifty_modules_are_shown():
    names = [f"module-{i}" for i in range(1, 61)]
    names[4] = "a-name-of-thirty-two-characters."
    assert len(names[4]) == 32  # fills its field without a NUL
    text = "mod_info:\n" + "".join(f"  - {{module_id: {i}, name: {name}}}\n" for i, name in enumerate(names, 1))
    with site_of(text) as site:
        site.shows("mod_info all", modules(names[:50]))
        site.shows("mod_info num100", modules(names[:50]))
        site.shows("mod_info num7", modules(names[:7]))


def test_no_modules():
    with site_of("trunk: [{trunk_id: 1}]\n") as site:
        site.refuses("mod_info all", "datasize empty or invalid")


@pytest.mark.parametrize("size", [1, 15, 64])
def test_engine_with_module_names_of_another_size(directory, size):
    layouts = directory / "layouts"
    shutil.copytree(ROOT / "host" / "layout", layouts, ignore=lambda _, names: [n for n in names if not n.endswith(".yaml")])
    text = (layouts / "global.yaml").read_text()
    for old, new in (("record_size: 36", f"record_size: {4 + size}"), ("data_size: 32", f"data_size: {size}"),
                     ("text 32", f"text {size}")):
        assert text.count(old) == 1
        text = text.replace(old, new)
    (layouts / "global.yaml").write_text(text)
    names = [letter * size for letter in "abc"]
    scenario = "mod_info:\n" + "".join(f"  - {{module_id: {i}, name: {name}}}\n" for i, name in enumerate(names, 1))
    with site_of(scenario, "--layout", layouts) as site:
        site.shows("mod_info all", modules(names))
        assert site.engine.cli("show", "mod_info", "num2").out == view(modules(names[:2]))
