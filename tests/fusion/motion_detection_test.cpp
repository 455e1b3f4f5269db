#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "fusion/detector_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

struct Vec3 {
    double v[3];
};

const Vec3 kFlat{{0.0, 0.0, 9.8}};
const Vec3 kStill{{0.0, 0.0, 0.0}};
// Turning about x and z while flat: |acc x gyro| = 9.8, |acc .* gyro| = 9.8.
const Vec3 kTurn{{1.0, 0.0, 1.0}};

class MotionDetection : public ::testing::Test {
  protected:
    void SetUp() override { magcal::g_motion_state = magcal::MotionState{}; }

    static int32_t step(const Vec3& gyro, const Vec3& acc, int32_t period, int32_t accuracy) {
        return func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(gyro.v, acc.v, period,
                                                                      accuracy);
    }
    // Runs `n` identical samples and returns the last result.
    static int32_t run(int n, const Vec3& gyro, const Vec3& acc, int32_t period, int32_t accuracy) {
        int32_t moving = -1;
        for (int i = 0; i < n; ++i) moving = step(gyro, acc, period, accuracy);
        return moving;
    }
};

TEST_F(MotionDetection, EntersAfterFourAndReleasesAfterThirtyOneAtTwentyMs) {
    // p = 2, accuracy 1: enter length 6/2 = 3, release 60/2 = 30.
    EXPECT_EQ(run(3, kTurn, kFlat, 2, 1), 0);
    EXPECT_EQ(step(kTurn, kFlat, 2, 1), 1);
    EXPECT_EQ(run(30, kStill, kFlat, 2, 1), 1);
    EXPECT_EQ(step(kStill, kFlat, 2, 1), 0);

    // Peaks need not be consecutive: ten quiet samples keep the count...
    SetUp();
    run(2, kTurn, kFlat, 2, 1);
    run(10, kStill, kFlat, 2, 1);
    EXPECT_EQ(step(kTurn, kFlat, 2, 1), 0);
    EXPECT_EQ(step(kTurn, kFlat, 2, 1), 1);

    // ...and the eleventh forgets it, counted since motion last started even
    // when peaks come in between.
    SetUp();
    run(1, kTurn, kFlat, 2, 1);
    run(6, kStill, kFlat, 2, 1);
    run(1, kTurn, kFlat, 2, 1);
    run(5, kStill, kFlat, 2, 1);
    EXPECT_EQ(run(3, kTurn, kFlat, 2, 1), 0);
    EXPECT_EQ(step(kTurn, kFlat, 2, 1), 1);
}

TEST_F(MotionDetection, ThresholdAndReleaseFollowTheAccuracy) {
    const Vec3 tilted{{1.0, 0.0, 1.0}};
    // gyro (a, a, 0): |acc x gyro| = a*sqrt(3), |acc .* gyro| = a.
    const Vec3 medium{{2.0, 2.0, 0.0}};  // 3.46 + 2: above 0.5, cross below 4.0
    const Vec3 strong{{3.0, 3.0, 0.0}};  // 5.20 + 3: cross above 4.0
    EXPECT_EQ(run(20, medium, tilted, 2, 3), 0);
    SetUp();
    EXPECT_EQ(run(4, medium, tilted, 2, 2), 1);

    // Accuracy 3: threshold 4.0, release 2/2 = 1 sample.
    SetUp();
    EXPECT_EQ(run(3, strong, tilted, 2, 3), 0);
    EXPECT_EQ(step(strong, tilted, 2, 3), 1);
    EXPECT_EQ(step(kStill, tilted, 2, 3), 1);
    EXPECT_EQ(step(kStill, tilted, 2, 3), 0);

    // The product term must reach a quarter of the threshold as well.
    const Vec3 across{{1.0, 0.0, 0.05}};  // cross 9.8, product 0.49 < 4.0/4
    SetUp();
    EXPECT_EQ(run(20, across, kFlat, 2, 3), 0);
    SetUp();
    EXPECT_EQ(run(4, across, kFlat, 2, 1), 1);

    // A negative accuracy: threshold 1.0, release 80/2 = 40.
    const Vec3 weak{{0.5, 0.5, 0.0}};  // cross 0.87: above 0.5, below 1.0
    SetUp();
    EXPECT_EQ(run(20, weak, tilted, 2, -1), 0);
    SetUp();
    EXPECT_EQ(run(4, medium, tilted, 2, -1), 1);
    EXPECT_EQ(run(40, kStill, tilted, 2, -1), 1);
    EXPECT_EQ(step(kStill, tilted, 2, -1), 0);
}

