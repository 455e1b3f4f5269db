// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A copy of every process-wide record of the library, to put the library
// back into a state and to compare two states bit for bit.
#pragma once

#include <string>

#include "api/host_state.h"
#include "calib/calibration_state.h"
#include "ekf/nine_state_state.h"
#include "fusion/accuracy_state.h"
#include "fusion/detector_state.h"
#include "fusion/fusion_state.h"
#include "offset/offset_kalman_state.h"
#include "offset/sphere_fit_state.h"

namespace magcal_test {

struct LibrarySnapshot {
    magcal::HostInterfaceState host;
    magcal::GyroCalState gyro_cal;
    double softiron[9];
    magcal::UpdateHistory update_history;
    magcal::FusionState fusion;
    double q_fused[4];
    double q_gyro[4];
    double qt_gy_p[4];
    int32_t period_10ms;
    double accuracy_tuning[4];
    magcal::MotionState motion;
    magcal::StabilityState stability;
    magcal::AccuracyState accuracy;
    float accuracy3_offset_diff_th;
    magcal::ekf::NineStateFilter nine_state;
    magcal::offset::SphereFitState sphere_fit;
    magcal::offset::OffsetKalmanState offset_kalman;
};

LibrarySnapshot capture_library();
void restore_library(const LibrarySnapshot& s);

// The names of the records that differ, empty when every record a later
// sample can read is the same bit for bit. The filters' scratch records are
// not compared: each step writes them before it reads them.
std::string differing_records(const LibrarySnapshot& a, const LibrarySnapshot& b);

}  // namespace magcal_test
