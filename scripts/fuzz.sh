#!/usr/bin/env bash
# Runs one fuzzer, or all of them, as many at a time as there are processors, from the inputs that are kept.
#
# usage: scripts/fuzz.sh TARGET|all SECONDS      TARGET: a source of fuzz/ without its ending
#
# New inputs stand in build-fuzz/corpus/TARGET, from where scripts/fuzz.sh TARGET merge takes those that reach something
# new into fuzz/corpus/TARGET. An input that ends the program is kept as build-fuzz/found/TARGET-*, and the exit code is 1.
# The last line of each target tells its executions, the edges reached, and what was found.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
. scripts/common.sh

targets() { sed -n 's/^qdt_fuzzer(\([a-z_]*\) .*/\1/p' fuzz/CMakeLists.txt; }

usage() {
  sed -n '4,8s/^# \{0,1\}//p' "$0" >&2
  exit 2
}
[ $# -eq 2 ] || usage
target=$1 seconds=$2
is_count "$seconds" || [ "$seconds" = merge ] || usage
[ "$target" = all ] || targets | grep -qxF -e "$target" || {
  echo "scripts/fuzz.sh: there is no target \"$target\"; there are: $(targets | paste -sd' ')" >&2
  exit 2
}
tree=build-fuzz

# Those of them whose libraries are there.
built() { for name in $(targets); do [ ! -x "$tree/bin/fuzz_$name" ] || echo "$name"; done; }

build() { configure fuzz && compile fuzz; }
log=$tree.log
build >"$log" 2>&1 || {
  tail -n 40 "$log"
  exit 1
}
rm -f "$log"
names=$(built)
[ "$target" = all ] || names=$(grep -xF -e "$target" <<<"$names")
[ -n "$names" ] || {
  echo "scripts/fuzz.sh: \"$target\" is not built, as libraries are missing (./test.sh quick installs them)" >&2
  exit 2
}
export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1

# Of libFuzzer's last status line the executions and edges.
fuzz() {
  local name=$1 log=$tree/fuzz-$1.log kept=fuzz/corpus/$1 new=$tree/corpus/$1 found
  mkdir -p "$new" "$tree/found" "$kept"
  "$tree/bin/fuzz_$name" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=3000 -max_len=4096 -print_final_stats=1 \
    -artifact_prefix="$tree/found/$name-" "$new" "$kept" >"$log" 2>&1
  local code=$?
  found=$(sed -nE 's/^artifact_prefix=.*Test unit written to (.*)$/\1/p' "$log")
  printf '%-16s %10s executions, %6s edges, %s\n' "$name" \
    "$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+)$/\1/p' "$log")" \
    "$(sed -nE 's/^#[0-9]+.* cov: ([0-9]+) .*/\1/p' "$log" | tail -n 1)" "${found:-nothing found}"
  [ "$code" -eq 0 ] || tail -n 60 "$log"
  return "$code"
}

merge() {
  mkdir -p "fuzz/corpus/$1" "$tree/corpus/$1"
  "$tree/bin/fuzz_$1" -merge=1 -max_len=4096 "fuzz/corpus/$1" "$tree/corpus/$1" 2>&1 | tail -n 1
}

code=0 fuzzers=()
for name in $names; do
  if [ "$seconds" = merge ]; then
    merge "$name" || code=1
    continue
  fi
  while [ "$(jobs -rp | wc -l)" -ge "$(nproc)" ]; do wait -n; done
  fuzz "$name" &
  fuzzers+=($!)
done
for fuzzer in "${fuzzers[@]}"; do wait "$fuzzer" || code=1; done
exit "$code"
