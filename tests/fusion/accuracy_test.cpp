#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <type_traits>

#include "fusion/accuracy_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

using magcal::AccuracyState;
using magcal::g_accuracy_state;

struct Vec3 {
    double v[3];
};

constexpr double kDeg = 3.14159265358979323846 / 180.0;

// One sample's inputs; defaults are a device lying flat and still, radius 45.
struct Sample {
    Vec3 acc{{0.0, 0.0, 9.8}};
    Vec3 gyro{{0.0, 0.0, 0.0}};
    Vec3 rls_diff{{1.0, 1.0, 1.0}};
    double q[4] = {1.0, 0.0, 0.0, 0.0};
    int32_t mode = 1;
    int32_t period = 2;  // len20 = 10, len30 = 15
    double radius = 45.0;
    double horiz = 10.0;
};

// Rotation of `deg` degrees about a unit axis.
void rotation(double q[4], double deg, double ax, double ay, double az) {
    const double h = deg * kDeg / 2.0;
    q[0] = std::cos(h);
    q[1] = std::sin(h) * ax;
    q[2] = std::sin(h) * ay;
    q[3] = std::sin(h) * az;
}

class Accuracy : public ::testing::Test {
  protected:
    // Every test starts from the state the library has at load.
    void SetUp() override {
        std::memset(static_cast<void*>(&g_accuracy_state), 0, sizeof g_accuracy_state);
        g_accuracy_state.ref_acc_z = static_cast<double>(9.8f);
        accuracy3_offset_diff_th = 15.0f;
        accuracy = 0;
        rls_reset = 0;
    }
    void TearDown() override { SetUp(); }

    // As if the reference had been taken at the identity attitude, whose
    // angles are (0 + 180, 90 - 0, 180 - 0).
    static void reference_at_identity() {
        g_accuracy_state.ref_taken = true;
        g_accuracy_state.ref_ang0 = 180.0;
        g_accuracy_state.ref_ang1 = 90.0;
        g_accuracy_state.ref_ang2 = 180.0;
    }

    int32_t feed(const Sample& s) {
        const double mag[3] = {20.0, 0.0, -40.0};
        return get_accuracy(mag, s.acc.v, s.gyro.v, s.rls_diff.v, s.mode, 0, s.period, &accuracy,
                            s.q, &rls_reset, s.radius, 44.0, s.horiz);
    }
    int32_t feed_n(int n, const Sample& s) {
        int32_t level = -1;
        for (int i = 0; i < n; ++i) level = feed(s);
        return level;
    }

    int32_t accuracy = 0;
    int32_t rls_reset = 0;
};

TEST_F(Accuracy, ImplausibleRadiusDropsTheAccuracy) {
    Sample s;
    g_accuracy_state.cal_stage = 2;
    g_accuracy_state.turn_cnt_x = 1000;
    g_accuracy_state.ref_ang1 = 12.5;
    accuracy = 3;
    s.radius = 190.0;
    EXPECT_EQ(feed(s), 2);
    EXPECT_EQ(accuracy, 3);
    s.radius = 191.0;
    EXPECT_EQ(feed(s), 0);
    EXPECT_EQ(accuracy, 0);
    EXPECT_EQ(g_accuracy_state.cal_stage, 0);
    EXPECT_EQ(g_accuracy_state.turn_cnt_x, 0);
    EXPECT_EQ(g_accuracy_state.ref_ang1, 12.5);  // kept, as in reset_accuracy

    // A large total radius alone does not touch accuracy 2.
    accuracy = 2;
    EXPECT_EQ(feed(s), 0);
    EXPECT_EQ(accuracy, 2);

    // A horizontal radius above 150 drops any accuracy from 1 up.
    s.radius = 45.0;
    for (int32_t before = 1; before <= 3; ++before) {
        accuracy = before;
        g_accuracy_state.cal_stage = 1;
        s.horiz = 150.0;
        feed(s);
        EXPECT_EQ(accuracy, before);
        s.horiz = 150.01;
        EXPECT_EQ(feed(s), 0);
        EXPECT_EQ(accuracy, 0);
        EXPECT_EQ(g_accuracy_state.cal_stage, 0);
    }
    // At accuracy 0 there is nothing to lose, and nothing is reset.
    g_accuracy_state.cal_stage = 1;
    EXPECT_EQ(feed(s), 1);
    EXPECT_EQ(g_accuracy_state.cal_stage, 1);
}

