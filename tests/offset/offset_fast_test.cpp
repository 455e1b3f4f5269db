// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The specialised Kalman offset and sphere-fit steps against the plain ones:
// on the same state and inputs the exported step must hand back the plain
// step's bits (offset, radius, centre) and leave every part of the state
// that the next step reads bit for bit as the plain step does; a declined
// specialised step must change nothing. The work records are left out of the
// comparison because the plain steps write them before they read them,
// which the scratch tests show by running on poisoned work records.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "magcal/magcal_algorithms.h"
#include "matrix/fast_path.h"
#include "offset/offset_kalman_state.h"
#include "offset/offset_kalman_step.h"
#include "offset/sphere_fit_state.h"
#include "offset/sphere_fit_step.h"
#include "support/differential.h"
#include "support/library_reset.h"
#include "support/value_source.h"

namespace {

using magcal::offset::g_offset_kalman;
using magcal::offset::g_sphere_fit;
using magcal::offset::OffsetKalmanState;
using magcal::offset::SphereFitState;
using magcal_test::fill_matrix;
using magcal_test::same_bits;
using magcal_test::ValueSource;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// ---------------------------------------------------------------------------
// Kalman offset filter

struct KalmanInputs {
    double mag[3];
    double gyro[3];
    double dt;
};

struct KalmanOutcome {
    double offset[3] = {5.0, 5.0, 5.0};
    double radius = 5.0;
    OffsetKalmanState state;
};

bool same_kalman(const KalmanOutcome& a, const KalmanOutcome& b) {
    const OffsetKalmanState &s = a.state, &t = b.state;
    return same_bits(a.offset, b.offset, 3) && same_bits(a.radius, b.radius) &&
           same_bits(s.kf_xf, t.kf_xf) && same_bits(s.kf_Pf, t.kf_Pf) &&
           same_bits(s.kf_Pf0, t.kf_Pf0) && same_bits(s.kf_Qf, t.kf_Qf) &&
           same_bits(s.kf_Qf0, t.kf_Qf0) && same_bits(s.kf_Rf, t.kf_Rf);
}

KalmanOutcome run_kalman(const KalmanInputs& in) {
    KalmanOutcome out;
    func_Offset_Calibration_KF_v4(in.mag, in.gyro, out.offset, &out.radius, in.dt);
    out.state = g_offset_kalman;
    return out;
}

// Leaves the plain result as the state; returns whether the specialised form ran.
bool kalman_both(const KalmanInputs& in, const char* what) {
    return magcal_test::step_both_paths(
        g_offset_kalman, [&] { return run_kalman(in); },
        [&] { return magcal::offset::offset_kalman_step_fast(in.mag, in.gyro, in.dt); },
        same_kalman, what);
}

KalmanInputs plausible_kalman(ValueSource& src) {
    KalmanInputs in{};
    src.fill(in.mag, 3, -80.0, 80.0);
    src.fill(in.gyro, 3, -4.0, 4.0);
    if (src.chance(0.1)) in.gyro[0] = in.gyro[1] = in.gyro[2] = 0.0;
    in.dt = magcal_test::plausible_dt(src);
    return in;
}

class OffsetKalmanFast : public testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        const double prior[3] = {20.0, -30.0, 40.0};
        func_Offset_Calibration_KF_init(prior);
    }
};

TEST_F(OffsetKalmanFast, RandomWalksWithResetsAndSeedingGiveThePlainBits) {
    int steps = 0;
    int taken = 0;
    for (uint64_t seed = 1; seed <= 4; ++seed) {
        ValueSource src(seed);
        for (int k = 0; k < 2500; ++k, ++steps) {
            const KalmanInputs in = plausible_kalman(src);
            if (src.chance(0.01)) func_Offset_Calibration_KF_reset();
            if (src.chance(0.02)) func_Offset_Calibration_KF_update_xf(1, in.mag, 1, in.gyro);
            taken += kalman_both(in, "random walk");
        }
    }
    EXPECT_EQ(taken, steps);  // every operand finite: the specialised step must have run
}

