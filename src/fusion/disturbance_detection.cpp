// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Disturbance detector: flags a sudden change of the raw field strength, the
// mark of a magnet or a lump of iron coming close. The Earth's field does not
// change length when the device turns, so a jump of more than 15 uT between
// consecutive samples is taken as a disturbance; the flag lasts one sample.
// State: the caller's field reference (last raw length [uT]) and flag.
#include <cmath>
#include <cstdint>

#include "magcal/magcal_algorithms.h"

namespace {

constexpr double kJumpLimit = 15.0;  // largest plausible change of |B| per sample [uT]

}  // namespace

extern "C" MAGCAL_API int32_t func_Disturbance_Detection_v7(const double mag[3],
                                                            const double offset[3],
                                                            double* field_ref, int32_t* disturbed,
                                                            int32_t /*period_10ms*/,
                                                            double radius) {
    const double length = std::sqrt(mag[0] * mag[0] + mag[1] * mag[1] + mag[2] * mag[2]);
    const double previous = *field_ref;
    *field_ref = length;

    // Without a radius or an offset nothing has been learnt that a jump could spoil.
    const bool has_offset = offset[0] != 0.0 || offset[1] != 0.0 || offset[2] != 0.0;
    if (radius == 0.0) {
        *disturbed = 0;
    } else if (has_offset && std::fabs(length - previous) > kJumpLimit) {
        *disturbed = 1;
    } else {
        *disturbed = 0;
    }
    return 0;
}
