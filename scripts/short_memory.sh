#!/usr/bin/env bash
# Programs whose memory runs out: each allocation of each command, of the start of each program and of its requests fails
# once, and once with all behind it.
#
# usage: scripts/short_memory.sh [RUNS]    how many allocations of a command, evenly among them; 60 unless told otherwise,
#                                          "all" takes hours
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
export QDT_SHORT_MEMORY="${1:-60}" QDT_BIN="${QDT_BIN:-build/bin}"
[ "$QDT_SHORT_MEMORY" = all ] || is_count "$QDT_SHORT_MEMORY" || {
  echo "short_memory.sh: cannot make sense of \"$QDT_SHORT_MEMORY\"; it takes how many allocations fail, 1 at least, or \"all\"" >&2
  exit 2
}
need_built "$QDT_BIN" tests/failing_heap.so
exec /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$(nproc)" --dist loadgroup \
  tests/e2e/test_short_memory.py