TEST_F(Accuracy, CoarseTrackerRaisesToOneOnTheEighthSteadySample) {
    Sample s;  // period 2: reference after 10 outside, accuracy 1 when k = 15/2 = 7
    reference_at_identity();
    g_accuracy_state.turn_x = true;
    for (int n = 1; n <= 18; ++n) {
        s.radius = (n <= 11 || n % 2) ? 45.0 : 50.9;  // within 6.0 of 45 once it is taken
        feed(s);
        EXPECT_EQ(accuracy, 0) << n;
        EXPECT_EQ(g_accuracy_state.r_ref6, n <= 10 ? 0.0 : 45.0) << n;
    }
    feed(s);
    EXPECT_EQ(accuracy, 1);

    // The steady count stops at 15/2 = 7, below the 2 * (15/3) = 10 that would
    // clear the outside count: one more sample outside moves the reference.
    s.radius = 45.0;
    feed_n(20, s);
    EXPECT_EQ(g_accuracy_state.in6, 7);
    s.radius = 60.0;
    feed(s);
    EXPECT_EQ(g_accuracy_state.r_ref6, 60.0);

    // Samples to accuracy 1 from a cleared tracker: len20 + 1 to take the
    // reference, then len30 / 2 + 1 steady ones.
    const struct {
        int32_t period;
        int samples;
    } lengths[] = {{2, 19}, {3, 13}, {6, 7}, {20, 3}, {21, 3}, {29, 3}, {1, 37}, {30, 37}, {0, 37}};
    for (const auto& c : lengths) {
        SetUp();
        reference_at_identity();
        g_accuracy_state.turn_x = true;
        Sample p;
        p.period = c.period;
        feed_n(c.samples - 1, p);
        EXPECT_EQ(accuracy, 0) << c.period;
        feed(p);
        EXPECT_EQ(accuracy, 1) << c.period;
    }

    // Without any turn flag the radius alone raises nothing.
    SetUp();
    reference_at_identity();
    s.radius = 45.0;
    feed_n(60, s);
    EXPECT_EQ(accuracy, 0);

    // Outside the tolerance by exactly 6.0 does not count.
    SetUp();
    reference_at_identity();
    g_accuracy_state.turn_z = 1;
    feed_n(11, s);
    s.radius = 51.0;
    feed_n(8, s);
    EXPECT_EQ(accuracy, 0);
}

