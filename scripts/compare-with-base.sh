#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Times this tree's plug-in against an earlier commit's in one process, the
# two builds' rounds interleaved (A B A B ...), on recorded sensor logs, and
# checks on the same logs, and on perturbed copies of them full of special
# values, that both builds hand the host the same bytes for every sample.
# Exits non-zero when any output differs.
#
#   scripts/compare-with-base.sh [--base COMMIT] [--rounds N] [--seeds N] [LOG ...]
#
# The default base is f7424c4, the last commit before the specialised
# per-sample path; the default log is the golden 50 Hz session. --seeds sets
# how many perturbed copies of each log are compared (default 4). Where two
# NaNs of different sign meet in an addition or a product, which one comes
# out depends on the order the compiler gave the operands, so a change that
# only rearranges code can still change a NaN's sign: more seeds find more.
set -euo pipefail
cd "$(dirname "$0")/.."

base=f7424c4
rounds=21
seeds=4
logs=()
while [ $# -gt 0 ]; do
  case "$1" in
    --base) base=$2; shift 2 ;;
    --rounds) rounds=$2; shift 2 ;;
    --seeds) seeds=$2; shift 2 ;;
    *) logs+=("$1"); shift ;;
  esac
done
[ ${#logs[@]} -gt 0 ] || logs=(tests/golden/figure8_50hz_input.csv)

cmake --preset default >/dev/null
cmake --build --preset default --target magcal magcal_plugin_replay >/dev/null
replay=build/default/bench/magcal_plugin_replay
plugin=$PWD/build/default/libmagcal.so
base_plugin=$(scripts/build-base.sh "$base")

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
status=0
for log in "${logs[@]}"; do
  input=$log
  case "$log" in *.gz) input=$tmp/log.csv; zcat "$log" >"$input" ;; esac
  echo "== $(basename "$log")"
  "$replay" --rounds "$rounds" "$input" "$plugin" "$base_plugin" 2>/dev/null | tail -n +2 || status=1
  for seed in $(seq 1 "$seeds"); do
    printf 'perturbed (seed %d): ' "$seed"
    "$replay" --perturb "$seed" "$input" "$plugin" "$base_plugin" 2>/dev/null | tail -n 1 || status=1
  done
done
exit $status
