// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Ground truth beside a simulated log: one row per magnetometer sample,
// "timestamp_ns,qw,qx,qy,qz,heading_deg,offset_x,offset_y,offset_z,field_ut".
// The offset is in the frame the library calibrates in: the raw sensor frame,
// or the soft-iron-corrected frame when the session came with a soft-iron
// file (see docs/log-format.md).
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace magcal::tool {

struct TruthRecord {
    int64_t t_ns;                  // timestamp of the matching mag sample [ns]
    std::array<double, 4> q;       // q_world_from_body, w x y z
    double heading_deg;            // compass azimuth of the body +y axis [deg]
    std::array<double, 3> offset;  // hard-iron offset [uT]
    double field_ut;               // true field strength at the device [uT]
};

std::vector<TruthRecord> read_truth(const std::string& path);

void write_truth_header(std::FILE* out);
void write_truth_record(std::FILE* out, const TruthRecord& r);

}  // namespace magcal::tool