TEST_F(Accuracy, CoarseStageNeedsAgreementAndRotationOnSeveralAxes) {
    // Tracker 3.5 is steady (in35 = len30) and fires on the next sample.
    struct Case {
        int32_t acc_before;
        int32_t turn_z;
        bool turn_x, turn_y, tilt_turn;
        Vec3 rls_diff;
        int32_t want_level, want_acc;
    };
    const Case cases[] = {
        {1, 1, false, false, false, {{9.9, 9.9, 99.0}}, 1, 2},  // z turn, offset agrees
        {1, 1, false, false, false, {{12.0, 1.0, 1.0}}, 0, 1},  // z turn alone, too far
        {1, 1, true, false, false, {{14.0, 14.0, 1.0}}, 1, 1},  // two axes, loose agreement
        {1, 1, true, false, false, {{14.0, 20.0, 1.0}}, 0, 1},  // y gap too big
        {1, 1, true, false, true, {{14.0, 20.0, 1.0}}, 1, 2},   // unless a tilted turn was seen
        {1, 0, false, true, true, {{40.0, 40.0, 1.0}}, 1, 2},   // one axis, tilted turn
        {1, 0, true, true, false, {{1.0, 1.0, 1.0}}, 1, 2},     // x and y only
        {1, 0, false, false, true, {{40.0, 40.0, 1.0}}, 1, 2},  // a tilted turn alone
        {0, 2, true, true, true, {{1.0, 1.0, 1.0}}, 0, 0},      // accuracy 0: nothing
        {2, 1, false, false, false, {{1.0, 1.0, 1.0}}, 1, 2},
    };
    for (const Case& c : cases) {
        SetUp();
        reference_at_identity();
        g_accuracy_state.r_ref35 = 45.0;
        g_accuracy_state.in35 = 15;
        g_accuracy_state.turn_z = c.turn_z;
        g_accuracy_state.turn_x = c.turn_x;
        g_accuracy_state.turn_y = c.turn_y;
        g_accuracy_state.tilt_turn = c.tilt_turn;
        accuracy = c.acc_before;
        Sample s;
        s.rls_diff = c.rls_diff;
        const int32_t level = feed(s);
        SCOPED_TRACE(testing::Message() << "case " << (&c - cases));
        EXPECT_EQ(level, c.want_level);
        EXPECT_EQ(g_accuracy_state.cal_stage, c.want_level);
        EXPECT_EQ(accuracy, c.want_acc);
        EXPECT_EQ(g_accuracy_state.in35, 15);
    }

    // Reaching 2 credits the leading turn counter, unless one is done already.
    const struct {
        int32_t z, x, y, want_z, want_x, want_y;
    } credits[] = {{5, 5, 2, 1000, 5, 2},
                   {3, 5, 5, 3, 1000, 5},
                   {1, 2, 3, 1, 2, 1000},
                   {0, 0, 0, 1000, 0, 0},
                   {1000, 7, 8, 1000, 7, 8}};
    for (const auto& c : credits) {
        SetUp();
        g_accuracy_state.cal_stage = 1;  // also: the stage need not be reached again
        g_accuracy_state.r_ref35 = 45.0;
        g_accuracy_state.in35 = 15;
        g_accuracy_state.turn_cnt_z = c.z;
        g_accuracy_state.turn_cnt_x = c.x;
        g_accuracy_state.turn_cnt_y = c.y;
        accuracy = 1;
        EXPECT_EQ(feed(Sample{}), 1);
        EXPECT_EQ(accuracy, 2);
        EXPECT_EQ(g_accuracy_state.turn_cnt_z, c.want_z);
        EXPECT_EQ(g_accuracy_state.turn_cnt_x, c.want_x);
        EXPECT_EQ(g_accuracy_state.turn_cnt_y, c.want_y);
    }

    // A field of 20 uT or less never gives 2.
    SetUp();
    g_accuracy_state.cal_stage = 1;
    g_accuracy_state.r_ref35 = 20.0;
    g_accuracy_state.in35 = 15;
    accuracy = 1;
    Sample weak;
    weak.radius = 20.0;
    feed(weak);
    EXPECT_EQ(accuracy, 1);
}

TEST_F(Accuracy, GyroGatesUseTheWidenedSinglePrecisionThresholds) {
    // 0.1f widened is 0.10000000149...: a rate of 0.1000000005 is no turn.
    Sample s;
    s.gyro = Vec3{{0.0, 0.0, 0.1000000005}};
    feed_n(3, s);
    EXPECT_EQ(g_accuracy_state.turn_cnt_z, 0);
    s.gyro = Vec3{{0.0, 0.0, -0.1000000020}};
    feed_n(3, s);
    EXPECT_EQ(g_accuracy_state.turn_cnt_z, 3);

    // 0.3f widened is 0.30000001192...; tilts also need the device face up.
    s.acc = Vec3{{8.0, 0.0, 5.0}};
    s.gyro = Vec3{{0.0, 0.0, 0.30000001}};
    feed(s);
    EXPECT_FALSE(g_accuracy_state.face_xp);
    s.gyro = Vec3{{0.0, 0.0, 0.3000000125}};
    s.acc = Vec3{{8.0, 0.0, 2.5}};
    feed(s);
    EXPECT_FALSE(g_accuracy_state.face_xp);
    s.acc = Vec3{{8.0, 0.0, 5.0}};
    feed(s);
    EXPECT_TRUE(g_accuracy_state.face_xp);
    // 0.7f widened is 0.699999988...: a ratio of exactly 0.7 is a tilt.
    s.acc = Vec3{{0.0, -7.0, 10.0}};
    feed(s);
    EXPECT_TRUE(g_accuracy_state.face_yn);
}

