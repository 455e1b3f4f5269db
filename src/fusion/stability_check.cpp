// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Stability check: decides whether the field radius of the Kalman offset
// estimate has settled. The radius [uT] is compared with a reference radius;
// a run of samples within 2 uT of it makes the radius stable, a run outside
// moves the reference to the current radius. Run lengths follow the sample
// period (units of 10 ms). Stability holds until a disturbance, which also
// forgets the reference.
#include <cmath>
#include <cstdint>

#include "fusion/detector_state.h"
#include "magcal/magcal_algorithms.h"

namespace magcal {

StabilityState g_stability_state;

namespace {

constexpr double kTolerance = 2.0;  // radius noise of a settled offset [uT]

}  // namespace
}  // namespace magcal

extern "C" MAGCAL_API int32_t func_R_Stability_from_RLSM_v8(int32_t disturbed, double* ref_radius,
                                                            int32_t* stable, int32_t period_10ms,
                                                            double radius) {
    using namespace magcal;
    StabilityState& st = g_stability_state;

    int32_t settle_len;  // samples within tolerance before stable [samples]
    int32_t move_len;    // samples outside before the reference moves [samples]
    const int32_t p = period_10ms;
    if (p >= 2 && p <= 20) {
        settle_len = 30 / p;
        move_len = 20 / p;
    } else if (p >= 21 && p <= 29) {
        move_len = 1;
        settle_len = 30 / p;
    } else {
        settle_len = 30;
        move_len = 20;
    }

    if (disturbed == 1) {
        st.in_cnt = 0;
        st.out_cnt = 0;
        *stable = 0;
        *ref_radius = 0.0;
        return 0;
    }
    if (*stable != 0) return 0;

    if (std::fabs(*ref_radius - radius) < kTolerance) {
        if (st.in_cnt >= 2 * (settle_len / 3)) st.out_cnt = 0;
        if (st.in_cnt >= settle_len) {
            *stable = 1;
        } else {
            ++st.in_cnt;
        }
    } else {
        if (st.out_cnt >= move_len / 2) st.in_cnt = 0;
        if (st.out_cnt >= move_len) {
            st.in_cnt = 0;
            *stable = 0;
            *ref_radius = radius;
        } else {
            ++st.out_cnt;
        }
    }
    return 0;
}
