// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "support/alloc_counter.h"
#include "support/library_reset.h"

namespace {

using magcal::g_gyro_cal;
using magcal::g_update_history;

constexpr double kFlat[3] = {0.0, 0.0, 9.8};
constexpr double kStill[3] = {0.0, 0.0, 0.0};
constexpr double kField[3] = {0.0, 30.0, -40.0};

class CalibrationUpdate : public testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        QvGyroCal_init();
    }
    int32_t update(const double mag[3], const double acc[3], const double gyro[3], double t) {
        return QvGyroCal_update_offset(&result_, mag, acc, gyro, t);
    }
    CalibrationResult result_{};
};

TEST_F(CalibrationUpdate, RefusedSamplesChangeNothing) {
    ASSERT_EQ(update(kField, kFlat, kStill, 1.0), 0);
    const CalibrationResult before = result_;
    const double last_time = g_gyro_cal.last_time;
    const double zero[3] = {0.0, 0.0, 0.0};
    const double too_long[3] = {4914.1, 0.0, 0.0};
    const double not_a_number[3] = {NAN, 1.0, 1.0};
    EXPECT_EQ(update(kField, zero, kStill, 2.0), -1);
    EXPECT_EQ(update(zero, kFlat, kStill, 2.0), -1);
    EXPECT_EQ(update(too_long, kFlat, kStill, 2.0), -1);
    EXPECT_EQ(update(not_a_number, kFlat, kStill, 2.0), -1);
    EXPECT_EQ(std::memcmp(&before, &result_, sizeof result_), 0);
    EXPECT_EQ(g_gyro_cal.last_time, last_time);

    const double longest[3] = {4914.0, 0.0, 0.0};
    EXPECT_EQ(update(longest, kFlat, kStill, 2.0), 0);
    const double partial_zero[3] = {0.0, 0.0, 1e-30};  // only all-zero vectors are refused
    EXPECT_EQ(update(kField, partial_zero, kStill, 2.1), 0);

    magcal_test::reset_library_state();  // not initialised
    EXPECT_EQ(update(kField, kFlat, kStill, 3.0), -1);
}

// dt is read back from the gyroscope attitude: a z rate of 1 rad/s turns it
// by dt radians, so its z component is sin(dt / 2).
double step_seen_by_gyro_attitude() {
    return 2.0 * std::asin(magcal::q_gyro[3]);
}

TEST_F(CalibrationUpdate, StepIsClampedAndSetsThePeriod) {
    const double spin[3] = {0.0, 0.0, 1.0};
    update(kField, kFlat, spin, 10.0);
    EXPECT_EQ(g_gyro_cal.start_state, 1);
    update(kField, kFlat, spin, 10.003);
    EXPECT_EQ(magcal::period_10ms, 1);
    EXPECT_NEAR(step_seen_by_gyro_attitude(), 0.004000000189989805, 1e-12);

    magcal_test::reset_library_state();
    QvGyroCal_init();
    update(kField, kFlat, spin, 10.0);
    update(kField, kFlat, spin, 20.0);
    EXPECT_EQ(magcal::period_10ms, 20);
    EXPECT_NEAR(step_seen_by_gyro_attitude(), 0.25, 1e-12);

    magcal_test::reset_library_state();
    QvGyroCal_init();
    update(kField, kFlat, spin, 10.0);
    update(kField, kFlat, spin, 9.98);  // time running backwards: the length counts
    EXPECT_EQ(magcal::period_10ms, 2);
    EXPECT_NEAR(step_seen_by_gyro_attitude(), 0.02, 1e-12);
}

TEST_F(CalibrationUpdate, FirstSampleSkipsTheFusionAndReportsTheSeed) {
    g_gyro_cal.cal_offset[0] = 7.0;
    ASSERT_EQ(update(kField, kFlat, kStill, 5.0), 0);
    EXPECT_EQ(magcal::g_fusion.run_state, 0);  // the fusion driver was not called
    EXPECT_EQ(result_.offset[0], 7.0);
    EXPECT_EQ(result_.rotation_vector[3], 1.0);  // identity seed, w last
    EXPECT_EQ(result_.accuracy, 0);
    EXPECT_EQ(result_.radius, 50.0);
    // Gravity from the identity attitude with 9.79f; linear = acc - gravity.
    EXPECT_EQ(result_.gravity[2], 9.789999961853027);
    EXPECT_EQ(result_.linear_accel[2], 9.8 - 9.789999961853027);
    EXPECT_EQ(result_.orientation[0], 360.0);  // heading 0 reads 360
    ASSERT_EQ(update(kField, kFlat, kStill, 5.02), 0);
    EXPECT_EQ(magcal::g_fusion.run_state, 1);
}

