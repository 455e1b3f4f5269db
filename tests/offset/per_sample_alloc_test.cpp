#include <gtest/gtest.h>

#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

TEST(OffsetEstimators, PerSampleStepsDoNotAllocate) {
    const RlsConfig cfg = {0, -3, 0, -3, 1.0};
    ASSERT_EQ(QvGyroCal_RLS_init(&cfg), 0);
    const double prior[3] = {0.0, 0.0, 0.0};
    func_Offset_Calibration_KF_init(prior);

    const std::size_t allocations = magcal_test::allocations_during([] {
        double centre[3];
        double radius;
        double offset[3];
        for (int k = 0; k < 200; ++k) {
            const double a = 0.05 * k;
            const double m[3] = {20.0 + 40.0 * std::cos(a), -30.0 + 40.0 * std::sin(a),
                                 45.0 + 10.0 * std::sin(0.3 * a)};
            const double gyro[3] = {0.4, -0.2, 0.9};
            QvGyroCal_RLS(centre, &radius, m);
            func_Offset_Calibration_KF_v4(m, gyro, offset, &radius, 0.02);
        }
    });
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
