#!/bin/sh
# Checks the models of the tables' protocols with the model checker spin: all interleavings of a writer and a reader.
# Each mutation of a model must fail, so that the check is seen to find what it looks for.
#
# usage: check.sh [DIRECTORY FOR THE CHECKER'S FILES]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=${1:-$(mktemp -d)}
mkdir -p "$work"
cd "$work"
passed=0
failed=0

# check EXPECTED MODEL [-DMUTATION...]: EXPECTED is good or bad.
check() {
  expected=$1 model=$2
  shift 2
  spin -a "$@" "$here/$model.pml" >spin.log
  cc -O2 -w -DSAFETY -DVECTORSZ=2048 -o pan pan.c
  ./pan -m200000 >pan.log
  if grep -q "errors: 0" pan.log && ! grep -q "max search depth too small" pan.log; then found=good; else found=bad; fi
  states=$(sed -nE 's/^ *([0-9]+) states, stored.*/\1/p' pan.log)
  if [ "$found" = "$expected" ]; then
    passed=$((passed + 1))
    echo "$model $*: $found as expected, $states states"
  else
    failed=$((failed + 1))
    echo "$model $*: $found instead of $expected, $states states"
    cat pan.log
  fi
}

check good chain
check good chain -DNO_LOOK
check good chain -DEARLY
check bad chain -DEARLY -DNO_LOOK
check bad chain -DNO_COUNT
check bad chain -DWILD
check good log
check bad log -DNO_EPOCH
check good record
check bad record -DNO_SPARE
check bad record -DNO_VERSION
check bad record -DNO_SERIAL

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
