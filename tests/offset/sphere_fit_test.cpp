#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>

#include "magcal/magcal_algorithms.h"
#include "offset/sphere_fit_state.h"

namespace {

using magcal::offset::g_sphere_fit;

// The driver's start record: P0 = diag(1e-3, 1e-3, 1e-3, 1), r = 1e-3, no forgetting.
const RlsConfig kDriverConfig = {0, -3, 0, -3, 1.0};

void init_driver_fit() { ASSERT_EQ(QvGyroCal_RLS_init(&kDriverConfig), 0); }

struct Fit {
    double centre[3];
    double radius;
};

Fit step(double x, double y, double z) {
    const double m[3] = {x, y, z};
    Fit f{};
    EXPECT_EQ(QvGyroCal_RLS(f.centre, &f.radius, m), 0);
    return f;
}

double theta(int i) { return g_sphere_fit.rls_theta.data[i][0]; }

TEST(SphereFitInit, PowersOfTenScaleBothBlocksAndLambdaEntersSquared) {
    // Scale 10^2 over centre 10^-3 and term 10^1; noise 10^-2; lambda 0.5.
    const RlsConfig cfg = {2, -3, 1, -2, 0.5};
    ASSERT_EQ(QvGyroCal_RLS_init(&cfg), 0);
    const Matrix6& p = g_sphere_fit.rls_P;
    ASSERT_EQ(p.rows, 4);
    ASSERT_EQ(p.cols, 4);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            const double expected = i != j ? 0.0 : (i < 3 ? 0.1 : 1000.0);
            EXPECT_NEAR(p.data[i][j], expected, 1e-15 * (1.0 + expected)) << i << "," << j;
        }
    EXPECT_NEAR(g_sphere_fit.rls_r, 0.01, 1e-17);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(theta(i), 0.0);

    // A zero sample touches only d's variance: s = 1000 + 0.25 * 0.01 and
    // P33 = (1 - 1000 / s) * 1000 / 0.25.
    step(0.0, 0.0, 0.0);
    const double s = 1000.0 + 0.25 * 0.01;
    EXPECT_NEAR(g_sphere_fit.rls_P.data[3][3], (1.0 - 1000.0 / s) * 1000.0 / 0.25, 1e-9);
    EXPECT_NEAR(g_sphere_fit.rls_P.data[0][0], 0.1 / 0.25, 1e-15);

    EXPECT_EQ(QvGyroCal_RLS_init(nullptr), -1);
}

TEST(SphereFitStep, ConvergesToAKnownSphere) {
    const double c[3] = {20.0, -30.0, 45.0};
    const double r = 48.0;
    // Evenly spread directions on a spiral over the whole sphere.
    const int n = 400;
    const double golden = 3.141592653589793 * (3.0 - std::sqrt(5.0));
    auto sample = [&](int k, double noise, double out[3]) {
        const double zc = 1.0 - 2.0 * (k + 0.5) / n;
        const double ring = std::sqrt(1.0 - zc * zc);
        const double dir[3] = {ring * std::cos(golden * k), ring * std::sin(golden * k), zc};
        // Deterministic +-noise on the radius, alternating in sign.
        const double rr = r + ((k % 2) ? noise : -noise) * ((k % 7) / 6.0);
        for (int i = 0; i < 3; ++i) out[i] = c[i] + rr * dir[i];
    };
    for (double noise : {0.0, 0.5}) {
        init_driver_fit();
        Fit f{};
        for (int k = 0; k < n; ++k) {
            double m[3];
            sample(k, noise, m);
            f = step(m[0], m[1], m[2]);
        }
        const double centre_err = std::sqrt((f.centre[0] - c[0]) * (f.centre[0] - c[0]) +
                                            (f.centre[1] - c[1]) * (f.centre[1] - c[1]) +
                                            (f.centre[2] - c[2]) * (f.centre[2] - c[2]));
        const double radius_err = std::fabs(f.radius - r);
        std::printf("sphere fit, %d samples, radius noise %.1f uT: centre error %.3g uT, "
                    "radius error %.3g uT\n",
                    n, noise, centre_err, radius_err);
        const double tol = noise == 0.0 ? 1e-3 : 0.1;
        EXPECT_LT(centre_err, tol);
        EXPECT_LT(radius_err, tol);
    }
}

TEST(SphereFitStep, FirstStepWeighsTheCentreAgainstD) {
    init_driver_fit();
    const double m[3] = {30.0, -40.0, 50.0};
    const Fit f = step(m[0], m[1], m[2]);

    // theta = 0, so e = |m|^2 = 5000. P phi^T = [2a m, 1] with a = 1e-3,
    // s = 4a|m|^2 + 1 + 1e-3, K = P phi^T / s.
    const double a = 0.001;
    const double y = 5000.0;
    const double s = 4.0 * a * y + 1.0 + 0.001;
    const double gain_d = 1.0 / s;
    double gain_c[3];
    for (int i = 0; i < 3; ++i) gain_c[i] = 2.0 * a * m[i] / s;

    double c2 = 0.0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(f.centre[i], gain_c[i] * y, 1e-12) << i;
        EXPECT_EQ(f.centre[i], theta(i));
        // Pulled towards the sample, 0.001 * 2m per unit of d.
        EXPECT_NEAR(f.centre[i] / theta(3), 0.002 * m[i], 1e-14) << i;
        c2 += f.centre[i] * f.centre[i];
    }
    EXPECT_NEAR(theta(3), gain_d * y, 1e-10);
    EXPECT_NEAR(f.radius, std::sqrt(gain_d * y + c2), 1e-12);

    // P' = P - (P phi^T)(phi P) / s.
    const double pphi[4] = {2.0 * a * m[0], 2.0 * a * m[1], 2.0 * a * m[2], 1.0};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            const double p0 = i == j ? (i < 3 ? a : 1.0) : 0.0;
            EXPECT_NEAR(g_sphere_fit.rls_P.data[i][j], p0 - pphi[i] * pphi[j] / s, 1e-15)
                << i << "," << j;
        }
}

