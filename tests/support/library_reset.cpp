// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "support/library_reset.h"

#include "api/host_state.h"
#include "calib/calibration_state.h"
#include "ekf/nine_state_state.h"
#include "fusion/accuracy_state.h"
#include "fusion/detector_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "offset/offset_kalman_state.h"
#include "offset/sphere_fit_state.h"

namespace magcal_test {

namespace {
constexpr double kIdentity3[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
}

void reset_library_state() {
    using namespace magcal;
    g_host = HostInterfaceState{};
    for (int k = 0; k < 9; ++k) g_host.softpara[k] = kIdentity3[k];

    g_gyro_cal = GyroCalState{};
    for (int k = 0; k < 9; ++k) softiron[k] = kIdentity3[k];
    g_update_history = UpdateHistory{};
    g_update_history.g_out_q[0] = 1.0;
    g_update_history.angle_buf[0] = 10000.0;

    g_fusion = FusionState{};
    const double identity_q[4] = {1.0, 0.0, 0.0, 0.0};
    for (int k = 0; k < 4; ++k) {
        q_fused[k] = identity_q[k];
        q_gyro[k] = identity_q[k];
        qt_gy_p[k] = 0.0;
    }
    period_10ms = 2;
    const double tuning[4] = {600.0, 50.0, 10.0, 10.0};
    for (int k = 0; k < 4; ++k) g_accuracy_tuning[k] = tuning[k];

    g_motion_state = MotionState{};
    g_stability_state = StabilityState{};
    g_accuracy_state = AccuracyState{};
    accuracy3_offset_diff_th = 15.0f;

    ekf::g_nine_state = ekf::NineStateFilter{};
    offset::g_sphere_fit = offset::SphereFitState{};
    offset::g_offset_kalman = offset::OffsetKalmanState{};
}

}  // namespace magcal_test
