// What can be ended, by the conditions that `nqecli agent reset-session` and `reset-server-map` take, and what they are to
// people.
const services = ['http', 'dns', 'ftp', 'ras', 'telnet', 'rtsp', 'sip', 'pptp', 'https', 'ssh', 'dns-tcp'];

export const kinds = [
  {what: 'session', table: 'session', name: 'Sessions', one: 'session', wide: true, conditions: [
    {word: 'inside-source-ip', name: 'From, inside', example: '192.0.2.11', about: 'source address inside'},
    {word: 'inside-source-port', name: 'From port, inside', example: '51000', about: 'source port inside'},
    {word: 'inside-destination-ip', name: 'To, inside', example: '198.51.100.80', about: 'destination address inside'},
    {word: 'inside-destination-port', name: 'To port, inside', example: '443', about: 'destination port inside'},
    {word: 'global-source-ip', name: 'From, outside', example: '203.0.113.11', about: 'source address outside, the translated one where there is one'},
    {word: 'global-source-port', name: 'From port, outside', example: '20011', about: 'source port outside'},
    {word: 'global-destination-ip', name: 'To, outside', example: '198.51.100.80', about: 'destination address outside'},
    {word: 'global-destination-port', name: 'To port, outside', example: '443', about: 'destination port outside'},
    {word: 'protocol', name: 'IP protocol', example: '6', about: 'number of the IP protocol: 6 TCP, 17 UDP, 1 ICMP'},
    {word: 'service-id', name: 'Service', choices: services, about: 'service of the application'},
    {word: 'ingress-ifindex', name: 'Comes in by interface', example: '2001', about: 'interface by which the packets come in'},
    {word: 'egress-ifindex', name: 'Leaves by interface', example: '3099', about: 'interface by which the packets leave'},
    {word: 'vpn-id', name: 'VPN', example: '1', about: 'VPN instance'},
    {word: 'create-in', name: 'Created within', example: '5', about: 'created within the last so many minutes'},
    {word: 'feature', name: 'Feature', choices: ['sac'], about: 'sac: what application control has classified'},
    {word: 'type', name: 'Family', none: 'ipv4', choices: ['ipv6'], about: 'family of the addresses'},
  ]},
  {what: 'server-map', table: 'server_map', name: 'Server maps', one: 'server map', conditions: [
    {word: 'ip', name: 'Address', example: '203.0.113.80', about: 'only server maps with this IPv4 address'},
    {word: 'type', name: 'Kind', choices: ['aspf', 'nat-server', 'no-pat'], about: 'made by the application-layer filter, by a NAT server, or by translation without ports; all when left out'},
  ]},
];
