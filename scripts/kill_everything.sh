#!/bin/sh
# Engine, mirror of the kernel, agent, console and readers side by side, killed at random points.
#
# usage: scripts/kill_everything.sh [KILLS]    1000 unless told otherwise
set -eu
cd "$(dirname "$0")/.."
QDT_KILLS="${1:-1000}" QDT_BIN="${QDT_BIN:-build/bin}" \
  exec /usr/bin/python3 -m pytest -q -s -p no:cacheprovider tests/e2e/test_kill_everything.py
