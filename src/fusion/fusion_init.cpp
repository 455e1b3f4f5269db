// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// One-time initialisation of the fusion driver and of the estimators it
// owns. Later calls do nothing, so a re-initialisation of the library keeps
// everything learnt; only a restart request (run_state 2) is made elsewhere.
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/vector3.h"

namespace magcal {
namespace {

// Sphere fit: centre block 1e-3, d term 1, noise variance 1e-3, no forgetting.
constexpr RlsConfig kSphereFitStart = {0, -3, 0, -3, 1.0};

// Nine-state filter: covariance exponents (attitude, bias, offset, scale),
// measurement-noise exponents (acc, mag, scale), process-noise exponents
// (attitude, bias, offset, scale), fading factor, initial dip [deg], dip gain
// (0.151f widened).
constexpr double kFilterConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};

constexpr double kIdentityQuaternion[4] = {1.0, 0.0, 0.0, 0.0};

}  // namespace
}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API int32_t QvGyroCal_init_9_states_160423(void) {
    FusionState& fs = g_fusion;
    if (fs.initialised) return 0;
    fs.initialised = true;
    fs.rls_start = kSphereFitStart;
    const RlsConfig rls_copy = fs.rls_start;
    QvGyroCal_RLS_init(&rls_copy);
    for (int k = 0; k < 14; ++k) fs.filter_config[k] = kFilterConfig[k];
    double config_copy[14];
    for (int k = 0; k < 14; ++k) config_copy[k] = fs.filter_config[k];
    QvGyroCal_9_states_init(config_copy);
    qvArrayInit(fs.filter_vec_a, 3);
    qvArrayInit(fs.filter_vec_b, 3);
    qvArrayInit(fs.offset_est, 3);
    copy4(fs.q_out, kIdentityQuaternion);
    copy4(q_fused, kIdentityQuaternion);
    copy4(q_gyro, kIdentityQuaternion);
    fs.run_state = 0;
    func_Offset_Calibration_KF_init(fs.offset_pub);
    return 0;
}

extern "C" MAGCAL_API int32_t QvGyroCal_init_9_states(void) {
    return QvGyroCal_init_9_states_160423();
}
