#!/bin/bash
# Installs the packages in a Debian that has nothing but what they depend on, uses them as people do, and purges them again.
# Runs as root inside that Debian (chroot), with the packages in /packages. scripts/packages.sh calls it.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8

fail() {
  echo "packages in use: $*" >&2
  exit 1
}

# expect TEXT COMMAND...: the command succeeds, and what it prints has the text.
expect() {
  local wanted=$1 said
  shift
  said=$("$@" 2>&1 </dev/null) || fail "$* fails: $said"
  [[ $said == *"$wanted"* ]] || fail "$* does not say \"$wanted\" but: $said"
  echo "ok: $*"
}

# Every file there is, but what the package manager remembers and what is made anew at each start.
files() {
  find / -xdev \( -path /proc -o -path /dev -o -path /tmp -o -path /packages -o -path /var/lib/dpkg -o -path /var/lib/apt \
    -o -path /var/cache -o -path /var/log \) -prune -o -print | sort
}

# dependencies PACKAGE...: what they ask for beside each other, as apt-get satisfy takes it.
dependencies() {
  local package
  for package in "$@"; do dpkg-deb -f /packages/"$package"_*.deb Depends; done | tr '\n' ',' |
    sed -E 's/libqdt-util1 \([^)]*\),//g; s/,$//'
}

# install_alone PACKAGE...: with dpkg, which fetches nothing.
install_alone() {
  local package paths=()
  for package in "$@"; do paths+=(/packages/"$package"_*.deb); done
  dpkg --install "${paths[@]}" >/dev/null
}

# purge PACKAGE...: and nothing stays but what was there before, which /tmp/before lists.
purge() {
  dpkg --purge "$@" >/dev/null
  files >/tmp/after
  diff /tmp/before /tmp/after >/tmp/left || fail "purging $* leaves: $(cat /tmp/left)"
  echo "ok: $* purged"
}

# start NAME COMMAND...: a program that runs on, which says NAME: ready.
start() {
  local name=$1
  shift
  "$@" >/tmp/$name.log 2>&1 &
  running[$name]=$!
  for _ in $(seq 600); do
    ! grep -q "^$name: ready" "/tmp/$name.log" || return 0
    kill -0 "${running[$name]}" 2>/dev/null || break
    sleep 0.1
  done
  fail "$name does not start: $(cat "/tmp/$name.log")"
}
declare -A running

stop() {
  kill "${running[$1]}"
  wait "${running[$1]}" || fail "$1 ends with code $?: $(cat "/tmp/$1.log")"
}

# typed LINES: what they are answered at a terminal.
typed() { TERM=xterm PAGER='' XDG_STATE_HOME=/tmp timeout 60 script -qec nqecli /dev/null <<<"$1"; }

# netconf SOCKET: says hello at a session, asks for the engine's reassembly lists, prints what is answered.
netconf() {
  local base=urn:ietf:params:xml:ns:netconf:base:1.0
  printf '%s]]>]]>' "<hello xmlns=\"$base\"><capabilities><capability>urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>" \
    "<rpc xmlns=\"$base\" message-id=\"1\"><frag-reass xmlns=\"urn:tavrix:params:xml:ns:yang:tavrix-software-fwd\"><type>ipv6</type></frag-reass></rpc>" \
    "<rpc xmlns=\"$base\" message-id=\"2\"><close-session/></rpc>" | timeout 60 omad-session --socket "$1"
}

