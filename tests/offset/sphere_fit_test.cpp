// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Recursive least-squares sphere fit: hand-computed first and zero-sample
// steps, and convergence to a known sphere.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "magcal/magcal_algorithms.h"
#include "offset/sphere_fit_state.h"

namespace {

using magcal::offset::g_sphere_fit;

// The driver's start record: P0 = diag(1e-3, 1e-3, 1e-3, 1), r = 1e-3, no forgetting.
const RlsConfig kDriverConfig = {0, -3, 0, -3, 1.0};

double theta(int i) { return g_sphere_fit.rls_theta.data[i][0]; }
double p(int i, int j) { return g_sphere_fit.rls_P.data[i][j]; }

TEST(SphereFit, FirstStepWeighsTheCentreAgainstD) {
    ASSERT_EQ(QvGyroCal_RLS_init(&kDriverConfig), 0);
    const double m[3] = {30.0, -40.0, 50.0};
    double c[3], radius;
    ASSERT_EQ(QvGyroCal_RLS(c, &radius, m), 0);
    // theta = 0, so e = y = |m|^2 = 5000; P phi^T = [2a m, 1] with a = 1e-3;
    // s = 4a|m|^2 + 1 + r; theta = K e = P phi^T e / s; P' = P - (P phi^T)(phi P) / s.
    const double a = 0.001, y = 5000.0, s = 4.0 * a * y + 1.0 + 0.001;
    const double pphi[4] = {2.0 * a * m[0], 2.0 * a * m[1], 2.0 * a * m[2], 1.0};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(theta(i), pphi[i] * y / s, 1e-10) << i;
        for (int j = 0; j < 4; ++j)
            EXPECT_NEAR(p(i, j), (i == j ? (i < 3 ? a : 1.0) : 0.0) - pphi[i] * pphi[j] / s, 1e-15);
    }
    for (int i = 0; i < 3; ++i) EXPECT_EQ(c[i], theta(i));
    EXPECT_NEAR(radius, std::sqrt(theta(3) + (c[0] * c[0] + c[1] * c[1] + c[2] * c[2])), 1e-12);

    // Moving the centre touches neither d nor the covariance.
    const magcal::offset::SphereFitState before = g_sphere_fit;
    const double centre[3] = {1.5, -2.5, 3.5};
    EXPECT_EQ(QvGyroCal_RLS_update_hr(centre), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(theta(i), centre[i]);
    EXPECT_EQ(theta(3), before.rls_theta.data[3][0]);
    EXPECT_EQ(std::memcmp(&g_sphere_fit.rls_P, &before.rls_P, sizeof(Matrix6)), 0);
}

TEST(SphereFit, ZeroSampleMovesDAndTheCentreOnlyThroughP) {
    // P0 = 10^2 diag(1e-3 x3, 10), r = 1e-2, lambda = 0.5 (entering as 0.25).
    const RlsConfig cfg = {2, -3, 1, -2, 0.5};
    ASSERT_EQ(QvGyroCal_RLS_init(&cfg), 0);
    g_sphere_fit.rls_theta.data[3][0] = 500.0;
    // phi = [0, 0, 0, 1], y = 0: K = P[:, 3] / s with s = 1000 + 0.25 * 0.01,
    // so only d moves, towards 0, and P = (I - K phi) P / 0.25.
    const double zero[3] = {0.0, 0.0, 0.0};
    double c[3], radius;
    QvGyroCal_RLS(c, &radius, zero);
    const double s = 1000.0 + 0.25 * 0.01;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(c[i], 0.0);
    EXPECT_NEAR(theta(3), 500.0 - 500.0 * 1000.0 / s, 1e-12);
    EXPECT_NEAR(radius, std::sqrt(theta(3)), 1e-15);
    EXPECT_NEAR(p(3, 3), (1.0 - 1000.0 / s) * 1000.0 / 0.25, 1e-9);
    EXPECT_NEAR(p(0, 0), 0.1 / 0.25, 1e-15);

    // Once a real sample has correlated c with d, the centre follows d:
    // delta c_i = P[i][3] (0 - d) / (P[3][3] + r).
    ASSERT_EQ(QvGyroCal_RLS_init(&kDriverConfig), 0);
    const double m[3] = {30.0, -40.0, 50.0};
    QvGyroCal_RLS(c, &radius, m);
    double expected[3];
    for (int i = 0; i < 3; ++i) expected[i] = c[i] - p(i, 3) * theta(3) / (p(3, 3) + 0.001);
    QvGyroCal_RLS(c, &radius, zero);
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c[i], expected[i], 1e-12) << i;
}

TEST(SphereFit, ConvergesToAKnownSphere) {
    ASSERT_EQ(QvGyroCal_RLS_init(&kDriverConfig), 0);
    const double centre[3] = {20.0, -30.0, 45.0}, r = 48.0;
    // 400 directions evenly spread on a spiral over the whole sphere.
    const int n = 400;
    const double golden = 3.141592653589793 * (3.0 - std::sqrt(5.0));
    double c[3], radius = 0.0;
    for (int k = 0; k < n; ++k) {
        const double zc = 1.0 - 2.0 * (k + 0.5) / n, ring = std::sqrt(1.0 - zc * zc);
        const double dir[3] = {ring * std::cos(golden * k), ring * std::sin(golden * k), zc};
        double m[3];
        for (int i = 0; i < 3; ++i) m[i] = centre[i] + r * dir[i];
        QvGyroCal_RLS(c, &radius, m);
    }
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(c[i], centre[i], 1e-3) << i;
    EXPECT_NEAR(radius, r, 1e-3);
}

}  // namespace
