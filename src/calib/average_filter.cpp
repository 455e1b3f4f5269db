// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Moving average of the calibrated field over 0.8 s. The first call after an
// initialisation fills the history with its input, so the output starts at
// the first sample instead of ramping up from zero. Field [uT].
#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/row_kernels.h"

using namespace magcal;

extern "C" MAGCAL_API double* average_filter(double v[3]) {
    UpdateHistory& h = g_update_history;
    int32_t length = samples_for(80, period_10ms);
    if (length < 1) length = 1;
    if (h.mag_cnt < 80) {
        for (auto& entry : h.mag_buf)
            for (int i = 0; i < 3; ++i) entry[i] = v[i];
        h.mag_cnt = 80;
        return v;
    }
    // The sum runs over the entries before the new one, oldest first, the sum
    // the first operand of each addition and the new entry of the last (see
    // add_nan_first). x and y are two independent sums carried in one
    // register, z beside them; held in registers, not in an array, so that
    // no sum waits on memory.
    const int32_t last = length - 1 < 79 ? length - 1 : 79;
    matrix::Pair xy = {0.0, 0.0};
    double z = 0.0;
    ring_visit_oldest_first<80>(h.mag_newest, 0, last - 1, [&](int32_t slot) {
        xy = matrix::add_nan_first(xy, matrix::load_pair(h.mag_buf[slot]));
        z = matrix::add_nan_first(z, h.mag_buf[slot][2]);
    });
    const double sum[3] = {xy[0], xy[1], z};
    h.mag_newest = ring_slot_before<80>(h.mag_newest);
    for (int k = 0; k < 3; ++k) {
        h.mag_buf[h.mag_newest][k] = v[k];
        v[k] = matrix::add_nan_first(v[k], sum[k]) / length;
    }
    return v;
}
