#!/usr/bin/env bash
# Every check of this project on any Debian 12 machine. Installs what is missing, says what it does, and closes with the
# line "N passed, N failed". Logs of all steps are kept under build/test-logs.
#
# usage: ./test.sh          everything: both compilers, both processors, sanitizers, real processes
#        ./test.sh quick    the unit tests alone, without optimisation
set -uo pipefail
cd "$(dirname "$0")" || exit 1
. scripts/common.sh
. scripts/steps.sh

build() { configure "$1" && compile "$@"; }

# Runs the GoogleTest programs of a tree side by side.
programs() { ctest --preset "$1" -R '_tests$' --verbose; }

# Runs the end-to-end tests over a tree's programs, those of one file in one process where they share an engine. More
# processes than processors: most of the time they wait. Of two trees one has the machine's time after the other.
end_to_end() {
  QDT_BIN=$(tree "$1")/bin \
    flock "$logs/end-to-end.lock" \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) --dist loadgroup tests/e2e
}

formatted() { git ls-files -z -- '*.cc' '*.h' | xargs -0 clang-format-14 --dry-run --Werror; }

# Builds the trees one after the other, and names on standard output what is ready to be tested. What takes long to test
# is built first.
builds() {
  echo sources
  step check "build with GCC, x86-64" build release && echo release
  step check "build with Clang, ASan and UBSan, x86-64" build asan && echo asan
  step check "build with GCC, AArch64" build aarch64 && echo aarch64
}

tests_of() {
  case $1 in
    sources)
      step check "clang-format" formatted
      ;;
    release)
      step googletest "unit tests" programs release
      step ctest "formats that must not compile, exported names" ctest --preset release -E '_tests$'
      step pytest "end to end" end_to_end release
      ;;
    asan)
      step googletest "unit tests under ASan and UBSan" programs asan &
      step pytest "end to end under ASan and UBSan" end_to_end asan
      wait
      ;;
    aarch64)
      step googletest "unit tests as AArch64 binaries" programs aarch64
      step ctest "what a device asks of the library, AArch64" ctest --preset aarch64 -L library
      ;;
  esac
}

everything() {
  local ready
  need_packages "${host_packages[@]}" clang-14 clang-format-14 python3-pytest python3-pytest-xdist python3-pexpect zsh libyang2-tools \
    openssh-client openssh-server procps python3-ncclient python3-jsonschema abigail-tools graphviz sqlite3 postgresql spin strace \
    iproute2 iputils-ping nftables conntrack tcpdump mandoc make g++-aarch64-linux-gnu qemu-user || exit 1
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1
  # One tree is tested while the next is built, and none waits for the tests of another.
  builds | {
    while read -r ready; do tests_of "$ready" & done
    wait
  }
}

quick() {
  need_packages "${host_packages[@]}" || exit 1
  step check "build without optimisation" build dev --target test_programs && step googletest "unit tests" programs dev
}

host_packages=(g++ cmake ninja-build pkg-config libyaml-cpp-dev rapidjson-dev libsqlite3-dev libnl-3-dev libpcap-dev libyang2-dev \
  libedit-dev prometheus-cpp-dev libboost-dev libssl-dev googletest python3)
case ${1-} in
  '' | quick) ;;
  *)
    echo "test.sh: cannot make sense of \"$1\"; it takes \"quick\" or nothing" >&2
    exit 2
    ;;
esac
begin_steps
"${1:-everything}"
end_steps
