// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Tunables of the accuracy rules that a host or tool may change at run time.
#include <cstdint>

#include "magcal/magcal_algorithms.h"

// Largest per-axis gap between the Kalman offset and the sphere-fit centre
// that still allows accuracy 3 [uT]. (A linkage block rather than a single
// `extern "C"` declaration, which the compiler flags when it has an initialiser.)
extern "C" {
MAGCAL_API float accuracy3_offset_diff_th = 15.0f;
}

// `tenths` in tenths of a microtesla; computed in single precision like the
// threshold itself.
extern "C" MAGCAL_API int32_t set_accuracy3_th(int32_t tenths) {
    accuracy3_offset_diff_th = static_cast<float>(tenths) / 10.0f;
    return tenths;
}

// Kept for hosts that still call it; there is no reset counter any more.
extern "C" MAGCAL_API int32_t set_reset_cnt(void) {
    return 0;
}
