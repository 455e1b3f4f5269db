// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// A saved calibration between replays, as a small text file:
//   # comment lines
//   offset X Y Z      published hard-iron offset [uT]
//   accuracy N        0..3
//   radius R          field radius [uT]: |calibrated field| of the last
//                     processed sample, since the host table does not hand
//                     out the library's own radius
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace magcal::tool {

struct SavedCalibration {
    std::array<float, 3> offset;  // [uT]
    int32_t accuracy;             // 0..3
    double radius;                // [uT]
};

// InputError "FILE:LINE: ..." for a malformed file.
SavedCalibration read_calibration_state(const std::string& path);

void write_calibration_state(std::FILE* out, const SavedCalibration& state);

}  // namespace magcal::tool
