// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Process-wide counters of the motion detector and the stability check. The
// disturbance detector keeps nothing of its own: it works on the fusion
// driver's field reference and flag.
#pragma once

#include <cstdint>

namespace magcal {

// Motion detector: hysteresis counters for three score levels (moving, fast,
// very fast). Only `moving` is read by the library; `fast` and `vfast` are
// kept for inspection.
struct MotionState {
    int32_t avg_cnt = 0;      // samples in the score average, minus one [samples]
    double score_prev = 0.0;  // raw score of the previous sample [rad/s * m/s^2]
    int32_t on_cnt = 0;       // samples with the score above the threshold [samples]
    int32_t off_cnt = 0;      // samples with the score at or below it [samples]
    int32_t moving = 0;       // 1 while the device is judged to be moving
    int32_t fast_cnt = 0;     // samples with the score above 6.0 [samples]
    int32_t fast_off = 0;     // samples with the score at or below 6.0 [samples]
    int32_t fast = 0;         // 1 while the score stays above 6.0
    int32_t vfast_cnt = 0;    // samples with the score at 25.0 or more [samples]
    int32_t vfast_off = 0;    // samples with the score between 6.0 and 25.0 [samples]
    int32_t vfast = 0;        // 1 while the score stays at 25.0 or more
};

// Stability check: how long the radius has stayed near, or away from, the
// reference radius.
struct StabilityState {
    int32_t in_cnt = 0;   // samples within tolerance of the reference radius [samples]
    int32_t out_cnt = 0;  // samples outside it [samples]
};

extern MotionState g_motion_state;
extern StabilityState g_stability_state;

}  // namespace magcal
