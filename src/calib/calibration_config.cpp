// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Configuration calls of the calibration driver: the soft-iron matrix, a
// restored calibration, the accuracy tuning, and a few entries kept for hosts
// that call them.
#include "calib/calibration_state.h"
#include "magcal/magcal_algorithms.h"

using namespace magcal;

extern "C" MAGCAL_API int32_t QvGyroCal_config_softiron(const double m[9]) {
    for (int k = 0; k < 9; ++k) softiron[k] = m[k];
    return 0;
}

extern "C" MAGCAL_API int32_t QvGyroCal_config_status(const double offset[3], int32_t accuracy,
                                                      double radius) {
    return QvGyroCal_config_status_9_states(offset, accuracy, radius);
}

extern "C" MAGCAL_API int32_t QvGyroCal_config_accuracy(const double tuning[4]) {
    return QvGyroCal_config_status_9_accuracy(tuning);
}

extern "C" MAGCAL_API int32_t QvGyroCal_save(void) {
    return 0;
}

extern "C" MAGCAL_API int32_t QvGyroCal_update_last_timestamp(double t) {
    g_gyro_cal.last_time = t;
    return 0;
}

extern "C" MAGCAL_API int32_t set_acc3_th(int32_t tenths) {
    return set_accuracy3_th(tenths);
}
