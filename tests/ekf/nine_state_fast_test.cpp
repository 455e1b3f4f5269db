// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The specialised nine-state step against the plain one: on the same state
// and inputs it must produce the plain step's bits in q, in both correction
// vectors and in every part of the state the next step reads (covariance,
// noise matrices, dip, gain, fading factor), or decline having changed
// nothing. The scratch records are left out of the comparison because the
// plain step writes each of them before it reads it, which the last test
// shows by running it on poisoned scratch.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "ekf/nine_state_state.h"
#include "ekf/nine_state_step.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/fast_path.h"
#include "support/differential.h"
#include "support/library_reset.h"
#include "support/value_source.h"

namespace {

using magcal::ekf::g_nine_state;
using magcal::ekf::NineStateFilter;
using magcal_test::fill_matrix;
using magcal_test::same_bits;
using magcal_test::ValueSource;

constexpr double kDriverConfig[14] = {-1.0, 0.0, 0.0, 0.0, 2.0, 2.0,  -1.0,
                                      -5.0, 0.0, 0.0, 0.0, 1.0, 70.0, 0.1509999930858612};

struct Inputs {
    double q[4];
    double mag[3];
    double acc[3];
    double gyro[3];
    double gyro_prev[3];
    double dt;
};

struct Outcome {
    double q[4];
    double mag_corr[3] = {7.0, 7.0, 7.0};
    double bias_corr[3] = {7.0, 7.0, 7.0};
    NineStateFilter state;
};

bool same_carried_state(const NineStateFilter& a, const NineStateFilter& b) {
    return same_bits(a.ns_P, b.ns_P) && same_bits(a.ns_Q, b.ns_Q) && same_bits(a.ns_R, b.ns_R) &&
           same_bits(a.ns_dip, b.ns_dip) && same_bits(a.ns_dip_gain, b.ns_dip_gain) &&
           same_bits(a.ns_lambda, b.ns_lambda);
}

bool same_outcome(const Outcome& a, const Outcome& b) {
    return same_bits(a.q, b.q, 4) && same_bits(a.mag_corr, b.mag_corr, 3) &&
           same_bits(a.bias_corr, b.bias_corr, 3) && same_carried_state(a.state, b.state);
}

Outcome run(const Inputs& in) {
    Outcome out;
    std::copy(in.q, in.q + 4, out.q);
    QvGyroCal_9_states(out.q, out.mag_corr, out.bias_corr, in.mag, in.acc, in.gyro, in.gyro_prev,
                       in.dt);
    out.state = g_nine_state;
    return out;
}

// Leaves the plain result as the state; returns whether the specialised form
// ran. A declined step must leave the caller's arrays as they were too.
bool step_both(const Inputs& in, const char* what) {
    const auto kernel = [&] {
        Outcome out;
        std::copy(in.q, in.q + 4, out.q);
        const Outcome untouched = out;
        const bool taken = magcal::ekf::nine_state_step_fast(
            out.q, out.mag_corr, out.bias_corr, in.mag, in.acc, in.gyro, in.gyro_prev, in.dt);
        EXPECT_TRUE(taken || (same_bits(out.q, untouched.q, 4) &&
                              same_bits(out.mag_corr, untouched.mag_corr, 3) &&
                              same_bits(out.bias_corr, untouched.bias_corr, 3)))
            << what << ": a declined step wrote its outputs";
        return taken;
    };
    return magcal_test::step_both_paths(
        g_nine_state, [&] { return run(in); }, kernel, same_outcome, what);
}

// A plausible sample: a unit quaternion, a device near rest or turning, acc
// near gravity (often flat, so the dip is re-estimated) and a field.
Inputs plausible(ValueSource& src) {
    Inputs in{};
    src.fill(in.q, 4, -1.0, 1.0);
    const double n =
        std::sqrt(in.q[0] * in.q[0] + in.q[1] * in.q[1] + in.q[2] * in.q[2] + in.q[3] * in.q[3]);
    for (double& v : in.q) v /= n;
    src.fill(in.gyro, 3, -3.0, 3.0);
    for (int k = 0; k < 3; ++k)
        in.gyro_prev[k] = src.chance(0.3) ? in.gyro[k] : in.gyro[k] + src.uniform(-0.2, 0.2);
    if (src.chance(0.1)) in.gyro[0] = in.gyro[1] = in.gyro[2] = 0.0;
    if (src.chance(0.5)) {
        in.acc[0] = src.uniform(-0.5, 0.5);
        in.acc[1] = src.uniform(-0.5, 0.5);
        in.acc[2] = src.uniform(9.0, 10.5);
    } else {
        src.fill(in.acc, 3, -12.0, 12.0);
    }
    src.fill(in.mag, 3, -80.0, 80.0);
    in.dt = magcal_test::plausible_dt(src);
    return in;
}

class NineStateFast : public testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        QvGyroCal_9_states_init(kDriverConfig);
    }
};

