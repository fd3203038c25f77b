#!/usr/bin/env bash
# The long run of the tables' proofs: 1,000,000,000 reads of every kind by four processes against a writer at full
# speed, 2,000 writers killed, both sides stopped at every instruction, and clients that store at random.
#
# usage: scripts/prove_tables.sh [BUILD_DIRECTORY]
#
# QDT_PROOF_READS, QDT_PROOF_KILLS, QDT_PROOF_STEPS (instructions of the writer), QDT_PROOF_INSTRUCTIONS (of each kind
# of read; it ends earlier when all have been), QDT_PROOF_ROUNDS and QDT_PROOF_EVERY (a search for a route is stopped behind
# every so many instructions) make a shorter or longer run. ./test.sh does the same with less.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
need_built "${1:-build}" bin/tbm_tests
export QDT_PROOF_READS="${QDT_PROOF_READS:-1000000000}" QDT_PROOF_KILLS="${QDT_PROOF_KILLS:-2000}"
export QDT_PROOF_STEPS="${QDT_PROOF_STEPS:-300000}" QDT_PROOF_INSTRUCTIONS="${QDT_PROOF_INSTRUCTIONS:-6000}"
export QDT_PROOF_ROUNDS="${QDT_PROOF_ROUNDS:-20000}" QDT_PROOF_EVERY="${QDT_PROOF_EVERY:-1}"
exec "${1:-build}/bin/tbm_tests" --gtest_filter='*Proof*:*Stepping*:*Damage*:*StoppedAtAny*'
