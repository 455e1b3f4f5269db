// Gyroscope propagation: checked against the closed-form rotation of a
// constant body rate, q(t) = q0 (x) (cos(|w|t/2), sin(|w|t/2) w/|w|).
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

void expect_quat_near(const double* actual, const double* expected, double tol) {
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(actual[i], expected[i], tol) << "component " << i;
}

// Hamilton product, scalar first.
void hamilton(const double p[4], const double q[4], double out[4]) {
    out[0] = p[0] * q[0] - p[1] * q[1] - p[2] * q[2] - p[3] * q[3];
    out[1] = p[0] * q[1] + p[1] * q[0] + p[2] * q[3] - p[3] * q[2];
    out[2] = p[0] * q[2] - p[1] * q[3] + p[2] * q[0] + p[3] * q[1];
    out[3] = p[0] * q[3] + p[1] * q[2] - p[2] * q[1] + p[3] * q[0];
}

// Rotation by |w| t about w as a quaternion.
void rotation_of_rate(const double w[3], double t, double out[4]) {
    const double rate = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
    const double half = rate * t / 2;
    out[0] = std::cos(half);
    for (int i = 0; i < 3; ++i) out[i + 1] = std::sin(half) * w[i] / rate;
}

TEST(GyroPropagation, ZeroRateLeavesQuaternionUnchanged) {
    const double zero[3] = {0.0, 0.0, 0.0};
    // Quaternions whose length is exactly 1 in double precision.
    const double cases[][4] = {{1.0, 0.0, 0.0, 0.0}, {0.5, 0.5, 0.5, 0.5}, {0.5, -0.5, 0.5, -0.5}};
    for (const auto& start : cases) {
        double q[4] = {start[0], start[1], start[2], start[3]};
        func_Quat_Gyro_v2(zero, q, 0.02);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], start[i]);
        func_Quat_Gyro_v2(zero, q, 0.0);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], start[i]);
    }
}

TEST(GyroPropagation, ConstantRateMatchesClosedFormRotation) {
    const double w[3] = {0.3, -0.2, 0.5};  // [rad/s]
    const double q0[4] = {std::sqrt(0.5), 0.0, std::sqrt(0.5), 0.0};

    // One second in small steps: the series is exact far beyond double
    // precision at theta = 0.003, so only rounding remains.
    double q[4] = {q0[0], q0[1], q0[2], q0[3]};
    for (int k = 0; k < 100; ++k) func_Quat_Gyro_v2(w, q, 0.01);
    double turn[4];
    double expected[4];
    rotation_of_rate(w, 1.0, turn);
    hamilton(q0, turn, expected);
    expect_quat_near(q, expected, 1e-13);

    // The reverse rate undoes it (dt < 0 too).
    for (int k = 0; k < 100; ++k) func_Quat_Gyro_v2(w, q, -0.01);
    expect_quat_near(q, q0, 1e-13);
}

TEST(GyroPropagation, LargeStepShowsSeriesTruncationAndExtraDivision) {
    // theta = 1 rad in one step: sin(theta)/theta to theta^10 falls short by
    // theta^12/13! - ..., so the increment is shorter than 1 and the result,
    // divided once more by that length, is longer than 1 by the same amount.
    const double w[3] = {0.0, 0.0, 2.0};
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    func_Quat_Gyro_v2(w, q, 1.0);

    long double series = 0.0L;  // sin(1)/1 to the tenth power, independently
    long double term = 1.0L;
    for (int k = 0; k <= 5; ++k) {
        series += term;
        term = -term / ((2 * k + 2) * (2 * k + 3));
    }
    const long double c = std::cos(1.0L);
    const long double len_increment = std::sqrt(c * c + series * series);
    const double len_q = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    EXPECT_GT(len_q - 1.0, 5e-11);  // the deliberate second division is there
    EXPECT_NEAR(len_q, static_cast<double>(1.0L / len_increment), 1e-15);
    EXPECT_NEAR(std::atan2(q[3], q[0]), 1.0, 1e-9);  // a turn by 2 rad about z
    EXPECT_EQ(q[1], 0.0);
    EXPECT_EQ(q[2], 0.0);
}

TEST(GyroPropagation, KeepsPreviousQuaternionAndAllocatesNothing) {
    const double w[3] = {0.1, 0.4, -0.7};
    double q[4] = {0.5, 0.5, -0.5, 0.5};
    func_Quat_Gyro_v2(w, q, 0.02);
    const double before[4] = {q[0], q[1], q[2], q[3]};
    const std::size_t allocations =
        magcal_test::allocations_during([&] { func_Quat_Gyro_v2(w, q, 0.02); });
    EXPECT_EQ(allocations, 0u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(qt_gy_p[i], before[i]);
        EXPECT_NE(q[i], before[i]);
    }
}

}  // namespace
