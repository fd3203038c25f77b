#!/usr/bin/env bash
# A tour on any Debian 12 machine: builds the library, the lab engine and the command-line tool, starts the engine on a
# small campus site, asks it, and cleans up.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/common.sh

need_packages g++ cmake ninja-build pkg-config libyaml-cpp-dev rapidjson-dev libsqlite3-dev libnl-3-dev libpcap-dev libyang2-dev \
  libedit-dev openssh-client openssh-server python3 python3-ncclient graphviz
echo "building (once; the first time takes a minute or two) ..."
configure release
compile release --target nqed nqecli nqecli-agent nqecli-sql nqecli-shell omad omad-session qdt_util >build/demo.log 2>&1 ||
  { tail -n 40 build/demo.log; exit 1; }

work=$(mktemp -d)
engine= agent= mirror=
clean_up() {
  local process
  for process in $agent $mirror $engine; do
    kill "$process" 2>/dev/null || true
    wait "$process" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap clean_up EXIT
arena=$work/nqe.arena

bold='' plain=''
[ ! -t 1 ] || bold=$'\033[1m' plain=$'\033[0m'
heading() { printf '\n%s%s%s\n' "$bold" "$1" "$plain"; }

# Shows a command as it would be typed, then runs it. The tour goes on when the command fails: that is shown as well.
show() {
  printf '\n$ nqecli %s\n' "$*"
  local code=0
  build/bin/nqecli --arena "$arena" "$@" || code=$?
  [ "$code" -eq 0 ] || printf '(exit code %d)\n' "$code"
}

# Waits until a process says in its log that it is ready.
await() {
  local process=$1 log=$2
  for _ in $(seq 200); do
    grep -q ': ready' "$log" && { cat "$log"; return; }
    kill -0 "$process" 2>/dev/null || break
    sleep 0.05
  done
  cat "$log"
  exit 1
}

# The first LINES lines of a long answer.
show_head() {
  local lines=$1 answer
  shift
  printf '\n$ nqecli %s | head -n %d\n' "$*" "$lines"
  answer=$(build/bin/nqecli --arena "$arena" "$@")
  head -n "$lines" <<<"$answer"
}

heading "A lab engine on the site of examples/campus.yaml"
printf '$ nqed --scenario examples/campus.yaml --traffic 500\n'
build/bin/nqed --scenario examples/campus.yaml --arena "$arena" --traffic 500 >"$work/engine.log" 2>"$work/trace.log" &
engine=$!
await "$engine" "$work/engine.log"
echo "(The tour's arena is a temporary file; the commands below are shown without their --arena.)"

heading "From the control plane's, the flow engine's and a station's number to the forwarding interface"
show diag search nqpTable 1 0 2001 0 0
show show flowif_map_fwdif 1
show show usf_map_fwdif 7

heading "A forwarding interface: everything the engine knows of it (300 lines, the first of them)"
show_head 60 show fwdif 2001

heading "A packet's way out: route, group of next hops, next hop, neighbour"
show show fib 0.0.0.0
show show nhp_group 1
show show nhp 1
show show arp 198.51.100.1

heading "Bindings that have gone out of date: the views mark them"
show show fib 203.0.113.128 25
show show nhp_group 2

heading "IPv6, and packets that wait for a neighbour"
show show ipv6_fib ::
show show nd 2001:db8:0:10::a1
show show arp_miss_cache 192.0.2.180

heading "Access lists: a group, and a rule that counts at the wrong place"
show show acl_group 0 3002
show show acl_rule 0 3002 1

heading "What the control plane has taken and refused; the counters are cleared while the engine runs"
show show cpcar_pro arp-request 0 1
show diag clear cpcar status
show show cpcar_pro arp-request 0 1

heading "A CAPWAP tunnel whose route has been replaced"
show show capwap_tunnel 2

heading "Layer 2: a VLAN, a station's MAC address, who plays to whom"
show show vlaninfo 1 20
show show ssw_macinfo 02:00:5e:30:00:01 1 10
show show mc_elb 233.252.0.1:192.0.2.178 10

heading "A wireless user: its services and counters, its addresses, how it signed in"
show_head 30 show usf_user 02:00:5e:30:00:01
show show usf_macip 2001:db8:0:10::a1 1
show_head 30 show eaplog_info 02:00:5e:30:00:01

heading "Application control: what staff may do, and what one of them did"
show show sac_profile 1
show_head 22 show sac_usf_stat 02:00:5e:30:00:01

heading "DHCP bindings, and the buffers that the engine holds back"
show show dhcp_snooping_bind num3
show show buf_cache_stat 0

heading "Aging times, changed while the engine runs"
aging() { printf '\n$ nqecli show global | grep aging\n'; build/bin/nqecli --arena "$arena" show global | grep aging; }
aging
show engine region IPP_SESSION_AGING_TIME tcp 300
aging

heading "Packets on their way: the engine prints those that a trace asks for"
show pkt_trace set protocol 1
show pkt_trace set print_num 3
show pkt_trace enable
for _ in $(seq 100); do [ "$(wc -l <"$work/trace.log")" -ge 3 ] && break; sleep 0.1; done
printf '\n(the log of nqed)\n'
head -n 3 "$work/trace.log"
show pkt_trace counter
show pkt_trace clear

heading "Where the packet path spends its time: hits and cycles by measurement point, then the scheduler's tasks"
show pmc 3
sleep 1
show_head 12 pmc stop
show perf task set time
sleep 1
show_head 12 perf task show
show_head 12 perf task topdown total
printf "\n$ nqecli perf task show_graph | sed -n '/^digraph/,/^}/p;/^}/q' | dot -Tsvg -Nshape=box >build/task-graph.svg\n"
build/bin/nqecli --arena "$arena" perf task show_graph | sed -n '/^digraph/,/^}/p;/^}/q' |
  dot -Tsvg -Nshape=box >build/task-graph.svg
show perf task disable

heading "Sessions: what an address talks to, and an end to it"
show agent QdtOmaSessionStatisticsProc
show agent query-session session-number=2 verbose=true
show agent query-session protocol=17 session-number=1
show agent reset-session protocol=17
sleep 1.5
show agent query-session protocol=17
show agent query-server-map type=nat-server

heading "Management commands: statistics, packets that wait, how full the engine is"
show_head 12 agent sysstat-query type=discard
show agent frag-reass
show_head 10 agent arpmiss
show_head 12 agent tbl-usage
show agent memory-usage

heading "What only the engine can do: its switches, its own packet trace, its NAT groups"
show agent egn-stat-switch-set switch=on
show agent egn-info-query info-type=status
show agent trace-pkt-set index=0 destination-ip=192.0.2.11 enable=true
show agent trace-pkt-query index=0
show agent nat-group-usage

heading "The same over NETCONF: the management agent, and a client of another kind"
ssh-keygen -q -t ecdsa -N '' -f "$work/operator"
port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
install -m 700 -d "$work/rules"
install -m 600 deploy/nacm/*.xml "$work/rules"
(umask 077; cat >"$work/rules/users.xml") <<'RULES'
<nacm xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-acm">
  <groups><group><name>operator</name><user-name>alice</user-name></group></groups>
</nacm>
RULES
printf '$ omad --port %s --user-key alice=operator.pub --nacm rules --log record\n' "$port"
build/bin/omad --arena "$arena" --socket "$work/omad.sock" --port "$port" --user-key "alice=$work/operator.pub" \
  --nacm "$work/rules" --log "$work/record" >"$work/agent.log" 2>&1 &
agent=$!
await "$agent" "$work/agent.log"
printf '\n$ python3 examples/netconf_client.py %s operator query-session session-number=1\n' "$port"
/usr/bin/python3 examples/netconf_client.py "$port" "$work/operator" query-session session-number=1
printf '\n$ python3 examples/netconf_client.py %s operator get\n' "$port"
/usr/bin/python3 examples/netconf_client.py "$port" "$work/operator" get
printf '\n$ python3 examples/netconf_client.py %s operator sysstat-reset type=error\n' "$port"
/usr/bin/python3 examples/netconf_client.py "$port" "$work/operator" sysstat-reset type=error
printf '\n$ python3 examples/netconf_client.py %s operator reset-session   (operators may not)\n' "$port"
/usr/bin/python3 examples/netconf_client.py "$port" "$work/operator" reset-session 2>&1 || true
printf '\n$ cat record\n'
cat "$work/record"
kill "$agent"
wait "$agent" || true
agent=

heading "The same as data: any table as a list, and as JSON, CSV or a scenario (docs/data.md)"
show list fib prefix=28
show list session positive.source=192.0.2.11 --json
show list ssw_macinfo mac='02:00:5e:30:*' --count
show_head 8 usage
show_head 8 fields arp

heading "Where something stands, and where an address leads"
show find 02:00:5e:30:00:04
show explain 192.0.2.11

heading "What cannot be true: the bindings that the site plants as stale, and more"
show check

heading "Two moments compared, and all of it as a scenario that loads again"
show snapshot "$work/before"
show engine region IPP_SESSION_AGING_TIME tcp 600
show diff "$work/before" live IPP_SESSION_AGING_TIME
show_head 4 export -

heading "Questions in SQL: routes that lead nowhere, the way of a packet, who talks behind a NAT address (docs/sql.md has more)"
show sql "SELECT vpn, destination, prefix, next_hop FROM fib WHERE next_hop LIKE '%/stale' OR next_hop IS NULL"
show sql "SELECT f.destination, f.prefix, n.\"index\" AS nhp, i.reference AS interface FROM fib f
  JOIN nhp n ON n._address = f.next_hop_address LEFT JOIN nhp_fwdifs i ON i._address = n._address
  WHERE f.match = '192.0.2.150'"
show sql "SELECT new_source AS nat_address, count(*) AS sessions, count(DISTINCT positive_source) AS stations
  FROM session WHERE nat_source GROUP BY 1"

heading "This machine as the engine: the kernel's links, routes and neighbours, mirrored (docs/linux.md)"
printf '$ nqed --linux\n'
build/bin/nqed --linux --arena "$work/linux.arena" >"$work/linux.log" 2>&1 &
mirror=$!
await "$mirror" "$work/linux.log"
arena=$work/linux.arena
show list fwdif --fields if_index,enable,source_mac,mtu --limit 5
show list fib vpn=0 --limit 5
show list arp --limit 3
kill "$mirror"
wait "$mirror" || true
mirror=
arena=$work/nqe.arena

heading "What a wrong key answers"
show diag search nqpTable 1 0 4711 0 0
show show fwdfi 2001

heading "A snapshot answers when the engine is gone"
printf '\n$ nqecli snapshot site.snapshot\n'
build/bin/nqecli --arena "$arena" snapshot "$work/site.snapshot"
kill "$engine"
wait "$engine" || true
engine=
show show ctrlif_map_fwdif 2001
printf '\n$ nqecli --snapshot site.snapshot show ctrlif_map_fwdif 2001\n'
build/bin/nqecli --snapshot "$work/site.snapshot" show ctrlif_map_fwdif 2001

heading "That was the tour. README.md tells more; ./test.sh runs every check."
