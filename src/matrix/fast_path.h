// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Whether the filter steps may take their specialised kernels, and how wide.
//
// Every specialised step reproduces its plain step bit for bit (and falls
// back to it by itself whenever an operand is not finite). The switches exist
// so that tests can run the plain reference, and each lane width of the
// specialised kernels, on the same inputs and compare.
//
// On x86-64 the specialised steps are also built a second time for
// processors with 256-bit registers (four lanes instead of two, see
// matrix/row_kernels.h), chosen per call from what the processor reports.
// Android builds keep two lanes: the platform's x86 devices are emulators,
// and nothing here relies on its runtime's processor-feature query.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__ANDROID__)
#define MAGCAL_WIDE_LANES 1
// The clone's code generation: AVX2 without FMA, so no product is ever
// fused with a sum whatever the contraction setting.
#define MAGCAL_WIDE_TARGET __attribute__((target("avx2,no-fma"), noinline))
#else
#define MAGCAL_WIDE_LANES 0
#endif

namespace magcal {

struct FastPathSwitch {
    bool plain_only;   // true: every step takes its plain path
    bool narrow_only;  // true: the specialised steps keep to two lanes
};

extern FastPathSwitch g_fast_path;

inline bool fast_path_enabled() {
    return !g_fast_path.plain_only;
}
void set_fast_path_enabled(bool enabled);

// Whether this build and this processor have the four-lane kernels.
inline bool wide_lanes_available() {
#if MAGCAL_WIDE_LANES
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

inline bool wide_lanes_enabled() {
    return !g_fast_path.narrow_only && wide_lanes_available();
}
void set_wide_lanes_enabled(bool enabled);

}  // namespace magcal
