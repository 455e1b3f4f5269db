// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Calibration accuracy rules. Unless a test says otherwise the period is 2,
// so len20 = 10 and len30 = 15; expected counts follow from those by hand.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fusion/accuracy_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"
#include "support/library_reset.h"

namespace {

using magcal::AccuracyState;
AccuracyState& st = magcal::g_accuracy_state;

struct Vec3 {
    double v[3];
};

// One sample's inputs; defaults are a device lying flat and still, radius 45.
struct Sample {
    Vec3 acc{{0.0, 0.0, 9.8}};
    Vec3 gyro{{0.0, 0.0, 0.0}};
    Vec3 rls_diff{{1.0, 1.0, 1.0}};
    double radius = 45.0;
    double horiz = 10.0;
    int32_t period = 2;
    int32_t mode = 1;
    double q[4] = {1.0, 0.0, 0.0, 0.0};
};

class Accuracy : public ::testing::Test {
  protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        accuracy = rls_reset = 0;
    }
    void TearDown() override { magcal_test::reset_library_state(); }

    // As if the first sample had been taken at the identity attitude, whose
    // angles are (0 + 180, 90 - 0, 180 - 0).
    static void reference_at_identity() {
        st.ref_taken = true;
        st.ref_ang0 = st.ref_ang2 = 180.0;
        st.ref_ang1 = 90.0;
    }
    int32_t feed(const Sample& s, int n = 1) {
        const double mag[3] = {20.0, 0.0, -40.0};
        int32_t level = -1;
        for (int i = 0; i < n; ++i) {
            level = get_accuracy(mag, s.acc.v, s.gyro.v, s.rls_diff.v, s.mode, 0, s.period,
                                 &accuracy, s.q, &rls_reset, s.radius, 44.0, s.horiz);
        }
        return level;
    }

    int32_t accuracy = 0;
    int32_t rls_reset = 0;
};

TEST_F(Accuracy, ImplausibleRadiusDropsTheAccuracy) {
    // {accuracy before, radius, horizontal radius, mode, accuracy after}
    const double cases[][5] = {{3, 190, 10, 1, 3},    {3, 191, 10, 1, 0},    {2, 191, 10, 1, 2},
                               {3, 191, 10, 2, 0},    {1, 45, 150, 1, 1},    {1, 45, 150.01, 1, 0},
                               {2, 45, 150.01, 1, 0}, {3, 45, 150.01, 0, 0}, {0, 45, 150.01, 1, 0}};
    for (const auto& c : cases) {
        SetUp();
        st.cal_stage = 1;  // also: with calibration begun no reference attitude is taken
        st.turn_cnt_x = 1000;
        accuracy = static_cast<int32_t>(c[0]);
        Sample s{};
        s.radius = c[1];
        s.horiz = c[2];
        s.mode = static_cast<int32_t>(c[3]);
        const bool lost = c[0] != c[4];
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        EXPECT_EQ(feed(s), lost ? 0 : 1);
        EXPECT_EQ(accuracy, c[4]);
        EXPECT_EQ(st.turn_cnt_x, lost ? 0 : 1000);  // the full reset, not the soft one
        EXPECT_FALSE(st.ref_taken);
    }
}

TEST_F(Accuracy, CoarseTrackerRaisesToOneOnTheEighthSteadySample) {
    // From a cleared tracker the reference radius is taken on the sample with
    // k = len20 outside, then accuracy 1 comes with k = len30/2 inside: at
    // period 2 on the 11th and the 19th sample, the last at 50.9 being within
    // 6.0 of 45. Not without a turn flag, nor at exactly 6.0, nor in mode 0.
    const struct {
        int32_t period, samples, mode;
        bool turn;
        double last_radius;
        int32_t want;
    } cases[] = {{2, 19, 1, true, 50.9, 1}, {2, 19, 1, false, 45, 0}, {2, 19, 1, true, 51, 0},
                 {2, 99, 0, true, 45, 0},   {21, 3, 1, true, 45, 1},  {29, 3, 1, true, 45, 1},
                 {1, 37, 1, true, 45, 1},   {30, 37, 1, true, 45, 1}};
    for (const auto& c : cases) {
        SetUp();
        reference_at_identity();
        st.turn_z = c.turn;
        Sample s{};
        s.period = c.period;
        s.mode = c.mode;
        feed(s, c.samples - 1);
        EXPECT_EQ(accuracy, 0) << c.period;
        s.radius = c.last_radius;
        feed(s);
        EXPECT_EQ(accuracy, c.want) << c.period << " " << c.last_radius;
    }
    // The inside count then stays at 7, short of the 2 * (15/3) that clears
    // the outside count.
    SetUp();
    feed(Sample{}, 40);
    EXPECT_EQ(st.in6, 7);
}