TEST_F(MotionDetection, UnusualPeriodsAverageTwoSamples) {
    const Vec3 tilted{{1.0, 0.0, 1.0}};
    const Vec3 light{{0.3, 0.3, 0.0}};  // score 0.82: above 0.5, its half below
    for (const int32_t period : {0, 1, 30, -4}) {
        SetUp();
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(step(i % 2 ? kStill : light, tilted, period, 1), 0) << period;
        }
        // Steady scores are unchanged by the mean; enter after 7, release after 61.
        SetUp();
        EXPECT_EQ(run(6, light, tilted, period, 1), 0) << period;
        EXPECT_EQ(step(light, tilted, period, 1), 1) << period;
        EXPECT_EQ(run(60, kStill, tilted, period, 1), 1) << period;
        EXPECT_EQ(step(kStill, tilted, period, 1), 0) << period;
    }
    // The same alternation counts every other sample at a usual period.
    SetUp();
    int32_t moving = 0;
    for (int i = 0; i < 7; ++i) moving = step(i % 2 ? kStill : light, tilted, 2, 1);
    EXPECT_EQ(moving, 1);
}

TEST_F(MotionDetection, StillDeviceIsNeverMoving) {
    const Vec3 accs[] = {kFlat, {{0.0, 0.0, 0.0}}, {{50.0, -80.0, 200.0}}, {{-9.8, 0.0, 0.0}}};
    for (const int32_t period : {0, 1, 2, 6, 7, 20, 29, 30}) {
        for (int32_t accuracy = -1; accuracy <= 3; ++accuracy) {
            SetUp();
            for (const Vec3& acc : accs) EXPECT_EQ(run(100, kStill, acc, period, accuracy), 0);
        }
    }
}

TEST_F(MotionDetection, ZRateFallbackScore) {
    // Flat-ish device turning about z: cross 1.5 < 4.0, so the fallback scores it.
    const Vec3 acc{{0.0, 0.0, -3.0}};
    const Vec3 gyro{{0.5, 0.0, 2.0}};
    const double expected = (2.0 / 0.5) * static_cast<double>(0.7f) *
                            (1.0 + std::fabs(static_cast<double>(9.9f) - 3.0));
    EXPECT_EQ(run(3, gyro, acc, 2, 3), 0);
    EXPECT_DOUBLE_EQ(magcal::g_motion_state.score_prev, expected);
    EXPECT_EQ(step(gyro, acc, 2, 3), 1);

    // The z-rate gate is 0.1f widened: a rate between 0.1 and 0.1f gives no score.
    SetUp();
    step(Vec3{{0.01, 0.0, 0.1000000005}}, acc, 2, 3);
    EXPECT_EQ(magcal::g_motion_state.score_prev, 0.0);
    step(Vec3{{0.01, 0.0, -0.1000000020}}, acc, 2, 3);
    EXPECT_GT(magcal::g_motion_state.score_prev, 4.0);

    // A pure z turn has no x/y rate to divide by and counts as motion.
    SetUp();
    EXPECT_EQ(run(4, Vec3{{0.0, 0.0, 0.5}}, kFlat, 2, 1), 1);
}

TEST_F(MotionDetection, AllocatesNothing) {
    EXPECT_EQ(magcal_test::allocations_during([] {
                  for (int i = 0; i < 50; ++i)
                      step(i % 3 ? kTurn : kStill, kFlat, i % 31, i % 5 - 1);
              }),
              0u);
}

}  // namespace
