// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cmath>

#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"
#include "support/library_reset.h"

namespace {

using magcal::g_fusion;

struct DriverOutput {
    double q[4];
    double offset[3];
    int32_t accuracy;
    double radius;
};

DriverOutput step(const double mag[3], const double acc[3], const double gyro[3], double dt) {
    DriverOutput out{};
    QvGyroCal_update_offset_9_states(out.q, out.offset, &out.accuracy, &out.radius, mag, acc, gyro,
                                     dt);
    return out;
}

constexpr double kFlat[3] = {0.0, 0.0, 9.8};
constexpr double kStill[3] = {0.0, 0.0, 0.0};

class FusionDriver : public testing::Test {
protected:
    void SetUp() override { magcal_test::reset_library_state(); }

    // Initialised driver holding a stored calibration.
    void start_with(const double offset[3], int32_t accuracy, double radius) {
        QvGyroCal_config_status_9_states(offset, accuracy, radius);
        QvGyroCal_init_9_states();
    }
};

TEST_F(FusionDriver, BeforeInitialisationReportsTheRawField) {
    const double mag[3] = {3.0, 4.0, 12.0};
    const DriverOutput out = step(mag, kFlat, kStill, 0.02);
    EXPECT_EQ(out.offset[0], 0.0);
    EXPECT_EQ(out.offset[2], 0.0);
    EXPECT_EQ(out.accuracy, 0);
    EXPECT_EQ(out.radius, 13.0);
    EXPECT_FALSE(g_fusion.initialised);
}

TEST_F(FusionDriver, PeriodFollowsTheStep) {
    const double offset[3] = {0, 0, 0};
    start_with(offset, 0, 50.0);
    const double mag[3] = {0.0, 30.0, -40.0};
    step(mag, kFlat, kStill, 0.0);
    EXPECT_EQ(magcal::period_10ms, 1);
    step(mag, kFlat, kStill, 0.5);
    EXPECT_EQ(magcal::period_10ms, 20);
    step(mag, kFlat, kStill, -0.02);  // the length of the step counts
    EXPECT_EQ(magcal::period_10ms, 2);
    step(mag, kFlat, kStill, 0.0149);
    EXPECT_EQ(magcal::period_10ms, 1);
    step(mag, kFlat, kStill, 0.015);
    EXPECT_EQ(magcal::period_10ms, 2);
}

// A stored accuracy of 3 at radius 45 survives the first sample only when
// the new radius lies strictly inside (25, 70) and within 10 of 45.
TEST_F(FusionDriver, StoredAccuracyThreeKeptOnlyForAPlausibleRadius) {
    const double offset[3] = {10.0, -5.0, 3.0};
    struct Case {
        double radius;
        int32_t expected;
    };
    for (const Case c : {Case{50.0, 3}, Case{56.0, 0}, Case{35.5, 3}, Case{34.9, 0}}) {
        magcal_test::reset_library_state();
        start_with(offset, 3, 45.0);
        const double mag[3] = {offset[0], offset[1] + 0.6 * c.radius, offset[2] - 0.8 * c.radius};
        const DriverOutput out = step(mag, kFlat, kStill, 0.02);
        EXPECT_EQ(out.accuracy, c.expected) << "radius " << c.radius;
        EXPECT_EQ(g_fusion.fusion_enable, c.expected == 3) << "radius " << c.radius;
    }
    // The plausible band is open at both ends, whatever the stored radius.
    for (const double r : {25.0, 70.0}) {
        magcal_test::reset_library_state();
        start_with(offset, 3, r);
        const double mag[3] = {offset[0] + r, offset[1], offset[2]};
        EXPECT_EQ(step(mag, kFlat, kStill, 0.02).accuracy, 0) << "radius " << r;
    }
}

TEST_F(FusionDriver, StoredAccuracyTwoRaisedAtFirstStartButNotAfterRestart) {
    const double offset[3] = {1.0, 2.0, 3.0};
    const double mag[3] = {1.0, 2.0 + 30.0, 3.0 - 40.0};
    start_with(offset, 2, 48.0);
    EXPECT_EQ(step(mag, kFlat, kStill, 0.02).accuracy, 3);
    EXPECT_EQ(g_fusion.run_state, 1);

    QvGyroCal_config_status_9_states(offset, 2, 48.0);
    QvGyroCal_init_start();
    EXPECT_EQ(g_fusion.run_state, 2);
    EXPECT_EQ(step(mag, kFlat, kStill, 0.02).accuracy, 0);
    EXPECT_EQ(g_fusion.run_state, 1);

    QvGyroCal_config_status_9_states(offset, 3, 48.0);
    QvGyroCal_init_start();
    EXPECT_EQ(step(mag, kFlat, kStill, 0.02).accuracy, 3);
}

TEST_F(FusionDriver, StoredAccuracyOneSkipsAttitudeSeeding) {
    const double offset[3] = {0.0, 0.0, 0.0};
    start_with(offset, 1, 50.0);
    // A known attitude that the sample's acc/mag attitude (identity) differs from.
    const double half = std::sqrt(0.5);
    const double q0[4] = {half, 0.0, 0.0, half};
    for (int k = 0; k < 4; ++k) magcal::q_fused[k] = magcal::q_gyro[k] = q0[k];
    const double mag[3] = {0.0, 25.0, -43.30127018922193};
    const DriverOutput out = step(mag, kFlat, kStill, 0.02);
    EXPECT_EQ(out.accuracy, 0);
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(out.q[k], q0[k], 1e-15) << k;

    // With a stored 2 the same sample seeds the attitude from acc and mag.
    magcal_test::reset_library_state();
    start_with(offset, 2, 50.0);
    for (int k = 0; k < 4; ++k) magcal::q_fused[k] = magcal::q_gyro[k] = q0[k];
    const DriverOutput seeded = step(mag, kFlat, kStill, 0.02);
    EXPECT_NEAR(std::fabs(seeded.q[0]), 1.0, 1e-9);
}

TEST_F(FusionDriver, SwingOfMoreThan130WithinASecondHoldsOff) {
    const double offset[3] = {0, 0, 0};
    start_with(offset, 0, 50.0);
    const double a[3] = {10.0, 20.0, -30.0};
    const double b[3] = {140.0, 20.0, -30.0};  // exactly 130 apart on x
    step(a, kFlat, kStill, 0.02);
    step(b, kFlat, kStill, 0.02);
    EXPECT_EQ(g_fusion.range_hold, 0);
    const double c[3] = {140.000001, 20.0, -30.0};
    step(c, kFlat, kStill, 0.02);
    EXPECT_EQ(g_fusion.range_hold, 30);  // 0.6 s at 20 ms
    // Reloaded, not counted down, while the swing stays in the window.
    step(c, kFlat, kStill, 0.02);
    EXPECT_EQ(g_fusion.range_hold, 30);
}

TEST_F(FusionDriver, StillDeviceNeverMovesTheOffset) {
    const double offset[3] = {12.0, -7.0, 30.0};
    start_with(offset, 0, 50.0);
    const double gyro[3] = {0.02, -0.03, 0.05};  // below 0.1 rad/s
    for (int i = 0; i < 500; ++i) {
        const double mag[3] = {12.0 + 0.1 * std::sin(i * 0.1), -7.0 + 22.0, 30.0 - 40.0};
        const DriverOutput out = step(mag, kFlat, gyro, 0.02);
        ASSERT_EQ(out.offset[0], 12.0);
        ASSERT_EQ(out.offset[1], -7.0);
        ASSERT_EQ(out.offset[2], 30.0);
    }
    EXPECT_EQ(g_fusion.offset_est[0], 12.0);
}

TEST_F(FusionDriver, ShortCorrectedFieldDoesNotMoveThePublishedOffset) {
    const double offset[3] = {0, 0, 0};
    start_with(offset, 0, 50.0);
    const double mag[3] = {10.0, 10.0, 10.0};
    step(mag, kFlat, kStill, 0.02);
    g_fusion.offset_est[0] = g_fusion.offset_est[1] = g_fusion.offset_est[2] = 5.0;
    DriverOutput out = step(mag, kFlat, kStill, 0.02);  // |mag - est| = 8.66
    EXPECT_EQ(out.offset[0], 0.0);
    g_fusion.offset_est[0] = g_fusion.offset_est[1] = g_fusion.offset_est[2] = -1.547;
    out = step(mag, kFlat, kStill, 0.02);  // |mag - est| = 19.9999: still kept
    EXPECT_EQ(out.offset[0], 0.0);
    g_fusion.offset_est[0] = g_fusion.offset_est[1] = g_fusion.offset_est[2] = -2.0;
    out = step(mag, kFlat, kStill, 0.02);  // |mag - est| = 20.78
    EXPECT_EQ(out.offset[0], -2.0);
    EXPECT_EQ(out.radius, std::sqrt(3.0 * 144.0));
}

TEST_F(FusionDriver, InitialisationRunsOnceAndKeepsWhatWasLearnt) {
    const double offset[3] = {4.0, 5.0, 6.0};
    start_with(offset, 0, 50.0);
    EXPECT_TRUE(g_fusion.initialised);
    EXPECT_EQ(g_fusion.run_state, 0);
    EXPECT_EQ(g_fusion.rls_start.p_centre_exp, -3);
    EXPECT_EQ(g_fusion.filter_config[13], static_cast<double>(0.151f));
    g_fusion.offset_est[0] = 99.0;
    g_fusion.run_state = 1;
    QvGyroCal_init_9_states();
    EXPECT_EQ(g_fusion.offset_est[0], 99.0);
    EXPECT_EQ(g_fusion.run_state, 1);
}

TEST_F(FusionDriver, StepAllocatesNothing) {
    const double offset[3] = {0, 0, 0};
    start_with(offset, 3, 50.0);
    const double gyro[3] = {0.4, -0.3, 0.8};
    const double mag[3] = {20.0, 30.0, -35.0};
    step(mag, kFlat, gyro, 0.02);
    const std::size_t count = magcal_test::allocations_during([&] {
        for (int i = 0; i < 50; ++i) step(mag, kFlat, gyro, 0.02);
    });
    EXPECT_EQ(count, 0u);
}

}  // namespace
