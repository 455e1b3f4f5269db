// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Inputs for the differential tests of the specialised filter steps: seeded
// random values, and the special values that floating-point arithmetic
// treats differently (NaN, infinities, signed zeros, denormals, values whose
// products overflow).
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>

namespace magcal_test {

constexpr double kSpecialValues[] = {
    std::numeric_limits<double>::quiet_NaN(),
    -std::numeric_limits<double>::quiet_NaN(),
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    0.0,
    -0.0,
    std::numeric_limits<double>::denorm_min(),
    -std::numeric_limits<double>::denorm_min(),
    1e-310,                              // denormal
    std::numeric_limits<double>::min(),  // smallest normal
    1e30,
    -1e30,
    1e200,  // squares overflow
    std::numeric_limits<double>::max(),
};

// The same as single-precision host input.
constexpr float kSpecialFloats[] = {
    std::numeric_limits<float>::quiet_NaN(),
    -std::numeric_limits<float>::quiet_NaN(),
    std::numeric_limits<float>::infinity(),
    -std::numeric_limits<float>::infinity(),
    0.0f,
    -0.0f,
    std::numeric_limits<float>::denorm_min(),
    1e30f,
    std::numeric_limits<float>::max(),
};

class ValueSource {
  public:
    explicit ValueSource(uint64_t seed) : rng_(seed) {}

    double uniform(double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng_);
    }
    int index(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    bool chance(double p) { return uniform(0.0, 1.0) < p; }
    double special() { return kSpecialValues[index(sizeof kSpecialValues / sizeof(double))]; }

    void fill(double* v, int n, double lo, double hi) {
        for (int i = 0; i < n; ++i) v[i] = uniform(lo, hi);
    }

  private:
    std::mt19937_64 rng_;
};

// Bitwise equality, so that NaN payloads and the sign of zero count too.
template <typename T>
bool same_bits(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

inline bool same_bits(const double* a, const double* b, int n) {
    return std::memcmp(a, b, sizeof(double) * n) == 0;
}

}  // namespace magcal_test
