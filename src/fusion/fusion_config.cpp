// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Configuration calls into the fusion driver: the stored calibration a host
// restores, the accuracy tuning, and a partial reset. Nothing is validated:
// a host restores what it saved.
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/vector3.h"

using namespace magcal;

extern "C" MAGCAL_API int32_t QvGyroCal_config_status_9_states(const double offset[3],
                                                               int32_t accuracy, double radius) {
    copy3(g_fusion.offset_pub, offset);
    g_fusion.accuracy = accuracy;
    g_fusion.radius = radius;
    return 0;
}

extern "C" MAGCAL_API int32_t QvGyroCal_config_status_9_accuracy(const double tuning[4]) {
    for (int k = 0; k < 4; ++k) g_accuracy_tuning[k] = tuning[k];
    return 0;
}

extern "C" MAGCAL_API int32_t QvGyroCal_init_reset(void) {
    g_fusion.accuracy = 0;
    g_fusion.ref_radius = 0.0;
    qvArrayInit(g_fusion.filter_vec_a, 3);
    return 0;
}
