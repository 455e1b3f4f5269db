#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Builds the fuzz preset (clang, libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs every fuzz target, or the ones named,
# for SECONDS each, from its in-tree corpus and with its dictionary:
#   scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]   (default 60 s; 0 replays
#                                                        the corpus once and stops)
# Targets are the tests/fuzz/TARGET_fuzz.cpp files. Nothing in the tree
# changes: new corpus entries go to WORK/corpus/TARGET, crashing inputs to
# WORK/crashes/TARGET/, each run's output to WORK/logs/TARGET.log, where WORK
# is build/fuzz/work or $MAGCAL_FUZZ_WORK. Prints executions, executions per
# second and new entries per target, names every crashing input, and exits
# 1 if any target crashed (tests/fuzz/README.md: what to do with one).
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "usage: $0 [SECONDS_PER_TARGET] [TARGET...]" >&2
    exit 2
}
seconds=60
if [ $# -gt 0 ] && [[ $1 =~ ^[0-9]+$ ]]; then
    seconds=$1
    shift
fi
known=()
for source in tests/fuzz/*_fuzz.cpp; do
    name=${source##*/}
    known+=("${name%_fuzz.cpp}")
done
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${known[@]}")
for t in "${targets[@]}"; do
    [[ " ${known[*]} " == *" $t "* ]] || { echo "unknown target $t (known: ${known[*]})" >&2; usage; }
done

./scripts/install-deps.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

work=${MAGCAL_FUZZ_WORK:-build/fuzz/work}
mkdir -p "$work/logs"
work=$(cd "$work" && pwd)
if [ "$seconds" -eq 0 ]; then
    limit=(-runs=0)
else
    limit=(-max_total_time="$seconds")
fi

# The last value libFuzzer printed for a final statistic.
stat() { sed -n "s/^stat::$1: *//p" "$2" | tail -n 1; }

printf '\n%-18s %10s %8s %5s  %s\n' target executions exec/s new crashes
crashed=0
for t in "${targets[@]}"; do
    corpus=$work/corpus/$t
    crashes=$work/crashes/$t
    log=$work/logs/$t.log
    mkdir -p "$corpus" "$crashes"
    status=0
    # -timeout: an input that takes seconds is a hang worth a crash file.
    "build/fuzz/tests/fuzz/fuzz_$t" "${limit[@]}" -timeout=10 -print_final_stats=1 \
        -dict="tests/fuzz/$t.dict" -artifact_prefix="$crashes/" \
        "$corpus" "tests/fuzz/corpus/$t" >"$log" 2>&1 || status=$?
    found=$(grep -o "Test unit written to .*" "$log" | sed 's/^Test unit written to //' || true)
    printf '%-18s %10s %8s %5s  %s\n' "$t" "$(stat number_of_executed_units "$log")" \
        "$(stat average_exec_per_sec "$log")" "$(stat new_units_added "$log")" \
        "$([ $status -eq 0 ] && echo none || echo "exit $status")"
    if [ $status -ne 0 ]; then
        crashed=1
        grep -E "property broken|runtime error|ERROR: |SUMMARY" "$log" | head -n 5 | sed 's/^/    /'
        for f in $found; do echo "    crashing input: $f"; done
        echo "    whole output: $log"
    fi
done
[ $crashed -eq 0 ] || echo "a target crashed: reproduce with build/fuzz/tests/fuzz/fuzz_TARGET FILE" >&2
exit $crashed
