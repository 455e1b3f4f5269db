// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Process-wide state of the nine-state error Kalman filter.
//
// Error states, in order: 0-2 attitude error (vector part of a small error
// quaternion, half-angles), 3-5 gyroscope bias error [rad/s], 6-8
// magnetometer offset error [uT]. Only the covariance and the dip estimate
// carry information from one step to the next; every other matrix is
// rebuilt or overwritten before it is read.
#pragma once

#include "magcal/magcal_algorithms.h"

namespace magcal::ekf {

struct NineStateFilter {
    Matrix9 ns_T1;       // scratch, shared by initialisation and step
    Matrix9 ns_T2;       // scratch
    Matrix9 ns_T3;       // scratch
    Matrix9 ns_T4;       // scratch
    Matrix9 ns_T5;       // scratch
    Matrix9 ns_P;        // 9x9 error-state covariance
    Matrix9 ns_Q;        // 9x9 process-noise density (continuous time)
    Matrix9 ns_R;        // 6x6 measurement noise: acc rows/cols 0-2 [(m/s^2)^2], mag 3-5 [uT^2]
    double ns_dip;       // magnetic dip (inclination) estimate [deg]
    double ns_dip_gain;  // low-pass gain of the dip estimate [1]
    double ns_lambda;    // fading factor: scales R in S, divides P after the update [1]
    Matrix9 ns_F;        // 9x9 continuous-time error dynamics of the current step
    Matrix9 ns_H;        // 6x9 measurement matrix of the current step
    Matrix9 ns_M;        // scratch column for vectors read from the caller
    double ns_norm;      // scratch: the last norm computed
    Matrix9 ns_Phi;      // 9x9 discrete transition of the current step
    Matrix9 ns_Qd;       // 9x9 discrete process noise of the current step
    Matrix9 ns_K;        // 9x6 Kalman gain of the current step
};

extern NineStateFilter g_nine_state;

}  // namespace magcal::ekf
