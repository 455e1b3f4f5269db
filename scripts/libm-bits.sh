#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# How often the C library's maths functions that magcal calls give other bits
# on arm64 and armhf (run under qemu-user) than on this machine: 200,000
# pseudo-random arguments per function, counts of differing results printed.
# Needs ./scripts/install-deps.sh --cross.
set -euo pipefail
work=$(mktemp -d /tmp/magcal-libm.XXXXXX)
trap 'rm -rf "$work"' EXIT
cat >"$work/libm.c" <<'C'
#include <math.h>
#include <stdint.h>
#include <stdio.h>
static uint64_t state = 88172645463325252ull;
static double uniform(void) { /* xorshift64, [0, 1) */
    state ^= state << 13; state ^= state >> 7; state ^= state << 17;
    return (double)(state >> 11) / 9007199254740992.0;
}
int main(void) {
    for (int i = 0; i < 200000; ++i) {
        const double a = uniform() * 2 - 1, b = uniform() * 2 - 1, c = uniform() * 20 - 10;
        printf("%a %a %a %a %a %a\n", atan2(a, b), asin(a), sin(c), cos(c), pow(fabs(c), 3 * b), sqrt(c * c));
    }
    return 0;
}
C
flags=(-O2 -ffp-contract=off)
gcc "${flags[@]}" "$work/libm.c" -lm -o "$work/native"
"$work/native" >"$work/native.txt"
for target in aarch64-linux-gnu:qemu-aarch64 arm-linux-gnueabihf:qemu-arm; do
    triple=${target%%:*}
    "$triple-gcc" "${flags[@]}" "$work/libm.c" -lm -o "$work/$triple"
    "${target##*:}" -L "/usr/$triple" "$work/$triple" >"$work/$triple.txt"
    paste -d'|' "$work/native.txt" "$work/$triple.txt" | awk -F'|' -v t="$triple" '
        { split($1, a, " "); split($2, b, " "); for (i = 1; i <= 6; i++) if (a[i] != b[i]) d[i]++ }
        END { printf "%-20s differing of %d: atan2 %d, asin %d, sin %d, cos %d, pow %d, sqrt %d\n",
                     t, NR, d[1], d[2], d[3], d[4], d[5], d[6] }'
done
