// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Small rotation toolkit for the session simulator: vectors, unit quaternions
// (scalar first, Hamilton product) and the maps between body and world frames.
//
// A quaternion q_world_from_body rotates body-frame vectors into the world
// frame (x east, y north, z up): v_world = q * v_body * q^-1.
#pragma once

#include <array>
#include <cmath>

namespace magcal::sim {

constexpr double kPi = 3.14159265358979323846;

using Vec3 = std::array<double, 3>;
using Quat = std::array<double, 4>;  // w, x, y, z

inline Vec3 add(const Vec3& a, const Vec3& b) {
    return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}
inline Vec3 sub(const Vec3& a, const Vec3& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline Vec3 scale(const Vec3& a, double s) {
    return {a[0] * s, a[1] * s, a[2] * s};
}
inline double dot(const Vec3& a, const Vec3& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline double norm(const Vec3& a) {
    return std::sqrt(dot(a, a));
}
inline Vec3 cross(const Vec3& a, const Vec3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

inline Quat quat_mul(const Quat& p, const Quat& q) {
    return {p[0] * q[0] - p[1] * q[1] - p[2] * q[2] - p[3] * q[3],
            p[0] * q[1] + p[1] * q[0] + p[2] * q[3] - p[3] * q[2],
            p[0] * q[2] - p[1] * q[3] + p[2] * q[0] + p[3] * q[1],
            p[0] * q[3] + p[1] * q[2] - p[2] * q[1] + p[3] * q[0]};
}

inline Quat quat_normalized(const Quat& q) {
    const double n = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    return {q[0] / n, q[1] / n, q[2] / n, q[3] / n};
}

// Rotation by `angle` [rad] about the unit vector `axis`.
inline Quat quat_from_axis_angle(const Vec3& axis, double angle) {
    const double s = std::sin(0.5 * angle);
    return {std::cos(0.5 * angle), axis[0] * s, axis[1] * s, axis[2] * s};
}

// The rotation whose vector is `v` [rad]: axis v/|v|, angle |v|.
inline Quat quat_exp(const Vec3& v) {
    const double angle = norm(v);
    if (angle < 1e-300) return {1.0, 0.0, 0.0, 0.0};
    return quat_from_axis_angle(scale(v, 1.0 / angle), angle);
}

// Angle [rad] of the rotation that takes a into b (0 for equal attitudes).
inline double quat_angle_between(const Quat& a, const Quat& b) {
    const double d = std::fabs(a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3]);
    return 2.0 * std::acos(d > 1.0 ? 1.0 : d);
}

// v_world = R v_body.
inline Vec3 rotate(const Quat& q, const Vec3& v) {
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    return {
        (1 - 2 * (y * y + z * z)) * v[0] + 2 * (x * y - w * z) * v[1] + 2 * (x * z + w * y) * v[2],
        2 * (x * y + w * z) * v[0] + (1 - 2 * (x * x + z * z)) * v[1] + 2 * (y * z - w * x) * v[2],
        2 * (x * z - w * y) * v[0] + 2 * (y * z + w * x) * v[1] + (1 - 2 * (x * x + y * y)) * v[2]};
}

// v_body = R^T v_world.
inline Vec3 rotate_inverse(const Quat& q, const Vec3& v) {
    return rotate({q[0], -q[1], -q[2], -q[3]}, v);
}

// Compass azimuth [deg, 0..360) of the body +y axis projected on the
// horizontal plane, clockwise from north.
inline double heading_deg(const Quat& q_world_from_body) {
    const Vec3 y = rotate(q_world_from_body, {0.0, 1.0, 0.0});
    double deg = std::atan2(y[0], y[1]) * (180.0 / kPi);
    if (deg < 0.0) deg += 360.0;
    if (deg >= 360.0) deg -= 360.0;
    return deg;
}

}  // namespace magcal::sim
