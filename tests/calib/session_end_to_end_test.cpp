// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Whole sessions on the simulator, checked against the physical truth: the
// offset the device was built with, the heading it really had.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "sim/session_simulator.h"
#include "support/library_reset.h"

namespace {

using magcal::sim::Sensor;

struct Replayed {
    std::vector<CalibrationResult> results;  // one per processed magnetometer sample
    std::vector<size_t> truth_index;         // matching row of the session's truth
    double first_accuracy_time[4] = {-1, -1, -1, -1};  // [s] from the first sample
};

Replayed replay(const magcal::sim::Session& session) {
    Replayed out;
    double acc[3] = {0, 0, 0};
    double gyro[3] = {0, 0, 0};
    size_t mag_index = 0;
    const int64_t t0 = session.samples.front().t_ns;
    for (const auto& s : session.samples) {
        const double v[3] = {s.v[0], s.v[1], s.v[2]};
        if (s.sensor == Sensor::Acc) {
            acc[0] = v[0], acc[1] = v[1], acc[2] = v[2];
        } else if (s.sensor == Sensor::Gyro) {
            gyro[0] = v[0], gyro[1] = v[1], gyro[2] = v[2];
        } else {
            CalibrationResult r{};
            if (QvGyroCal_update_offset(&r, v, acc, gyro, s.t_ns / 1e9) == 0) {
                out.results.push_back(r);
                out.truth_index.push_back(mag_index);
                for (int a = 0; a <= r.accuracy && a < 4; ++a)
                    if (out.first_accuracy_time[a] < 0)
                        out.first_accuracy_time[a] = (s.t_ns - t0) / 1e9;
            }
            ++mag_index;
        }
    }
    return out;
}

double offset_error(const CalibrationResult& r, const magcal::sim::TruthRow& truth) {
    double sum = 0;
    for (int k = 0; k < 3; ++k) sum += (r.offset[k] - truth.offset_ut[k]) * (r.offset[k] - truth.offset_ut[k]);
    return std::sqrt(sum);
}

double heading_error(double azimuth, double truth) {
    double d = std::fmod(azimuth - truth + 540.0, 360.0) - 180.0;
    return d;
}

magcal::sim::Session figure8(double seconds, uint64_t seed) {
    magcal::sim::Config config;
    config.duration_s = seconds;
    config.seed = seed;
    config.hard_iron_ut = {25.0, -35.0, 40.0};
    return magcal::sim::simulate(config);
}

class Session : public testing::Test {
protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        QvGyroCal_init();
    }
};

TEST_F(Session, Figure8ReachesAccuracyThreeWithTheTrueOffset) {
    const magcal::sim::Session session = figure8(60.0, 7);
    const Replayed run = replay(session);
    ASSERT_FALSE(run.results.empty());
    const CalibrationResult& last = run.results.back();
    EXPECT_EQ(last.accuracy, 3);
    EXPECT_GT(run.first_accuracy_time[3], 0.0);
    EXPECT_LT(run.first_accuracy_time[3], 45.0);
    const double error = offset_error(last, session.truth[run.truth_index.back()]);
    EXPECT_LT(error, 3.0) << "final offset error [uT]";
    std::printf("time to accuracy 1/2/3: %.2f / %.2f / %.2f s, final offset error %.3f uT\n",
                run.first_accuracy_time[1], run.first_accuracy_time[2],
                run.first_accuracy_time[3], error);
}

// Compass heading of the device's +y axis from a rotation vector (x, y, z, w).
double heading_of(const double rv[4]) {
    const double x = rv[0], y = rv[1], z = rv[2], w = rv[3];
    const double east = 2 * (x * y - w * z);
    const double north = 1 - 2 * (x * x + z * z);
    const double deg = std::atan2(east, north) * 180.0 / M_PI;
    return deg < 0 ? deg + 360.0 : deg;
}

double rms(const std::vector<double>& errors) {
    double sum = 0.0;
    for (double e : errors) sum += e * e;
    return errors.empty() ? NAN : std::sqrt(sum / errors.size());
}

