#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Instructions per magnetometer sample, counted by callgrind while a recorded
# sensor log goes through the plug-in the way a host feeds it (setters,
# doCaliApi and the seven getters), for this tree and, with --base, for an
# earlier commit. Instruction counts do not depend on the machine's load.
#
#   scripts/instructions-per-sample.sh [--base COMMIT] [--by-module] [LOG ...]
#
# LOG is a sensor log, plain or gzip-compressed; the default is the golden
# 50 Hz figure-eight session. --by-module also prints where this tree's
# instructions go, per source folder of the library, from a build with
# debug information (-g changes no instruction).
set -euo pipefail
cd "$(dirname "$0")/.."

base=""
by_module=0
logs=()
while [ $# -gt 0 ]; do
  case "$1" in
    --base) base=$2; shift 2 ;;
    --by-module) by_module=1; shift ;;
    *) logs+=("$1"); shift ;;
  esac
done
[ ${#logs[@]} -gt 0 ] || logs=(tests/golden/figure8_50hz_input.csv)

if ! command -v valgrind >/dev/null; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq && $sudo apt-get install -y -qq valgrind >/dev/null
fi

cmake --preset default >/dev/null
cmake --build --preset default --target magcal magcal_plugin_replay >/dev/null
replay=$PWD/build/default/bench/magcal_plugin_replay
plugin=$PWD/build/default/libmagcal.so
base_plugin=""
[ -z "$base" ] || base_plugin=$(scripts/build-base.sh "$base")

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# count LOG PLUGIN [OUT]: prints "<instructions> <magnetometer samples>"
count() {
  local out=${3:-$tmp/callgrind.out}
  valgrind --tool=callgrind --collect-atstart=no --toggle-collect=replay_stream \
    --callgrind-out-file="$out" "$replay" "$1" "$2" >"$tmp/replay.txt" 2>"$tmp/valgrind.txt"
  local ir mags
  ir=$(sed -n 's/.*Collected : *\([0-9]*\).*/\1/p' "$tmp/valgrind.txt")
  mags=$(sed -n 's/.*, \([0-9]*\) magnetometer samples.*/\1/p' "$tmp/replay.txt")
  echo "$ir $mags"
}

printf '%-52s %8s %14s' "log" "samples" "instr/sample"
[ -z "$base" ] || printf ' %14s %7s' "base" "ratio"
printf '\n'
for log in "${logs[@]}"; do
  input=$log
  case "$log" in *.gz) input=$tmp/log.csv; zcat "$log" >"$input" ;; esac
  read -r ir mags < <(count "$input" "$plugin")
  printf '%-52s %8d %14.0f' "$(basename "$log")" "$mags" "$(awk "BEGIN { print $ir / $mags }")"
  if [ -n "$base" ]; then
    read -r base_ir _ < <(count "$input" "$base_plugin")
    printf ' %14.0f %6.1fx' "$(awk "BEGIN { print $base_ir / $mags }")" \
      "$(awk "BEGIN { print $base_ir / $ir }")"
  fi
  printf '\n'
done

if [ "$by_module" -eq 1 ]; then
  cmake -S . -B build/callgrind -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_FLAGS_RELEASE="-O2 -g -DNDEBUG" -DCMAKE_C_FLAGS_RELEASE="-O2 -g -DNDEBUG" \
    -DMAGCAL_BUILD_TESTS=OFF -DMAGCAL_BUILD_BENCH=OFF -DMAGCAL_BUILD_TOOLS=OFF >/dev/null
  cmake --build build/callgrind --target magcal -j 2 >/dev/null
  input=${logs[0]}
  case "$input" in *.gz) input=$tmp/log.csv; zcat "${logs[0]}" >"$input" ;; esac
  read -r ir mags < <(count "$input" "$PWD/build/callgrind/libmagcal.so" "$tmp/modules.out")
  echo
  echo "Where the instructions of $(basename "${logs[0]}") go (per magnetometer sample):"
  # Each function's own instructions (code inlined into it included), by the
  # stage of the pipeline the function belongs to.
  callgrind_annotate --auto=no --threshold=100 --show-percs=no "$tmp/modules.out" 2>/dev/null |
    awk -v mags="$mags" '
      $1 ~ /^[0-9,]+$/ && $2 ~ /:/ {
        n = $1; gsub(",", "", n)
        f = $2; sub(/^[^:]*:/, "", f)  # the function, whatever file its first line is in
        if ($0 ~ /(libm|libc)[.]so|sysdeps|^ *[0-9,]+ +[.]\//) m = "libm and libc"
        else if (f ~ /nine_state|magcal::ekf::|QvGyroCal_9_states|invert_without_pivoting<6>|diagonal_and_finite<9/)
          m = "ekf/      nine-state filter step"
        else if (f ~ /offset_kalman|offset::[(]anonymous|Offset_Calibration|rotation_over_step|pivoting<3>|finite<6|finite<3/)
          m = "offset/   Kalman offset step"
        else if (f ~ /sphere_fit|QvGyroCal_RLS/) m = "offset/   sphere fit"
        else if (f ~ /angle_filter|average_filter|pitch_roll|QvGyroCal_update_offset[^_]/)
          m = "calib/    per-sample update and its filters"
        else if (f ~ /^QVG_/) m = "api/      host entry points"
        else if ($0 ~ /src\//) m = "fusion/   driver, detectors, accuracy, attitude; the rest"
        else m = "host loop"
        t[m] += n
      }
      END { for (k in t) printf "%8.0f  %s\n", t[k] / mags, k }' | sort -rn
fi