TEST_F(OffsetKalmanFast, EverySpecialValueInEveryInputAndStateSlot) {
    ValueSource src(17);
    for (int k = 0; k < 40; ++k) kalman_both(plausible_kalman(src), "warm-up");
    const OffsetKalmanState warm = g_offset_kalman;
    const KalmanInputs base = plausible_kalman(src);
    int declined = 0, cases = 0;
    for (double special : magcal_test::kSpecialValues) {
        for (int slot = 0; slot < 17; ++slot, ++cases) {
            g_offset_kalman = warm;
            KalmanInputs in = base;
            OffsetKalmanState& st = g_offset_kalman;
            double* const inputs[] = {&in.mag[0],  &in.mag[1],  &in.mag[2], &in.gyro[0],
                                      &in.gyro[1], &in.gyro[2], &in.dt};
            double* const state[] = {&st.kf_xf.data[0][0], &st.kf_xf.data[4][0],
                                     &st.kf_Pf.data[0][0], &st.kf_Pf.data[2][5],
                                     &st.kf_Pf.data[5][5], &st.kf_Qf.data[1][1],
                                     &st.kf_Qf.data[0][4], &st.kf_Rf.data[2][2],
                                     &st.kf_Rf.data[0][1], &st.kf_Pf.data[3][1]};
            *(slot < 7 ? inputs[slot] : state[slot - 7]) = special;
            declined += !kalman_both(in, "special value");
            kalman_both(plausible_kalman(src), "step after a special value");
        }
    }
    EXPECT_GT(declined, 0);
    EXPECT_LT(declined, cases);
}

TEST_F(OffsetKalmanFast, SingularOverflowingAndUninitialisedStates) {
    // No covariance, no noise and a zero step: S is zero and its inverse
    // stops at the first pivot, leaving the identity.
    ValueSource src(23);
    const OffsetKalmanState start = g_offset_kalman;
    for (auto* m : {&g_offset_kalman.kf_Pf, &g_offset_kalman.kf_Qf, &g_offset_kalman.kf_Rf})
        fill_matrix(m, 0.0);
    KalmanInputs in = plausible_kalman(src);
    in.dt = 0.0;
    EXPECT_TRUE(kalman_both(in, "singular S"));

    // Finite state whose prediction overflows: R m + (I - R) b with every
    // element 1.5e308 and a 45 degree turn. The plain H x then meets 0 * inf.
    g_offset_kalman = start;
    for (int i = 0; i < 6; ++i) g_offset_kalman.kf_xf.data[i][0] = 1.5e308;
    EXPECT_FALSE(kalman_both({{10.0, 20.0, 30.0}, {0.0, 0.0, 3.14159}, 0.25}, "overflow"));

    magcal_test::reset_library_state();  // zero-shaped records
    EXPECT_FALSE(kalman_both(plausible_kalman(src), "uninitialised"));
}

TEST_F(OffsetKalmanFast, WorkRecordsAreWrittenBeforeTheyAreRead) {
    ValueSource src(29);
    for (int k = 0; k < 20; ++k) kalman_both(plausible_kalman(src), "warm-up");
    const OffsetKalmanState clean = g_offset_kalman;
    magcal::set_fast_path_enabled(false);
    for (int k = 0; k < 10; ++k) {
        const KalmanInputs in = plausible_kalman(src);
        g_offset_kalman = clean;
        const KalmanOutcome reference = run_kalman(in);
        g_offset_kalman = clean;
        for (Matrix6* m : {&g_offset_kalman.work_a, &g_offset_kalman.work_b,
                           &g_offset_kalman.work_c, &g_offset_kalman.work_d})
            fill_matrix(m, kNaN, 1 + k % 6, 6 - k % 6);
        EXPECT_TRUE(same_kalman(reference, run_kalman(in)));
    }
    magcal::set_fast_path_enabled(true);
}

// ---------------------------------------------------------------------------
// Sphere fit

struct FitOutcome {
    double centre[3] = {5.0, 5.0, 5.0};
    double radius = 5.0;
    SphereFitState state;
};

bool same_fit(const FitOutcome& a, const FitOutcome& b) {
    const SphereFitState &s = a.state, &t = b.state;
    return same_bits(a.centre, b.centre, 3) && same_bits(a.radius, b.radius) &&
           same_bits(s.rls_theta, t.rls_theta) && same_bits(s.rls_P, t.rls_P) &&
           same_bits(s.rls_r, t.rls_r) && same_bits(s.rls_lambda, t.rls_lambda);
}

