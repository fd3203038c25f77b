#!/usr/bin/env bash
# Programs whose memory runs out: each allocation of each command, of the start of each program and of its requests fails
# once, and once with all behind it.
#
# usage: scripts/short_memory.sh [RUNS]    how many allocations of a command, evenly among them; 60 unless told otherwise,
#                                          "all" takes hours
set -euo pipefail
cd "$(dirname "$0")/.."
export QDT_SHORT_MEMORY="${1:-60}"
QDT_BIN="${QDT_BIN:-build/bin}" exec /usr/bin/python3 -m pytest -q -p no:cacheprovider -n "$(nproc)" --dist loadgroup \
  tests/e2e/test_short_memory.py
