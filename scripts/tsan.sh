#!/usr/bin/env bash
# What has threads, or memory that processes share, under ThreadSanitizer: no setting of its run time, no suppression.
#
# usage: scripts/tsan.sh          the short form: the rooms with threads, and the console's tests end to end, whose other
#                                 programs are those of build/
#        scripts/tsan.sh all      all unit tests, the proofs of the tables with less, and more end to end: an hour
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/common.sh
rooms=(wire web metrics)
targets=(nqeweb "${rooms[@]/%/_tests}")
end_to_end=(test_web_live.py)
binaries=build-tsan/beside  # the programs with threads, beside the others of the release tree
case ${1-} in
  '') ;;
  all)
    rooms=('[a-z_]+')
    targets=(all)
    binaries=build-tsan/bin
    end_to_end+=(test_web_api.py test_metrics.py test_sql.py test_traffic.py)
    ;;
  *)
    sed -n '4,6s/^# \{0,1\}//p' "$0" >&2
    exit 2
    ;;
esac
export QDT_PROOF_READS=200000 QDT_PROOF_KILLS=10 QDT_PROOF_STEPS=2000 QDT_PROOF_INSTRUCTIONS=200 QDT_PROOF_ROUNDS=50
unset TSAN_OPTIONS
configure tsan
compile tsan --target "${targets[@]}" >build-tsan.log 2>&1 || {
  tail -n 40 build-tsan.log >&2
  exit 1
}
rm -f build-tsan.log
if [ "$binaries" = build-tsan/beside ]; then
  mkdir -p "$binaries"
  ln -sf "$PWD/build/bin/"* "$binaries"
  # A program looks for the others where it stands itself, whatever links lead to it.
  cp --remove-destination build-tsan/bin/nqeweb "$binaries"
fi
ctest --preset tsan -R "^($(IFS='|' && echo "${rooms[*]}"))_tests\$" --timeout 3000 --verbose
QDT_BIN=$binaries /usr/bin/python3 -m pytest -q -p no:cacheprovider "${end_to_end[@]/#/tests/e2e/}"