TEST_F(NineStateFast, RandomWalksGiveThePlainBitsStepAfterStep) {
    int steps = 0;
    int taken = 0;
    for (uint64_t seed = 1; seed <= 4; ++seed) {
        QvGyroCal_9_states_init(kDriverConfig);
        ValueSource src(seed);
        for (int k = 0; k < 2500; ++k, ++steps) taken += step_both(plausible(src), "random walk");
    }
    // Every one of these operands is finite: the specialised step must have run.
    EXPECT_EQ(taken, steps);
}

TEST_F(NineStateFast, FadingFactorsOtherThanOneIncludingNegativeZerosInP) {
    // A negative factor leaves -0.0 in P, a tiny one is raised to the floor.
    for (double lambda : {-1.0, 0.5, 1e-9, 0.0, 3.0}) {
        QvGyroCal_9_states_init(kDriverConfig);
        g_nine_state.ns_lambda = lambda;
        ValueSource src(99);
        int taken = 0;
        for (int k = 0; k < 200; ++k) taken += step_both(plausible(src), "fading");
        EXPECT_GT(taken, 0) << lambda;
    }
}

TEST_F(NineStateFast, EverySpecialValueInEveryInputAndStateSlot) {
    ValueSource src(7);
    for (int k = 0; k < 50; ++k) step_both(plausible(src), "warm-up");
    const NineStateFilter warm = g_nine_state;
    const Inputs base = plausible(src);
    int declined = 0;
    int cases = 0;
    for (double special : magcal_test::kSpecialValues) {
        for (int slot = 0; slot < 27; ++slot, ++cases) {
            NineStateFilter& f = g_nine_state = warm;
            Inputs in = base;
            double* const inputs[] = {
                &in.q[0],         &in.q[1],    &in.q[2],    &in.q[3],         &in.mag[0],
                &in.mag[1],       &in.mag[2],  &in.acc[0],  &in.acc[1],       &in.acc[2],
                &in.gyro[0],      &in.gyro[1], &in.gyro[2], &in.gyro_prev[0], &in.gyro_prev[1],
                &in.gyro_prev[2], &in.dt};
            double* const state[] = {&f.ns_dip,          &f.ns_dip_gain,     &f.ns_lambda,
                                     &f.ns_P.data[0][0], &f.ns_P.data[4][7], &f.ns_P.data[8][8],
                                     &f.ns_Q.data[0][0], &f.ns_Q.data[2][5], &f.ns_R.data[1][1],
                                     &f.ns_R.data[3][0]};
            *(slot < 17 ? inputs[slot] : state[slot - 17]) = special;
            declined += !step_both(in, "special value");
            // The state the special value left behind must be read alike too.
            step_both(plausible(src), "step after a special value");
        }
    }
    EXPECT_GT(declined, 0);
    EXPECT_LT(declined, cases);
}

TEST_F(NineStateFast, ZeroVectorsAndExtremeSteps) {
    ValueSource src(11);
    for (int k = 0; k < 20; ++k) step_both(plausible(src), "warm-up");
    for (int variant = 0; variant < 8; ++variant) {
        Inputs in = plausible(src);
        double* zeroed[] = {in.q, in.mag, in.acc, in.gyro, in.gyro_prev};
        if (variant < 5)
            for (int i = 0; i < (variant == 0 ? 4 : 3); ++i) zeroed[variant][i] = 0.0;
        if (variant == 5) in.dt = 0.0;
        if (variant == 6) in.dt = 0.25;
        if (variant == 7)  // the dip is re-estimated from a zero field: NaN from then on
            in.acc[0] = in.acc[1] = 0.0, in.acc[2] = 9.8, in.mag[0] = in.mag[1] = in.mag[2] = 0.0;
        step_both(in, "zero vector or extreme step");
        step_both(plausible(src), "step after it");
    }
}

