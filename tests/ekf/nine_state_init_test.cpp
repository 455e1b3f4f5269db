// Nine-state filter initialisation: block-diagonal matrices from powers of
// ten, exponents truncated toward zero.
#include <gtest/gtest.h>

#include <cstring>

#include "ekf/nine_state_state.h"
#include "magcal/magcal_algorithms.h"

namespace {

using magcal::ekf::g_nine_state;

// The configuration the fusion driver hands over.
constexpr double kDriverConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};

void expect_diagonal(const Matrix9& m, int n, const double* diag) {
    ASSERT_EQ(m.rows, n);
    ASSERT_EQ(m.cols, n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            if (i == j)
                EXPECT_DOUBLE_EQ(m.data[i][j], diag[i]) << i;
            else
                EXPECT_EQ(m.data[i][j], 0.0) << i << "," << j;
        }
}

TEST(NineStateInit, DriverConfigurationGivesDocumentedMatrices) {
    EXPECT_EQ(QvGyroCal_9_states_init(kDriverConfig), 0);
    const double p[9] = {0.1, 0.1, 0.1, 1, 1, 1, 1, 1, 1};
    const double q[9] = {2.5e-6, 2.5e-6, 2.5e-6, 1, 1, 1, 1, 1, 1};
    const double r[6] = {10, 10, 10, 10, 10, 10};
    expect_diagonal(g_nine_state.ns_P, 9, p);
    expect_diagonal(g_nine_state.ns_Q, 9, q);
    expect_diagonal(g_nine_state.ns_R, 6, r);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
    EXPECT_EQ(g_nine_state.ns_dip_gain, 0.1509999930858612);
    EXPECT_EQ(g_nine_state.ns_lambda, 1.0);
}

TEST(NineStateInit, EveryExponentReachesItsOwnBlockTruncatedTowardZero) {
    // Distinct exponents per block, with fractions that must be truncated
    // toward zero (-0.9 -> 0, 2.7 -> 2, -1.5 -> -1, 1.99 -> 1).
    const double config[14] = {-0.9, 2.7, 1.0, 1.99, -1.5, 3.0,  1.0,
                               -2.0, 1.0, 2.0, 1.0,  0.5,  64.0, 0.25};
    QvGyroCal_9_states_init(config);
    const double p[9] = {10, 10, 10, 1000, 1000, 1000, 100, 100, 100};
    const double r[6] = {1, 1, 1, 10000, 10000, 10000};
    const double q[9] = {0.025, 0.025, 0.025, 100, 100, 100, 1000, 1000, 1000};
    expect_diagonal(g_nine_state.ns_P, 9, p);
    expect_diagonal(g_nine_state.ns_R, 6, r);
    expect_diagonal(g_nine_state.ns_Q, 9, q);
    EXPECT_EQ(g_nine_state.ns_lambda, 0.5);
    EXPECT_EQ(g_nine_state.ns_dip, 64.0);
    EXPECT_EQ(g_nine_state.ns_dip_gain, 0.25);

    const double fractional[14] = {-0.9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 70, 0.1};
    QvGyroCal_9_states_init(fractional);
    EXPECT_EQ(g_nine_state.ns_P.data[0][0], 1.0);  // not 0.1
}

TEST(NineStateInit, SecondCallRecreatesTheSameMatrices) {
    QvGyroCal_9_states_init(kDriverConfig);
    const Matrix9 p = g_nine_state.ns_P;
    const Matrix9 q = g_nine_state.ns_Q;
    const Matrix9 r = g_nine_state.ns_R;

    // Learn something, then initialise again.
    double quat[4] = {1.0, 0.0, 0.0, 0.0};
    double a[3], b[3];
    const double mag[3] = {10.0, 20.0, -40.0}, acc[3] = {0.5, 0.2, 9.7}, gyro[3] = {0.1, 0, 0};
    for (int k = 0; k < 5; ++k) QvGyroCal_9_states(quat, a, b, mag, acc, gyro, gyro, 0.02);
    ASSERT_NE(std::memcmp(&g_nine_state.ns_P, &p, sizeof p), 0);
    ASSERT_NE(g_nine_state.ns_dip, 70.0);

    QvGyroCal_9_states_init(kDriverConfig);
    EXPECT_EQ(std::memcmp(&g_nine_state.ns_P, &p, sizeof p), 0);
    EXPECT_EQ(std::memcmp(&g_nine_state.ns_Q, &q, sizeof q), 0);
    EXPECT_EQ(std::memcmp(&g_nine_state.ns_R, &r, sizeof r), 0);
    EXPECT_EQ(g_nine_state.ns_dip, 70.0);
}

}  // namespace
