// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The calibration driver's process-wide state: its own record, the active
// soft-iron matrix, and the histories of the per-sample update's filters.
#pragma once

#include <cstdint>

namespace magcal {

struct GyroCalState {
    bool init_done;        // set by the first initialisation; samples are refused before
    int32_t start_state;   // 0 first sample after first init, 2 after a re-init, 1 running
    double last_time;      // timestamp of the previous accepted sample [s]
    int32_t cal_accuracy;  // accuracy last returned by the fusion driver, 0..3
    double cal_radius;     // field radius last returned by the fusion driver [uT]
    double cal_offset[3];  // offset last returned by the fusion driver [uT]
};

// Histories of the per-sample update, each a ring read newest first
// (ring_entry in matrix/numeric.h). Never cleared by any initialisation
// except mag_cnt, which restarts the field smoothing.
struct UpdateHistory {
    double g_out_q[4];       // previous sample's quaternion (w, x, y, z)
    double offset_b[9];      // last three offsets from the fusion driver [uT]
    double offset_old[3];    // offset last accepted for publication [uT]
    double B_Accel[50][3];   // accelerometer history for pitch and roll [m/s^2]
    int32_t accel_b_cnt;     // valid entries of B_Accel
    int32_t accel_b_newest;  // slot of B_Accel's newest entry
    double angle_buf[100];   // raw azimuth history [deg]
    int32_t angle_cnt;       // valid entries of angle_buf
    int32_t angle_newest;    // slot of angle_buf's newest entry
    double mag_buf[80][3];   // calibrated field history [uT]
    int32_t mag_cnt;         // 80 once warmed up
    int32_t mag_newest;      // slot of mag_buf's newest entry
};

extern GyroCalState g_gyro_cal;
extern double softiron[9];  // active soft-iron matrix, row-major
extern UpdateHistory g_update_history;

}  // namespace magcal