TEST_F(Session, HeadingFollowsTheTruthOnceCalibrated) {
    // Calibrate with a figure eight, then turn the phone on a table.
    magcal::sim::Session session = figure8(20.0, 11);
    magcal::sim::Config table;
    table.scenario = magcal::sim::Scenario::FlatTurns;
    table.duration_s = 40.0;
    table.seed = 12;
    table.start_ns = session.samples.back().t_ns + 20'000'000;
    const magcal::sim::Session turns = magcal::sim::simulate(table);
    session.samples.insert(session.samples.end(), turns.samples.begin(), turns.samples.end());
    session.truth.insert(session.truth.end(), turns.truth.begin(), turns.truth.end());

    const Replayed run = replay(session);
    std::vector<double> attitude_errors;  // fused attitude, every sample once calibrated
    std::vector<double> azimuth_errors;   // smoothed azimuth output, device at rest on the table
    bool calibrated = false;
    int still_samples = 0;
    for (size_t i = 0; i < run.results.size(); ++i) {
        const CalibrationResult& r = run.results[i];
        const auto& truth = session.truth[run.truth_index[i]];
        calibrated = calibrated || r.accuracy == 3;
        // The table session starts in a pose of its own: skip the jump into it.
        const bool settling = truth.t_ns >= table.start_ns && truth.t_ns < table.start_ns + 5'000'000'000;
        if (!calibrated || settling) continue;
        // The heading of the +y axis is ill-conditioned while that axis points up or down.
        const auto& tq = truth.q_world_from_body;
        const double y_up = 2 * (tq[2] * tq[3] + tq[0] * tq[1]);
        if (std::fabs(y_up) < 0.8)
            attitude_errors.push_back(
                heading_error(heading_of(r.rotation_vector), truth.heading_deg));
        const bool on_table = truth.t_ns >= table.start_ns;
        const bool turning = i > 0 && std::fabs(heading_error(session.truth[run.truth_index[i - 1]].heading_deg,
                                                              truth.heading_deg)) > 1e-3;
        still_samples = turning ? 0 : still_samples + 1;
        if (on_table && still_samples > 60)  // the 1 s azimuth average has settled
            azimuth_errors.push_back(heading_error(r.orientation[0], truth.heading_deg));
    }
    ASSERT_GT(attitude_errors.size(), 1000u);
    ASSERT_GT(azimuth_errors.size(), 50u);
    const double attitude_rms = rms(attitude_errors);
    const double azimuth_rms = rms(azimuth_errors);
    EXPECT_LT(attitude_rms, 5.0) << "heading RMS error of the fused attitude [deg]";
    EXPECT_LT(azimuth_rms, 3.0) << "azimuth RMS error at rest [deg]";
    std::printf("heading RMS once calibrated: fused attitude %.2f deg (%zu samples), "
                "azimuth at rest %.2f deg (%zu samples)\n",
                attitude_rms, attitude_errors.size(), azimuth_rms, azimuth_errors.size());
}

TEST_F(Session, RestartWithARestoredCalibrationIsCalibratedAtOnce) {
    const magcal::sim::Session session = figure8(60.0, 7);
    const Replayed run = replay(session);
    const CalibrationResult last = run.results.back();
    ASSERT_EQ(last.accuracy, 3);

    // A new boot: fresh library, the host pushes back what it persisted.
    magcal_test::reset_library_state();
    QvGyroCal_init();
    QvGyroCal_config_status(last.offset, last.accuracy, last.radius);
    magcal::sim::Config still;
    still.scenario = magcal::sim::Scenario::Still;
    still.duration_s = 5.0;
    still.hard_iron_ut = {25.0, -35.0, 40.0};
    const Replayed after = replay(magcal::sim::simulate(still));
    ASSERT_GE(after.results.size(), 2u);
    for (size_t i = 1; i < after.results.size(); ++i) {
        EXPECT_EQ(after.results[i].accuracy, 3) << "sample " << i;
        for (int k = 0; k < 3; ++k) EXPECT_EQ(after.results[i].offset[k], last.offset[k]);
    }

    // A stored calibration that does not fit the field is dropped.
    magcal_test::reset_library_state();
    QvGyroCal_init();
    const double wrong[3] = {-60.0, 10.0, 0.0};
    QvGyroCal_config_status(wrong, 3, last.radius);
    const Replayed dropped = replay(magcal::sim::simulate(still));
    EXPECT_EQ(dropped.results.back().accuracy, 0);
}

TEST_F(Session, StillDeviceKeepsAccuracyZeroAndItsOffset) {
    magcal::sim::Config still;
    still.scenario = magcal::sim::Scenario::Still;
    still.duration_s = 20.0;
    const Replayed run = replay(magcal::sim::simulate(still));
    for (const CalibrationResult& r : run.results) {
        ASSERT_EQ(r.accuracy, 0);
        ASSERT_EQ(r.offset[0], 0.0);
        ASSERT_EQ(r.offset[1], 0.0);
        ASSERT_EQ(r.offset[2], 0.0);
    }
}

}  // namespace