tools() {
  files >/tmp/before
  install_alone nqe-tools omad
  expect "nqecli 1.0.0" nqecli --version
  expect "nqed 1.0.0" nqed --version
  expect "omad 1.0.0" omad --version

  local examples=/usr/share/doc/nqe-tools/examples
  expect "no mistakes" nqed --check "$examples/campus.yaml"
  start nqed nqed --scenario "$examples/campus.yaml"
  expect "arena     /run/nqe/arena" nqed status
  [ "$(stat -c '%A %U' /run/nqe)" = "drwx--x--x root" ] || fail "/run/nqe has other rights"
  expect "  CtrlIfIdx  :  2001" nqecli show ctrlif_map_fwdif 2001
  expect '"count":1' nqecli list ctrlif_map_fwdif ctrl_if_index=2001 --json
  expect '{"n":1}' nqecli sql --ndjson "SELECT count(*) AS n FROM ctrlif_map_fwdif WHERE ctrl_if_index = 2001"
  expect "CAP_TABLE_FIB" nqecli agent tbl-usage
  expect "  CtrlIfIdx  :  2001" typed $'show ctrlif_map_fwdif 2001\nexit'
  expect "" nqecli snapshot /tmp/saved.arena
  expect "kind     snapshot" nqecli snapshot --info /tmp/saved.arena
  rm /tmp/saved.arena

  start omad omad --nacm /etc/omad/nacm --socket /tmp/omad.sock
  expect "Frag Count" netconf /tmp/omad.sock
  stop omad
  stop nqed

  for page in man1/nqecli.1 man1/nqecli-sql.1 man8/nqed.8 man8/omad.8 man5/nqe-scenario.5 man5/nqe-layout.5; do
    gzip -dc "/usr/share/man/$page.gz" | grep -q . || fail "the manual $page is missing"
  done
  expect "complete -F" bash -c '. /usr/share/bash-completion/completions/nqecli && complete -p nqecli'
  [ -s /usr/share/zsh/vendor-completions/_nqecli ] || fail "the completion for zsh is missing"
  for unit in nqed omad; do
    [ -s "/lib/systemd/system/$unit.service" ] || fail "$unit.service is missing"
    [ -x "$(sed -n 's/^ExecStart=\([^ ]*\).*/\1/p' "/lib/systemd/system/$unit.service")" ] || fail "$unit.service starts nothing"
  done
  dpkg-query -W -f '${Conffiles}\n' nqe-tools omad | grep -q /etc/default/nqed || fail "/etc/default/nqed is no conffile"
  purge nqe-tools omad
}

# The example that comes with the library, against the installed library alone: by its makefile, pkg-config and CMake.
compile() {
  local example=/usr/share/doc/libqdt-util-dev/examples/platform
  mkdir -p /tmp/use && cd /tmp/use
  # The flags are words.
  # shellcheck disable=SC2046
  cc -o shared $example/platform.c $(pkg-config --cflags --libs qdt_util) -lpthread
  expect "BrId" ./shared
  ldd shared | grep -q libqdt_util.so.1 || fail "pkg-config does not link the shared library"
  cat >CMakeLists.txt <<EOF
cmake_minimum_required(VERSION 3.20)
project(use LANGUAGES C)
find_package(qdt_util 1.0 REQUIRED)
foreach(kind qdt_util qdt_util_static)
  add_executable(with_\${kind} $example/platform.c)
  target_link_libraries(with_\${kind} PRIVATE qdt_util::\${kind})
endforeach()
EOF
  cmake -S . -B tree >/dev/null && cmake --build tree >/dev/null
  expect "BrId" tree/with_qdt_util
  expect "BrId" tree/with_qdt_util_static
  ! ldd tree/with_qdt_util_static | grep -q libqdt_util || fail "the static library is not what qdt_util_static links"
  cp -r $example . && make -s -C platform
  expect "CtrlIfIdx" platform/ask
  cd /
}

library() {
  files >/tmp/before
  install_alone libqdt-util1 libqdt-util-dev
  compile
  gzip -dc /usr/share/man/man3/libqdt_util.3.gz | grep -q . || fail "the manual libqdt_util.3 is missing"
  purge libqdt-util-dev libqdt-util1
}

apt-get -qq update
apt-get -qq satisfy -y --no-install-recommends "$(dependencies nqe-tools omad)" >/dev/null
tools
apt-get -qq install -y --no-install-recommends gcc libc6-dev make cmake pkg-config >/dev/null
library
echo "the packages install, work and go"
