// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Nine-state filter: initialisation from powers of ten, and the step.
// Measurements are simulated from a known attitude with the filter's own
// model: acc = 9.79 C(q) (0, 0, 1) and mag = |m| C(q) (0, cos dip, -sin dip),
// C(q) the navigation -> body matrix.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "ekf/nine_state_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

using magcal::ekf::g_nine_state;

constexpr double kDriverConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};
constexpr double kGravity = 9.789999961853027;  // 9.79f
constexpr double kPi = 3.14159265358979323846;
constexpr double kDt = 0.02;  // 50 Hz [s]

struct Sample {
    double acc[3];
    double mag[3];
};

void normalise(double q[4]) {
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (int i = 0; i < 4; ++i) q[i] /= n;
}

void hamilton(const double p[4], const double q[4], double out[4]) {
    out[0] = p[0] * q[0] - p[1] * q[1] - p[2] * q[2] - p[3] * q[3];
    out[1] = p[0] * q[1] + p[1] * q[0] + p[2] * q[3] - p[3] * q[2];
    out[2] = p[0] * q[2] - p[1] * q[3] + p[2] * q[0] + p[3] * q[1];
    out[3] = p[0] * q[3] + p[1] * q[2] - p[2] * q[1] + p[3] * q[0];
}

// acc and mag a device at unit attitude q would read in a field of |m| = field
// at the given dip; the dip goes through the filter's own 3.14159/180.
Sample consistent_sample(const double q[4], double dip_deg, double field) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    const double c1[3] = {2 * (x * y + w * z), w * w - x * x + y * y - z * z, 2 * (y * z - w * x)};
    const double c2[3] = {2 * (x * z - w * y), 2 * (y * z + w * x), w * w - x * x - y * y + z * z};
    const double dip = dip_deg * (3.14159 / 180.0);
    Sample s;
    for (int i = 0; i < 3; ++i) {
        s.acc[i] = kGravity * c2[i];
        s.mag[i] = field * (c1[i] * std::cos(dip) - c2[i] * std::sin(dip));
    }
    return s;
}

void expect_diagonal(const Matrix9& m, int n, const double* diag) {
    ASSERT_EQ(m.rows, n);
    ASSERT_EQ(m.cols, n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) EXPECT_DOUBLE_EQ(m.data[i][j], i == j ? diag[i] : 0.0);
}

