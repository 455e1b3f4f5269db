#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# One-minute demonstration, from a fresh Debian machine to two pictures:
# installs what is missing, builds the default preset, simulates a phone
# waved in a figure eight with a hard-iron offset, replays it through the
# plug-in against the ground truth and draws the report; then does the same
# with a real recording of a hand-held IMU with optical ground truth
# (data/broad, CC BY 4.0).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
out=out/demo
tool=build/default/tools/magcal

step() { printf '\n== %s\n' "$*"; }
as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

missing=()
command -v cmake >/dev/null 2>&1 || missing+=(cmake)
command -v g++ >/dev/null 2>&1 || missing+=(g++)
command -v make >/dev/null 2>&1 || missing+=(make)
dpkg -s libgtest-dev >/dev/null 2>&1 || missing+=(libgtest-dev)
dpkg -s libbenchmark-dev >/dev/null 2>&1 || missing+=(libbenchmark-dev)
/usr/bin/python3 -c 'import numpy' >/dev/null 2>&1 || missing+=(python3-numpy)
dpkg -s zlib1g-dev >/dev/null 2>&1 || missing+=(zlib1g-dev)
/usr/bin/python3 -c 'import matplotlib' >/dev/null 2>&1 || missing+=(python3-matplotlib)
if [ ${#missing[@]} -gt 0 ]; then
    step "Installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null
fi

mkdir -p "$out"
step "Building the default preset (log: $out/build.log)"
if ! { cmake --preset default && cmake --build --preset default; } >"$out/build.log" 2>&1; then
    tail -n 30 "$out/build.log"
    echo "build failed; the whole log is in $out/build.log" >&2
    exit 1
fi
echo "built $tool and build/default/libmagcal.so"

step "Simulating one minute of a phone waved in a figure eight (50 Hz, offset 25,-35,40 uT)"
"$tool" simulate --scenario figure8 --rate 50 --duration 60 --offset 25,-35,40 \
    -o "$out/session.csv" --truth "$out/truth.csv"

step "Replaying it through the plug-in"
"$tool" replay "$out/session.csv" --truth "$out/truth.csv" -o "$out/results.csv"

step "Drawing the report"
"$tool" report "$out/results.csv" --truth "$out/truth.csv" -o "$out/report.png"

trial=data/broad/05_undisturbed_slow_rotation_with_breaks_B
step "Replaying a real recording: $trial (35 s at rest, then slow turns; Laidig et al., BROAD, CC BY 4.0)"
"$tool" replay "$trial.csv.gz" --truth "$trial.truth.csv.gz" -o "$out/broad05-results.csv"

step "Drawing its report"
# The report reads plain text; the tool itself reads the compressed files.
gzip -dc "$trial.truth.csv.gz" >"$out/broad05-truth.csv"
"$tool" report "$out/broad05-results.csv" --truth "$out/broad05-truth.csv" -o "$out/broad05-report.png"

printf '\nDone. Open %s/%s/report.png (simulated) and %s/%s/broad05-report.png (real)\nto see the calibration.\n' \
    "$root" "$out" "$root" "$out"
