// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cstdint>

#include "magcal/magcal_algorithms.h"
#include "support/library_reset.h"

namespace {

// The caller's side of the stability check, starting from a fresh library
// with a reference radius of 45 uT.
struct Check {
    Check() { magcal_test::reset_library_state(); }
    double ref_radius = 45.0;  // [uT]
    int32_t stable = 0;
    // Feeds `n` samples of one radius [uT] and returns `stable`.
    int32_t feed(int n, double radius, int32_t period = 2, int32_t disturbed = 0) {
        for (int i = 0; i < n; ++i) {
            func_R_Stability_from_RLSM_v8(disturbed, &ref_radius, &stable, period, radius);
        }
        return stable;
    }
};

TEST(StabilityCheck, ReferenceMovesAfterSPlusOneOutsideAndStableAfterLPlusOneWithin) {
    // {period, L, S}: L = 30/p and S = 20/p, S = 1 from p = 21, and 30 and 20
    // outside 2..29. Exactly 2.0 away is outside.
    const int32_t cases[][3] = {{2, 15, 10}, {21, 1, 1}, {29, 1, 1}, {1, 30, 20}, {30, 30, 20}};
    for (const auto& c : cases) {
        Check k;
        EXPECT_EQ(k.feed(c[2], 47.0, c[0]), 0) << c[0];
        EXPECT_EQ(k.ref_radius, 45.0) << c[0];
        k.feed(1, 47.0, c[0]);
        EXPECT_EQ(k.ref_radius, 47.0) << c[0];
        EXPECT_EQ(k.feed(c[1], 48.9, c[0]), 0) << c[0];
        EXPECT_EQ(k.feed(1, 45.1, c[0]), 1) << c[0];
        EXPECT_EQ(k.feed(30, 90.0), 1) << c[0];  // once stable nothing moves
        EXPECT_EQ(k.ref_radius, 47.0) << c[0];
    }
    // At p = 2 a run inside survives S/2 = 5 samples outside, not 6.
    for (const int outside : {5, 6}) {
        Check k;
        k.feed(10, 45.0);
        k.feed(outside, 50.0);
        EXPECT_EQ(k.feed(outside == 5 ? 5 : 15, 45.0), 0) << outside;
        EXPECT_EQ(k.feed(1, 45.0), 1) << outside;
    }
}

TEST(StabilityCheck, DisturbanceForgetsTheReferenceWhichIsRetakenAfterSPlusOne) {
    Check k;
    ASSERT_EQ(k.feed(16, 45.0), 1);
    EXPECT_EQ(k.feed(1, 45.0, 2, 1), 0);
    EXPECT_EQ(k.ref_radius, 0.0);
    EXPECT_EQ(k.feed(10, 48.0), 0);  // S = 10 samples away from the cleared reference
    EXPECT_EQ(k.ref_radius, 0.0);
    k.feed(1, 48.0);
    EXPECT_EQ(k.ref_radius, 48.0);
    EXPECT_EQ(k.feed(15, 48.0), 0);
    EXPECT_EQ(k.feed(1, 48.0), 1);
    EXPECT_EQ(k.feed(1, 48.0, 2, 2), 1);  // only a flag of exactly 1 is a disturbance
}

}  // namespace
