// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Cost of one step of each offset estimator, on a slowly turning field.
#include <benchmark/benchmark.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"

namespace {

constexpr int kSamples = 64;

struct Stream {
    double mag[kSamples][3];
    double gyro[kSamples][3];
    Stream() {
        for (int k = 0; k < kSamples; ++k) {
            const double a = 0.1 * k;
            mag[k][0] = 20.0 + 40.0 * std::cos(a);
            mag[k][1] = -30.0 + 40.0 * std::sin(a) * std::cos(0.5 * a);
            mag[k][2] = 45.0 + 40.0 * std::sin(0.5 * a);
            gyro[k][0] = 0.3 * std::sin(a);
            gyro[k][1] = 0.5;
            gyro[k][2] = -0.4 * std::cos(a);
        }
    }
};

const Stream& stream() {
    static const Stream s;
    return s;
}

void BM_SphereFitStep(benchmark::State& state) {
    const RlsConfig cfg = {0, -3, 0, -3, 1.0};
    QvGyroCal_RLS_init(&cfg);
    const Stream& s = stream();
    double centre[3];
    double radius = 0.0;
    int k = 0;
    for (auto _ : state) {
        QvGyroCal_RLS(centre, &radius, s.mag[k]);
        benchmark::DoNotOptimize(radius);
        k = (k + 1) % kSamples;
    }
}
BENCHMARK(BM_SphereFitStep);

void BM_OffsetKalmanStep(benchmark::State& state) {
    const double prior[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(prior);
    const Stream& s = stream();
    func_Offset_Calibration_KF_update_xf(1, s.mag[0], 1, prior);
    double offset[3];
    double radius = 0.0;
    int k = 0;
    for (auto _ : state) {
        func_Offset_Calibration_KF_v4(s.mag[k], s.gyro[k], offset, &radius, 0.02);
        benchmark::DoNotOptimize(radius);
        k = (k + 1) % kSamples;
    }
}
BENCHMARK(BM_OffsetKalmanStep);

}  // namespace
