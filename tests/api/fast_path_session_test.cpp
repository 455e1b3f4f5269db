// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Whole sessions through the host interface, every magnetometer sample
// processed twice from the same state: once as the library runs (with its
// specialised filter kernels) and once with every step on its plain path.
// The host's result record, all seven getter records and every process-wide
// record a later sample reads must match bit for bit after every sample.
// Simulated sessions of each motion at 100 Hz, and one with special values,
// zero vectors, odd timestamps and mid-session host calls injected.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "magcal/magcal_host.h"
#include "matrix/fast_path.h"
#include "sim/session_simulator.h"
#include "support/library_reset.h"
#include "support/library_snapshot.h"
#include "support/value_source.h"

namespace {

using magcal_test::LibrarySnapshot;

struct HostOutputs {
    CalibratedMagResult result;
    FusionOutput getters[7];
};

HostOutputs process(const SensorSample& mag, bool fast) {
    magcal::set_fast_path_enabled(fast);
    HostOutputs out;
    std::memset(&out, 0xA5, sizeof out);  // bytes the library must not write stay as they were
    QVG_doCaliApi(&mag, &out.result);
    QVG_getGravity(&out.getters[0]);
    QVG_getRotationVector(&out.getters[1]);
    QVG_getOrientation(&out.getters[2]);
    QVG_getLinearaccel(&out.getters[3]);
    QVG_getGameRotationVector(&out.getters[4]);
    QVG_getGeoMagnetic(&out.getters[5]);
    QVG_getVirtualGyro(&out.getters[6]);
    magcal::set_fast_path_enabled(true);
    return out;
}

struct Event {
    magcal::sim::Sensor sensor;
    SensorSample sample;
};

// Replays the events in lock step; returns the number of magnetometer samples.
int lockstep(const std::vector<Event>& events, const char* name) {
    auto start = std::make_unique<LibrarySnapshot>();
    auto after_fast = std::make_unique<LibrarySnapshot>();
    int mags = 0;
    for (const Event& e : events) {
        if (e.sensor == magcal::sim::Sensor::Acc) {
            QVG_caliApiSetAccData(&e.sample);
            continue;
        }
        if (e.sensor == magcal::sim::Sensor::Gyro) {
            QVG_caliApiSetGyroData(&e.sample);
            continue;
        }
        *start = magcal_test::capture_library();
        // Alternate samples take the two-lane kernels where four are available.
        magcal::set_wide_lanes_enabled(mags % 2 == 0);
        const HostOutputs fast = process(e.sample, true);
        magcal::set_wide_lanes_enabled(true);
        *after_fast = magcal_test::capture_library();
        magcal_test::restore_library(*start);
        const HostOutputs plain = process(e.sample, false);
        EXPECT_EQ(std::memcmp(&fast, &plain, sizeof fast), 0)
            << name << ": host outputs differ at magnetometer sample " << mags;
        const std::string records =
            magcal_test::differing_records(*after_fast, magcal_test::capture_library());
        EXPECT_TRUE(records.empty()) << name << ": " << records << " differ at sample " << mags;
        if (testing::Test::HasFailure()) return mags;
        ++mags;
    }
    return mags;
}

std::vector<Event> simulated(magcal::sim::Scenario scenario, uint64_t seed) {
    magcal::sim::Config config;
    config.scenario = scenario;
    config.rate_hz = 100.0;
    config.duration_s = 30.0;
    config.seed = seed;
    config.jitter_s = 0.001;
    config.gyro_bias = {0.01, -0.02, 0.005};
    config.soft_iron = {1.05, 0.02, 0.0, 0.02, 0.97, 0.01, 0.0, 0.01, 1.01};
    std::vector<Event> events;
    for (const auto& s : magcal::sim::simulate(config).samples)
        events.push_back({s.sensor, SensorSample{s.t_ns, s.v[0], s.v[1], s.v[2], 0}});
    return events;
}

class FastPathSession : public testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        testing::internal::CaptureStderr();  // the soft-iron file is missing here
        QVG_initLib();
        testing::internal::GetCapturedStderr();
    }
};

TEST_F(FastPathSession, EverySimulatedMotionAtOneHundredHertz) {
    using magcal::sim::Scenario;
    int mags = 0;
    uint64_t seed = 1;
    for (Scenario scenario : {Scenario::Figure8, Scenario::FlatTurns, Scenario::Still,
                              Scenario::Walk, Scenario::Magnet, Scenario::Flip}) {
        mags += lockstep(simulated(scenario, seed++), magcal::sim::scenario_name(scenario));
        if (HasFailure()) return;
    }
    EXPECT_GE(mags, 6 * 2900);
}

TEST_F(FastPathSession, SpecialValuesOddTimestampsAndHostCallsMidSession) {
    magcal_test::ValueSource src(77);
    std::vector<Event> events = simulated(magcal::sim::Scenario::Figure8, 5);
    int64_t shift = 0;
    for (Event& e : events) {
        float* v[3] = {&e.sample.x, &e.sample.y, &e.sample.z};
        if (src.chance(0.004)) *v[src.index(3)] = magcal_test::kSpecialFloats[src.index(9)];
        if (src.chance(0.002)) *v[0] = *v[1] = *v[2] = 0.0f;
        if (src.chance(0.001)) shift += src.chance(0.5) ? 10'000'000'000 : -2'000'000'000;
        e.sample.timestamp += shift;
    }
    auto start = events.begin();
    for (int part = 0; part < 4; ++part) {
        const auto end = start + static_cast<long>(events.size() / 4);
        lockstep(std::vector<Event>(start, end), "special values");
        if (HasFailure()) return;
        start = end;
        // Between parts the host restores an offset or restarts the library.
        const float offset[3] = {25.0f, -35.0f, 40.0f};
        if (part == 0) QVG_caliApiSetOffset(offset);
        if (part == 1) {
            testing::internal::CaptureStderr();
            QVG_initLib();
            testing::internal::GetCapturedStderr();
        }
    }
}

}  // namespace
