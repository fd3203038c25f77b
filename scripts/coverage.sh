#!/usr/bin/env bash
# Which lines and branches the tests run, held against goals and against the list of those that are left.
#
# usage: scripts/coverage.sh            all tests, also end to end: src/, host/ and tools/
#        scripts/coverage.sh library    the library's unit tests alone: src/
#
# A line that is left stands in scripts/coverage_left.txt with its reason; another one fails the check. The tree is
# build-coverage, gcovr's report of all lines build-coverage/coverage.json.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
. scripts/common.sh

tree=$PWD/build-coverage
case ${1-} in
  '') targets=() programs='_tests$' rooms=(src host tools) objects=("$tree") ;;
  library)
    targets=(--target unit_tests frame_tests attach_tests) programs='^(unit|frame|attach)_tests$' rooms=(src)
    objects=("$tree/src" "$tree/tests/unit")
    ;;
  *)
    echo "scripts/coverage.sh: cannot make sense of \"$1\"; it takes \"library\" or nothing" >&2
    exit 2
    ;;
esac
need_packages gcovr || exit 1

# logged NAME COMMAND...: its output goes to a log, of which the end is shown when it fails.
logged() {
  local log=$tree/coverage-$1.log
  shift
  "$@" >"$log" 2>&1 || {
    tail -n 60 "$log"
    return 1
  }
}
build() { configure coverage && compile coverage "${targets[@]}"; }
mkdir -p "$tree"
logged build build || exit 1

# Each program makes its counters' files, so that processes that have given root's rights away can write them as well. What
# libgcov has to say must not stand in the output of a program.
export GCOV_ERROR_FILE=$tree/coverage-errors.log
find "$tree" -name '*.gcda' -delete
for program in "$tree"/bin/*; do
  if [[ $program = *_tests ]]; then "$program" --gtest_list_tests; else "$program" --version; fi
done >/dev/null 2>&1 </dev/null
find "$tree" -name '*.gcda' -exec chmod a+rw {} +

# Proofs that do the same thing millions of times run as few times as it takes to get everywhere.
export QDT_PROOF_READS=20000 QDT_PROOF_KILLS=4 QDT_PROOF_ROUNDS=50 QDT_PROOF_STEPS=2000 QDT_PROOF_INSTRUCTIONS=100 QDT_PROOF_EVERY=40
code=0
logged programs ctest --preset coverage --timeout 1500 -R "$programs" || code=1
if [ ${#rooms[@]} -gt 1 ]; then
  # Two look at calls of the system, of which counters make more and are let make more.
  QDT_BIN=$tree/bin logged end-to-end /usr/bin/python3 -m pytest -q -p no:cacheprovider -n $((2 * $(nproc))) \
    --dist loadgroup -k 'not one_key_takes_few_system_calls and not sessions_have_no_rights' tests/e2e || code=1
fi

# Not counted are branches that nobody wrote: a call's way out by an exception, and what the compiler adds in lines without
# code of their own.
gcovr --root . "${rooms[@]/#/--filter=}" --exclude-throw-branches --exclude-unreachable-branches \
  -j "$(nproc)" --json "$tree/coverage.json" "${objects[@]}" || exit 1
/usr/bin/python3 -B scripts/coverage_report.py "$tree/coverage.json" "${rooms[@]}" && exit "$code"
