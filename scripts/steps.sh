# shellcheck shell=bash
# Steps that are run, counted and logged, for test.sh and .ci/run. Sourced with the repository's root as the working
# directory. Steps may run side by side: each reports in one piece when it ends, on the standard output that this file
# was sourced with, and adds its counts to a file that all of a run share.
logs=build/test-logs
results=$logs/results
mkdir -p "$logs"
exec 3>&1

# begin_steps: the counts of an earlier run go.
begin_steps() { : >"$results"; }

# record PASSED FAILED
record() { echo "$1 $2" >>"$results"; }

# total PROGRAM LOG: the sum of the numbers that a sed program finds.
total() { sed -nE "$1" "$2" | awk '{n += $1} END {print n + 0}'; }

# What a log reports, as "PASSED FAILED", by who wrote it. ctest puts its number of a test before each line.
count_googletest() {
  echo "$(total 's/^([0-9]+: )?\[  PASSED  \] ([0-9]+) tests?\..*/\2/p' "$1")" \
    "$(total 's/^([0-9]+: )? *([0-9]+) FAILED TESTS?$/\2/p' "$1")"
}
count_pytest() {
  local summary='in [0-9.]+s( \([0-9:]+\))?( =+)?$'
  echo "$(total "s/^(.*[ =])?([0-9]+) passed.* $summary/\\2/p" "$1")" \
    "$(($(total "s/^(.*[ =])?([0-9]+) failed.* $summary/\\2/p" "$1") +
      $(total "s/^(.*[ =])?([0-9]+) errors?.* $summary/\\2/p" "$1")))"
}
count_ctest() {
  sed -nE 's/^[0-9]+% tests passed, ([0-9]+) tests failed out of ([0-9]+)$/\1 \2/p' "$1" |
    awk '{bad += $1; all += $2} END {print all - bad, bad + 0}'
}

# step KIND NAME COMMAND...: runs a command with its output in a log. KIND is who reports how many tests ran, of which
# there must be one at least: googletest, pytest, ctest; or `check`: the command is one check itself.
step() {
  local kind=$1 name=$2 log code=0 good=0 bad=0 started=$SECONDS report
  shift 2
  log=$logs/$(echo "$name" | tr -c 'a-zA-Z0-9\n' '-').log
  "$@" >"$log" 2>&1 || code=$?
  if [ "$kind" = check ]; then
    [ "$code" -ne 0 ] || good=1
  else
    read -r good bad < <("count_$kind" "$log")
    [ "$code" -ne 0 ] || [ "$good" -ne 0 ] || { code=1 && echo "no test ran" >>"$log"; }
  fi
  # Who crashes reports no failure.
  [ "$code" -eq 0 ] || [ "$bad" -ne 0 ] || bad=1
  record "$good" "$bad"
  report=$(printf '%-58s%6d passed, %d failed  (%ds)' "$name" "$good" "$bad" $((SECONDS - started)))
  [ "$code" -eq 0 ] || report+=$'\n'$(tail -n 60 "$log")
  printf '%s\n' "$report" >&3
  return "$code"
}

# end_steps: the closing line over all that was recorded; false when something failed.
end_steps() {
  local good bad
  read -r good bad < <(awk '{good += $1; bad += $2} END {print good + 0, bad + 0}' "$results")
  [ "$good" -ne 0 ] || [ "$bad" -ne 0 ] || bad=1
  echo "$good passed, $bad failed"
  [ "$bad" -eq 0 ]
}
