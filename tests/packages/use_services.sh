#!/bin/bash
# Runs the packages' services under systemd, in their sandbox, and asks them. Inside the Debian that boot.sh has started, where
# the packages are installed; scripts/packages.sh calls it.
set -euo pipefail

fail() {
  echo "services in use: $*" >&2
  journalctl --no-pager --lines=20 -u nqed -u omad >&2
  exit 1
}

# expect TEXT COMMAND...: sooner or later the command says so.
expect() {
  local wanted=$1 said=
  shift
  for _ in $(seq 300); do
    said=$("$@" 2>&1 </dev/null) || true
    [[ $said != *"$wanted"* ]] || { echo "ok: $*" && return 0; }
    sleep 0.1
  done
  fail "$* does not say \"$wanted\" but: $said"
}

# options SERVICE WORDS: what it runs with from now on.
options() {
  echo "${1^^}_OPTIONS=\"$2\"" >"/etc/default/$1"
  systemctl restart "$1" || fail "$1 does not start with $2"
}

netconf() {
  local base=urn:ietf:params:xml:ns:netconf:base:1.0
  printf '%s]]>]]>' "<hello xmlns=\"$base\"><capabilities><capability>urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>" \
    "<rpc xmlns=\"$base\" message-id=\"1\"><tbl-usage xmlns=\"urn:tavrix:params:xml:ns:yang:tavrix-software-fwd\"/></rpc>" \
    "<rpc xmlns=\"$base\" message-id=\"2\"><close-session/></rpc>" | timeout 60 omad-session
}
asked() { netconf </dev/null; }

ip link set lo up
expect "disabled" systemctl is-enabled nqed omad
systemctl start nqed || fail "nqed does not start"
expect "linux     this machine" nqed status
expect "127.0.0.0" nqecli list fib
[ "$(stat -c '%A %U' /run/nqe)" = "drwx--x--x root" ] || fail "/run/nqe has other rights"
[ "$(stat -c '%A %U' /run/nqe/arena)" = "-rw-rw---- root" ] || fail "the arena has other rights"
systemctl start omad || fail "omad does not start"
expect "CAP_TABLE_ARP_SIMULATOR" asked
options nqed "--scenario /usr/share/doc/nqe-tools/examples/campus.yaml"
expect "  CtrlIfIdx  :  2001" nqecli show ctrlif_map_fwdif 2001
expect "CAP_TABLE_ARP_SIMULATOR" asked
systemctl stop omad
expect "arena     /run/nqe/arena" nqed status
options nqed "--linux --capture lo"
expect "linux     this machine" nqed status
before=$(systemctl show --value -p MainPID nqed)
systemctl kill --signal=KILL nqed
expect "linux     this machine" nqed status
[ "$(systemctl show --value -p MainPID nqed)" != "$before" ] || fail "nqed was not killed"
systemctl stop nqed
expect "inactive" systemctl is-active nqed
[ ! -e /run/nqe/arena ] || fail "nqed has left its arena"
echo "the services run in their sandbox"