TEST_F(Accuracy, OtherModesOnlyGatherEvidenceAndApplyTheLossTest) {
    for (const int32_t mode : {0, 2, -1}) {
        SetUp();
        Sample s;
        s.mode = mode;
        reference_at_identity();
        g_accuracy_state.turn_x = true;
        g_accuracy_state.cal_stage = 1;
        EXPECT_EQ(feed_n(60, s), 1) << mode;
        EXPECT_EQ(accuracy, 0) << mode;
        accuracy = 1;
        EXPECT_EQ(feed_n(60, s), 1) << mode;  // mode 1 would give 2 here
        EXPECT_EQ(accuracy, 1) << mode;
        EXPECT_EQ(g_accuracy_state.r_ref6, 0.0) << mode;

        s.gyro = Vec3{{0.0, 0.0, 1.0}};  // rotation evidence is still collected
        feed_n(10, s);
        EXPECT_EQ(g_accuracy_state.turn_cnt_z, 1000) << mode;

        accuracy = 3;
        s.radius = 191.0;
        EXPECT_EQ(feed(s), 0) << mode;
        EXPECT_EQ(accuracy, 0) << mode;
    }
}

TEST_F(Accuracy, TiltedTurnFlagNeedsAgreementAndAccuracy) {
    // Turning about an axis between y and z with y raised: counts towards z.
    Sample s;
    s.gyro = Vec3{{0.01, 0.5, 0.6}};
    s.acc = Vec3{{0.0, 5.0, 8.0}};
    s.rls_diff = Vec3{{14.9, 34.9, 100.0}};
    accuracy = 1;
    feed_n(9, s);
    EXPECT_EQ(g_accuracy_state.turn_cnt_z, 9);
    EXPECT_FALSE(g_accuracy_state.tilt_turn);
    feed(s);
    EXPECT_EQ(g_accuracy_state.turn_cnt_z, 1000);
    EXPECT_EQ(g_accuracy_state.turn_z, 1);
    EXPECT_TRUE(g_accuracy_state.tilt_turn);

    // At accuracy 0 the turn counts but sets no flag; a later tilted sample at
    // accuracy 1 sets it at once, as the counter is already done.
    SetUp();
    feed_n(10, s);
    EXPECT_EQ(g_accuracy_state.turn_cnt_z, 1000);
    EXPECT_FALSE(g_accuracy_state.tilt_turn);
    accuracy = 1;
    feed(s);
    EXPECT_TRUE(g_accuracy_state.tilt_turn);

    for (const Vec3& diff : {Vec3{{15.0, 1.0, 1.0}}, Vec3{{1.0, 35.0, 1.0}}}) {
        SetUp();
        accuracy = 1;
        s.rls_diff = diff;
        feed_n(12, s);
        EXPECT_EQ(g_accuracy_state.turn_cnt_z, 1000);
        EXPECT_FALSE(g_accuracy_state.tilt_turn);
    }

    // y not raised enough, or y and z rates too different: no count at all.
    s.rls_diff = Vec3{{1.0, 1.0, 1.0}};
    for (const Sample& other :
         {Sample{Vec3{{0.0, 3.0, 8.0}}, s.gyro}, Sample{s.acc, Vec3{{0.01, 0.2, 0.6}}}}) {
        SetUp();
        accuracy = 1;
        feed_n(12, other);
        EXPECT_EQ(g_accuracy_state.turn_cnt_z, 0);
        EXPECT_FALSE(g_accuracy_state.tilt_turn);
    }
}