TEST_F(Accuracy, CoarseStageNeedsAgreementAndRotationOnSeveralAxes) {
    // Tracker 3.5 is steady (in35 = len30), so one sample decides. Reaching
    // accuracy 2 credits the leading turn counter (ties to z, then x) unless
    // one is done. Columns: accuracy before; turn_z, turn_x, turn_y,
    // tilt_turn; offset gaps x, y; radius; turn counters z, x, y; expected
    // level, accuracy and credited counter (0 z, 1 x, 2 y, -1 none).
    const struct {
        int32_t acc, tz, tx, ty, tilt;
        double dx, dy, radius;
        int32_t cnt[3], level, want_acc, credited;
    } cases[] = {
        {1, 1, 0, 0, 0, 9.9, 9.9, 45, {5, 5, 2}, 1, 2, 0},        // z turn, offset agrees
        {1, 1, 0, 0, 0, 10.0, 1.0, 45, {0, 0, 0}, 0, 1, -1},      // z turn alone, too far
        {1, 1, 1, 0, 0, 14.9, 14.9, 45, {0, 0, 0}, 1, 1, -1},     // two axes, loose agreement
        {1, 1, 1, 0, 0, 14.0, 15.0, 45, {0, 0, 0}, 0, 1, -1},     // y gap too big
        {1, 1, 1, 0, 1, 14.0, 20.0, 45, {3, 5, 5}, 1, 2, 1},      // unless a tilted turn was seen
        {1, 0, 1, 1, 0, 1.0, 1.0, 45, {1, 2, 3}, 1, 2, 2},        // x and y only
        {1, 0, 0, 0, 1, 40.0, 40.0, 45, {1000, 7, 8}, 1, 2, -1},  // a tilted turn alone
        {0, 2, 1, 1, 1, 1.0, 1.0, 45, {0, 0, 0}, 0, 0, -1},       // accuracy 0: nothing
        {1, 1, 0, 0, 0, 1.0, 1.0, 20, {0, 0, 0}, 1, 1, -1},       // 20 uT is too weak for 2
    };
    for (const auto& c : cases) {
        SetUp();
        reference_at_identity();
        st.r_ref35 = c.radius;
        st.in35 = 15;
        st.turn_z = c.tz;
        st.turn_x = c.tx;
        st.turn_y = c.ty;
        st.tilt_turn = c.tilt;
        st.turn_cnt_z = c.cnt[0];
        st.turn_cnt_x = c.cnt[1];
        st.turn_cnt_y = c.cnt[2];
        accuracy = c.acc;
        Sample s{};
        s.rls_diff = Vec3{{c.dx, c.dy, 99.0}};
        s.radius = c.radius;
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        EXPECT_EQ(feed(s), c.level);
        EXPECT_EQ(st.cal_stage, c.level);
        EXPECT_EQ(accuracy, c.want_acc);
        EXPECT_EQ(st.in35, 15);
        const int32_t after[3] = {st.turn_cnt_z, st.turn_cnt_x, st.turn_cnt_y};
        for (int i = 0; i < 3; ++i) EXPECT_EQ(after[i], i == c.credited ? 1000 : c.cnt[i]) << i;
    }
}

