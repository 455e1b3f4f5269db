// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Cost of one full per-sample update (soft iron, fusion driver with both
// offset estimators, accuracy, nine-state filter, outputs), on a simulated
// figure-eight session so that every stage is exercised.
#include <benchmark/benchmark.h>

#include <vector>

#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_host.h"
#include "sim/session_simulator.h"

namespace {

struct Tick {
    double t;  // [s]
    double acc[3];
    double gyro[3];
    double mag[3];
};

std::vector<Tick> figure8_ticks() {
    magcal::sim::Config config;
    config.duration_s = 60.0;
    const magcal::sim::Session session = magcal::sim::simulate(config);
    std::vector<Tick> ticks;
    Tick tick{};
    for (const auto& s : session.samples) {
        double* dst = s.sensor == magcal::sim::Sensor::Acc    ? tick.acc
                      : s.sensor == magcal::sim::Sensor::Gyro ? tick.gyro
                                                              : tick.mag;
        for (int k = 0; k < 3; ++k) dst[k] = s.v[k];
        if (s.sensor == magcal::sim::Sensor::Mag) {
            tick.t = s.t_ns / 1e9;
            ticks.push_back(tick);
        }
    }
    return ticks;
}

// Reports the wall time of one sample in nanoseconds: a rate of
// (iterations * 1e-9) per second, inverted.
void report_ns_per_sample(benchmark::State& state) {
    state.counters["ns_per_sample"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * 1e-9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_PerSampleUpdate(benchmark::State& state) {
    const std::vector<Tick> ticks = figure8_ticks();
    QvGyroCal_init();
    CalibrationResult result{};
    size_t i = 0;
    double time_base = 0.0;
    for (auto _ : state) {
        const Tick& t = ticks[i];
        QvGyroCal_update_offset(&result, t.mag, t.acc, t.gyro, time_base + t.t);
        benchmark::DoNotOptimize(result);
        if (++i == ticks.size()) {
            i = 0;
            time_base += 60.0;
        }
    }
    state.SetItemsProcessed(state.iterations());
    report_ns_per_sample(state);
}
BENCHMARK(BM_PerSampleUpdate);

void BM_HostMagnetometerSample(benchmark::State& state) {
    const std::vector<Tick> ticks = figure8_ticks();
    QVG_initLib();
    size_t i = 0;
    int64_t base_ns = 0;
    CalibratedMagResult out{};
    for (auto _ : state) {
        const Tick& t = ticks[i];
        const int64_t ns = base_ns + static_cast<int64_t>(t.t * 1e9);
        SensorSample acc{ns, float(t.acc[0]), float(t.acc[1]), float(t.acc[2]), 0};
        SensorSample gyro{ns, float(t.gyro[0]), float(t.gyro[1]), float(t.gyro[2]), 0};
        SensorSample mag{ns, float(t.mag[0]), float(t.mag[1]), float(t.mag[2]), 0};
        QVG_caliApiSetAccData(&acc);
        QVG_caliApiSetGyroData(&gyro);
        QVG_doCaliApi(&mag, &out);
        benchmark::DoNotOptimize(out);
        if (++i == ticks.size()) {
            i = 0;
            base_ns += 60'000'000'000;
        }
    }
    report_ns_per_sample(state);
}
BENCHMARK(BM_HostMagnetometerSample);

}  // namespace
