// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Gyro-aided Kalman filter of the hard-iron offset: set-up, seeding, reset,
// one hand-computed step without rotation, recovery of a known offset, and
// the allocation-free steps of both offset estimators.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "magcal/magcal_algorithms.h"
#include "offset/offset_kalman_state.h"
#include "support/alloc_counter.h"

namespace {

using magcal::offset::g_offset_kalman;

double xf(int i) { return g_offset_kalman.kf_xf.data[i][0]; }

bool same(const Matrix6& a, const Matrix6& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Field in body axes of a device turning at body rate w [rad/s] for dt [s]:
// the field turns by -|w| dt about w (Rodrigues, exact for a held rate).
void turn_field(double v[3], const double w[3], double dt) {
    const double n = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
    const double u[3] = {w[0] / n, w[1] / n, w[2] / n};
    const double c = std::cos(n * dt), s = -std::sin(n * dt);
    const double ux_v[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                            u[0] * v[1] - u[1] * v[0]};
    const double u_v = u[0] * v[0] + u[1] * v[1] + u[2] * v[2];
    for (int i = 0; i < 3; ++i) v[i] = v[i] * c + ux_v[i] * s + u[i] * u_v * (1.0 - c);
}

TEST(OffsetKalman, InitSeedingAndReset) {
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);  // an all-zero prior keeps the 30.0 start
    for (int i = 0; i < 6; ++i) EXPECT_EQ(xf(i), 30.0) << i;
    auto& st = g_offset_kalman;
    for (int i = 0; i < 6; ++i)  // Qf = 0.01 I6 and Rf = 0.1 I3 show in the hand-computed step
        for (int j = 0; j < 6; ++j) EXPECT_EQ(st.kf_Pf.data[i][j], i != j ? 0 : i < 3 ? 1e-3 : 1.0);
    EXPECT_TRUE(same(st.kf_Pf0, st.kf_Pf) && same(st.kf_Qf0, st.kf_Qf));
    const double nan_axis[3] = {0.0, std::numeric_limits<double>::quiet_NaN(), 0.0};
    func_Offset_Calibration_KF_init(nan_axis);  // NaN is not 0.0: all three are copied
    EXPECT_EQ(xf(3), 0.0);
    EXPECT_TRUE(std::isnan(xf(4)));

    func_Offset_Calibration_KF_init(zero);
    const Matrix6 p = st.kf_Pf;
    const double reading[3] = {1.0, 2.0, 3.0}, offset[3] = {-4.0, -5.0, -6.0};
    func_Offset_Calibration_KF_update_xf(0, reading, 0, offset);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(xf(i), 30.0);
    func_Offset_Calibration_KF_update_xf(1, reading, 0, offset);
    for (int i = 3; i < 6; ++i) EXPECT_EQ(xf(i), 30.0);
    func_Offset_Calibration_KF_update_xf(0, offset, 7, offset);  // any non-zero flag
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(xf(i), reading[i]);  // left alone by the second seeding
        EXPECT_EQ(xf(3 + i), offset[i]);
    }
    EXPECT_TRUE(same(st.kf_Pf, p));

    const Matrix6 pf0 = st.kf_Pf0, qf0 = st.kf_Qf0, rf = st.kf_Rf;
    const double w[3] = {0.4, -0.2, 0.9};
    double off[3], radius;
    func_Offset_Calibration_KF_v4(reading, w, off, &radius, 0.02);
    func_Offset_Calibration_KF_v4(reading, w, off, &radius, 0.02);
    // Steps leave the saved covariances, the noise density and Rf alone.
    EXPECT_TRUE(same(st.kf_Pf0, pf0) && same(st.kf_Qf0, qf0) && same(st.kf_Qf, qf0));
    EXPECT_TRUE(same(st.kf_Rf, rf));
    EXPECT_FALSE(same(st.kf_Pf, pf0));
    const Matrix6 state = st.kf_xf;
    st.kf_Qf.data[5][0] = -1.0;
    st.kf_Pf.rows = 2;  // the counts are not the reset's business
    func_Offset_Calibration_KF_reset();
    EXPECT_EQ(st.kf_Pf.rows, 2);
    st.kf_Pf.rows = 6;
    EXPECT_TRUE(same(st.kf_Pf, pf0) && same(st.kf_Qf, qf0) && same(st.kf_xf, state));
}