TEST_F(CalibrationUpdate, SoftIronIsTheFieldAsARowVectorTimesTheMatrix) {
    const double s[9] = {1.0, 2.0, 0.0, 0.0, 1.0, 0.0, 0.5, 0.0, 1.0};
    QvGyroCal_config_softiron(s);
    const double mag[3] = {10.0, 20.0, -30.0};
    ASSERT_EQ(update(mag, kFlat, kStill, 1.0), 0);
    // [10 20 -30] * S = [10 - 15, 20 + 20, -30]
    EXPECT_EQ(result_.calibrated[0], -5.0);
    EXPECT_EQ(result_.calibrated[1], 40.0);
    EXPECT_EQ(result_.calibrated[2], -30.0);
}

// Each "first sample" takes its offset from the stored one, which lets the
// test choose the offsets the hysteresis sees.
void first_sample_with_offset(CalibrationResult* r, double offset_x, double t) {
    QvGyroCal_init();  // a re-initialisation: the next sample is a first one
    g_gyro_cal.cal_offset[0] = offset_x;
    ASSERT_EQ(QvGyroCal_update_offset(r, kField, kFlat, kStill, t), 0);
}

TEST_F(CalibrationUpdate, SmallOffsetChangeCorrectsTheFieldButIsNotPublished) {
    for (int i = 0; i < 3; ++i) first_sample_with_offset(&result_, 10.0, 1.0 + i);
    EXPECT_EQ(result_.offset[0], 10.0);
    first_sample_with_offset(&result_, 10.19, 4.0);
    EXPECT_EQ(result_.offset[0], 10.0);
    // The smoothing restarted with the re-initialisation, so this is m' - offset.
    EXPECT_EQ(result_.calibrated[0], 0.0 - 10.19);
    first_sample_with_offset(&result_, 10.21, 5.0);
    EXPECT_EQ(result_.offset[0], 10.21);
}

TEST_F(CalibrationUpdate, SecondInitialisationKeepsTheStoredCalibration) {
    EXPECT_EQ(magcal::g_fusion.accuracy, 0);
    EXPECT_EQ(magcal::g_fusion.radius, 50.0);
    g_gyro_cal.cal_offset[1] = 3.5;
    g_gyro_cal.cal_radius = 44.0;
    const double stored[3] = {1.0, 2.0, 3.0};
    QvGyroCal_config_status(stored, 3, 47.0);
    QvGyroCal_init();
    EXPECT_EQ(g_gyro_cal.start_state, 2);
    EXPECT_EQ(g_gyro_cal.cal_offset[1], 3.5);
    EXPECT_EQ(g_gyro_cal.cal_radius, 44.0);
    EXPECT_EQ(magcal::g_fusion.offset_pub[2], 3.0);
    EXPECT_EQ(magcal::g_fusion.accuracy, 3);
    EXPECT_EQ(magcal::g_fusion.radius, 47.0);
    EXPECT_EQ(magcal::period_10ms, 2);
    EXPECT_EQ(g_update_history.mag_cnt, 0);
}

TEST(AngleFilter, AveragesAcrossNorthAndDropsOutliers) {
    magcal_test::reset_library_state();
    magcal::period_10ms = 2;
    auto& h = g_update_history;
    auto entry = [&h](int k) -> double& {
        return magcal::ring_entry(h.angle_buf, h.angle_newest, k);
    };
    entry(0) = 2.0;
    entry(1) = 358.0;
    h.angle_cnt = 2;
    EXPECT_EQ(angle_filter(0.0), 0.0);  // (360 + 362 + 358) / 3 = 360 -> 0
    EXPECT_EQ(entry(0), 0.0);
    EXPECT_EQ(h.angle_cnt, 3);

    entry(0) = 350.0;
    h.angle_cnt = 1;
    EXPECT_EQ(angle_filter(5.0), 5.0);  // 350 is 345 away: an outlier

    entry(0) = 200.0;
    h.angle_cnt = 1;
    EXPECT_EQ(angle_filter(90.0), 90.0);

    entry(0) = 100.0;
    h.angle_cnt = 1;
    EXPECT_EQ(angle_filter(96.0), 98.0);

    // The window is one second: 50 samples at 20 ms.
    h.angle_cnt = 48;
    angle_filter(96.0);
    EXPECT_EQ(h.angle_cnt, 49);
    angle_filter(96.0);
    EXPECT_EQ(h.angle_cnt, 49);

    h.angle_cnt = 0;  // an empty history returns the input
    EXPECT_EQ(angle_filter(123.0), 123.0);
}

