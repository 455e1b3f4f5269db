// Attitude from acc and mag, and direction-cosine matrix to quaternion.
// Matrices are built from quaternions with the navigation -> body table
// C(q) (columns: east, north, up in body axes).
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {

Matrix6 dcm_of(const double q[4]) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    Matrix6 m{};
    m.rows = 3;
    m.cols = 3;
    m.data[0][0] = w * w + x * x - y * y - z * z;
    m.data[0][1] = 2 * (x * y + w * z);
    m.data[0][2] = 2 * (x * z - w * y);
    m.data[1][0] = 2 * (x * y - w * z);
    m.data[1][1] = w * w - x * x + y * y - z * z;
    m.data[1][2] = 2 * (y * z + w * x);
    m.data[2][0] = 2 * (x * z + w * y);
    m.data[2][1] = 2 * (y * z - w * x);
    m.data[2][2] = w * w - x * x - y * y + z * z;
    return m;
}

void normalise(double q[4]) {
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    for (int i = 0; i < 4; ++i) q[i] /= n;
}

Matrix6 matrix3(const double (&v)[3][3]) {
    Matrix6 m{};
    m.rows = 3;
    m.cols = 3;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) m.data[r][c] = v[r][c];
    return m;
}

TEST(DcmToQuaternion, IdentityAndEachLargestComponentBranch) {
    Matrix6 eye{};
    eye.rows = eye.cols = 3;
    eye.data[0][0] = eye.data[1][1] = eye.data[2][2] = 1.0;
    double q[4] = {9.0, 9.0, 9.0, 9.0};
    ASSERT_EQ(convm_dc_to_quat_b(q, &eye), 0);
    EXPECT_EQ(q[0], 1.0);
    EXPECT_EQ(q[1], 0.0);
    EXPECT_EQ(q[2], 0.0);
    EXPECT_EQ(q[3], 0.0);

    // Each case has its largest component positive in the slot the branch
    // takes the root of, so the round trip must return the same quaternion.
    double cases[][4] = {
        {0.9, 0.1, -0.3, 0.2},   // w largest
        {0.2, 0.9, 0.3, -0.1},   // x largest
        {-0.3, 0.1, 0.8, 0.4},   // y largest
        {0.1, -0.4, 0.2, 0.85},  // z largest
    };
    for (auto& expected : cases) {
        normalise(expected);
        const Matrix6 m = dcm_of(expected);
        double out[4];
        ASSERT_EQ(convm_dc_to_quat_b(out, &m), 0);
        for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], expected[i], 1e-15) << i;
    }
}

TEST(DcmToQuaternion, TiesGoToTheLowerCandidateAndTraceErrorIsRefused) {
    // m11 + m22 = 0 makes the w and x candidates equal (both 0.5); on a
    // matrix that is not a rotation the two branches disagree, so the
    // result shows which one ran.
    const double r = std::sqrt(0.5);
    const double f = 4 * r;
    double q[4];
    Matrix6 tie01 = matrix3({{1.0, 0.4, 0.0}, {0.0, 0.0, 1.0}, {0.0, 0.0, 0.0}});
    ASSERT_EQ(convm_dc_to_quat_b(q, &tie01), 0);
    EXPECT_EQ(q[0], r);
    EXPECT_EQ(q[1], 1.0 / f);
    EXPECT_EQ(q[2], 0.0);
    EXPECT_EQ(q[3], 0.4 / f);

    // m11 = m22 with m00 = -1 ties the y and z candidates at 0.5.
    Matrix6 tie23 = matrix3({{-1.0, 0.4, 0.2}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}});
    ASSERT_EQ(convm_dc_to_quat_b(q, &tie23), 0);
    EXPECT_EQ(q[2], r);
    EXPECT_EQ(q[0], -0.2 / f);
    EXPECT_EQ(q[1], 0.4 / f);
    EXPECT_EQ(q[3], 0.0);

    // A trace equal to the trace's error value is treated as that error.
    Matrix6 bad = matrix3({{-32768.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}});
    EXPECT_EQ(convm_dc_to_quat_b(q, &bad), -1);
    EXPECT_EQ(convm_dc_to_quat_b(q, nullptr), -1);
}

TEST(AccMagAttitude, RecoversTheAttitudeOfConsistentVectors) {
    // acc = C (0, 0, 9.8), mag = C (0, 30 cos 60deg, -30 sin 60deg) for a
    // known attitude; the result must be that attitude.
    double cases[][4] = {{1.0, 0.0, 0.0, 0.0},
                         {0.9, 0.1, -0.3, 0.2},
                         {0.2, 0.9, 0.3, -0.1},
                         {-0.3, 0.1, 0.8, 0.4},
                         {0.1, -0.4, 0.2, 0.85}};
    const double kPi = std::acos(-1.0);
    const double north[3] = {0.0, 30.0 * std::cos(kPi / 3), -30.0 * std::sin(kPi / 3)};
    for (auto& expected : cases) {
        normalise(expected);
        // The largest component comes out positive: compare up to sign.
        const Matrix6 c = dcm_of(expected);
        double acc[3];
        double mag[3];
        for (int i = 0; i < 3; ++i) {
            acc[i] = 9.8 * c.data[i][2];
            mag[i] = c.data[i][1] * north[1] + c.data[i][2] * north[2];
        }
        double q[4];
        ASSERT_EQ(acc_mag2quaternion_b(q, acc, mag), 0);
        double dot = 0.0;
        for (int i = 0; i < 4; ++i) dot += q[i] * expected[i];
        EXPECT_NEAR(std::fabs(dot), 1.0, 1e-14);
    }
}

TEST(AccMagAttitude, ParallelAccAndMagGiveNonFiniteQuaternionWithoutCrash) {
    const double acc[3] = {0.0, 0.0, 9.8};
    const double mag[3] = {0.0, 0.0, -40.0};
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    // The zero cross product divided by its zero length leaves NaN in the
    // east and north columns; the conversion itself does not fail.
    EXPECT_EQ(acc_mag2quaternion_b(q, acc, mag), 0);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(std::isnan(q[i])) << i;

    const double zero[3] = {0.0, 0.0, 0.0};
    EXPECT_EQ(acc_mag2quaternion_b(q, zero, mag), 0);
    for (int i = 0; i < 4; ++i) EXPECT_FALSE(std::isfinite(q[i])) << i;
}

}  // namespace