TEST_F(Accuracy, AttitudeChangeSinceTheReferenceSetsTurnFlags) {
    Sample s;
    g_accuracy_state.turn_z = 2;  // cleared when the reference is taken
    g_accuracy_state.tilt_turn = true;
    s.acc = Vec3{{1.0, 2.0, 9.5}};
    feed(s);
    EXPECT_TRUE(g_accuracy_state.ref_taken);
    EXPECT_EQ(g_accuracy_state.turn_z, 0);
    EXPECT_FALSE(g_accuracy_state.tilt_turn);
    EXPECT_EQ(g_accuracy_state.ref_acc_y, 2.0);

    EXPECT_EQ(g_accuracy_state.ref_ang0, 180.0);
    EXPECT_EQ(g_accuracy_state.ref_ang1, 90.0);

    rotation(s.q, 30.0, 0.0, 0.0, 1.0);
    feed(s);
    EXPECT_EQ(g_accuracy_state.turn_z, 0);
    rotation(s.q, -45.0, 0.0, 0.0, 1.0);
    feed(s);
    EXPECT_EQ(g_accuracy_state.turn_z, 1);
    rotation(s.q, 170.0, 0.0, 0.0, 1.0);
    feed(s);
    EXPECT_EQ(g_accuracy_state.turn_z, 2);
    EXPECT_FALSE(g_accuracy_state.turn_y);
    EXPECT_FALSE(g_accuracy_state.turn_x);
    rotation(s.q, 50.0, 0.0, 1.0, 0.0);
    feed(s);
    EXPECT_TRUE(g_accuracy_state.turn_y);
    EXPECT_FALSE(g_accuracy_state.turn_x);
    rotation(s.q, -50.0, 1.0, 0.0, 0.0);
    feed(s);
    EXPECT_TRUE(g_accuracy_state.turn_x);

    // Degrees use the single-precision pi: a quarter turn is 90.0000180 deg.
    SetUp();
    rotation(s.q, 90.0, 0.0, 0.0, 1.0);
    feed(s);
    EXPECT_NEAR(g_accuracy_state.ref_ang0, 180.0 + 90.0 * (kDeg * 180.0) / 3.141592025756836, 1e-9);
    EXPECT_GT(g_accuracy_state.ref_ang0, 270.000017);

    // Once calibrating has begun the attitude is not looked at.
    SetUp();
    g_accuracy_state.cal_stage = 1;
    feed(s);
    EXPECT_FALSE(g_accuracy_state.ref_taken);
    EXPECT_FALSE(g_accuracy_state.turn_x);
}

TEST_F(Accuracy, TurningOverCountsAsAllRound) {
    Sample s;
    feed(s);  // reference acceleration (0, 0, 9.8)
    s.acc = Vec3{{6.0, -6.0, -9.8}};
    feed_n(7, s);  // x and y flip counters at 14 of 15
    EXPECT_FALSE(g_accuracy_state.all_round);
    EXPECT_EQ(g_accuracy_state.flip_cnt_x, 14);
    EXPECT_EQ(g_accuracy_state.flip_cnt_z, 7);
    feed(s);
    EXPECT_TRUE(g_accuracy_state.all_round);
    EXPECT_EQ(g_accuracy_state.turn_z, 2);
    EXPECT_TRUE(g_accuracy_state.turn_x && g_accuracy_state.turn_y);
    EXPECT_EQ(g_accuracy_state.turn_cnt_x, 1000);

    // Upside down alone moves only the z counter (by one a sample).
    SetUp();
    feed(Sample{});
    s.acc = Vec3{{0.0, 0.0, -9.8}};
    feed_n(14, s);
    EXPECT_EQ(g_accuracy_state.flip_cnt_z, 14);
    feed(s);
    EXPECT_EQ(g_accuracy_state.flip_cnt_z, 1000);
    EXPECT_EQ(g_accuracy_state.flip_cnt_x, 0);
    EXPECT_FALSE(g_accuracy_state.all_round);
}

TEST_F(Accuracy, ScriptedCalibrationWalksFromZeroToThree) {
    // Period 2, radius steady at 45, offset 1 uT from the sphere centre.
    Sample s;
    const Vec3 flat = s.acc;
    const Vec3 tilts[] = {{{8.0, 0.0, 5.0}},  {{-8.0, 0.0, 5.0}}, {{0.0, 8.0, 5.0}},
                          {{0.0, -8.0, 5.0}}, {{8.0, 0.0, 5.0}},  {{-8.0, 0.0, 5.0}},
                          {{0.0, 8.0, 5.0}}};
    for (int n = 1; n <= 34; ++n) {
        s.acc = flat;
        if (n <= 10) {
            s.gyro = Vec3{{0.0, 0.0, 1.0}};  // about z: done after len20 samples
        } else if (n <= 15) {
            s.gyro = Vec3{{1.0, 0.0, 0.0}};  // about x, not long enough
        } else if (n <= 20) {
            s.gyro = Vec3{{0.0, -1.0, 0.0}};  // about y, not long enough
        } else if (n <= 27) {
            s.gyro = Vec3{{0.0, 0.0, 0.0}};
        } else {
            s.gyro = Vec3{{0.3, 0.3, 0.3}};  // no axis dominates
            s.acc = tilts[n - 28];
        }
        const int32_t level = feed(s);
        // Trackers take their reference radius on sample 11. Tracker 6.0 then
        // gives 1 on its eighth steady sample; tracker 3.5 gives the coarse
        // stage and 2 on its sixteenth; the seventh face completes all round.
        const int32_t want_acc = n < 19 ? 0 : n < 27 ? 1 : n < 34 ? 2 : 3;
        const int32_t want_stage = n < 27 ? 0 : n < 34 ? 1 : 2;
        EXPECT_EQ(accuracy, want_acc) << n;
        EXPECT_EQ(g_accuracy_state.cal_stage, want_stage) << n;
        EXPECT_EQ(level, want_stage) << n;
    }
    EXPECT_TRUE(g_accuracy_state.all_round);
    EXPECT_EQ(g_accuracy_state.acc3_wait, 0);
    EXPECT_EQ(rls_reset, 0);
}

