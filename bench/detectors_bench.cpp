// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Cost of one sample through the accuracy rules and the motion detector, the
// two per-sample detectors with the most branches.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "magcal/magcal_algorithms.h"

namespace {

// A device turning slowly about a tilted axis with the offset close to the
// sphere centre: the inputs of every accuracy benchmark.
struct AccuracyInputs {
    double mag[3] = {20.0, 5.0, -40.0};
    double acc[3] = {1.5, 3.5, 8.9};
    double gyro[3] = {0.05, 0.4, 0.45};
    double rls_diff[3] = {2.0, 3.0, 1.0};
    double q[4] = {0.9238795325112867, 0.0, 0.3826834323650898, 0.0};
    int32_t accuracy = 0;
    int32_t rls_reset = 0;

    int32_t step(double radius) {
        return get_accuracy(mag, acc, gyro, rls_diff, 1, 0, 2, &accuracy, q, &rls_reset, radius,
                            44.0, 25.0);
    }
};

// The radius stays near 45 uT, so that every stage of the rules is visited.
void BM_GetAccuracy(benchmark::State& state) {
    reset_accuracy();
    AccuracyInputs in;
    int32_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(in.step(45.0 + static_cast<double>(n++ & 3)));
        benchmark::DoNotOptimize(in.accuracy);
    }
}
BENCHMARK(BM_GetAccuracy);

// Before any calibration stage is reached the gyro attitude is converted to
// angles on every call; includes one reset_accuracy() per call.
void BM_GetAccuracyUncalibrated(benchmark::State& state) {
    AccuracyInputs in;
    for (auto _ : state) {
        reset_accuracy();
        benchmark::DoNotOptimize(in.step(45.0));
    }
}
BENCHMARK(BM_GetAccuracyUncalibrated);

// Turning and resting in turn, so that the counters enter and release.
void BM_MotionDetector(benchmark::State& state) {
    const double acc[3] = {0.3, -0.2, 9.8};
    const double turning[3] = {0.6, 0.1, 0.8};
    const double still[3] = {0.001, -0.002, 0.0};
    int32_t n = 0;
    for (auto _ : state) {
        const double* gyro = ((n++ >> 5) & 1) ? turning : still;
        int32_t moving = func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(gyro, acc, 2, 1);
        benchmark::DoNotOptimize(moving);
    }
}
BENCHMARK(BM_MotionDetector);

}  // namespace