TEST(SphereFitStep, ZeroSampleMovesOnlyDTowardsZeroWhilePIsDiagonal) {
    init_driver_fit();
    const Matrix6 p_before = g_sphere_fit.rls_P;
    Fit f = step(0.0, 0.0, 0.0);
    // phi = [0, 0, 0, 1], y = 0, theta = 0: nothing to move.
    for (int i = 0; i < 4; ++i) EXPECT_EQ(theta(i), 0.0);
    EXPECT_EQ(f.radius, 0.0);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            if (i == 3 && j == 3) continue;
            EXPECT_EQ(g_sphere_fit.rls_P.data[i][j], p_before.data[i][j]) << i << "," << j;
        }
    EXPECT_DOUBLE_EQ(g_sphere_fit.rls_P.data[3][3], 1.0 - 1.0 / 1.001);

    // With d away from zero and P still diagonal, d shrinks by 1/s and the
    // centre stays exactly where it was.
    init_driver_fit();
    g_sphere_fit.rls_theta.data[3][0] = 500.0;
    f = step(0.0, 0.0, 0.0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(f.centre[i], 0.0);
    EXPECT_NEAR(theta(3), 500.0 - 500.0 / 1.001, 1e-12);

    // Once a real sample has correlated c with d, the centre follows d:
    // delta c_i = P[i][3] (0 - d) / (P[3][3] + r).
    init_driver_fit();
    step(30.0, -40.0, 50.0);
    const Matrix6 p = g_sphere_fit.rls_P;
    double c[4];
    for (int i = 0; i < 4; ++i) c[i] = theta(i);
    f = step(0.0, 0.0, 0.0);
    const double s = p.data[3][3] + 0.001;
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(f.centre[i], c[i]);
        EXPECT_NEAR(f.centre[i], c[i] + p.data[i][3] * (0.0 - c[3]) / s, 1e-12) << i;
    }
    EXPECT_LT(std::fabs(theta(3)), std::fabs(c[3]));
}

TEST(SphereFitStep, NegativeSquaredRadiusGivesNaNWithoutFailing) {
    init_driver_fit();
    g_sphere_fit.rls_theta.data[3][0] = -1.0e6;  // d far below -|c|^2
    const Fit f = step(0.0, 0.0, 0.0);
    EXPECT_TRUE(std::isnan(f.radius));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(f.centre[i], 0.0);
    EXPECT_LT(theta(3), 0.0);
    // The fit keeps running on the next sample.
    const Fit g = step(10.0, 20.0, 30.0);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(std::isfinite(g.centre[i]));
}

TEST(SphereFitCentre, UpdateSetsOnlyTheCentreAndNullArgumentsAreRefused) {
    init_driver_fit();
    step(30.0, -40.0, 50.0);
    step(-10.0, 25.0, 5.0);
    const magcal::offset::SphereFitState before = g_sphere_fit;
    const double centre[3] = {1.5, -2.5, 3.5};
    EXPECT_EQ(QvGyroCal_RLS_update_hr(centre), 0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(theta(i), centre[i]);
    EXPECT_EQ(theta(3), before.rls_theta.data[3][0]);
    EXPECT_EQ(g_sphere_fit.rls_theta.rows, 4);
    EXPECT_EQ(g_sphere_fit.rls_theta.cols, 1);
    EXPECT_EQ(std::memcmp(&g_sphere_fit.rls_P, &before.rls_P, sizeof(Matrix6)), 0);
    EXPECT_EQ(g_sphere_fit.rls_r, before.rls_r);
    EXPECT_EQ(g_sphere_fit.rls_lambda, before.rls_lambda);

    const magcal::offset::SphereFitState held = g_sphere_fit;
    double out[3];
    double radius = -1.0;
    const double m[3] = {1.0, 2.0, 3.0};
    EXPECT_EQ(QvGyroCal_RLS_update_hr(nullptr), -1);
    EXPECT_EQ(QvGyroCal_RLS(nullptr, &radius, m), -1);
    EXPECT_EQ(QvGyroCal_RLS(out, nullptr, m), -1);
    EXPECT_EQ(QvGyroCal_RLS(out, &radius, nullptr), -1);
    EXPECT_EQ(radius, -1.0);
    EXPECT_EQ(std::memcmp(&g_sphere_fit.rls_theta, &held.rls_theta, sizeof(Matrix6)), 0);
    EXPECT_EQ(std::memcmp(&g_sphere_fit.rls_P, &held.rls_P, sizeof(Matrix6)), 0);
}

}  // namespace
