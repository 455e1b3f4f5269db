// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The two forms of the nine-state filter step behind QvGyroCal_9_states.
//
// nine_state_step_plain is the step as the model is written, every product a
// whole matrix operation; it is the reference. nine_state_step_fast computes
// the same bits from the structure of the step's matrices and returns false,
// having changed nothing, when it cannot vouch for that (an operand that is
// not finite, an unexpected shape, arguments that share storage with q).
#pragma once

namespace magcal::ekf {

void nine_state_step_plain(double q[4], double mag_corr_out[3], double bias_corr_out[3],
                           const double mag[3], const double acc[3], const double gyro[3],
                           const double gyro_prev[3], double dt);

bool nine_state_step_fast(double q[4], double mag_corr_out[3], double bias_corr_out[3],
                          const double mag[3], const double acc[3], const double gyro[3],
                          const double gyro_prev[3], double dt);

}  // namespace magcal::ekf
