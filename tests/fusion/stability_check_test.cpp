#include <gtest/gtest.h>

#include <cstdint>

#include "fusion/detector_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

class StabilityCheck : public ::testing::Test {
  protected:
    void SetUp() override {
        magcal::g_stability_state = magcal::StabilityState{};
        ref_radius = 0.0;
        stable = 0;
    }
    int32_t feed(double radius, int32_t period = 2, int32_t disturbed = 0) {
        func_R_Stability_from_RLSM_v8(disturbed, &ref_radius, &stable, period, radius);
        return stable;
    }
    int32_t feed_n(int n, double radius, int32_t period = 2) {
        for (int i = 0; i < n; ++i) feed(radius, period);
        return stable;
    }
    double ref_radius = 0.0;  // [uT]
    int32_t stable = 0;
};

TEST_F(StabilityCheck, StableAfterMoreThanLSamplesWithinTwo) {
    // Period -> L = 30/p (or 30 outside the usual periods).
    const struct {
        int32_t period;
        int samples_to_stable;
    } cases[] = {{2, 16}, {3, 11}, {20, 2}, {25, 2}, {29, 2}, {1, 31}, {30, 31}, {0, 31}};
    for (const auto& c : cases) {
        SetUp();
        ref_radius = 45.0;
        EXPECT_EQ(feed_n(c.samples_to_stable - 1, 46.9, c.period), 0) << c.period;
        EXPECT_EQ(feed(43.1, c.period), 1) << c.period;
    }

    // Exactly 2.0 away is outside; once stable nothing moves.
    SetUp();
    ref_radius = 45.0;
    EXPECT_EQ(feed_n(10, 47.0), 0);
    EXPECT_EQ(ref_radius, 45.0);
    feed(47.0);
    EXPECT_EQ(ref_radius, 47.0);
    EXPECT_EQ(feed_n(15, 47.0), 0);
    EXPECT_EQ(feed(47.0), 1);
    const magcal::StabilityState before = magcal::g_stability_state;
    EXPECT_EQ(feed_n(30, 90.0), 1);
    EXPECT_EQ(ref_radius, 47.0);
    EXPECT_EQ(magcal::g_stability_state.in_cnt, before.in_cnt);
    EXPECT_EQ(magcal::g_stability_state.out_cnt, before.out_cnt);
}

TEST_F(StabilityCheck, ShortExcursionsKeepTheRunLongOnesRestartIt) {
    // p = 2: L = 15, S = 10; the in-run survives S/2 = 5 outside samples.
    ref_radius = 45.0;
    feed_n(10, 45.0);
    feed_n(5, 50.0);
    EXPECT_EQ(feed_n(5, 45.0), 0);
    EXPECT_EQ(feed(45.0), 1);

    SetUp();
    ref_radius = 45.0;
    feed_n(10, 45.0);
    feed_n(6, 50.0);
    EXPECT_EQ(ref_radius, 45.0);
    EXPECT_EQ(feed_n(15, 45.0), 0);
    EXPECT_EQ(feed(45.0), 1);
}

TEST_F(StabilityCheck, DisturbanceForgetsTheReferenceWhichIsRetakenAfterSPlusOne) {
    ref_radius = 45.0;
    feed_n(16, 45.0);
    ASSERT_EQ(stable, 1);
    EXPECT_EQ(feed(45.0, 2, 1), 0);
    EXPECT_EQ(ref_radius, 0.0);
    EXPECT_EQ(magcal::g_stability_state.in_cnt, 0);
    EXPECT_EQ(magcal::g_stability_state.out_cnt, 0);

    feed_n(10, 48.0);  // S = 10 samples away from the cleared reference
    EXPECT_EQ(ref_radius, 0.0);
    feed(48.0);
    EXPECT_EQ(ref_radius, 48.0);
    EXPECT_EQ(feed_n(15, 48.0), 0);
    EXPECT_EQ(feed(48.0), 1);

    // Only a flag of exactly 1 is a disturbance.
    EXPECT_EQ(feed(48.0, 2, 2), 1);
    EXPECT_EQ(ref_radius, 48.0);
}

TEST_F(StabilityCheck, AllocatesNothing) {
    EXPECT_EQ(magcal_test::allocations_during([&] {
                  for (int i = 0; i < 50; ++i) feed(40.0 + i % 7, i % 30, i % 13 == 0);
              }),
              0u);
}

}  // namespace
