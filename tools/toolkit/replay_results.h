// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// One row of replay results per magnetometer sample: everything the plug-in
// handed back for it, and the truth it is judged against when there is one.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>

#include "magcal/magcal_decision_snapshot.h"
#include "magcal/magcal_host.h"
#include "truth_file.h"

namespace magcal::tool {

struct ResultRow {
    int64_t t_ns;                     // the mag sample's timestamp [ns]
    std::array<float, 3> raw;         // the mag sample [uT]
    CalibratedMagResult result;       // from doCaliApi
    FusionOutput rotation_vector;     // getRotationVector
    FusionOutput orientation;         // getOrientation: azimuth, pitch, roll [deg]
    FusionOutput gravity;             // getGravity [m/s^2]
    FusionOutput linear_accel;        // getLinearaccel [m/s^2]
    FusionOutput game_rotation;       // getGameRotationVector
    FusionOutput geomagnetic;         // getGeoMagnetic [uT]
    FusionOutput virtual_gyro;        // getVirtualGyro [rad/s]
    bool processed;                   // the library ran its pipeline on this sample
    double fused_heading;             // compass heading of +y in the fused attitude [deg]
    const TruthRecord* truth;         // nullptr without truth for this timestamp
    double offset_error;              // |published - truth offset| [uT]
    double heading_error;             // azimuth - truth heading, in (-180, 180] [deg]
    double fused_heading_error;       // fused heading - truth heading, in (-180, 180] [deg]
    bool has_decision;                // the replay took decision snapshots
    MagcalDecisionSnapshot decision;  // the library's decision state after this sample
};

// Column names, comma-separated, without a line break.
void write_result_header(std::FILE* out, bool with_truth);
void write_result_row(std::FILE* out, const ResultRow& row, bool with_truth);

// Compass heading of the device +y axis, clockwise from north in [0, 360)
// [deg], in the attitude given by a rotation vector (x, y, z of the unit
// quaternion rotating device axes into the world frame x east, y north, z up;
// w >= 0 follows from the length). Unlike the library's azimuth output, it is
// not averaged over time.
double heading_of_rotation_vector(const float* rotation_vector);

// a - b as an angle in (-180, 180] [deg].
double circular_difference_deg(double a, double b);

}  // namespace magcal::tool
