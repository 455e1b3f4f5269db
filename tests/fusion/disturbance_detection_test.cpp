#include <gtest/gtest.h>

#include <cstdint>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

// Field vectors with exact lengths [uT].
const double k45[3] = {27.0, 36.0, 0.0};
const double k60[3] = {36.0, 0.0, 48.0};
const double k61[3] = {0.0, 60.0, 11.0};
const double kOffset[3] = {3.0, -2.0, 1.0};
const double kNoOffset[3] = {0.0, 0.0, 0.0};

struct Detector {
    double field_ref = 0.0;
    int32_t disturbed = -1;
    int32_t feed(const double mag[3], const double offset[3] = kOffset, double radius = 44.0) {
        func_Disturbance_Detection_v7(mag, offset, &field_ref, &disturbed, 2, radius);
        return disturbed;
    }
};

TEST(DisturbanceDetection, FieldJumpOfMoreThanFifteenLastsOneSample) {
    Detector d;
    d.field_ref = 45.0;
    EXPECT_EQ(d.feed(k61), 1);  // 16 uT up
    EXPECT_EQ(d.field_ref, 61.0);
    EXPECT_EQ(d.feed(k61), 0);  // steady again
    EXPECT_EQ(d.feed(k45), 1);  // 16 uT down

    d.field_ref = 45.0;
    EXPECT_EQ(d.feed(k60), 0);  // exactly 15 is not a jump
    EXPECT_EQ(d.field_ref, 60.0);

    // A cleared reference is not special: the first sample after it jumps.
    d.field_ref = 0.0;
    EXPECT_EQ(d.feed(k45), 1);
}

TEST(DisturbanceDetection, NoRadiusOrNoOffsetNeverFlags) {
    Detector d;
    d.field_ref = 45.0;
    EXPECT_EQ(d.feed(k61, kOffset, 0.0), 0);
    EXPECT_EQ(d.field_ref, 61.0);  // the reference still follows the field
    d.disturbed = 1;
    EXPECT_EQ(d.feed(k45, kNoOffset, 44.0), 0);
    EXPECT_EQ(d.field_ref, 45.0);

    // One non-zero component is enough to count as an offset.
    const double z_only[3] = {0.0, 0.0, -0.5};
    EXPECT_EQ(d.feed(k61, z_only, 44.0), 1);
    const double y_only[3] = {0.0, 1e-9, 0.0};
    EXPECT_EQ(d.feed(k45, y_only, -3.0), 1);
}

TEST(DisturbanceDetection, AllocatesNothing) {
    Detector d;
    EXPECT_EQ(magcal_test::allocations_during([&] {
                  for (int i = 0; i < 50; ++i) d.feed(i % 2 ? k45 : k61);
              }),
              0u);
}

}  // namespace
