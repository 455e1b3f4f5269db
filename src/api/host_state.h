// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The host interface's process-wide state: the last sample of each sensor,
// their double-precision copies, one sample's results and the six output
// records the getters copy from.
#pragma once

#include <cstdint>

#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_host.h"

namespace magcal {

struct HostInterfaceState {
    uint8_t acc_ready;               // an accelerometer sample has arrived
    uint8_t gyro_ready;              // a gyroscope sample has arrived
    SensorSample accDataIn;          // last samples, verbatim
    SensorSample gyroDataIn;
    SensorSample magDataIn;
    double acc_vec[3];               // widened copies handed to the pipeline [m/s^2]
    double mag_vec[3];               // [uT]
    double gyro_vec[3];              // [rad/s]
    CalibrationResult result;        // the last processed sample's results
    FusionOutput qvGravity;
    FusionOutput qvRotationVector;
    FusionOutput qvOrientation;
    FusionOutput qvLinearaccel;
    FusionOutput qvGeoMagnetic;
    FusionOutput qvVirtualGyro;
    double softpara[9];              // soft-iron matrix as loaded, row-major
    int32_t qv_log_value;            // cleared at initialisation, never read
};

extern HostInterfaceState g_host;

// Tag of every log line of the host interface.
constexpr const char* kHostLogTag = "QV_DAEMON";

}  // namespace magcal
