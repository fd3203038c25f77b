"""The views of DHCP bindings, DNS domains, buffer caches and timers on examples/campus.yaml: whole answers."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
INVALID = "invalid input param"
EMPTY = "datasize empty or invalid"


def binding(interface, vlan, ipv4, ipv6, is_prefix, length, mac, kind, time, protocol):
    return (f"  FwdIfIndex    :  {interface}\n  Vlan          :  {vlan}\n  Ipv4Addr      :  {ipv4}\n"
            f"  Ipv6Addr      :  {ipv6}\n  IsPrefix      :  {is_prefix}\n  PrefixLen     :  {length}\n"
            f"  Mac           :  {mac}\n  BindType      :  {kind}\n  ClientReqTime :  {time}\n"
            f"  ProtoType     :  {protocol}\n\n")


BINDINGS = [
    binding(41, 50, "192.0.2.162", "::", 0, 0, "02:00:5e:40:02:01", "Static", 0, "Dhcp"),
    *[binding(101, 10, f"192.0.2.{10 + i}", "::", 0, 0, f"02:00:5e:30:00:{i:02x}", "Dynamic", 86000 + i, "Dhcp")
      for i in range(1, 11)],
    binding(17, 10, "0.0.0.0", "2001:db8:7::", 1, 56, "02:00:5e:10:01:07", "Dynamic", 86020, "Dhcpv6"),
    binding(101, 10, "0.0.0.0", "2001:db8:0:10::a1", 0, 128, "02:00:5e:30:00:01", "Dynamic", 86021, "Dhcpv6"),
    binding(-1, 10, "0.0.0.0", "2001:db8:0:10::a2", 0, 0, "02:00:5e:30:00:02", "Dynamic", 0, "Nd"),
]


def test_dhcp_bindings(campus):
    campus.shows("dhcp_snooping_bind all", "".join(BINDINGS))
    campus.shows("dhcp_snooping_bind num1", BINDINGS[0])
    campus.shows("dhcp_snooping_bind num12", "".join(BINDINGS[:12]))
    campus.refuses("dhcp_snooping_bind", INVALID)
    campus.refuses("dhcp_snooping_bind 02:00:5e:40:02:01", INVALID)
    campus.refuses("dhcp_snooping_bind num0", INVALID)


def test_more_bindings_than_a_batch():
    with site_of("""\
dhcp_snooping_bind:
  - {repeat: 130, mac: {from: 02:00:5e:30:00:01, step: 1}, vlan_id: 9, ipv4_address: {from: 192.0.2.1, step: 1},
     ipv6_address: "::", fwd_if_index: 7, protocol: 255, is_prefix: 255, prefix_length: 254, bind_type: 4294967295}
""") as site:
        every = [binding(7, 9, f"192.0.2.{i}", "::", 255, 254, f"02:00:5e:30:00:{i:02x}", "Dynamic", 0, "Nd")
                 for i in range(1, 131)]
        site.shows("dhcp_snooping_bind all", "".join(every))
        site.shows("dhcp_snooping_bind num60", "".join(every[:60]))


def domain(number, match, name):
    return f"  DomainID           :  {number}\n  DomainMatchType    :  {match}\n  Domain             :  {name}\n\n"


LONGEST = ("a23456789.b23456789.c23456789.d23456789.e23456789.f23456789.g23456789.h23456789.i23456789.j23456789."
           "k23456789.l23456789.example")


def test_dns_domains(campus):
    assert len(LONGEST) == 127
    domains = [domain(7, 0, "portal.example.com"), domain(8, 1, ".example.org"), domain(255, 1, LONGEST)]
    campus.shows("dns_domain all", "".join(domains))
    campus.shows("dns_domain num2", "".join(domains[:2]))
    campus.refuses("dns_domain", INVALID)
    campus.refuses("dns_domain portal.example.com", INVALID)


def test_dns_domain_without_end():
    name = "n" * 128
    with site_of(f"dns_domain: [{{domain: {name}, match_type: 255, domain_id: 1}}]\n") as site:
        site.shows("dns_domain all", domain(1, 255, name))


def cache(*numbers):
    labels = ["HostPktCache", "ReassPktCache", "CapwapReassOverMaxCache", "CapwapReassOverFragDrop", "CapwapReassOtherDrop",
              "CapwapReassPktCache", "CapwapReassFrags", "CapwapReassPkts", "CapwapFragPkts"]
    return ("PktCacheStat:\n" + "".join(f"  {label:25}:  {number}\n" for label, number in zip(labels, numbers)) +
            "TaskPktCache:\n")


def task(name, buffers):
    return f"  TaskName                 :  {name}\n  CacheNum                 :  {buffers}\n"


def test_buffer_cache(campus):
    campus.shows("buf_cache_stat 0", cache(12, 34, 1, 2, 5000000000, 56, 910, 455, 78) + task("dispatch", 17) +
                 task("acl", 4000000000) + task("host-path", 2))
    campus.refuses("buf_cache_stat 1", NOT_FOUND)


def test_buffer_cache_without_tasks():
    with site_of("mod_info: [{module_id: 1, name: dispatch}]\n"
                 "buf_cache_stat: [{index: 0, host: 18446744073709551615, tasks: [{name: {module_id: 1}, buffers: 17}]}]\n"
                 ) as site:
        site.shows("buf_cache_stat 0", cache(18446744073709551615, 0, 0, 0, 0, 0, 0, 0, 0))


def test_buffer_cache_that_claims_more_tasks_than_it_holds():
    with site_of("mod_info: [{module_id: 1, name: first}, {module_id: 2, name: last}]\n"
                 "buf_cache_stat: [{index: 0, task_count: 4000000000, tasks: {0: {name: {module_id: 1}, buffers: 1}, "
                 "127: {name: {module_id: 2}, buffers: 2}}}]\n") as site:
        site.shows("buf_cache_stat 0", cache(*[0] * 9) + task("first", 1) + task("last", 2))


def test_task_whose_name_is_nowhere():
    with site_of("buf_cache_stat: [{index: 0, task_count: 2, tasks: [{buffers: 1}, {name: 4096, buffers: 2}]}]\n") as site:
        site.shows("buf_cache_stat 0", cache(*[0] * 9) + task("", 1) + task("", 2))


def test_timers(campus):
    campus.shows("timer_stat 0", """\
  NextSchedAt       :  86400000000123
  LastExpired       :  86400000000023
  ExpiredCnt        :  864000
  TimerRemainedCnt  :  41
  WorkAddedCnt      :  864050
  WorkIgnoredCnt    :  9
""")
    campus.shows("timer_stat 1", """\
  NextSchedAt       :  18446744073709551615
  LastExpired       :  0
  ExpiredCnt        :  1
  TimerRemainedCnt  :  0
  WorkAddedCnt      :  0
  WorkIgnoredCnt    :  0
""")
    campus.refuses("timer_stat 2", NOT_FOUND)


@pytest.mark.parametrize("view", ["dhcp_snooping_bind", "dns_domain"])
def test_empty_tables(view):
    with site_of("timer_stat: []\n") as site:
        site.refuses(f"{view} all", EMPTY)
