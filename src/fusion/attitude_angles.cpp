// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Display angles of an attitude quaternion (scalar first), in degrees.
//
// Heading comes from the yaw of the quaternion, mapped to (0, 360] with the
// sense reversed (a yaw of exactly 0 is shown as 360); the second angle is
// the negated roll about x, the third the negated pitch about y. When the
// device is upside down (|second angle| > 120 degrees) the yaw of the
// rotation sequence points the other way, so the heading is turned by 180.
// The degree conversion uses the single-precision pi the rest of the
// calibration driver uses.
#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {
constexpr double kPi = 3.141592025756836;  // 3.141592f widened
constexpr double kUpsideDownDeg = 120.0;   // beyond this roll the device faces down
}  // namespace

extern "C" MAGCAL_API void QvGyroCal_quaternion2angle(double angles[3], const double q[4]) {
    if (angles == nullptr || q == nullptr) return;

    const double w = q[0], x = q[1], y = q[2], z = q[3];
    const double a0 = std::atan2(2 * (x * y + w * z), 2 * (w * w + x * x) - 1) * 180 / kPi;
    const double a1 = std::asin(2 * (w * y - x * z)) * 180 / kPi;
    const double a2 = std::atan2(2 * (y * z + w * x), 2 * (w * w + z * z) - 1) * 180 / kPi;

    double heading = a0 >= 0 ? 360 - a0 : -a0;  // [deg], (0, 360]
    const double roll = -a2;                    // [deg]
    if (std::fabs(roll) > kUpsideDownDeg) {
        heading = heading + 180;
        if (heading >= 360) heading = heading - 360;
    }
    angles[0] = heading;
    angles[1] = roll;
    angles[2] = -a1;
}
