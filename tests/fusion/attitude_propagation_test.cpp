// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Gyroscope propagation, checked against the closed-form rotation of a
// constant body rate, q(t) = q0 (x) (cos(|w|t/2), sin(|w|t/2) w/|w|).
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

TEST(GyroPropagation, ZeroRateLeavesQuaternionUnchanged) {
    const double zero[3] = {0.0, 0.0, 0.0};
    const double cases[][4] = {{1.0, 0.0, 0.0, 0.0}, {0.5, -0.5, 0.5, -0.5}};  // unit in double
    for (const auto& start : cases) {
        double q[4] = {start[0], start[1], start[2], start[3]};
        func_Quat_Gyro_v2(zero, q, 0.02);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], start[i]);
    }
}

TEST(GyroPropagation, OneSecondAtConstantRateMatchesClosedFormWithinTheSeriesTruncation) {
    // One step of theta = 1 rad: sin(theta)/theta to theta^10 falls short by
    // about theta^12/13!, so the direction agrees to 1e-9, while the length is
    // 1/l, l being the length of the increment before normalisation (the
    // deliberate second division), computed here from the series on its own.
    const double w[3] = {1.2, 0.0, -1.6};  // |w| = 2 [rad/s]
    const double q0[4] = {0.5, -0.5, 0.5, 0.5};
    double q[4] = {q0[0], q0[1], q0[2], q0[3]};
    func_Quat_Gyro_v2(w, q, 1.0);

    const double c = std::cos(1.0), s = std::sin(1.0) / 2.0;  // sin(theta)/|w|
    const double d[4] = {c, s * w[0], s * w[1], s * w[2]};
    const double expected[4] = {q0[0] * d[0] - q0[1] * d[1] - q0[2] * d[2] - q0[3] * d[3],
                                q0[0] * d[1] + q0[1] * d[0] + q0[2] * d[3] - q0[3] * d[2],
                                q0[0] * d[2] - q0[1] * d[3] + q0[2] * d[0] + q0[3] * d[1],
                                q0[0] * d[3] + q0[1] * d[2] - q0[2] * d[1] + q0[3] * d[0]};
    long double series = 0.0L, term = 1.0L;
    for (int k = 0; k <= 5; ++k) {
        series += term;
        term = -term / ((2 * k + 2) * (2 * k + 3));
    }
    const double len = static_cast<double>(1.0L / std::sqrt(c * c + series * series));
    const double len_q = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    EXPECT_GT(len_q - 1.0, 5e-11);
    EXPECT_NEAR(len_q, len, 1e-15);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i] / len_q, expected[i], 1e-9) << i;
}

TEST(GyroPropagation, KeepsThePreviousQuaternionAndKinematicsAllocateNothing) {
    const double w[3] = {0.1, 0.4, -0.7};
    const double acc[3] = {0.5, 1.0, 9.7};
    const double mag[3] = {10.0, 20.0, -40.0};
    double q[4] = {0.5, 0.5, -0.5, 0.5};
    double angles[3];
    double fresh[4];
    EXPECT_EQ(magcal_test::allocations_during([&] {
                  func_Quat_Gyro_v2(w, q, 0.02);
                  QvGyroCal_quaternion2angle(angles, q);
                  acc_mag2quaternion_b(fresh, acc, mag);
              }),
              0u);
    const double before[4] = {0.5, 0.5, -0.5, 0.5};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(qt_gy_p[i], before[i]);
        EXPECT_NE(q[i], before[i]);
    }
}

}  // namespace