FitOutcome run_fit(const double mag[3]) {
    FitOutcome out;
    QvGyroCal_RLS(out.centre, &out.radius, mag);
    out.state = g_sphere_fit;
    return out;
}

bool fit_both(const double mag[3], const char* what) {
    return magcal_test::step_both_paths(
        g_sphere_fit, [&] { return run_fit(mag); },
        [&] { return magcal::offset::sphere_fit_step_fast(mag); }, same_fit, what);
}

// A field sample on a sphere of radius 30-60 uT about a random centre, with noise.
void sphere_sample(ValueSource& src, const double centre[3], double out[3]) {
    double d[3];
    src.fill(d, 3, -1.0, 1.0);
    const double n = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) + 1e-9;
    const double r = src.uniform(30.0, 60.0);
    for (int k = 0; k < 3; ++k) out[k] = centre[k] + r * d[k] / n + src.uniform(-0.5, 0.5);
}

class SphereFitFast : public testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        QvGyroCal_RLS_init(&kConfig);
    }
    static constexpr RlsConfig kConfig = {0, -3, 0, -3, 1.0};
};

TEST_F(SphereFitFast, RandomSpheresWithRestartsGiveThePlainBits) {
    int steps = 0;
    int taken = 0;
    for (uint64_t seed = 1; seed <= 4; ++seed) {
        ValueSource src(seed);
        double centre[3];
        src.fill(centre, 3, -100.0, 100.0);
        for (int k = 0; k < 2000; ++k, ++steps) {
            if (src.chance(0.01)) QvGyroCal_RLS_init(&kConfig);
            double mag[3];
            sphere_sample(src, centre, mag);
            if (src.chance(0.02)) mag[0] = mag[1] = mag[2] = 0.0;
            taken += fit_both(mag, "random sphere");
        }
    }
    EXPECT_EQ(taken, steps);
}

TEST_F(SphereFitFast, EverySpecialValueInEveryInputAndStateSlot) {
    ValueSource src(31);
    const double centre[3] = {25.0, -35.0, 40.0};
    double mag[3];
    for (int k = 0; k < 30; ++k) sphere_sample(src, centre, mag), fit_both(mag, "warm-up");
    const SphereFitState warm = g_sphere_fit;
    int declined = 0;
    for (double special : magcal_test::kSpecialValues) {
        for (int slot = 0; slot < 9; ++slot) {
            g_sphere_fit = warm;
            SphereFitState& st = g_sphere_fit;
            sphere_sample(src, centre, mag);
            double* const state[] = {&st.rls_theta.data[3][0], &st.rls_P.data[0][0],
                                     &st.rls_P.data[1][3],     &st.rls_r,
                                     &st.rls_lambda,           &st.rls_theta.data[0][0]};
            *(slot < 3 ? &mag[slot] : state[slot - 3]) = special;
            declined += !fit_both(mag, "special value");
            sphere_sample(src, centre, mag);
            fit_both(mag, "step after a special value");
        }
    }
    EXPECT_GT(declined, 0);
}

TEST_F(SphereFitFast, ZeroInnovationVarianceUsesTheIdentityAndWorkRecordsAreScratch) {
    // With no covariance and no noise the 1x1 inverse meets a zero pivot.
    fill_matrix(&g_sphere_fit.rls_P, 0.0);
    g_sphere_fit.rls_r = 0.0;
    const double mag[3] = {10.0, 20.0, -30.0};
    EXPECT_TRUE(fit_both(mag, "zero innovation variance"));

    QvGyroCal_RLS_init(&kConfig);
    const SphereFitState clean = g_sphere_fit;
    magcal::set_fast_path_enabled(false);
    const FitOutcome reference = run_fit(mag);
    g_sphere_fit = clean;
    for (Matrix6* m : {&g_sphere_fit.work_a, &g_sphere_fit.work_b, &g_sphere_fit.work_c})
        fill_matrix(m, kNaN, 5, 2);
    EXPECT_TRUE(same_fit(reference, run_fit(mag)));
    magcal::set_fast_path_enabled(true);
}

}  // namespace
