// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cstdint>

#include "magcal/magcal_algorithms.h"

namespace {

TEST(DisturbanceDetection, JumpOfMoreThanFifteenUnlessNothingWasLearnt) {
    const double k45[3] = {27.0, 36.0, 0.0};  // [uT], exact lengths
    const double k60[3] = {36.0, 0.0, 48.0};
    const double k61[3] = {0.0, 60.0, 11.0};
    // Steps in sequence from a reference of 45: the flag lasts one sample and
    // the reference always follows the field. Only a zero radius or an
    // all-zero offset disables the check.
    const struct {
        const double* mag;
        double length, offset[3], radius;
        int32_t want;
    } steps[] = {{k61, 61, {3, -2, 1}, 44, 1},   {k61, 61, {3, -2, 1}, 44, 0},
                 {k45, 45, {3, -2, 1}, 44, 1},   {k60, 60, {3, -2, 1}, 44, 0},
                 {k45, 45, {3, -2, 1}, 44, 0},   {k61, 61, {3, -2, 1}, 0, 0},
                 {k45, 45, {0, 0, 0}, 44, 0},    {k61, 61, {0, 0, -0.5}, -3, 1},
                 {k45, 45, {0, 1e-9, 0}, 44, 1}, {k61, 61, {-0.5, 0, 0}, 44, 1}};
    double field_ref = 45.0;  // [uT]
    int32_t disturbed = -1;
    for (const auto& s : steps) {
        func_Disturbance_Detection_v7(s.mag, s.offset, &field_ref, &disturbed, 2, s.radius);
        EXPECT_EQ(disturbed, s.want) << "step " << (&s - steps);
        EXPECT_EQ(field_ref, s.length) << "step " << (&s - steps);
    }
    field_ref = 0.0;  // a cleared reference is not special
    func_Disturbance_Detection_v7(k45, steps[0].offset, &field_ref, &disturbed, 2, 44.0);
    EXPECT_EQ(disturbed, 1);
}

}  // namespace
