// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Display angles from a quaternion. Expected values come from the yaw, roll
// and pitch the quaternions are built from, with the display conventions:
// heading = 360 - yaw in (0, 360], second angle = -roll, third = -pitch, and
// the heading turned by 180 when upside down; degrees of the single-precision
// pi 3.141592025756836.
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {

double display_deg(double deg) {
    return deg * M_PI / 3.141592025756836;
}

TEST(QuaternionAngles, IdentityGives360AndNegativeZeros) {
    const double q[4] = {1.0, 0.0, 0.0, 0.0};
    double a[3] = {1.0, 1.0, 1.0};
    QvGyroCal_quaternion2angle(a, q);
    EXPECT_EQ(a[0], 360.0);
    EXPECT_EQ(a[1], 0.0);
    EXPECT_TRUE(std::signbit(a[1]));
    EXPECT_EQ(a[2], 0.0);
    EXPECT_TRUE(std::signbit(a[2]));
}

TEST(QuaternionAngles, HeadingRollPitchAndUpsideDownFlip) {
    // Yaw about z, then roll about x, then pitch about y.
    const struct {
        double yaw, roll, pitch, heading;
    } cases[] = {
        {30.0, 100.0, 0.0, 360.0 - display_deg(30.0)},    // roll within 120: no flip
        {-30.0, 20.0, 0.0, display_deg(30.0)},            // negative yaw reads as its size
        {30.0, 150.0, 0.0, 180.0 - display_deg(30.0)},    // upside down: 330 + 180 wraps
        {-30.0, -150.0, 0.0, display_deg(30.0) + 180.0},  // the other way: no wrap
        {0.0, 0.0, 25.0, 360.0},                          // pitch alone
    };
    for (const auto& c : cases) {
        const double h[3] = {c.yaw * M_PI / 360, c.roll * M_PI / 360, c.pitch * M_PI / 360};
        const double qz[4] = {std::cos(h[0]), 0.0, 0.0, std::sin(h[0])};
        const double cr = std::cos(h[1]), sr = std::sin(h[1]);
        const double qzx[4] = {qz[0] * cr, qz[0] * sr, qz[3] * sr, qz[3] * cr};  // qz (x) qx
        const double cp = std::cos(h[2]), sp = std::sin(h[2]);
        const double q[4] = {qzx[0] * cp - qzx[2] * sp, qzx[1] * cp - qzx[3] * sp,
                             qzx[2] * cp + qzx[0] * sp, qzx[3] * cp + qzx[1] * sp};  // (x) qy
        double a[3];
        QvGyroCal_quaternion2angle(a, q);
        EXPECT_NEAR(a[0], c.heading, 1e-9) << c.roll;
        EXPECT_NEAR(a[1], -display_deg(c.roll), 1e-9) << c.roll;
        EXPECT_NEAR(a[2], -display_deg(c.pitch), 1e-9) << c.roll;
    }
}

}  // namespace
