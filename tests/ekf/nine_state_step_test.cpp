// Nine-state filter step. Measurements are simulated from a known attitude
// with the filter's own model: acc = 9.79 C(q) (0, 0, 1) and
// mag = |m| C(q) (0, cos dip, -sin dip), C(q) the navigation -> body matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "ekf/nine_state_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

using magcal::ekf::g_nine_state;

constexpr double kDriverConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};
constexpr double kGravity = 9.789999961853027;       // 9.79f
constexpr double kFilterDegToRad = 3.14159 / 180.0;  // the filter's own conversion
constexpr double kTruePi = 3.14159265358979323846;
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

// Navigation (z up) -> body for a unit quaternion.
void nav_to_body(const double q[4], double c[3][3]) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    c[0][0] = w * w + x * x - y * y - z * z;
    c[0][1] = 2 * (x * y + w * z);
    c[0][2] = 2 * (x * z - w * y);
    c[1][0] = 2 * (x * y - w * z);
    c[1][1] = w * w - x * x + y * y - z * z;
    c[1][2] = 2 * (y * z + w * x);
    c[2][0] = 2 * (x * z + w * y);
    c[2][1] = 2 * (y * z - w * x);
    c[2][2] = w * w - x * x - y * y + z * z;
}

Sample consistent_sample(const double q[4], double dip_deg, double field) {
    double c[3][3];
    nav_to_body(q, c);
    const double north = field * std::cos(dip_deg * kFilterDegToRad);
    const double down = field * std::sin(dip_deg * kFilterDegToRad);
    Sample s;
    for (int i = 0; i < 3; ++i) {
        s.acc[i] = kGravity * c[i][2];
        s.mag[i] = c[i][1] * north - c[i][2] * down;
    }
    return s;
}

double trace(const Matrix9& m) {
    double t = 0.0;
    for (int i = 0; i < m.rows; ++i) t += m.data[i][i];
    return t;
}

void yaw_roll(double psi_deg, double phi_deg, double q[4]) {
    const double psi = psi_deg * kTruePi / 180, phi = phi_deg * kTruePi / 180;
    q[0] = std::cos(psi / 2) * std::cos(phi / 2);
    q[1] = std::cos(psi / 2) * std::sin(phi / 2);
    q[2] = std::sin(psi / 2) * std::sin(phi / 2);
    q[3] = std::sin(psi / 2) * std::cos(phi / 2);
}

double heading_deg(const double q[4]) {
    double a[3];
    QvGyroCal_quaternion2angle(a, q);
    return a[0];
}

double wrapped(double d) {
    while (d > 180) d -= 360;
    while (d <= -180) d += 360;
    return d;
}

class NineStateStep : public ::testing::Test {
  protected:
    void SetUp() override { QvGyroCal_9_states_init(kDriverConfig); }
    double mag_corr[3] = {7, 7, 7};
    double bias_corr[3] = {7, 7, 7};
};

TEST_F(NineStateStep, ConsistentStillDataLeavesAttitudeAndShrinksCovariance) {
    double q[4] = {0.9, 0.3, -0.2, 0.3};  // tilted ~40 degrees: dip not re-estimated
    normalise(q);
    const double start[4] = {q[0], q[1], q[2], q[3]};
    const Sample s = consistent_sample(q, g_nine_state.ns_dip, 48.0);
    const double zero[3] = {0.0, 0.0, 0.0};
    const double trace_before = trace(g_nine_state.ns_P);

    QvGyroCal_9_states(q, mag_corr, bias_corr, s.mag, s.acc, zero, zero, kDt);

    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(mag_corr[i], 0.0, 1e-12);
        EXPECT_NEAR(bias_corr[i], 0.0, 1e-12);
    }
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i], start[i], 1e-12);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
    EXPECT_LT(trace(g_nine_state.ns_P), trace_before);
    // Offset variance: 1 + dt * 1 after the prediction (the offset is a
    // random walk); the field reading then observes it.
    EXPECT_LT(g_nine_state.ns_P.data[6][6], 1.0 + kDt);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < i; ++j)
            EXPECT_NEAR(g_nine_state.ns_P.data[i][j], g_nine_state.ns_P.data[j][i], 1e-12);
}

TEST_F(NineStateStep, PropagationUsesCurrentAndPreviousRate) {
    // Theta = I + (3/4 dt) W1 - (1/4 dt) W0 - (s/6) I - (s dt/48) W1
    //         - (dt^2/24) W1 W0, s = |w|^2 dt^2, computed here on its own.
    // With measurements consistent with Theta q the update changes nothing,
    // so the written quaternion is Theta q normalised.
    const double w1[3] = {0.4, -0.3, 1.1};
    const double w0[3] = {0.1, 0.2, 0.9};
    const double dt = 0.05;
    auto omega = [](const double* w, double m[4][4]) {
        const double rows[4][4] = {{0, -w[0], -w[1], -w[2]},
                                   {w[0], 0, w[2], -w[1]},
                                   {w[1], -w[2], 0, w[0]},
                                   {w[2], w[1], -w[0], 0}};
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) m[i][j] = rows[i][j];
    };
    double o1[4][4], o0[4][4];
    omega(w1, o1);
    omega(w0, o0);
    const double s = (w1[0] * w1[0] + w1[1] * w1[1] + w1[2] * w1[2]) * dt * dt;
    double q[4] = {0.8, 0.2, -0.4, 0.3};
    normalise(q);
    double expected[4] = {0, 0, 0, 0};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double prod = 0.0;
            for (int k = 0; k < 4; ++k) prod += o1[i][k] * o0[k][j];
            const double theta = (i == j ? 1.0 - s / 6 : 0.0) + 0.75 * dt * o1[i][j] -
                                 0.25 * dt * o0[i][j] - s * dt / 48 * o1[i][j] -
                                 dt * dt / 24 * prod;
            expected[i] += theta * q[j];
        }
    normalise(expected);

    const Sample meas = consistent_sample(expected, 70.0, 50.0);
    QvGyroCal_9_states(q, mag_corr, bias_corr, meas.mag, meas.acc, w1, w0, dt);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(q[i], expected[i], 1e-12) << i;
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(bias_corr[i], 0.0, 1e-12);
}

