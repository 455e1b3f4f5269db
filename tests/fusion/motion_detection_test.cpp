// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Motion detector. Scores are worked out by hand from |acc x gyro| and
// |acc .* gyro|; the lengths from the period are counted in samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "fusion/detector_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/library_reset.h"

namespace {

struct Vec3 {
    double v[3];
};

const Vec3 kFlat{{0.0, 0.0, 9.8}};
const Vec3 kTilted{{1.0, 0.0, 1.0}};
const Vec3 kStill{{0.0, 0.0, 0.0}};
const Vec3 kTurn{{1.0, 0.0, 1.0}};  // with kFlat: cross 9.8, product 9.8
// With kTilted, gyro (a, a, 0) gives cross a*sqrt(3) and product a.
const Vec3 kWeak{{0.5, 0.5, 0.0}};     // cross 0.87: above 0.5, below 1.0
const Vec3 kLight{{0.3, 0.3, 0.0}};    // 0.82: above 0.5, its half below
const Vec3 kMedium{{2.0, 2.0, 0.0}};   // 5.46, but cross 3.46 below 4.0
const Vec3 kStrong{{3.0, 3.0, 0.0}};   // 8.20
const Vec3 kAcross{{1.0, 0.0, 0.05}};  // with kFlat: cross 9.8, product 0.49

// Runs `n` identical samples and returns the last result.
int32_t run(int n, const Vec3& gyro, const Vec3& acc, int32_t period, int32_t accuracy) {
    int32_t moving = -1;
    for (int i = 0; i < n; ++i) {
        moving =
            func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(gyro.v, acc.v, period, accuracy);
    }
    return moving;
}

TEST(MotionDetection, EnterAndReleaseLengthsFollowThePeriodAndTheAccuracy) {
    // Phases of identical samples; `fresh` starts from a cleared detector.
    // p = 2: enter 6/2 = 3, release 60/2 = 30 (accuracy 0..2), 2/2 = 1 with
    // threshold 4.0 on the cross term and 1.0 on the product term (accuracy
    // 3), 80/2 = 40 with threshold 1.0 (negative accuracy). p = 30: enter 6,
    // release 60 or 2, the score averaged over two samples (so the first still
    // sample after 8.2 still scores 4.1). p = 7: enter 1. Peaks need not be
    // consecutive: ten quiet samples keep their count, the eleventh (counted
    // since motion last started) forgets it.
    const struct {
        bool fresh;
        int n;
        const Vec3& gyro;
        const Vec3& acc;
        int32_t period, accuracy, want;
    } phases[] = {
        {true, 3, kTurn, kFlat, 2, 1, 0},       {false, 1, kTurn, kFlat, 2, 1, 1},
        {false, 30, kStill, kFlat, 2, 1, 1},    {false, 1, kStill, kFlat, 2, 1, 0},
        {true, 2, kTurn, kFlat, 2, 1, 0},       {false, 10, kStill, kFlat, 2, 1, 0},
        {false, 1, kTurn, kFlat, 2, 1, 0},      {false, 1, kTurn, kFlat, 2, 1, 1},
        {true, 1, kTurn, kFlat, 2, 1, 0},       {false, 6, kStill, kFlat, 2, 1, 0},
        {false, 1, kTurn, kFlat, 2, 1, 0},      {false, 5, kStill, kFlat, 2, 1, 0},
        {false, 3, kTurn, kFlat, 2, 1, 0},      {false, 1, kTurn, kFlat, 2, 1, 1},
        {true, 4, kMedium, kTilted, 2, 2, 1},   {true, 20, kMedium, kTilted, 2, 3, 0},
        {false, 20, kAcross, kFlat, 2, 3, 0},   {false, 3, kStrong, kTilted, 2, 3, 0},
        {false, 1, kStrong, kTilted, 2, 3, 1},  {false, 1, kStill, kTilted, 2, 3, 1},
        {false, 1, kStill, kTilted, 2, 3, 0},   {true, 20, kWeak, kTilted, 2, -1, 0},
        {false, 4, kMedium, kTilted, 2, -1, 1}, {false, 40, kStill, kTilted, 2, -1, 1},
        {false, 1, kStill, kTilted, 2, -1, 0},  {true, 6, kLight, kTilted, 30, 1, 0},
        {false, 1, kLight, kTilted, 30, 1, 1},  {false, 60, kStill, kTilted, 30, 1, 1},
        {false, 1, kStill, kTilted, 30, 1, 0},  {true, 6, kStrong, kTilted, 30, 3, 0},
        {false, 1, kStrong, kTilted, 30, 3, 1}, {false, 3, kStill, kTilted, 30, 3, 1},
        {false, 1, kStill, kTilted, 30, 3, 0},  {true, 1, kTurn, kFlat, 7, 1, 0},
        {false, 1, kTurn, kFlat, 7, 1, 1},
    };
    for (const auto& p : phases) {
        if (p.fresh) magcal_test::reset_library_state();
        EXPECT_EQ(run(p.n, p.gyro, p.acc, p.period, p.accuracy), p.want) << (&p - phases);
    }
}

TEST(MotionDetection, PeriodsOutsideTwoTo29AverageTwoSamples) {
    // An alternating light score halves below the threshold only when averaged.
    for (const int32_t period : {1, 2, 29, 30}) {
        magcal_test::reset_library_state();
        int32_t moving = 0;
        for (int i = 0; i < 40; ++i) moving = run(1, i % 2 ? kStill : kLight, kTilted, period, 1);
        EXPECT_EQ(moving, period == 2 || period == 29) << period;
    }
}

TEST(MotionDetection, StillDeviceIsNeverMoving) {
    const Vec3 accs[] = {kFlat, kStill, {{50.0, -80.0, 200.0}}, {{-9.8, 0.0, 0.0}}};
    for (const int32_t period : {0, 1, 2, 7, 29, 30}) {
        for (const int32_t accuracy : {-1, 0, 3}) {
            magcal_test::reset_library_state();
            for (const Vec3& acc : accs) EXPECT_EQ(run(100, kStill, acc, period, accuracy), 0);
        }
    }
}

TEST(MotionDetection, ZRateFallbackScore) {
    // Flat-ish device turning about z: cross 1.5 < 4.0, so the fallback scores
    // it, with 0.7f and 9.9f widened.
    magcal_test::reset_library_state();
    const Vec3 acc{{0.0, 0.0, -3.0}};
    EXPECT_EQ(run(3, Vec3{{0.5, 0.0, 2.0}}, acc, 2, 3), 0);
    EXPECT_DOUBLE_EQ(magcal::g_motion_state.score_prev,
                     4.0 * static_cast<double>(0.7f) * (1.0 + (static_cast<double>(9.9f) - 3.0)));
    EXPECT_EQ(run(1, Vec3{{0.5, 0.0, 2.0}}, acc, 2, 3), 1);
    // The z-rate gate is 0.1f widened: a rate between 0.1 and 0.1f gives no
    // score. A pure z turn has no x/y rate to divide by and counts as motion.
    run(1, Vec3{{0.01, 0.0, 0.1000000005}}, acc, 2, 3);
    EXPECT_EQ(magcal::g_motion_state.score_prev, 0.0);
    run(1, Vec3{{0.01, 0.0, -0.1000000020}}, acc, 2, 3);
    EXPECT_GT(magcal::g_motion_state.score_prev, 4.0);
    magcal_test::reset_library_state();
    EXPECT_EQ(run(4, Vec3{{0.0, 0.0, 0.5}}, kFlat, 2, 1), 1);
}

}  // namespace
