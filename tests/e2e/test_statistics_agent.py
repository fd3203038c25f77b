"""nqecli agent sysstat-query: what the engine's cores have counted, from a scenario and from simulated traffic."""

import re

from conftest import nqecli, site_of, wait_until

PRESETS = """\
statistics:
  Arp miss punt: [5, 7, 11]
  pkt copy fail: 3
  arp miss: [1, 2, 3, 4, 5]
  308: 6
  Total IP packets received: 1000000
  Total IPV4 packets transmitted: [0, 0, 0, 0, 9]
  CAR - dns: [20, 3]
"""

NORMAL = f"""
 Normal statistic information:
   {"Arp miss punt":>60}: 23
   {"Total IP packets received":>60}: 1000000
   {"Total IPV4 packets transmitted":>60}: 9"""
DISCARD = f"""
 Discard statistic information:
   {"arp miss":>60}: 15
   {121:>60}: 6
   {"CAR - dns":>60}: 23"""
ERROR = f"""
 Error statistic information:
   {"pkt copy fail":>60}: 3"""


def test_presets_are_listed_by_kind():
    with site_of(PRESETS, "--cores", "5") as site:
        for kind, text in (("all", NORMAL + DISCARD + ERROR), ("normal", NORMAL), ("discard", DISCARD), ("error", ERROR)):
            site.engine.cli("agent", "sysstat-query", f"type={kind}").answered(text + "\n")
            nqecli("--snapshot", site.snapshot, "agent", "sysstat-query", f"type={kind}").answered(text + "\n")


def test_traffic_moves_the_statistics():
    interfaces = "fwdif: [{repeat: 2, if_index: {from: 1, step: 1}, enable: 1}]\n"
    with site_of(interfaces, "--traffic", "20000") as site:
        def counted():
            out = site.engine.cli("agent", "sysstat-query", "type=all").out
            return {name: int(count) for name, count in re.findall(r"^ +(\S.*): (\d+)$", out, re.M)}

        names = ["receive pkt from drv", "Total IP packets received", "TCP packets received", "arp pkt recv",
                 "ipv6 pkt recv", "Total IPV4 packets transmitted", "Total IPV6 packets transmitted", "arp miss", "car",
                 "cpcar fail", "CAR - arp-reply", "pkt copy fail"]
        wait_until(lambda: all(counted().get(name, 0) > 10 for name in names), "every kind of packet")
        before = counted()
        wait_until(lambda: all(counted()[name] > before[name] for name in names), "more of each")


def test_reset_counts_from_now_on_for_its_kind():
    with site_of(PRESETS, "--cores", "5") as site:
        lines = "sysstat-reset type=discard\nsysstat-query type=all\n"
        answer = site.engine.cli("agent", "-", input=lines.encode())
        assert NORMAL + "\n Discard statistic information:" + ERROR in answer.out, answer
        # The engine's own counters stay as they were.
        site.engine.cli("agent", "sysstat-query", "type=discard").answered(DISCARD + "\n")
