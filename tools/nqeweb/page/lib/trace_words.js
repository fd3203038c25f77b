// The words of the packet trace's conditions, as `nqecli pkt_trace set` takes them, and what they are to people. A flag stands
// for itself, or is set to `value`.
export const conditions = [
  {group: 'packet', word: 'src_fwdif', name: 'Comes in by interface', example: '101', about: 'forwarding interface by which the packet came in'},
  {group: 'packet', word: 'dst_fwdif', name: 'Leaves by interface', example: '1', about: 'forwarding interface by which the packet leaves'},
  {group: 'packet', word: 'vlan', name: 'VLAN', example: '10', about: 'VLAN of the outermost tag'},
  {group: 'packet', word: 'eth_type', name: 'Ethernet type', example: '0x0800', about: 'Ethernet type, decimal or hexadecimal'},
  {group: 'packet', word: 'min_pkt_len', name: 'Length from', example: '64', about: 'shortest packets that are shown, in bytes'},
  {group: 'packet', word: 'max_pkt_len', name: 'Length to', example: '1500', about: 'longest packets that are shown, in bytes'},
  {group: 'packet', word: 'inner', name: 'the packet inside a tunnel', flag: true, value: '1', about: 'conditions are held against the packet inside'},
  {group: 'packet', word: 'from_cp', name: 'from the control plane', flag: true, value: '1', about: 'only packets that the control plane sends'},
  {group: 'address', word: 'sip', name: 'From IPv4', example: '192.0.2.11', about: 'IPv4 source address'},
  {group: 'address', word: 'dip', name: 'To IPv4', example: '198.51.100.80', about: 'IPv4 destination address'},
  {group: 'address', word: 'sip6', name: 'From IPv6', example: '2001:db8::a1', about: 'IPv6 source address'},
  {group: 'address', word: 'dip6', name: 'To IPv6', example: '2001:db8::53', about: 'IPv6 destination address'},
  {group: 'address', word: 'smac', name: 'From MAC', example: '02:00:5e:30:00:01', about: 'source MAC address'},
  {group: 'address', word: 'dmac', name: 'To MAC', example: '02:00:5e:10:00:01', about: 'destination MAC address'},
  {group: 'kind', word: 'protocol', name: 'IP protocol', example: '6', about: 'number of the IP protocol: 6 TCP, 17 UDP, 1 ICMP'},
  {group: 'kind', word: 'sport', name: 'From port', example: '51000', about: 'source port of TCP or UDP'},
  {group: 'kind', word: 'dport', name: 'To port', example: '443', about: 'destination port of TCP or UDP'},
  {group: 'kind', word: 'tcp_flags', name: 'TCP flags', example: '2', about: 'TCP flags, 2 is SYN, from 1 to 32'},
  {group: 'kind', word: 'icmp_type', name: 'ICMP type', example: '8', about: 'type of ICMP'},
  {group: 'kind', word: 'ip_type', name: 'IP version', example: 'ipv4', about: 'ipv4 or ipv6'},
  {group: 'kind', word: 'arp', name: 'ARP', flag: true, about: 'only ARP'},
  {group: 'kind', word: 'icmp', name: 'ICMP', flag: true, about: 'only ICMP'},
  {group: 'kind', word: 'eap_key', name: 'EAPOL keys', flag: true, about: 'only EAPOL keys'},
  {group: 'kind', word: 'capwap_ka', name: 'CAPWAP keepalives', flag: true, about: 'only keepalives of CAPWAP'},
  {group: 'kind', word: 'pppoe_ka', name: 'PPPoE keepalives', flag: true, about: 'only keepalives of PPPoE'},
  {group: 'kind', word: 'not_frag', name: 'no fragments', flag: true, about: 'only packets that are no fragment'},
  {group: 'kind', word: 'first_frag', name: 'first fragments', flag: true, about: 'only first fragments'},
  {group: 'kind', word: 'last_frag', name: 'last fragments', flag: true, about: 'only last fragments'},
  {group: 'fate', word: 'discard_type', name: 'Discarded for', example: 'car', about: 'only packets that are discarded for this reason, a name of one word; nqecli agent debug-pkt takes those of several'},
  {group: 'fate', word: 'cause_id', name: 'Cause to the control plane', example: '1', about: 'only packets that go to the control plane for this cause'},
];

export const settings = [
  {word: 'timeout', name: 'Stops after', example: '60', about: 'seconds after which the trace ends by itself, from 1 to 6000'},
  {word: 'print_num', name: 'Packets at most', example: '100', about: 'packets that are shown at most, from 1 to 255'},
];
