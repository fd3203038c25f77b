"""The views of packet captures and CAPWAP tunnels. Whole answers, from the engine and from a snapshot of it."""

import pytest

from conftest import site_of

NOT_FOUND = "search result not found"
UNSUPPORTED = "search is not supported"
FULL = "parse data format fail"

SCENARIO = """\
capture_cfg:
  - {index: 3, acl_valid: 201, acl_group_type: 202, acl_group_id: 4000000001, expire_time: 4000000002,
     packet_length: 4000000003, timeout: 4000000004, capture_host: 203, direction: 204, drop_type: 60001,
     capture_drop: 205, vlan_id: 60002, packets_remaining: 60003,
     if_indexes: [0, 11, -12, 0, 0, 2147483647, 0, -2147483648]}
  - {index: 0}

fib:
  - {prefix: 24, vpn: 0, destination: 198.51.100.0}
  - {prefix: 28, vpn: 0, destination: 198.51.100.16}
  - {prefix: 0, vpn: 1, destination: 0.0.0.0}

capwap_tunnel:
  - tunnel_id: 4000000001
    valid: 1
    ac_to_ac: 5
    encrypted: 1
    mtu: 60001
    if_index: 4000000002
    dtls_index: 4000000003
    source: 192.0.2.1
    destination: 198.51.100.2
    src_port: 60002
    dst_port: 60003
    preamble: 201
    header_length: 21
    radio_id: 22
    binding: 23
    t_flag: 1
    l_flag: 1
    m_flag: 1
    ap_mac: 02:00:5e:00:53:01
    encap_size: 9
    encap_data: [0, 1, 2, 0xfd, 0xfe, 0xff, 6, 7, 8, 9]
    route: {prefix: 24, vpn: 0, destination: 198.51.100.0}
  # The other flags; bound to the wide route, though a closer one is there.
  - {tunnel_id: 2, state: 1, server_or_client: 1, f_flag: 1, w_flag: 1, k_flag: 1, destination: 198.51.100.18,
     encap_size: 8, encap_data: [16, 17, 18, 19, 20, 21, 22, 23],
     route: {prefix: 24, vpn: 0, destination: 198.51.100.0}}
  # Its route was withdrawn and set up again.
  - {tunnel_id: 3, destination: 198.51.100.18, route: {stale: {prefix: 28, vpn: 0, destination: 198.51.100.16}}}
  # Never had one, and has none.
  - {tunnel_id: 4, destination: 203.0.113.10}
  # There is a route, which the tunnel does not know.
  - {tunnel_id: 5, destination: 198.51.100.200}
  - {tunnel_id: 64, encap_size: 64, encap_data: {63: 0xab}, destination: 198.51.100.17,
     route: {prefix: 28, vpn: 0, destination: 198.51.100.16}}
  - {tunnel_id: 65, encap_size: 65}

capwap_decap:
  - {source: 192.0.2.1, destination: 198.51.100.2, port: 5247, tunnel_id: 4000000001, if_index: 4000000002}
  - {source: 192.0.2.1, destination: 198.51.100.2, port: 65535, tunnel_id: 7, if_index: 8}
  - {source: 198.51.100.2, destination: 192.0.2.1, port: 5247, tunnel_id: 9, if_index: 10}
"""


@pytest.fixture(scope="module")
def site():
    with site_of(SCENARIO) as running:
        yield running


CAPTURE = """\
  ExpireTime     :  4000000002
  CaptHost       :  203
  PktLen         :  4000000003
  PktNumRemain   :  60003
  Timeout        :  4000000004
  Direction      :  204
  CaptDrop       :  205
  DropType       :  60001
  VlanId         :  60002
  ACL-isValid    :  201
  ACL-aclGrpType :  202
  ACL-aclGrpId   :  4000000001
  IfIndex        :  11
  IfIndex        :  -12
  IfIndex        :  2147483647
  IfIndex        :  -2147483648
"""


def test_capture(site):
    site.shows("capture_cfg 3", CAPTURE)
    site.shows("capture_cfg all 3", CAPTURE)  # always one by its key
    site.shows("capture_cfg 0", """\
  ExpireTime     :  0
  CaptHost       :  0
  PktLen         :  0
  PktNumRemain   :  0
  Timeout        :  0
  Direction      :  0
  CaptDrop       :  0
  DropType       :  0
  VlanId         :  0
  ACL-isValid    :  0
  ACL-aclGrpType :  0
  ACL-aclGrpId   :  0
""")
    site.refuses("capture_cfg 1", NOT_FOUND)


TUNNEL = """Valid TnlState BsAc2AcTnl BsServerOrClient BsEncryptEn TnlMtu TnlIfIndex TnlDtlsIndex Sip Dip Sport Dport
    CwPreamble Hlen Rid Wbid Tflag Fflag Lflag Wflag Mflag Kflag Encapsize ApMac""".split()


def tunnel(values, encapsulation, fast):
    values = values.split(", ")
    assert len(values) == len(TUNNEL)
    lines = "".join(f"  {label:18}:  {value}\n" for label, value in zip(TUNNEL, values))
    return f"{lines}  CapwapTunnelEncap:{encapsulation}\n  CapwapTunnel-Fast: {fast}\n"


def bare(destination, size=0):
    """The fields of a tunnel that has hardly any."""
    return f"0, 0, 0, 0, 0, 0, 0, 0, 0.0.0.0, {destination}, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, {size}, 00:00:00:00:00:00"


