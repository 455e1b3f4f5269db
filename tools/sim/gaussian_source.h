// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Seeded standard-normal numbers that are the same on every platform: a
// 64-bit Mersenne Twister (fully specified by the standard) feeding our own
// Box-Muller transform, because std::normal_distribution differs between
// standard libraries.
#pragma once

#include <cstdint>
#include <random>

namespace magcal::sim {

class GaussianSource {
  public:
    explicit GaussianSource(uint64_t seed) : engine_(seed) {}

    // One draw of N(0, 1).
    double next();

  private:
    // Uniform in [0, 1) with 53 random bits.
    double uniform();

    std::mt19937_64 engine_;
    double spare_ = 0.0;
    bool has_spare_ = false;
};

}  // namespace magcal::sim
