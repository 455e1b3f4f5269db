#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Measures the figures of the README's "What to expect" section with the
# magcal tool: the shipped real recordings (data/broad) and simulated
# sessions, replayed through the plug-in exactly as a host would feed it.
# Needs the default build (./scripts/test.sh or cmake --build --preset
# default); writes its scratch files to out/expect/.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=build/default/tools/magcal
out=out/expect
mkdir -p "$out"
[ -x "$tool" ] || { echo "build first: cmake --preset default && cmake --build --preset default" >&2; exit 1; }

# The summary lines that carry the figures.
figures() {
    grep -E 'time to accuracy|final offset|offset error|heading error of|tilt error|non-finite outputs|input checks' || true
}

# Offset error [uT] while accuracy is 3, between two times [s after the first
# mag sample], from a results file with truth columns: min, max and the last.
offset_error_at_3() {
    awk -F, -v from="$2" -v to="$3" '
        NR == 1 { for (i = 1; i <= NF; i++) col[$i] = i; next }
        NR == 2 { t0 = $1 }
        { t = ($1 - t0) / 1e9 }
        t >= from && t < to && $col["accuracy"] == 3 && $col["offset_error"] != "" {
            e = $col["offset_error"]; n++; last = e
            if (n == 1 || e < lo) lo = e
            if (n == 1 || e > hi) hi = e
        }
        END {
            if (n) printf "    %g-%g s: accuracy 3 on %d samples, offset error %.2f to %.2f uT, last %.2f uT\n", from, to, n, lo, hi, last
            else printf "    %g-%g s: accuracy 3 never reported\n", from, to
        }' "$1"
}

replay() {  # NAME LOG TRUTH [more replay options]
    local name=$1 log=$2 truth=$3
    shift 3
    echo "== $name"
    "$tool" replay "$log" --truth "$truth" -o "$out/$name.csv" "$@" | figures
}

trial=data/broad/05_undisturbed_slow_rotation_with_breaks_B
replay broad05 "$trial.csv.gz" "$trial.truth.csv.gz"
gzip -dc "$trial.csv.gz" | awk -F, '$2 == "gyro" && $1 < 35000000000 { x += $3; y += $4; n++ }
    END { printf "  gyroscope bias at rest, horizontal: %.3f deg/s\n", sqrt((x / n)^2 + (y / n)^2) * 57.29578 }'

trial=data/broad/34_disturbed_attached_magnet_3cm
replay broad34 "$trial.csv.gz" "$trial.truth.csv.gz"
echo "  a magnet attached 3 cm from the sensor (truth: the offset without it):"
offset_error_at_3 "$out/broad34.csv" 45 100
offset_error_at_3 "$out/broad34.csv" 105 170

"$tool" simulate --scenario figure8 --rate 50 --duration 60 --offset 25,-35,40 \
    -o "$out/figure8.log.csv" --truth "$out/figure8.truth.csv" >/dev/null
replay figure8 "$out/figure8.log.csv" "$out/figure8.truth.csv"

echo "== at rest and never calibrated, gyroscope bias 0.01 rad/s (0.57 deg/s) about x, 60 s"
"$tool" simulate --scenario still --duration 60 --gyro-bias 0.01,0,0 \
    -o "$out/still.log.csv" --truth "$out/still.truth.csv" >/dev/null
"$tool" replay "$out/still.log.csv" --truth "$out/still.truth.csv" -o "$out/still.csv" | figures
awk -F, 'NR == 1 { for (i = 1; i <= NF; i++) col[$i] = i } END {
    printf "  getOrientation at the end: pitch %.3f deg, roll %.3f deg (truth: 0, 0)\n", $col["pitch"], $col["roll"] }' \
    "$out/still.csv"

echo "== the figure-eight session with one NaN accelerometer value at 30 s"
awk -F, 'BEGIN { OFS = "," } $2 == "acc" && $1 == 31000000000 { $3 = "nan" } { print }' \
    "$out/figure8.log.csv" >"$out/nan.log.csv"
"$tool" replay "$out/nan.log.csv" --truth "$out/figure8.truth.csv" -o "$out/nan.csv" 2>&1 | figures