def test_tunnel_with_its_route(site):
    text = tunnel("1, 0, 5, 0, 1, 60001, 4000000002, 4000000003, 192.0.2.1, 198.51.100.2, 60002, 60003, 201, 21, 22, 23, "
                  "1, 0, 1, 0, 1, 0, 9, 02:00:5e:00:53:01", "\n   00 01 02 fd  fe ff 06 07\n   08", "OK")
    site.shows("capwap_tunnel 4000000001", text)
    site.shows("capwap_tunnel all 4000000001", text)


def test_tunnel_with_another_route(site):
    site.shows("capwap_tunnel 2", tunnel(
        "0, 1, 0, 1, 0, 0, 0, 0, 0.0.0.0, 198.51.100.18, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 8, 00:00:00:00:00:00",
        "\n   10 11 12 13  14 15 16 17", "Error, ret=0, vpn=0, dip=0xc6336412"))
    site.shows("capwap_tunnel 3", tunnel(bare("198.51.100.18"), "", "Error, ret=0, vpn=0, dip=0xc6336412"))
    site.shows("capwap_tunnel 5", tunnel(bare("198.51.100.200"), "", "Error, ret=0, vpn=0, dip=0xc63364c8"))


def test_tunnel_without_a_route(site):
    # The default route of VPN 1 does not count.
    site.shows("capwap_tunnel 4", tunnel(bare("203.0.113.10"), "", "Error, ret=-7, vpn=0, dip=0xcb00710a"))


def test_sizes_of_the_encapsulation(site):
    row = "\n   00 00 00 00  00 00 00 00"
    site.shows("capwap_tunnel 64", tunnel(bare("198.51.100.17", 64), row * 7 + row[:-2] + "ab", "OK"))
    site.refuses("capwap_tunnel 65", FULL)


def test_tunnel_that_is_not_there(site):
    site.refuses("capwap_tunnel 1", NOT_FOUND)
    site.refuses("capwap_tunnel all 0 0 0", NOT_FOUND)


def decap(source, destination, port, tunnel_id, if_index):
    return (f"  Sip       :  {source}\n  Dip       :  {destination}\n  Port      :  {port}\n"
            f"  TunnelId  :  {tunnel_id}\n  IfIndex   :  {if_index}\n")


def test_decapsulation(site):
    site.shows("capwap_decap 192.0.2.1:198.51.100.2 5247", decap("192.0.2.1", "198.51.100.2", 5247, 4000000001, 4000000002))
    site.shows("capwap_decap 192.0.2.1:198.51.100.2 65535", decap("192.0.2.1", "198.51.100.2", 65535, 7, 8))
    site.shows("capwap_decap 192.0.2.1:198.51.100.2 131071", decap("192.0.2.1", "198.51.100.2", 65535, 7, 8))  # 16 bits
    site.shows("capwap_decap 198.51.100.2:192.0.2.1 5247", decap("198.51.100.2", "192.0.2.1", 5247, 9, 10))
    site.refuses("capwap_decap 192.0.2.1:198.51.100.2 5246", NOT_FOUND)
    site.refuses("capwap_decap 192.0.2.2:198.51.100.2 5247", NOT_FOUND)
    for key in ("0", "all", "192.0.2.1", "192.0.2.1/198.51.100.2"):
        site.refuses(f"capwap_decap {key} 5247", UNSUPPORTED)


def test_campus(campus):
    campus.shows("capture_cfg", """\
  ExpireTime     :  87000
  CaptHost       :  0
  PktLen         :  128
  PktNumRemain   :  975
  Timeout        :  600
  Direction      :  2
  CaptDrop       :  1
  DropType       :  17
  VlanId         :  20
  ACL-isValid    :  1
  ACL-aclGrpType :  0
  ACL-aclGrpId   :  3001
  IfIndex        :  2002
  IfIndex        :  2004
  IfIndex        :  1107
""")
    campus.shows("capwap_tunnel 1", tunnel(
        "1, 1, 1, 1, 1, 1400, 2101, 11, 198.51.100.14, 198.51.100.9, 5247, 40001, 0, 2, 1, 1, 0, 0, 0, 0, 0, 0, 36, "
        "02:00:5e:50:00:01",
        "\n   45 00 00 00  00 00 40 00\n   ff 11 00 00  c6 33 64 0e\n   c6 33 64 09  14 7f 9c 41\n   00 00 00 00  00 10 42 00"
        "\n   00 00 00 00", "OK"))
    campus.shows("capwap_tunnel 2", tunnel(
        "1, 1, 0, 1, 0, 1400, 2102, 0, 198.51.100.14, 203.0.113.200, 5247, 40002, 0, 2, 1, 1, 1, 0, 0, 0, 0, 0, 9, "
        "02:00:5e:50:00:02",
        "\n   45 00 00 00  00 00 40 00\n   ff", "Error, ret=0, vpn=0, dip=0xcb0071c8"))
    campus.shows("capwap_tunnel 3", tunnel(
        "1, 0, 0, 0, 0, 1400, 2103, 0, 198.51.100.14, 198.51.100.11, 5247, 40003, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, "
        "02:00:5e:50:00:03", "", "Error, ret=0, vpn=0, dip=0xc633640b"))
    campus.shows("capwap_decap 198.51.100.9:198.51.100.14 5247", decap("198.51.100.9", "198.51.100.14", 5247, 1, 2101))
