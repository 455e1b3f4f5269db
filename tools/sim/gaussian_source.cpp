// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Box-Muller over std::mt19937_64: each pair of uniforms gives two independent
// standard-normal values; the second is kept for the next call.
#include "sim/gaussian_source.h"

#include <cmath>

#include "sim/rotation.h"

namespace magcal::sim {

double GaussianSource::uniform() {
    return static_cast<double>(engine_() >> 11) * 0x1.0p-53;
}

double GaussianSource::next() {
    if (has_spare_) {
        has_spare_ = false;
        return spare_;
    }
    const double u1 = 1.0 - uniform();  // (0, 1]: keeps the logarithm finite
    const double u2 = uniform();
    const double r = std::sqrt(-2.0 * std::log(u1));
    const double phi = 2.0 * kPi * u2;
    spare_ = r * std::sin(phi);
    has_spare_ = true;
    return r * std::cos(phi);
}

}  // namespace magcal::sim