TEST(NineStateInit, EveryExponentReachesItsBlockTruncatedTowardZero) {
    const struct {
        double config[14];
        double p[9], r[6], q[9];
    } cases[] = {
        // Distinct exponents per block, with fractions truncated toward zero
        // (-0.9 -> 0, so a factor 1.0; 2.7 -> 2, 0.99 -> 0, -1.5 -> -1).
        {{-0.9, 2.7, 1.0, 0.99, -1.5, 3.0, 1.0, -2.0, 1.0, 2.0, 1.0, 0.5, 64.0, 0.25},
         {1, 1, 1, 100, 100, 100, 10, 10, 10},
         {1, 1, 1, 10000, 10000, 10000},
         {0.025, 0.025, 0.025, 100, 100, 100, 1000, 1000, 1000}},
        // The driver's configuration; the second call rebuilds everything.
        {{-1.0, 0.0, 0.0, 0.0, 2.0, 2.0, -1.0, -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612},
         {0.1, 0.1, 0.1, 1, 1, 1, 1, 1, 1},
         {10, 10, 10, 10, 10, 10},
         {2.5e-6, 2.5e-6, 2.5e-6, 1, 1, 1, 1, 1, 1}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(QvGyroCal_9_states_init(c.config), 0);
        expect_diagonal(g_nine_state.ns_P, 9, c.p);
        expect_diagonal(g_nine_state.ns_R, 6, c.r);
        expect_diagonal(g_nine_state.ns_Q, 9, c.q);
        EXPECT_EQ(g_nine_state.ns_lambda, c.config[11]);
        EXPECT_EQ(g_nine_state.ns_dip, c.config[12]);
        EXPECT_EQ(g_nine_state.ns_dip_gain, c.config[13]);
        // Learn something before the next initialisation.
        double q[4] = {1.0, 0.0, 0.0, 0.0}, a[3], b[3];
        const double mag[3] = {10.0, 20.0, -40.0}, acc[3] = {0.5, 0.2, 9.7}, w[3] = {0.1, 0, 0};
        QvGyroCal_9_states(q, a, b, mag, acc, w, w, 0.02);
    }
}

class NineStateStep : public ::testing::Test {
protected:
    void SetUp() override { QvGyroCal_9_states_init(kDriverConfig); }
    double mag_corr[3] = {7, 7, 7};
    double bias_corr[3] = {7, 7, 7};
    const double zero[3] = {0.0, 0.0, 0.0};
};

TEST_F(NineStateStep, ConsistentStillDataLeavesAttitudeAndShrinksCovariance) {
    double q[4] = {0.9, 0.3, -0.2, 0.3};  // tilted ~40 degrees: dip not re-estimated
    normalise(q);
    const double start[4] = {q[0], q[1], q[2], q[3]};
    const Sample s = consistent_sample(q, 70.0, 48.0);
    const double trace_before = qvmtx_trace(g_nine_state.ns_P);
    QvGyroCal_9_states(q, mag_corr, bias_corr, s.mag, s.acc, zero, zero, kDt);
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(mag_corr[i], 0.0, 1e-12);
        EXPECT_NEAR(bias_corr[i], 0.0, 1e-12);
    }
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i], start[i], 1e-12);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
    EXPECT_LT(qvmtx_trace(g_nine_state.ns_P), trace_before);

    // With no bias uncertainty (P and Q exponents -300) a field error can move
    // only the attitude and the offset.
    double config[14];
    std::copy(kDriverConfig, kDriverConfig + 14, config);
    config[1] = config[8] = -300.0;
    QvGyroCal_9_states_init(config);
    Sample off = consistent_sample(q, 70.0, 48.0);
    off.mag[0] += 1.0;
    QvGyroCal_9_states(q, mag_corr, bias_corr, off.mag, off.acc, zero, zero, kDt);
    EXPECT_GT(std::fabs(mag_corr[0]), 1e-6);
    for (int i = 0; i < 3; ++i) EXPECT_LT(std::fabs(bias_corr[i]), 1e-200);
}

TEST_F(NineStateStep, PropagationUsesCurrentAndPreviousRate) {
    // Theta q = q + (3/4 dt) W1 q - (1/4 dt) W0 q - (s/6) q - (s dt/48) W1 q
    //           - (dt^2/24) W1 W0 q, s = |w1|^2 dt^2, W = Omega(w). With
    // measurements consistent with it the update changes nothing, so the
    // written quaternion is Theta q normalised.
    auto omega_times = [](const double w[3], const double v[4], double out[4]) {
        out[0] = -w[0] * v[1] - w[1] * v[2] - w[2] * v[3];
        out[1] = w[0] * v[0] + w[2] * v[2] - w[1] * v[3];
        out[2] = w[1] * v[0] - w[2] * v[1] + w[0] * v[3];
        out[3] = w[2] * v[0] + w[1] * v[1] - w[0] * v[2];
    };
    const double w1[3] = {0.4, -0.3, 1.1}, w0[3] = {0.1, 0.2, 0.9}, dt = 0.05;
    const double s = (w1[0] * w1[0] + w1[1] * w1[1] + w1[2] * w1[2]) * dt * dt;
    double q[4] = {0.8, 0.2, -0.4, 0.3}, a[4], b[4], ab[4], expected[4];
    normalise(q);
    omega_times(w1, q, a);
    omega_times(w0, q, b);
    omega_times(w1, b, ab);
    for (int i = 0; i < 4; ++i)
        expected[i] = q[i] + 0.75 * dt * a[i] - 0.25 * dt * b[i] - s / 6 * q[i] -
                      s * dt / 48 * a[i] - dt * dt / 24 * ab[i];
    normalise(expected);
    const Sample meas = consistent_sample(expected, 70.0, 50.0);
    QvGyroCal_9_states(q, mag_corr, bias_corr, meas.mag, meas.acc, w1, w0, dt);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i], expected[i], 1e-12) << i;
}

