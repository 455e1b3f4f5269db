// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Constants of the nine-state filter's model, shared by its plain step and
// its specialised step so that both round alike.
#pragma once

namespace magcal::ekf {

constexpr double kDivisorFloor = 9.999999974752427e-07;  // 1e-6f widened: smallest divisor
constexpr double kGravity = 9.789999961853027;           // 9.79f widened [m/s^2]
// 0.1f widened: |1 - |az|/|a|| below this counts as lying flat
constexpr double kFlatTolerance = 0.10000000149011612;
constexpr double kRadToDeg = 57.29577951308238;     // 180/pi as tuned (literal kept)
constexpr double kDegToRad = 0.017453277777777776;  // 3.14159/180, deliberately not pi/180

// Divisors in [0, 1e-6] are raised to 1e-6; negative and NaN pass unchanged.
inline double guarded(double d) {
    return (d >= 0.0 && d <= kDivisorFloor) ? kDivisorFloor : d;
}

}  // namespace magcal::ekf
