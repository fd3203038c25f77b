#!/usr/bin/env bash
# Engine, mirror of the kernel, agent, console and readers side by side, killed at random points.
#
# usage: scripts/kill_everything.sh [KILLS]    1000 unless told otherwise
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
export QDT_KILLS="${1:-1000}" QDT_BIN="${QDT_BIN:-build/bin}"
is_count "$QDT_KILLS" || {
  echo "kill_everything.sh: cannot make sense of \"$QDT_KILLS\"; it takes how many are killed, 1 at least" >&2
  exit 2
}
need_built "$QDT_BIN" nqed
exec /usr/bin/python3 -m pytest -q -s -p no:cacheprovider tests/e2e/test_kill_everything.py
