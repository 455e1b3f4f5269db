// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Gyroscope-only attitude propagation.
//
// Advances a unit quaternion (scalar first, navigation -> body) by one
// angular-rate sample: the rotation of |w|*dt about w is applied on the body
// side, q <- q (x) (cos(theta), sin(theta) * w/|w|) with theta = |w|*dt/2.
// sin(theta)/|w| is taken from the Taylor series of sin(theta)/theta times
// dt/2, so a zero rate needs no special case and nothing divides by |w|.
// Units: rate [rad/s], time step [s].
//
// The result is normalised and then divided once more by the length of the
// increment before its own normalisation. That length differs from 1 only by
// the truncation of the series; the extra division is part of the behaviour
// the rest of the fusion was tuned with and is kept.
#include <cmath>

#include "magcal/magcal_algorithms.h"

// Quaternion as it was before the most recent propagation (scalar first);
// zero until the first propagation.
extern "C" {
MAGCAL_API double qt_gy_p[4] = {0.0, 0.0, 0.0, 0.0};
}

extern "C" MAGCAL_API void func_Quat_Gyro_v2(const double gyro[3], double q[4], double dt) {
    if (gyro == nullptr || q == nullptr) return;

    for (int i = 0; i < 4; ++i) qt_gy_p[i] = q[i];

    const double gx = gyro[0];
    const double gy = gyro[1];
    const double gz = gyro[2];
    const double rate = std::sqrt(gx * gx + gy * gy + gz * gz);  // [rad/s]
    const double theta = rate * dt / 2;                          // half rotation angle [rad]

    // Powers as plain left-to-right products of theta.
    const double t2 = theta * theta;
    const double t4 = t2 * theta * theta;
    const double t6 = t4 * theta * theta;
    const double t8 = t6 * theta * theta;
    const double t10 = t8 * theta * theta;
    // sin(theta)/|w|: the series of sin(theta)/theta up to theta^10, times dt/2.
    const double s = (1 - t2 / 6 + t4 / 120 - t6 / 5040 + t8 / 362880 - t10 / 39916800) * dt / 2;

    double d[4] = {std::cos(theta), s * gx, s * gy, s * gz};
    const double len_d = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2] + d[3] * d[3]);
    for (double& v : d) v = v / len_d;

    const double p0 = q[0], p1 = q[1], p2 = q[2], p3 = q[3];
    const double w = p0 * d[0] - p1 * d[1] - p2 * d[2] - p3 * d[3];
    const double x = p0 * d[1] + p1 * d[0] + p2 * d[3] - p3 * d[2];
    const double y = p0 * d[2] + p2 * d[0] + p3 * d[1] - p1 * d[3];
    const double z = p0 * d[3] + p1 * d[2] + p3 * d[0] - p2 * d[1];

    const double len_q = std::sqrt(w * w + x * x + y * y + z * z);
    q[0] = w / len_q / len_d;
    q[1] = x / len_q / len_d;
    q[2] = y / len_q / len_d;
    q[3] = z / len_q / len_d;
}