TEST_F(Accuracy, RotationEvidenceFromRatesTiltsAttitudeAndTurningOver) {
    // Gates are single-precision values widened: 0.1f = 0.10000000149...,
    // 0.3f = 0.30000001192..., 0.7f = 0.699999988...; tilts need acc.z > 2.5.
    const Vec3 flat{{0.0, 0.0, 9.8}};
    feed(Sample{flat, Vec3{{0.0, 0.0, 0.1000000005}}});
    EXPECT_EQ(st.turn_cnt_z, 0);
    feed(Sample{flat, Vec3{{0.0, 0.0, -0.1000000020}}});
    EXPECT_EQ(st.turn_cnt_z, 1);
    feed(Sample{Vec3{{8.0, 0.0, 5.0}}, Vec3{{0.0, 0.0, 0.30000001}}});
    feed(Sample{Vec3{{8.0, 0.0, 2.5}}, Vec3{{0.0, 0.0, 0.3000000125}}});
    EXPECT_FALSE(st.face_xp);
    feed(Sample{Vec3{{0.0, -7.0, 10.0}}, Vec3{{0.0, 0.0, 0.3000000125}}});  // ratio 0.7
    EXPECT_TRUE(st.face_yn);

    // A turn about an axis between y and z with y raised (acc.y > 3.0) counts
    // towards z; done, with the offset close enough, it flags a tilted turn.
    // {acc.y, gap x, gap y, accuracy, count, flagged}
    const double tilted[][6] = {{5.0, 14.9, 34.9, 1, 1000, 1},
                                {5.0, 15.0, 34.9, 1, 1000, 0},
                                {5.0, 14.9, 35.0, 1, 1000, 0},
                                {5.0, 14.9, 34.9, 0, 1000, 0},
                                {3.0, 1.0, 1.0, 1, 0, 0}};
    for (const auto& c : tilted) {
        SetUp();
        accuracy = static_cast<int32_t>(c[3]);
        feed(Sample{Vec3{{0.0, c[0], 8.0}}, Vec3{{0.01, 0.5, 0.6}}, Vec3{{c[1], c[2], 0.0}}}, 10);
        EXPECT_EQ(st.turn_cnt_z, c[4]) << (&c - tilted);
        EXPECT_EQ(st.tilt_turn, c[5] != 0.0) << (&c - tilted);
    }

    // Attitude change since the reference, which the first sample takes.
    SetUp();
    st.turn_z = 2;
    st.tilt_turn = true;
    feed(Sample{});
    EXPECT_EQ(st.turn_z, 0);
    EXPECT_FALSE(st.tilt_turn);
    // {degrees about (x, y, z); turn_z, turn_y, turn_x after}
    const double turns[][7] = {{-45, 0, 0, 1, 1, 0, 0},
                               {170, 0, 0, 1, 2, 0, 0},
                               {50, 0, 1, 0, 2, 1, 0},
                               {-50, 1, 0, 0, 2, 1, 1}};
    for (const auto& t : turns) {
        const double h = t[0] * 3.14159265358979323846 / 360.0;
        Sample r{};
        r.q[0] = std::cos(h);
        for (int i = 1; i < 4; ++i) r.q[i] = std::sin(h) * t[i];
        feed(r);
        EXPECT_EQ(st.turn_z, t[4]) << t[0];
        EXPECT_EQ(st.turn_y, t[5] != 0.0) << t[0];
        EXPECT_EQ(st.turn_x, t[6] != 0.0) << t[0];
    }
    SetUp();  // degrees of the single-precision pi: a quarter turn reads 90.0000180
    Sample quarter{};
    quarter.q[0] = quarter.q[3] = std::sqrt(0.5);
    feed(quarter);
    EXPECT_NEAR(st.ref_ang0, 180.0 + 90.0 * 3.14159265358979323846 / 3.141592025756836, 1e-9);

    // Turned over: the x and y counters add 2 a sample up to len30, z adds 1.
    SetUp();
    feed(Sample{});
    feed(Sample{Vec3{{6.0, -6.0, -9.8}}}, 7);
    EXPECT_EQ(st.flip_cnt_x, 14);
    EXPECT_EQ(st.flip_cnt_z, 7);
    EXPECT_FALSE(st.all_round);
    feed(Sample{Vec3{{6.0, -6.0, -9.8}}});
    EXPECT_TRUE(st.all_round);
    EXPECT_EQ(st.turn_z, 2);
    feed(Sample{Vec3{{0.0, 0.0, -9.8}}}, 6);
    EXPECT_EQ(st.flip_cnt_z, 14);
    feed(Sample{Vec3{{0.0, 0.0, -9.8}}});
    EXPECT_EQ(st.flip_cnt_z, 1000);
}

