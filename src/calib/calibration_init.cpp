// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Initialisation of the calibration driver. The first call sets up the whole
// pipeline with an empty calibration; later calls keep everything learnt and
// only ask the next sample to restart the fusion driver.
#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"

using namespace magcal;

namespace {
constexpr double kDefaultRadius = 50.0;  // a typical earth field until one is measured [uT]
}

extern "C" MAGCAL_API int32_t QvGyroCal_init(void) {
    GyroCalState& cal = g_gyro_cal;
    if (!cal.init_done) {
        cal.last_time = 0.0;
        cal.start_state = 0;
        cal.cal_accuracy = 0;
        cal.cal_radius = kDefaultRadius;
        for (double& v : cal.cal_offset) v = 0.0;
        QvGyroCal_config_status_9_states(cal.cal_offset, 0, kDefaultRadius);
        QvGyroCal_init_9_states();
    } else {
        cal.start_state = 2;
    }
    cal.init_done = true;
    period_10ms = 2;
    g_update_history.mag_cnt = 0;
    return 0;
}

// Asks the fusion driver to restart on its next sample.
extern "C" MAGCAL_API int32_t QvGyroCal_init_start(void) {
    g_fusion.run_state = 2;
    return 0;
}