TEST_F(Accuracy, StuckBelowThreeWaitsOneSecondThenAsksForASphereRestart) {
    Sample s;
    auto ready = [&](int32_t period) {
        SetUp();
        g_accuracy_state.ref_taken = true;
        g_accuracy_state.cal_stage = 1;
        g_accuracy_state.all_round = true;
        g_accuracy_state.turn_cnt_x = g_accuracy_state.turn_cnt_y = 1000;
        g_accuracy_state.turn_cnt_z = 1000;
        g_accuracy_state.r_ref3 = 45.0;
        // Steady within 3.0 for 2 * (len30 / 3) samples.
        g_accuracy_state.in3 = 2 * ((30 / period) / 3);
        accuracy = 2;
        s.period = period;
    };
    s.rls_diff = Vec3{{1.0, 1.0, 60.0}};  // one axis far from the sphere centre
    for (const int32_t period : {2, 4}) {
        const int wait = 100 / period;  // one second
        ready(period);
        feed_n(wait, s);
        EXPECT_EQ(g_accuracy_state.acc3_wait, wait) << period;
        EXPECT_EQ(rls_reset, 0) << period;
        feed(s);
        EXPECT_EQ(g_accuracy_state.acc3_wait, -500) << period;
        EXPECT_EQ(rls_reset, 1) << period;
        rls_reset = 0;
        feed_n(100, s);
        EXPECT_EQ(rls_reset, 0) << period;
        EXPECT_EQ(accuracy, 2) << period;
    }
    s.period = 2;

    // Not far enough to restart, and the flag is never cleared by the rules.
    ready(2);
    s.rls_diff = Vec3{{20.0, 1.0, 1.0}};
    rls_reset = 1;
    feed_n(51, s);
    EXPECT_EQ(g_accuracy_state.acc3_wait, -500);
    EXPECT_EQ(rls_reset, 1);

    // With a looser threshold the same gap gives accuracy 3 at once.
    ready(2);
    EXPECT_EQ(set_accuracy3_th(250), 250);
    EXPECT_EQ(feed(s), 2);
    EXPECT_EQ(accuracy, 3);
    EXPECT_EQ(g_accuracy_state.cal_stage, 2);

    // Only Earth-like radii qualify.
    for (const double radius : {25.0, 70.0}) {
        ready(2);
        s.radius = radius;
        g_accuracy_state.r_ref3 = radius;
        feed_n(3, s);
        EXPECT_EQ(accuracy, 2) << radius;
        EXPECT_EQ(g_accuracy_state.acc3_wait, 0) << radius;
    }
}

TEST_F(Accuracy, ThresholdSetterWorksInTenths) {
    EXPECT_EQ(set_accuracy3_th(150), 150);
    EXPECT_EQ(accuracy3_offset_diff_th, 15.0f);
    EXPECT_EQ(set_accuracy3_th(5), 5);
    EXPECT_EQ(accuracy3_offset_diff_th, 0.5f);
    set_accuracy3_th(-7);
    EXPECT_EQ(accuracy3_offset_diff_th, -0.7f);
}