TEST_F(NineStateFast, StatesTheKernelCannotTakeKeepThePlainPath) {
    ValueSource src(5);
    // A poisoned covariance, until the filter is initialised again.
    g_nine_state.ns_P.data[3][3] = std::numeric_limits<double>::infinity();
    for (int k = 0; k < 20; ++k) EXPECT_FALSE(step_both(plausible(src), "poisoned"));
    QvGyroCal_9_states_init(kDriverConfig);
    EXPECT_TRUE(step_both(plausible(src), "after init"));
    // Finite operands whose products overflow: the step must notice.
    fill_matrix(&g_nine_state.ns_P, 1e307);
    EXPECT_FALSE(step_both(plausible(src), "overflowing covariance"));
    magcal_test::reset_library_state();  // zero-shaped records
    EXPECT_FALSE(step_both(plausible(src), "uninitialised"));
}

TEST_F(NineStateFast, SingularInnovationCovarianceKeepsThePartialInverse) {
    // With only the offset variance P[6][6], no measurement noise and a zero
    // step (so no process noise either), S has a single non-zero element,
    // (3, 3): the inverse stops at its first pivot and the gain is formed
    // from the partial result.
    ValueSource src(13);
    const NineStateFilter start = g_nine_state;
    for (double lambda : {0.0, 1.0}) {
        g_nine_state = start;
        fill_matrix(&g_nine_state.ns_P, 0.0);
        g_nine_state.ns_P.data[6][6] = 1.0;
        fill_matrix(&g_nine_state.ns_R, 0.0);
        g_nine_state.ns_lambda = lambda;
        Inputs in = plausible(src);
        in.dt = 0.0;
        EXPECT_TRUE(step_both(in, "singular S"));
        EXPECT_NE(g_nine_state.ns_P.data[6][6], 1.0);  // the gain did reach P
    }
}

TEST_F(NineStateFast, QSharingStorageWithTheFieldTakesThePlainPath) {
    // The plain step reads mag after writing q.
    ValueSource src(8);
    Inputs in = plausible(src);
    double buffer[7] = {in.q[0], in.q[1], in.q[2], in.q[3], 10.0, -20.0, 30.0};
    double again[7];
    std::copy(buffer, buffer + 7, again);
    const NineStateFilter start = g_nine_state;
    double corr[6], corr_again[6];
    magcal::ekf::nine_state_step_plain(buffer, corr, corr + 3, buffer + 3, in.acc, in.gyro,
                                       in.gyro_prev, in.dt);
    const NineStateFilter expected_state = g_nine_state;
    g_nine_state = start;
    QvGyroCal_9_states(again, corr_again, corr_again + 3, again + 3, in.acc, in.gyro, in.gyro_prev,
                       in.dt);
    EXPECT_TRUE(same_bits(buffer, again, 7));
    EXPECT_TRUE(same_bits(corr, corr_again, 6));
    EXPECT_TRUE(same_carried_state(expected_state, g_nine_state));
}

TEST_F(NineStateFast, ScratchMatricesAreWrittenBeforeTheyAreRead) {
    ValueSource src(21);
    for (int k = 0; k < 30; ++k) step_both(plausible(src), "warm-up");
    const NineStateFilter clean = g_nine_state;
    magcal::set_fast_path_enabled(false);
    for (int k = 0; k < 20; ++k) {
        const Inputs in = plausible(src);
        g_nine_state = clean;
        const Outcome reference = run(in);
        g_nine_state = clean;
        NineStateFilter& f = g_nine_state;
        for (Matrix9* m : {&f.ns_T1, &f.ns_T2, &f.ns_T3, &f.ns_T4, &f.ns_T5, &f.ns_F, &f.ns_H,
                           &f.ns_M, &f.ns_Phi, &f.ns_Qd, &f.ns_K})
            fill_matrix(m, std::numeric_limits<double>::quiet_NaN(), 1 + k % 9, 9 - k % 9);
        f.ns_norm = std::numeric_limits<double>::infinity();
        EXPECT_TRUE(same_outcome(reference, run(in)));
    }
    magcal::set_fast_path_enabled(true);
}

}  // namespace
