#!/usr/bin/env bash
# The whole tree on AArch64, on an x86-64 machine: host platform, tools, agent, console and tests are built against
# Debian's arm64 packages and run in qemu-user, with address spaces of 39 and of 48 bits. The Debian that has the foreign
# architecture stands in build/ (scripts/roots.sh); this machine's own is left as it is. Runs as root.
#
# usage: scripts/aarch64.sh [--short | 39 | 48]
#
# --short is what .ci/run has time for, and counts with its other checks: docs/testing.md says what it leaves out. With
# a number the tests run with address spaces of so many bits alone. The last line is "N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
. scripts/common.sh
. scripts/roots.sh
. scripts/steps.sh

short= widths=(39 48)
case ${1-} in
  '') ;;
  --short) short=1 ;;
  39 | 48) widths=("$1") ;;
  *) echo "aarch64.sh: cannot make sense of \"$1\"; it takes \"--short\", 39, 48 or nothing" >&2 && exit 2 ;;
esac
[ "$(id -u)" -eq 0 ] || fail "it takes root to make a Debian to build in (sudo $0)"
[ "$(dpkg --print-architecture)" = amd64 ] || fail "it takes an x86-64 machine"
own_mounts "$@"

packages=$PWD/build/packages/build-arm64
root=$PWD/build/aarch64/root
source=/first/of-two/libqdt-util
built=$source/obj-aarch64-linux-gnu

# What runs the tests. Those are programs of this machine's processor, and so are those that the copies are read with.
test_packages=(googletest graphviz iproute2 libyang2-tools openssh-client openssh-server openssl procps python3-jsonschema
  python3-ncclient python3-pexpect python3-pytest python3-pytest-xdist python3-yaml sqlite3 tcpdump zsh libnl-3-200 libpcap0.8
  libyaml-cpp0.7)

# The Debian that the packages were built in with what runs the tests, and in it the tree of which they were built.
make_test_root() {
  local made
  made="$(cat "$packages.made") ${test_packages[*]}"
  if [ "$(cat "$root.made" 2>/dev/null)" != "$made" ]; then
    rm -rf "$root" "$root.made"
    mkdir -p "$root"
    tar -C "$packages" -c --exclude=./first --exclude=./a . | tar -C "$root" -x || return
    cp /etc/resolv.conf "$root/etc/" || return
    in_root "$root" env DEBIAN_FRONTEND=noninteractive sh -ec 'apt-get -qq update
      apt-get -qq install -y --no-install-recommends "$@"' sh "${test_packages[@]}" || return
    echo "$made" >"$root.made"
  fi
  rm -rf "${root:?}/first"
  cp -a "$packages/first" "$root/"
}

# The tests are compiled on top of the tree that the packages are made of, and against it.
build_tests() {
  make_test_root && in_root "$root" sh -ec '
    built=$1
    shift
    cmake -DQDT_BUILD_TESTS=ON "$built" >/dev/null
    ninja -C "$built" "$@"' sh "$built" "$@"
}

# in_tree BITS COMMAND...: in the sources, with as many bits of addresses for what qemu-user runs. The shell stays, and takes
# processes whose parents have ended.
in_tree() {
  local bits=$1 bound=()
  shift
  # Else a program has all that qemu-user has: 47 bits, which is what 48 leave to a program on x86-64.
  [ "$bits" -eq 48 ] || bound=(QEMU_RESERVED_VA=$((1 << bits)))
  in_root "$root" env "${bound[@]}" LC_ALL=C.UTF-8 QDT_PATIENCE=120 QDT_BIN="$built/bin" sh -ec '
    cd "$1"
    shift
    "$@"
    exit' sh "$source" "$@"
}

# programs BITS CTEST-WORD...: the GoogleTest programs. qemu-user has no ioctls for libpcap's sockets.
programs() {
  local bits=$1
  shift
  in_tree "$bits" env GTEST_FILTER=-CapturedTrafficTest.CapturesInANamespace ctest --test-dir "$built" --verbose --timeout 1200 --parallel "$(nproc)" "$@"
}

# end_to_end BITS PYTEST-WORD...: the programs as people start them, by the tests of tests/e2e.
end_to_end() {
  local bits=$1
  shift
  in_tree "$bits" env PYTHONPATH=tests/processors python3 -m pytest -q -p no:cacheprovider -p emulation -rs \
    -n $((2 * $(nproc))) --dist loadgroup "$@"
}

# copies BITS: engines of both processors, whose copies the programs of both read.
copies() {
  configure release && compile release --target nqed nqecli nqecli-sql || return
  rm -rf "$root/x86-64"
  mkdir "$root/x86-64"
  cp "$(tree release)"/bin/{nqed,nqecli,nqecli-sql} "$root/x86-64" || return
  in_tree "$1" env QDT_OTHER_BIN=/x86-64 python3 -m pytest -q -p no:cacheprovider tests/processors
}

whole() {
  local bits
  step check "Debian packages for arm64" scripts/packages.sh arm64
  step check "build the tests for arm64" build_tests test_programs nqe_sql || return
  run_arm64
  for bits in "${widths[@]}"; do
    step googletest "unit and host tests, AArch64, $bits bits" programs "$bits" -R '_tests$'
    step pytest "end to end, AArch64, $bits bits" end_to_end "$bits" tests/e2e
    step pytest "copies of both processors, $bits bits" copies "$bits"
  done
}

short_form() {
  step check "Debian packages for arm64, once" scripts/packages.sh --build arm64 || return
  step check "build tests for arm64" build_tests "${short_programs[@]}" || return
  run_arm64
  step googletest "tests of host/ as AArch64 programs" programs 39 -R "^($(IFS='|' && echo "${short_programs[*]}"))\$"
  step pytest "end to end as AArch64 programs" end_to_end 39 "${short_files[@]/#/tests/e2e/}"
  step pytest "copies of both processors" copies 39
}
short_programs=(arena_tests base_tests query_tests record_tests regions_tests session_tests wire_tests)
short_files=(test_cli.py test_diff.py test_engine_command.py test_find.py test_netconf_access.py test_snapshot_info.py test_web_api.py)

if [ -n "$short" ]; then
  short_form
else
  begin_steps
  whole
  end_steps
fi