// Every field of AccuracyState, in order. The size check below fails when a
// field is added without being listed here.
#define ACCURACY_FIELDS(X)                                                                        \
    X(r_ref6)                                                                                     \
    X(r_ref35) X(r_ref3) X(in6) X(out6) X(in35) X(out35) X(in3) X(out3) X(turn_cnt_z)             \
        X(turn_cnt_y) X(turn_cnt_x) X(all_round) X(ref_taken) X(tilt_turn) X(acc3_wait)           \
            X(cal_stage) X(face_xp) X(face_xn) X(face_yp) X(face_yn) X(face_xp2) X(face_xn2)      \
                X(face_yp2) X(face_yn2) X(turn_z) X(turn_y) X(turn_x) X(flip_cnt_x) X(flip_cnt_y) \
                    X(flip_cnt_z) X(ref_ang0) X(ref_ang1) X(ref_ang2) X(ref_acc_x) X(ref_acc_y)   \
                        X(ref_acc_z)
static_assert(sizeof(AccuracyState) == 152, "AccuracyState gained or lost a field");

template <typename T>
T marker(int i) {
    return std::is_same<T, double>::value ? static_cast<T>(i + 0.25) : static_cast<T>(i);
}

void fill_all(AccuracyState& st) {
    int i = 1;
#define FILL(f) st.f = marker<decltype(st.f)>(i++);
    ACCURACY_FIELDS(FILL)
#undef FILL
}

// Checks that exactly the fields named in `cleared` are zero and every other
// field still holds its marker.
void expect_cleared_exactly(const AccuracyState& st, const std::set<std::string>& cleared) {
    int i = 1;
#define CHECK(f)                                               \
    {                                                          \
        using T = decltype(st.f);                              \
        const T want = cleared.count(#f) ? T{} : marker<T>(i); \
        EXPECT_EQ(st.f, want) << #f;                           \
        ++i;                                                   \
    }
    ACCURACY_FIELDS(CHECK)
#undef CHECK
}

TEST_F(Accuracy, ResetsClearExactlyTheirFields) {
    const AccuracyState initial{};
    EXPECT_EQ(initial.ref_acc_z, static_cast<double>(9.8f));
    EXPECT_EQ(initial.r_ref6, 0.0);
    EXPECT_EQ(initial.cal_stage, 0);

    const std::set<std::string> soft = {"r_ref6",    "r_ref35",   "r_ref3",    "in6",
                                        "out6",      "in35",      "out35",     "in3",
                                        "out3",      "turn_z",    "turn_y",    "turn_x",
                                        "ref_taken", "tilt_turn", "acc3_wait", "cal_stage"};
    std::set<std::string> full = soft;
    for (const char* f : {"turn_cnt_z", "turn_cnt_y", "turn_cnt_x", "all_round", "face_xp",
                          "face_xn", "face_yp", "face_yn", "face_xp2", "face_xn2", "face_yp2",
                          "face_yn2", "flip_cnt_x", "flip_cnt_y", "flip_cnt_z"}) {
        full.insert(f);
    }

    fill_all(g_accuracy_state);
    accuracy = 3;
    EXPECT_EQ(reset_accuracy(), 0);
    expect_cleared_exactly(g_accuracy_state, full);

    fill_all(g_accuracy_state);
    EXPECT_EQ(reset_accuracy2(), 0);
    expect_cleared_exactly(g_accuracy_state, soft);

    fill_all(g_accuracy_state);
    EXPECT_EQ(set_reset_cnt(), 0);
    expect_cleared_exactly(g_accuracy_state, {});
    set_calibrated();
    EXPECT_EQ(g_accuracy_state.cal_stage, 2);
    g_accuracy_state.cal_stage = marker<int32_t>(17);
    expect_cleared_exactly(g_accuracy_state, {});
    EXPECT_EQ(accuracy, 3);
}

TEST_F(Accuracy, AllocatesNothing) {
    Sample s;
    s.gyro = Vec3{{0.3, -0.2, 0.4}};
    EXPECT_EQ(magcal_test::allocations_during([&] {
                  for (int i = 0; i < 60; ++i) {
                      s.period = i % 31;
                      s.radius = 40.0 + i % 9;
                      feed(s);
                  }
                  reset_accuracy2();
                  reset_accuracy();
                  set_calibrated();
                  set_accuracy3_th(150);
              }),
              0u);
}

}  // namespace
