// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "calib/calibration_state.h"

namespace magcal {

GyroCalState g_gyro_cal;
double softiron[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
UpdateHistory g_update_history = {
    {1.0, 0.0, 0.0, 0.0}, {}, {}, {}, 0, 0, {10000.0}, 0, 0, {}, 0, 0,
};

}  // namespace magcal
