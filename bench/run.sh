#!/bin/sh
# Builds and runs all benchmarks and prints the tables of docs/benchmarks.md.
#
# usage: bench/run.sh [BUILD_DIRECTORY]
#
# QDT_BENCH_REPETITIONS and QDT_BENCH_RUNS make a shorter or longer run. Exit code 1: a goal is missed, or a view
# prints other text than snprintf.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
repetitions=${QDT_BENCH_REPETITIONS:-25}
runs=${QDT_BENCH_RUNS:-500}

# Runs a command silently; what it said is shown when it fails.
quietly() {
  "$@" >"$build.log" 2>&1 || {
    cat "$build.log" >&2
    echo "bench/run.sh: failed: $*" >&2
    exit 1
  }
}

quietly cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DQDT_BUILD_BENCH=ON -DQDT_BUILD_TESTS=OFF
quietly cmake --build "$build" --parallel 2 --target views_bench table_bench readers_bench session_bench route_bench sql_bench \
  nqecli nqecli-shell nqecli-sql nqed nqeweb omad omad-session
# The tables' own program repeats what it measures and takes the least; the views' takes the median of 200 turns.
for bench in views table session route sql; do
  case $bench in
    table | route) times=3 ;;
    views | sql) times=5 ;;
    *) times=$repetitions ;;
  esac
  quietly "$build/bin/${bench}_bench" --benchmark_repetitions="$times" \
    --benchmark_report_aggregates_only=true --benchmark_out="$build/$bench.json" --benchmark_out_format=json
done
rm -f "$build.log"
/usr/bin/python3 "$root/bench/cli_bench.py" "$build/bin" "$runs" >"$build/cli.json"

/usr/bin/python3 "$root/bench/sql_bench.py" "$build/bin" "$runs" >"$build/sql_exec.json"

/usr/bin/python3 "$root/bench/data_bench.py" "$build/bin" "$runs" >"$build/data.json"

/usr/bin/python3 "$root/bench/mirror_bench.py" "$build/bin" "$runs" >"$build/mirror.json"

/usr/bin/python3 "$root/bench/metrics_bench.py" "$build/bin" "$runs" >"$build/metrics.json"

/usr/bin/python3 "$root/bench/growth_bench.py" "$build/bin" measure "$((runs / 5))" >"$build/growth.json"
/usr/bin/python3 "$root/bench/growth_bench.py" plot "$build/growth.json" "$build/plots"

/usr/bin/python3 "$root/bench/report.py" "$build/views.json" "$build/table.json" "$build/session.json" \
  "$build/route.json" "$build/sql.json" "$build/sql_exec.json" "$build/data.json" "$build/mirror.json" \
  "$build/metrics.json" "$build/cli.json"

printf '\n## What readers cost the writer\n\n'
"$build/bin/readers_bench" "$build/bin"

printf '\n## NETCONF sessions\n\n'
/usr/bin/python3 "$root/bench/agent_bench.py" "$build/bin"