TEST(AverageFilter, WarmsUpWithTheFirstInputThenAveragesPointEightSeconds) {
    magcal_test::reset_library_state();
    magcal::period_10ms = 2;  // 40 samples
    double v[3] = {4.0, -8.0, 2.0};
    EXPECT_EQ(average_filter(v), v);
    EXPECT_EQ(v[0], 4.0);
    double w[3] = {44.0, -8.0, 2.0};
    average_filter(w);
    EXPECT_EQ(w[0], (39 * 4.0 + 44.0) / 40);
    EXPECT_EQ(w[1], -8.0);
}

TEST(PitchRoll, MeanOfHalfASecondAndTheFaceDownFold) {
    magcal_test::reset_library_state();
    magcal::period_10ms = 2;  // window of 25 samples
    double pitch = 0.0, roll = 0.0;
    const double flat[3] = {0.0, 0.0, 9.8};
    QvGyroCal_update_get_pitch_roll(flat, &pitch, &roll);
    EXPECT_EQ(pitch, -0.0);
    EXPECT_EQ(roll, 0.0);
    // Tilted 30 degrees about x (y down): pitch from -y over the norm.
    const double tilted[3] = {0.0, -4.9, 9.8 * std::cos(M_PI / 6)};
    for (int i = 0; i < 30; ++i) QvGyroCal_update_get_pitch_roll(tilted, &pitch, &roll);
    EXPECT_EQ(g_update_history.accel_b_cnt, 25);
    EXPECT_NEAR(pitch, 30.0, 1e-4);  // truncated pi
    const double face_down[3] = {0.0, -4.9, -9.8 * std::cos(M_PI / 6)};
    for (int i = 0; i < 30; ++i) QvGyroCal_update_get_pitch_roll(face_down, &pitch, &roll);
    EXPECT_NEAR(pitch, 150.0, 1e-4);
    const double face_down_other[3] = {0.0, 4.9, -9.8 * std::cos(M_PI / 6)};
    for (int i = 0; i < 30; ++i) QvGyroCal_update_get_pitch_roll(face_down_other, &pitch, &roll);
    EXPECT_NEAR(pitch, -150.0, 1e-4);
}

// The update writes the attitude's tilt into the roll slot before it takes
// pitch and roll from the acceleration; a caller whose acceleration array
// starts at that slot must have them taken from the tilt (and from the
// linear acceleration after it), even though the roll then replaces it.
TEST_F(CalibrationUpdate, AccelerationOverlappingTheRollSlotSeesTheTiltFirst) {
    const double gyro[3] = {0.3, -0.2, 0.9};
    const double tilted[3] = {1.5, -2.0, 9.5};
    for (int i = 0; i < 20; ++i) ASSERT_EQ(update(kField, tilted, gyro, 1.0 + 0.02 * i), 0);
    const magcal::UpdateHistory before = g_update_history;
    result_.orientation[2] = 2.0;
    result_.linear_accel[0] = -1.0;
    result_.linear_accel[1] = 9.0;
    ASSERT_EQ(update(kField, &result_.orientation[2], gyro, 1.4), 0);

    constexpr double kPi = 3.141592025756836;  // 3.141592f widened
    const double* q = g_update_history.g_out_q;
    const double seen[3] = {std::asin(2 * q[0] * q[2] - 2 * q[1] * q[3]) * (-180) / kPi,
                            result_.linear_accel[0], result_.linear_accel[1]};
    ASSERT_NE(seen[0], 0.0);  // the attitude is tilted, so a missing tilt shows
    std::memcpy(g_update_history.B_Accel, before.B_Accel, sizeof before.B_Accel);
    g_update_history.accel_b_cnt = before.accel_b_cnt;
    g_update_history.accel_b_newest = before.accel_b_newest;
    double pitch = 0.0, roll = 0.0;
    QvGyroCal_update_get_pitch_roll(seen, &pitch, &roll);
    EXPECT_EQ(std::memcmp(&pitch, &result_.orientation[1], sizeof pitch), 0);
    EXPECT_EQ(std::memcmp(&roll, &result_.orientation[2], sizeof roll), 0);
}

TEST_F(CalibrationUpdate, PerSampleUpdateAllocatesNothing) {
    const double gyro[3] = {0.3, -0.2, 0.9};
    update(kField, kFlat, gyro, 1.0);
    const std::size_t count = magcal_test::allocations_during([&] {
        for (int i = 1; i <= 100; ++i) update(kField, kFlat, gyro, 1.0 + 0.02 * i);
    });
    EXPECT_EQ(count, 0u);
}

}  // namespace
