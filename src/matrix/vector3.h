// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Plain three-vector helpers shared by the per-sample stages. Lengths are
// summed x, y, z in that order so every stage rounds alike.
#pragma once

#include <cmath>

namespace magcal {

inline double length3(const double v[3]) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

// |a - b|, the difference taken per axis first.
inline double distance3(const double a[3], const double b[3]) {
    const double d[3] = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    return length3(d);
}

inline void copy3(double dst[3], const double src[3]) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
}

inline void copy4(double dst[4], const double src[4]) {
    dst[0] = src[0];
    dst[1] = src[1];
    dst[2] = src[2];
    dst[3] = src[3];
}

}  // namespace magcal
