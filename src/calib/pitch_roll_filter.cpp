// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Pitch and roll from the mean accelerometer vector of the last half second.
// Gravity alone is assumed, so the mean direction is "up" in device axes;
// face down (mean z < 0) folds pitch beyond +-90 degrees. Angles [deg].
#include <cmath>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/row_kernels.h"

using namespace magcal;

namespace {
constexpr double kPi = 3.141592025756836;  // 3.141592f widened
}

extern "C" MAGCAL_API void QvGyroCal_update_get_pitch_roll(const double acc[3], double* pitch,
                                                           double* roll) {
    UpdateHistory& h = g_update_history;
    const int32_t window = samples_for(50, period_10ms);  // half a second of samples
    const int32_t n = h.accel_b_cnt >= window ? window : h.accel_b_cnt + 1;
    h.accel_b_cnt = n;

    // The sum starts with the new sample and adds the n - 1 before it, oldest
    // first. With fewer than two the new sample replaces the newest entry.
    // x and y take the entry as the first operand of each addition, z the sum
    // (see add_nan_first). x and y are two independent sums carried in one
    // register, z beside them; held in registers, not in an array, so that
    // no sum waits on memory.
    matrix::Pair xy = {acc[0], acc[1]};
    double z = acc[2];
    if (n >= 2) {
        const int32_t last = (n - 1 < 49 ? n - 1 : 49) - 1;
        ring_visit_oldest_first<50>(h.accel_b_newest, 0, last, [&](int32_t slot) {
            xy = matrix::add_nan_first(matrix::load_pair(h.B_Accel[slot]), xy);
            z = matrix::add_nan_first(z, h.B_Accel[slot][2]);
        });
        h.accel_b_newest = ring_slot_before<50>(h.accel_b_newest);
    }
    const double sum[3] = {xy[0], xy[1], z};
    for (int i = 0; i < 3; ++i) h.B_Accel[h.accel_b_newest][i] = acc[i];

    double mean[3];
    for (int i = 0; i < 3; ++i) mean[i] = sum[i] / n;
    const double norm = std::sqrt(mean[0] * mean[0] + mean[1] * mean[1] + mean[2] * mean[2]);

    double p = std::asin(-mean[1] / norm) * 180 / kPi;
    *roll = std::asin(mean[0] / norm) * 180 / kPi;
    if (mean[2] < 0) p = p >= 0 ? 180 - p : -180 - p;
    *pitch = p;
}
