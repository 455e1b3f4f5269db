// Display angles from a quaternion. Expected values come from the yaw and
// roll the quaternions are built from, with the display conventions: heading
// = 360 - yaw in (0, 360], second angle = -roll, third = -pitch, and a
// heading turned by 180 when upside down.
#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {

constexpr double kTruePi = 3.14159265358979323846;
constexpr double kDisplayPi = 3.141592025756836;  // the single-precision pi the display uses

double rad(double deg) {
    return deg * kTruePi / 180.0;
}
double display_deg(double deg) {
    return rad(deg) * 180.0 / kDisplayPi;
}

// Yaw psi about z, then roll phi about x: q = qz(psi) (x) qx(phi).
void yaw_roll(double psi_deg, double phi_deg, double q[4]) {
    const double cy = std::cos(rad(psi_deg) / 2), sy = std::sin(rad(psi_deg) / 2);
    const double cr = std::cos(rad(phi_deg) / 2), sr = std::sin(rad(phi_deg) / 2);
    q[0] = cy * cr;
    q[1] = cy * sr;
    q[2] = sy * sr;
    q[3] = sy * cr;
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
    double q[4];
    double a[3];
    const double tol = 1e-9;

    yaw_roll(30.0, 100.0, q);  // roll within 120: no flip
    QvGyroCal_quaternion2angle(a, q);
    EXPECT_NEAR(a[0], 360.0 - display_deg(30.0), tol);
    EXPECT_NEAR(a[1], -display_deg(100.0), tol);
    EXPECT_NEAR(a[2], 0.0, tol);

    yaw_roll(-30.0, 20.0, q);  // negative yaw reads as its magnitude
    QvGyroCal_quaternion2angle(a, q);
    EXPECT_NEAR(a[0], display_deg(30.0), tol);

    yaw_roll(30.0, 150.0, q);  // upside down: 330 + 180 wraps to 150
    QvGyroCal_quaternion2angle(a, q);
    EXPECT_NEAR(a[0], 360.0 - display_deg(30.0) + 180.0 - 360.0, tol);
    EXPECT_NEAR(a[1], -display_deg(150.0), tol);

    yaw_roll(-30.0, -150.0, q);  // upside down the other way: 30 + 180, no wrap
    QvGyroCal_quaternion2angle(a, q);
    EXPECT_NEAR(a[0], display_deg(30.0) + 180.0, tol);
    EXPECT_NEAR(a[1], display_deg(150.0), tol);

    // Pitch 25 degrees about y: third angle is its negation.
    const double qp[4] = {std::cos(rad(25.0) / 2), 0.0, std::sin(rad(25.0) / 2), 0.0};
    QvGyroCal_quaternion2angle(a, qp);
    EXPECT_NEAR(a[2], -display_deg(25.0), tol);
    EXPECT_EQ(a[0], 360.0);
}

}  // namespace
