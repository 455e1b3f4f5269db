// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The fusion driver keeps the last second of raw field samples in a ring and
// scans it for a swing of more than 130 uT on any axis. A model that keeps
// the history as a plain array, shifted along on every sample, decides
// for every sample whether the swing hold must start; the driver's hold
// counter must agree, over streams whose ranges sit on the 130 uT edge, with
// NaN, infinities and signed zeros, while the window changes with the period.
#include <gtest/gtest.h>

#include <limits>

#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "support/library_reset.h"
#include "support/value_source.h"

namespace {

struct ShiftedFieldHistory {
    double hist[100][3] = {};
    int32_t cnt = 0;

    bool push_and_test(const double mag[3], int32_t period) {
        for (int k = 99; k >= 1; --k)
            for (int a = 0; a < 3; ++a) hist[k][a] = hist[k - 1][a];
        for (int a = 0; a < 3; ++a) hist[0][a] = mag[a];
        bool swing = false;
        for (int a = 0; a < 3; ++a) {
            double lo = 5000.0, hi = -5000.0;
            for (int k = 0; k == 0 || (k <= cnt && k < 100); ++k) {
                if (hist[k][a] < lo) lo = hist[k][a];
                if (hist[k][a] > hi) hi = hist[k][a];
            }
            if (hi - lo > 130.0) swing = true;
        }
        const int32_t window = magcal::samples_for(100, period);
        cnt = cnt + 1 >= window ? window - 1 : cnt + 1;
        return swing;
    }
};

TEST(FieldHistory, SwingHoldStartsExactlyWhenTheShiftedHistorySwings) {
    const double offsets[] = {0.0,
                              65.0,
                              130.0,
                              130.00000000000003,
                              -0.0,
                              -65.0,
                              129.99999999999997,
                              std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(),
                              5000.5};
    const double steps[] = {0.01, 0.02, 0.05, 0.2, 0.25};
    int swings = 0;
    for (uint64_t seed = 1; seed <= 3; ++seed) {
        magcal_test::reset_library_state();
        QvGyroCal_init_9_states();
        ShiftedFieldHistory model;
        magcal_test::ValueSource src(seed);
        double dt = 0.02;
        const double acc[3] = {0.0, 0.0, 9.8};
        const double gyro[3] = {0.0, 0.0, 0.0};
        for (int step = 0; step < 3000; ++step) {
            if (src.chance(0.02)) dt = steps[src.index(5)];
            double mag[3];
            for (double& v : mag)
                v = -20.0 + (src.chance(0.05) ? offsets[src.index(10)] : src.uniform(0.0, 1.0));
            const int32_t hold_before = magcal::g_fusion.range_hold;
            double q[4], offset[3], radius;
            int32_t accuracy;
            Sensor_Fusion_9_Hybrid_Mar_2018_v3(q, offset, &accuracy, &radius, mag, acc, gyro, dt);
            const int32_t period = magcal::period_from_step(dt);
            if (model.push_and_test(mag, period)) {
                ++swings;
                ASSERT_EQ(magcal::g_fusion.range_hold, magcal::samples_for(60, period)) << step;
            } else {
                ASSERT_EQ(magcal::g_fusion.range_hold, hold_before > 0 ? hold_before - 1 : 0)
                    << step;
            }
            ASSERT_EQ(magcal::g_fusion.mag_hist_cnt, model.cnt);
        }
    }
    EXPECT_GT(swings, 100);
}

}  // namespace
