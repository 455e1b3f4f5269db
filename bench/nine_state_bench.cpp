// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Per-sample cost of the nine-state filter step and of the gyroscope-only
// propagation, on a slowly turning, slightly tilted device at 50 Hz.
#include <benchmark/benchmark.h>

#include "magcal/magcal_algorithms.h"

namespace {

constexpr double kDriverConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};

void BM_NineStateStep(benchmark::State& state) {
    QvGyroCal_9_states_init(kDriverConfig);
    double q[4] = {0.98, 0.05, -0.03, 0.19};
    double mag_corr[3];
    double bias_corr[3];
    const double mag[3] = {12.0, 15.0, -44.0};  // [uT]
    const double acc[3] = {0.4, -0.9, 9.7};     // [m/s^2]
    const double gyro[3] = {0.05, -0.02, 0.3};  // [rad/s]
    const double gyro_prev[3] = {0.05, -0.02, 0.29};
    for (auto _ : state) {
        QvGyroCal_9_states(q, mag_corr, bias_corr, mag, acc, gyro, gyro_prev, 0.02);
        benchmark::DoNotOptimize(q);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_NineStateStep);

void BM_GyroPropagation(benchmark::State& state) {
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    const double gyro[3] = {0.05, -0.02, 0.3};  // [rad/s]
    for (auto _ : state) {
        func_Quat_Gyro_v2(gyro, q, 0.02);
        benchmark::DoNotOptimize(q);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_GyroPropagation);

}  // namespace