TEST_F(NineStateStep, DipFollowsFlatDeviceAndIsKeptWhenTilted) {
    // Flat, field at a 60 degree dip: sin(angle(acc, mag)) = cos 60 = 0.5,
    // so the dip moves from 70 toward 90 - 30 = 60 by the gain, 0.151f.
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    const double acc[3] = {0.0, 0.0, kGravity};
    const double mag[3] = {0.0, 45.0 * std::cos(kTruePi / 3), -45.0 * std::sin(kTruePi / 3)};
    const double zero[3] = {0.0, 0.0, 0.0};
    QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, zero, zero, kDt);
    const double gain = 0.1509999930858612;
    EXPECT_NEAR(g_nine_state.ns_dip, 70.0 - gain * (70.0 - 60.0), 1e-12);  // 68.49000006914139
    for (int k = 1; k < 30; ++k)
        QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, zero, zero, kDt);
    EXPECT_NEAR(g_nine_state.ns_dip, 60.0 + 10.0 * std::pow(1.0 - gain, 30), 1e-9);

    // Tilted beyond the flat test (|1 - 7.7/9.76| = 0.21): dip kept exactly,
    // the update still corrects the attitude.
    QvGyroCal_9_states_init(kDriverConfig);
    double qt[4] = {1.0, 0.0, 0.0, 0.0};
    const double tilted[3] = {0.0, 6.0, 7.7};
    QvGyroCal_9_states(qt, mag_corr, bias_corr, mag, tilted, zero, zero, kDt);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
    EXPECT_GT(std::fabs(qt[1]), 1e-3);

    // A zero acc makes the flat test NaN, i.e. false: the dip is kept.
    const double no_acc[3] = {0.0, 0.0, 0.0};
    QvGyroCal_9_states(qt, mag_corr, bias_corr, mag, no_acc, zero, zero, kDt);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
}

TEST_F(NineStateStep, HeadingErrorConvergesOnSimulatedData) {
    // Truth: tilted 10 degrees, heading 40, turning slowly about body z;
    // the filter starts 20 degrees off in heading.
    const double rate[3] = {0.0, 0.0, 0.3};  // [rad/s]
    double q_true0[4];
    yaw_roll(40.0, 10.0, q_true0);
    double q[4];
    yaw_roll(60.0, 10.0, q);
    const double initial_error = wrapped(heading_deg(q) - heading_deg(q_true0));
    ASSERT_NEAR(std::fabs(initial_error), 20.0, 1e-4);

    double err[3] = {0, 0, 0};
    const int report_at[3] = {50, 250, 500};  // 1 s, 5 s, 10 s at 50 Hz
    int next = 0;
    for (int k = 1; k <= 500; ++k) {
        const double t = k * kDt;
        const double half = 0.3 * t / 2;
        const double turn[4] = {std::cos(half), 0.0, 0.0, std::sin(half)};
        double q_true[4];
        hamilton(q_true0, turn, q_true);
        const Sample s = consistent_sample(q_true, 70.0, 50.0);
        QvGyroCal_9_states(q, mag_corr, bias_corr, s.mag, s.acc, rate, rate, kDt);
        if (k == report_at[next]) {
            err[next] = std::fabs(wrapped(heading_deg(q) - heading_deg(q_true)));
            ++next;
            if (next == 3) break;
        }
    }
    std::printf("heading error after 1 s %.6g deg, 5 s %.6g deg, 10 s %.6g deg\n", err[0], err[1],
                err[2]);
    EXPECT_LT(err[0], 20.0);
    EXPECT_LT(err[1], err[0]);
    EXPECT_LT(err[2], 0.5);
}

TEST_F(NineStateStep, ZeroQuaternionIsDividedByTheFloorNotByZero) {
    double q[4] = {0.0, 0.0, 0.0, 0.0};
    const double acc[3] = {0.3, 0.1, 9.7};
    const double mag[3] = {20.0, 5.0, -40.0};
    const double gyro[3] = {0.2, -0.1, 0.05};
    QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, gyro, gyro, kDt);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], 0.0) << i;  // 0 / 1e-6, not 0 / 0
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(std::isfinite(mag_corr[i]));
        EXPECT_TRUE(std::isfinite(bias_corr[i]));
    }
    for (int i = 0; i < 9; ++i) EXPECT_TRUE(std::isfinite(g_nine_state.ns_P.data[i][i]));
}

TEST_F(NineStateStep, StepAllocatesNothing) {
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    const double acc[3] = {0.3, 0.1, 9.7};
    const double mag[3] = {20.0, 5.0, -40.0};
    const double gyro[3] = {0.2, -0.1, 0.05};
    const std::size_t allocations = magcal_test::allocations_during(
        [&] { QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, gyro, gyro, kDt); });
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