// Without rotation (zero rate, or dt = 0) F = I6 and Qd = 0.01 (dt + dt^2) I6.
// With P = [a I3, c I3; c I3, b I3] each axis is then a 2-state filter with
// S = a' + 0.1 (a' = a + qd), and the Joseph form equals P - K S K^T.
TEST(OffsetKalman, StepWithoutRotationIsAHandComputedUpdate) {
    const struct {
        double gyro[3];
        double dt;
    } cases[] = {{{0.0, 0.0, 0.0}, 0.02}, {{0.8, -0.3, 0.5}, 0.0}};
    const double a = 0.3, b = 2.0, c = 0.5;
    const double m[3] = {10.0, 20.0, -30.0}, off0[3] = {1.0, 2.0, 3.0};
    const double z[3] = {10.7, 19.6, -29.8};
    for (const auto& t : cases) {
        func_Offset_Calibration_KF_init(off0);
        func_Offset_Calibration_KF_update_xf(1, m, 0, nullptr);
        auto& p = g_offset_kalman.kf_Pf.data;
        for (int i = 0; i < 3; ++i) {
            p[i][i] = a;
            p[3 + i][3 + i] = b;
            p[i][3 + i] = p[3 + i][i] = c;
        }

        double off[3], radius;
        func_Offset_Calibration_KF_v4(z, t.gyro, off, &radius, t.dt);
        const double qd = 0.01 * (t.dt + t.dt * t.dt);
        const double a1 = a + qd, b1 = b + qd, s = a1 + 0.1;
        double r2 = 0.0;
        for (int i = 0; i < 3; ++i) {
            EXPECT_NEAR(xf(i), m[i] + a1 / s * (z[i] - m[i]), 1e-12) << i;
            EXPECT_NEAR(off[i], off0[i] + c / s * (z[i] - m[i]), 1e-12) << i;
            EXPECT_EQ(off[i], xf(3 + i));
            r2 += (z[i] - off[i]) * (z[i] - off[i]);
            const double e[2][2] = {{a1 - a1 * a1 / s, c - a1 * c / s},
                                    {c - c * a1 / s, b1 - c * c / s}};
            for (int r = 0; r < 2; ++r)
                for (int j = 0; j < 6; ++j)
                    EXPECT_NEAR(p[3 * r + i][j], j % 3 == i ? e[r][j / 3] : 0.0, 1e-14) << r << j;
        }
        EXPECT_DOUBLE_EQ(radius, std::sqrt(r2));  // from the updated offset
    }
}

TEST(OffsetKalman, RecoversTheOffsetOfATurningDevice) {
    const double offset[3] = {25.0, -35.0, 40.0};
    double field[3] = {22.0, 5.0, -38.0};  // body axes, |f| = 44.2 uT
    double m[3];
    for (int i = 0; i < 3; ++i) m[i] = field[i] + offset[i];
    const double zero[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(zero);
    func_Offset_Calibration_KF_update_xf(1, m, 1, zero);

    const double dt = 0.02;  // 50 Hz
    double off[3], radius = 0.0, err = 0.0;
    for (int k = 1; k <= 1000; ++k) {
        const double t = k * dt;
        const double w[3] = {1.2 * std::sin(0.9 * t), 0.9 * std::cos(0.6 * t + 0.3),
                             0.7 * std::sin(0.4 * t + 1.1)};
        turn_field(field, w, dt);
        for (int i = 0; i < 3; ++i) m[i] = field[i] + offset[i];
        func_Offset_Calibration_KF_v4(m, w, off, &radius, dt);
        err = std::sqrt((off[0] - offset[0]) * (off[0] - offset[0]) +
                        (off[1] - offset[1]) * (off[1] - offset[1]) +
                        (off[2] - offset[2]) * (off[2] - offset[2]));
        EXPECT_TRUE(k != 100 || err < 3.0) << "after 2 s: " << err << " uT";
    }
    std::printf("offset filter after 20 s at 50 Hz: offset error %.3g uT, radius %.4f uT\n", err,
                radius);
    EXPECT_LT(err, 0.1);
    EXPECT_NEAR(radius, std::sqrt(22.0 * 22.0 + 5.0 * 5.0 + 38.0 * 38.0), 1.0);
}

TEST(OffsetEstimators, PerSampleStepsDoNotAllocate) {
    const RlsConfig cfg = {0, -3, 0, -3, 1.0};
    ASSERT_EQ(QvGyroCal_RLS_init(&cfg), 0);
    const double prior[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(prior);
    const std::size_t allocations = magcal_test::allocations_during([] {
        double centre[3], radius, offset[3];
        const double m[3] = {60.0, -30.0, 45.0}, gyro[3] = {0.4, -0.2, 0.9};
        QvGyroCal_RLS(centre, &radius, m);
        func_Offset_Calibration_KF_v4(m, gyro, offset, &radius, 0.02);
    });
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
