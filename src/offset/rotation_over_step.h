// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The rotation that carries the field seen at the previous sample into the
// device axes of the current one, from one gyroscope sample.
//
// Half angle h = |w| dt / 2 [rad]; the quaternion's vector part uses a
// truncated series of sin(h)/h (so a zero rate needs no special case) and its
// scalar part the exact cos(h). The components are then normalised one at a
// time, each against a norm that already holds the normalised earlier ones:
// not a unit normalisation, and kept so on purpose (a large turn within one
// sample gives a slightly non-orthonormal R). R is the transpose of the
// direction-cosine matrix of that quaternion. Shared by the Kalman offset
// filter's plain and specialised steps.
#pragma once

#include <cmath>

namespace magcal::offset {

// sin(h)/h to the h^10 term, summed left to right.
inline double sinc_series(double h) {
    const double h2 = h * h;
    return 1.0 - h2 / 6.0 + std::pow(h, 4.0) / 120.0 + std::pow(h, 6.0) / (-5040.0) +
           std::pow(h, 8.0) / 362880.0 + std::pow(h, 10.0) / (-39916800.0);
}

inline void rotation_over_step(double r[3][3], const double gyro[3], double dt) {
    const double rate = std::sqrt(gyro[0] * gyro[0] + gyro[1] * gyro[1] + gyro[2] * gyro[2]);
    const double h = (rate * dt) * 0.5;
    const double k = (sinc_series(h) * dt) * 0.5;
    double q0 = std::cos(h);
    double q1 = gyro[0] * k;
    double q2 = gyro[1] * k;
    double q3 = gyro[2] * k;
    q0 = q0 / std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
    q1 = q1 / std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
    q2 = q2 / std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);
    q3 = q3 / std::sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3);

    r[0][0] = (2.0 * q0) * q0 + (2.0 * q1) * q1 - 1.0;
    r[0][1] = (2.0 * q1) * q2 + (2.0 * q0) * q3;
    r[0][2] = (2.0 * q1) * q3 - (2.0 * q0) * q2;
    r[1][0] = (2.0 * q1) * q2 - (2.0 * q0) * q3;
    r[1][1] = (2.0 * q0) * q0 + (2.0 * q2) * q2 - 1.0;
    r[1][2] = (2.0 * q0) * q1 + (2.0 * q2) * q3;
    r[2][0] = (2.0 * q0) * q2 + (2.0 * q1) * q3;
    r[2][1] = (2.0 * q2) * q3 - (2.0 * q0) * q1;
    r[2][2] = (2.0 * q0) * q0 + (2.0 * q3) * q3 - 1.0;
}

}  // namespace magcal::offset
