// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Process-wide record of the gyro-aided Kalman offset filter, declared here
// so that tests can look inside it.
#pragma once

#include "magcal/magcal_algorithms.h"

namespace magcal::offset {

struct OffsetKalmanState {
    Matrix6 kf_xf;   // 6x1 state: raw reading m [uT] (0-2), hard-iron offset b [uT] (3-5)
    Matrix6 kf_Pf;   // 6x6 state covariance [uT^2]
    Matrix6 kf_Pf0;  // initial covariance, restored by the reset
    Matrix6 kf_Qf;   // 6x6 process-noise density [uT^2/s]
    Matrix6 kf_Qf0;  // initial process-noise density, restored by the reset
    Matrix6 kf_Rf;   // 3x3 measurement-noise covariance [uT^2]
    // Scratch for the products of one step (and 3x3 temporaries of the init);
    // meaningless between calls.
    Matrix6 work_a;
    Matrix6 work_b;
    Matrix6 work_c;
    Matrix6 work_d;
};

extern OffsetKalmanState g_offset_kalman;

}  // namespace magcal::offset
