// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Cost of one magnetometer sample as a host sees it: a fixed recorded sensor
// log (the golden 50 Hz figure-eight session) fed through the plug-in's table
// exactly as a sensor service feeds it, the accelerometer and gyroscope
// setters for their samples, doCaliApi and then all seven getters for each
// magnetometer sample. When the log runs out it starts again (with a later
// time base, so the step stays the log's own).
#include <benchmark/benchmark.h>

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "magcal/magcal_host.h"

namespace {

struct Line {
    char sensor;  // 'a', 'g' or 'm'
    SensorSample sample;
};

std::vector<Line> recorded_log() {
    std::vector<Line> lines;
    std::ifstream in(MAGCAL_REPLAY_LOG);
    for (std::string text; std::getline(in, text);) {
        long long t = 0;
        char name[8] = {0};
        float x = 0, y = 0, z = 0;
        if (std::sscanf(text.c_str(), "%lld,%7[a-z],%f,%f,%f", &t, name, &x, &y, &z) == 5)
            lines.push_back({name[0], SensorSample{t, x, y, z, 0}});
    }
    return lines;
}

void BM_HostReplay(benchmark::State& state) {
    const std::vector<Line> log = recorded_log();
    if (log.empty()) {
        state.SkipWithError("cannot read " MAGCAL_REPLAY_LOG);
        return;
    }
    const MagLibApiInterface& api = MAG_LIB_API_INTERFACE;
    api.initLib();
    CalibratedMagResult result{};
    FusionOutput out[7] = {};
    size_t i = 0;
    int64_t base_ns = 0;
    int64_t mags = 0;
    for (auto _ : state) {
        // One iteration is one magnetometer sample and the samples before it.
        for (;;) {
            const Line& l = log[i];
            SensorSample s = l.sample;
            s.timestamp += base_ns;
            if (++i == log.size()) {
                i = 0;
                base_ns += 3'600'000'000'000;
            }
            if (l.sensor == 'a') {
                api.caliApiSetAccData(&s);
            } else if (l.sensor == 'g') {
                api.caliApiSetGyroData(&s);
            } else {
                api.doCaliApi(&s, &result);
                api.getGravity(&out[0]);
                api.getRotationVector(&out[1]);
                api.getOrientation(&out[2]);
                api.getLinearaccel(&out[3]);
                api.getGameRotationVector(&out[4]);
                api.getGeoMagnetic(&out[5]);
                api.getVirtualGyro(&out[6]);
                break;
            }
        }
        benchmark::DoNotOptimize(result);
        benchmark::DoNotOptimize(out);
        ++mags;
    }
    state.counters["ns_per_sample"] =
        benchmark::Counter(static_cast<double>(mags) * 1e-9,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_HostReplay);

}  // namespace
