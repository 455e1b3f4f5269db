// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Attitude from acc and mag, and direction-cosine matrix to quaternion.
// Matrices are built from quaternions with the navigation -> body table
// C(q) (columns: east, north, up in body axes).
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {

Matrix6 matrix3(const double (&v)[3][3]) {
    Matrix6 m{};
    m.rows = m.cols = 3;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) m.data[r][c] = v[r][c];
    return m;
}

TEST(DcmToQuaternion, RoundTripThroughEachCandidateAndFromAccAndMag) {
    // The identity (candidate c0 with exactly (1, 0, 0, 0)), then one case per
    // branch, each with its largest component positive in the slot the
    // branch takes the root of.
    double cases[][4] = {{1.0, 0.0, 0.0, 0.0},
                         {0.9, 0.1, -0.3, 0.2},
                         {0.2, 0.9, 0.3, -0.1},
                         {-0.3, 0.1, 0.8, 0.4},
                         {0.1, -0.4, 0.2, 0.85}};
    const double north_y = 30.0 * std::cos(M_PI / 3), north_z = -30.0 * std::sin(M_PI / 3);
    for (auto& e : cases) {
        const double n = std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2] + e[3] * e[3]);
        for (double& v : e) v /= n;
        const double w = e[0], x = e[1], y = e[2], z = e[3];
        const Matrix6 m =
            matrix3({{w * w + x * x - y * y - z * z, 2 * (x * y + w * z), 2 * (x * z - w * y)},
                     {2 * (x * y - w * z), w * w - x * x + y * y - z * z, 2 * (y * z + w * x)},
                     {2 * (x * z + w * y), 2 * (y * z - w * x), w * w - x * x - y * y + z * z}});
        double out[4] = {9.0, 9.0, 9.0, 9.0};
        ASSERT_EQ(convm_dc_to_quat_b(out, &m), 0);
        for (int i = 0; i < 4; ++i) EXPECT_NEAR(out[i], e[i], 1e-15) << w;

        // acc = C (0, 0, 9.8) and mag = C (0, 30 cos 60deg, -30 sin 60deg)
        // give back the same attitude, up to sign.
        double acc[3], mag[3];
        for (int i = 0; i < 3; ++i) {
            acc[i] = 9.8 * m.data[i][2];
            mag[i] = m.data[i][1] * north_y + m.data[i][2] * north_z;
        }
        ASSERT_EQ(acc_mag2quaternion_b(out, acc, mag), 0);
        EXPECT_NEAR(std::fabs(out[0] * w + out[1] * x + out[2] * y + out[3] * z), 1.0, 1e-14) << w;
    }
}

TEST(DcmToQuaternion, TiesGoToTheLowerCandidateAndTraceErrorIsRefused) {
    // On matrices that are not rotations the branches disagree, so the result
    // shows which one ran. m11 + m22 = 0 ties w and x at 0.5; m11 = m22 with
    // m00 = -1 ties y and z at 0.5.
    const double f = 4 * std::sqrt(0.5);
    const struct {
        double m[3][3], want[4];
    } ties[] = {
        {{{1.0, 0.4, 0.0}, {0.0, 0.0, 1.0}, {0.0, 0.0, 0.0}}, {f / 4, 1.0 / f, 0.0, 0.4 / f}},
        {{{-1.0, 0.4, 0.2}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}}, {-0.2 / f, 0.4 / f, f / 4, 0.0}}};
    for (const auto& t : ties) {
        double q[4];
        const Matrix6 m = matrix3(t.m);
        ASSERT_EQ(convm_dc_to_quat_b(q, &m), 0);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(q[i], t.want[i]) << i;
    }
    // A trace equal to the trace's error value is treated as that error.
    double q[4];
    const Matrix6 bad = matrix3({{-32768.0, 0.0, 0.0}, {0.0, 0.0, 0.0}, {0.0, 0.0, 0.0}});
    EXPECT_EQ(convm_dc_to_quat_b(q, &bad), -1);
    EXPECT_EQ(convm_dc_to_quat_b(q, nullptr), -1);
}

TEST(AccMagAttitude, ParallelAccAndMagGiveNoUsableQuaternion) {
    // The zero cross product divided by its zero length leaves NaN in the
    // east and north columns, which pass through to the quaternion.
    const double acc[3] = {0.0, 0.0, 9.8};
    const double mag[3] = {0.0, 0.0, -40.0};
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    EXPECT_EQ(acc_mag2quaternion_b(q, acc, mag), 0);
    for (int i = 0; i < 4; ++i) EXPECT_TRUE(std::isnan(q[i])) << i;
}

}  // namespace
