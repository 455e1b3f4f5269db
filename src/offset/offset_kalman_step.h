// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The two forms of the Kalman offset filter's predict-and-update step behind
// func_Offset_Calibration_KF_v4; both update kf_xf and kf_Pf only.
//
// offset_kalman_step_plain is the step as the model is written, every product
// a whole matrix operation; it is the reference. offset_kalman_step_fast
// computes the same bits from the structure of F, H, Q and R and returns
// false, having changed nothing, when it cannot vouch for that (an operand
// that is not finite, Q or R not diagonal, a shape other than the
// initialised one).
#pragma once

namespace magcal::offset {

void offset_kalman_step_plain(const double mag[3], const double gyro[3], double dt);
bool offset_kalman_step_fast(const double mag[3], const double gyro[3], double dt);

}  // namespace magcal::offset
