#!/usr/bin/env bash
# Every check of this project on any Debian 12 machine. Installs what is missing, says what it does, and closes with the
# line "N passed, N failed". Logs of all steps are kept under build/test-logs.
set -uo pipefail
cd "$(dirname "$0")"
. scripts/common.sh

need_packages g++ cmake ninja-build libyaml-cpp-dev googletest clang-14 clang-format-14 python3 python3-pytest \
  pkg-config libyang2-dev libyang2-tools libnetconf2-dev libssh-dev libyuma-base openssh-client openssl procps \
  python3-ncclient graphviz spin g++-aarch64-linux-gnu qemu-user || exit 1

passed=0
failed=0
logs=build/test-logs
mkdir -p "$logs"

# Counts what a step's log reports: GoogleTest's and pytest's closing lines, else the step itself.
count() {
  local log=$1 code=$2 good bad
  good=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?.*/\1/p; s/.*[^0-9]([0-9]+) passed.*/\1/p; s/^([0-9]+) passed.*/\1/p' \
    "$log" | awk '{n += $1} END {print n + 0}')
  bad=$(sed -nE 's/^ *([0-9]+) FAILED TESTS?$/\1/p; s/^(.* )?([0-9]+) (failed|error|errors)[, ].*/\2/p' "$log" |
    awk '{n += $1} END {print n + 0}')
  [ "$good" -eq 0 ] && [ "$code" -eq 0 ] && good=1
  [ "$bad" -eq 0 ] && [ "$code" -ne 0 ] && bad=1
  passed=$((passed + good))
  failed=$((failed + bad))
  printf '%6d passed, %d failed  (%ds)\n' "$good" "$bad" $((SECONDS - started))
  [ "$code" -eq 0 ] || tail -n 60 "$log"
}

# step NAME COMMAND...: runs a command with its output in a log, and counts.
step() {
  local name=$1 log code=0
  shift
  log=$logs/$(echo "$name" | tr -c 'a-zA-Z0-9\n' '-').log
  printf '%-58s' "$name"
  started=$SECONDS
  "$@" >"$log" 2>&1 || code=$?
  count "$log" "$code"
  return "$code"
}

build() {
  local directory=$1
  shift
  configure "$directory" "$@" && compile "$directory"
}

# Runs each GoogleTest program of a build.
run_programs() {
  local directory=$1 program code=0
  shift
  for program in "$directory"/bin/*_tests; do
    "$@" "$program" --gtest_brief=1 || code=1
  done
  return "$code"
}

end_to_end() { QDT_BIN=$1/bin /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/e2e; }

formatted() { git ls-files -z -- '*.cc' '*.h' | xargs -0 clang-format-14 --dry-run --Werror; }

sanitized=(-DQDT_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O1)
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1

step "build with GCC, x86-64" build build &&
  step "unit tests" run_programs build &&
  step "formats that must not compile, exported names, models" ctest --test-dir build -E '_tests$' --output-on-failure
step "end to end" end_to_end build
step "build with Clang, x86-64" build build-clang -DCMAKE_CXX_COMPILER=clang++-14 -DQDT_BUILD_TESTS=OFF
step "build with ASan and UBSan" build build-asan "${sanitized[@]}" &&
  step "unit tests under ASan and UBSan" run_programs build-asan &&
  step "end to end under ASan and UBSan" end_to_end build-asan
step "build with GCC, AArch64" build build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DQDT_BUILD_HOST=OFF &&
  step "unit tests as AArch64 binaries" run_programs build-aarch64 qemu-aarch64 -L /usr/aarch64-linux-gnu
step "build with Clang, AArch64" build build-clang-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake \
  -DCMAKE_CXX_COMPILER=clang++-14 -DQDT_BUILD_HOST=OFF -DQDT_BUILD_TESTS=OFF
step "clang-format" formatted

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