TEST_F(NineStateStep, DipFollowsAFlatDeviceAndIsKeptWhenTilted) {
    // Flat, field at a 60 degree dip: sin(angle(acc, mag)) = cos 60 = 0.5, so
    // the dip moves from 70 toward 90 - 30 = 60 by the gain 0.151f.
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    const double acc[3] = {0.0, 0.0, kGravity};
    const double mag[3] = {0.0, 45.0 * std::cos(kPi / 3), -45.0 * std::sin(kPi / 3)};
    QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, zero, zero, kDt);
    EXPECT_NEAR(g_nine_state.ns_dip, 70.0 - 0.1509999930858612 * (70.0 - 60.0), 1e-12);

    // The flat test is |1 - |az| / |a|| < 0.1f: 0.1000000007 still passes, 0.1000000030
    // does not and the dip is kept.
    for (const double tilt : {0.1000000007, 0.1000000030}) {
        QvGyroCal_9_states_init(kDriverConfig);
        const double tilted[3] = {0.0, std::sqrt(1.0 - (1.0 - tilt) * (1.0 - tilt)), 1.0 - tilt};
        QvGyroCal_9_states(q, mag_corr, bias_corr, mag, tilted, zero, zero, kDt);
        EXPECT_EQ(g_nine_state.ns_dip != 70.0, tilt < 0.10000000149011612) << tilt;
    }
}

TEST_F(NineStateStep, TwentyDegreeHeadingErrorConverges) {
    // Truth: heading 40 degrees, rolled 10, turning at 0.3 rad/s about body z.
    // The filter starts at heading 60: 20 degrees off about the vertical.
    const double roll[4] = {std::cos(kPi / 36), std::sin(kPi / 36), 0.0, 0.0};
    const double yaw40[4] = {std::cos(kPi / 9), 0.0, 0.0, std::sin(kPi / 9)};
    const double yaw60[4] = {std::cos(kPi / 6), 0.0, 0.0, std::sin(kPi / 6)};
    double q_true0[4], q[4], q_true[4];
    hamilton(yaw40, roll, q_true0);
    hamilton(yaw60, roll, q);
    const double rate[3] = {0.0, 0.0, 0.3};  // [rad/s]
    for (int k = 1; k <= 500; ++k) {
        const double turn[4] = {std::cos(0.15 * k * kDt), 0.0, 0.0, std::sin(0.15 * k * kDt)};
        hamilton(q_true0, turn, q_true);
        const Sample s = consistent_sample(q_true, 70.0, 50.0);
        QvGyroCal_9_states(q, mag_corr, bias_corr, s.mag, s.acc, rate, rate, kDt);
        double dot = 0.0;
        for (int i = 0; i < 4; ++i) dot += q[i] * q_true[i];
        const double err_deg = 2.0 * std::acos(std::fmin(1.0, std::fabs(dot))) * 180.0 / kPi;
        EXPECT_TRUE(k != 50 || err_deg < 10.0) << "after 1 s: " << err_deg << " deg";
        EXPECT_TRUE(k != 500 || err_deg < 0.5) << "after 10 s: " << err_deg << " deg";
    }
}

TEST_F(NineStateStep, ZeroQuaternionIsDividedByTheFloorAndNothingIsAllocated) {
    double q[4] = {0.0, 0.0, 0.0, 0.0};
    const double acc[3] = {0.3, 0.1, 9.7}, mag[3] = {20.0, 5.0, -40.0}, gyro[3] = {0.2, -0.1, 0.05};
    const std::size_t allocations = magcal_test::allocations_during(
        [&] { QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, gyro, gyro, kDt); });
    EXPECT_EQ(allocations, 0u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], 0.0) << i;  // 0 / 1e-6, not 0 / 0
}

}  // namespace