TEST_F(Accuracy, ScriptedCalibrationWalksFromZeroToThreeOrWaitsAndAsksForARestart) {
    // Trackers take their reference radius on sample 11. Tracker 6.0 then
    // gives 1 on its eighth steady sample; tracker 3.5 the coarse stage and 2
    // on its sixteenth; the seventh face makes all round and, with the offset
    // gap on z below 15, accuracy 3. A radius 3.2 off from sample 28 moves
    // the 3.0 reference after len20 + 1 samples, and 3 needs 2 * (len30/3) + 1
    // steady ones after that. Otherwise the rules wait one second (50
    // samples) and ask for a sphere-fit restart if the gap exceeds 50. Radii
    // outside (25, 70) never qualify.
    const struct {
        double gap_z, radius, late_radius;
        int32_t n3, reset;  // sample of accuracy 3 (99: never); restart asked
    } variants[] = {{1.0, 45, 45, 34, 0},  {1.0, 45, 48.2, 49, 0}, {15.0, 45, 45, 99, 0},
                    {50.0, 45, 45, 99, 0}, {50.01, 45, 45, 99, 1}, {1.0, 25, 25, 99, 0},
                    {1.0, 70, 70, 99, 0}};
    const Vec3 tilts[] = {
        {{8.0, 0.0, 5.0}}, {{-8.0, 0.0, 5.0}}, {{0.0, 8.0, 5.0}}, {{0.0, -8.0, 5.0}}};
    for (const auto& v : variants) {
        SetUp();
        for (int n = 1; n <= 84; ++n) {
            Sample s{};
            s.radius = n < 28 ? v.radius : v.late_radius;
            s.rls_diff.v[2] = v.gap_z;
            if (n <= 10) {
                s.gyro = Vec3{{0.0, 0.0, 1.0}};  // about z: done after len20 samples
            } else if (n <= 15) {
                s.gyro = Vec3{{1.0, 0.0, 0.0}};  // about x, not long enough
            } else if (n <= 20) {
                s.gyro = Vec3{{0.0, -1.0, 0.0}};  // about y, not long enough
            } else if (n >= 28 && n <= 34) {
                s.gyro = Vec3{{0.3, 0.3, 0.3}};  // no axis dominates
                s.acc = tilts[(n - 28) % 4];
            }
            const int32_t level = feed(s);
            SCOPED_TRACE(testing::Message() << "variant " << (&v - variants));
            EXPECT_EQ(accuracy, n < 19 ? 0 : n < 27 ? 1 : n < v.n3 ? 2 : 3) << n;
            EXPECT_EQ(level, n < 27 ? 0 : n < v.n3 ? 1 : 2) << n;
            EXPECT_EQ(rls_reset, n < 84 ? 0 : v.reset) << n;
        }
    }
}

TEST_F(Accuracy, ResetsClearExactlyTheirFieldsAndTheThresholdWorksInTenths) {
    // Runs of consecutive fields (no padding inside a run) and which calls
    // clear them: bit 0 reset_accuracy, bit 1 reset_accuracy2.
#define RUN(first, last, clears) \
    { offsetof(AccuracyState, first), offsetof(AccuracyState, last) + sizeof st.last, clears }
    const struct {
        std::size_t begin, end;
        int clears;
    } runs[] = {RUN(r_ref6, out3, 3),           RUN(turn_cnt_z, all_round, 1),
                RUN(ref_taken, tilt_turn, 3),   RUN(acc3_wait, cal_stage, 3),
                RUN(face_xp, face_yn2, 1),      RUN(turn_z, turn_x, 3),
                RUN(flip_cnt_x, flip_cnt_z, 1), RUN(ref_ang0, ref_acc_z, 0)};
#undef RUN
    int32_t (*const calls[])() = {reset_accuracy, reset_accuracy2, set_reset_cnt};
    for (int c = 0; c < 3; ++c) {
        std::memset(static_cast<void*>(&st), 1, sizeof st);
        EXPECT_EQ(calls[c](), 0);
        const auto* bytes = reinterpret_cast<const unsigned char*>(&st);
        for (const auto& run : runs) {
            for (std::size_t b = run.begin; b < run.end; ++b) {
                EXPECT_EQ(bytes[b], (run.clears >> c) & 1 ? 0 : 1) << "call " << c << " byte " << b;
            }
        }
    }
    set_calibrated();
    EXPECT_EQ(st.cal_stage, 2);

    EXPECT_EQ(set_accuracy3_th(150), 150);
    EXPECT_EQ(accuracy3_offset_diff_th, 15.0f);
    EXPECT_EQ(set_accuracy3_th(5), 5);
    EXPECT_EQ(accuracy3_offset_diff_th, 0.5f);
}

TEST_F(Accuracy, PerSampleRulesAndDetectorsAllocateNothing) {
    Sample s{};
    s.gyro = Vec3{{0.3, -0.2, 0.4}};
    const double offset[3] = {3.0, -2.0, 1.0};
    double field_ref = 0.0, ref_radius = 0.0;
    int32_t disturbed = 0, stable = 0;
    EXPECT_EQ(magcal_test::allocations_during([&] {
                  for (int i = 0; i < 60; ++i) {
                      s.period = i % 31;
                      s.radius = 40.0 + i % 9;
                      const double mag[3] = {s.radius, 0.0, 0.0};
                      feed(s);
                      func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(s.gyro.v, s.acc.v,
                                                                             s.period, i % 5 - 1);
                      func_Disturbance_Detection_v7(mag, offset, &field_ref, &disturbed, 2, 44.0);
                      func_R_Stability_from_RLSM_v8(disturbed, &ref_radius, &stable, 2, s.radius);
                  }
                  reset_accuracy2();
                  reset_accuracy();
                  set_calibrated();
                  set_accuracy3_th(150);
              }),
              0u);
}

}  // namespace
