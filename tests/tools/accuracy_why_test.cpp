// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The explainer on hand-made snapshots: which condition it names first,
// how it words the axes and faces still missing, how it tells the causes of
// a drop apart, and how it cuts a session into stretches. The expected
// conditions come from the library's accuracy rules, not from the
// explainer's own output.
#include "accuracy_why.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

using namespace magcal::tool;

// A processed sample at 50 Hz with the offset on the sphere centre and an
// earth-like radius: nothing but what a test sets holds the accuracy back.
TraceRow row(double t_s, int accuracy) {
    TraceRow r;
    std::memset(&r.decision, 0, sizeof r.decision);
    r.t_s = t_s;
    r.t_ns = static_cast<int64_t>(t_s * 1e9);
    r.processed = true;
    MagcalDecisionSnapshot& d = r.decision;
    d.accuracy = accuracy;
    d.run_state = 1;
    d.period_10ms = 2;
    d.radius = 45.0;
    d.mag[0] = 10.0;
    d.mag[1] = 20.0;
    d.mag[2] = -40.0;
    d.accuracy3_offset_diff_th = 15.0;
    d.start_radius_tol = 10.0;
    d.moving = 1;
    return r;
}

// The one stretch message of a session made of `rows`.
WhyMessage stretch_of(const std::vector<TraceRow>& rows) {
    for (const WhyMessage& m : explain_accuracy(rows))
        if (m.kind == WhyMessage::Kind::Stretch) return m;
    return WhyMessage{};
}

TEST(AccuracyWhy, EachLevelNamesTheFirstConditionItMisses) {
    using D = MagcalDecisionSnapshot;
    const struct {
        int accuracy;
        void (*set)(D&);
        WhyRule rule;
        const char* phrase;
    } cases[] = {
        // Hold-offs and strong fields come before everything else.
        {0, [](D& d) { d.range_hold = 12; }, WhyRule::SwingHold, ""},
        // Horizontal part of mag - offset: (160, 20) -> 161 uT; weak too.
        {1, [](D& d) { d.mag[0] = 160.0, d.radius = 10.0; }, WhyRule::StrongField, "161.2 uT"},
        {0, [](D&) {}, WhyRule::NoRotation, ""},
        // A turn seen: then the 6 uT tracker (needs 15 / 2 = 7 samples at 20 ms).
        {0, [](D& d) { d.turn_z = 1, d.in6 = 6; }, WhyRule::RadiusUnsteady,
         "within 6.0 uT for 0.14 s"},
        {1, [](D& d) { d.radius = 20.0; }, WhyRule::WeakField, ""},
        // Accuracy 2 needs x and y within 10 uT of the sphere centre ...
        {1, [](D& d) { d.offset_est[1] = 12.5, d.moving = 0; }, WhyRule::SphereApart,
         "12.5 uT apart on y (accuracy 2 needs less than 10 uT): the sphere fit learns only "
         "while the device is judged moving"},
        // ... unless a tilted turn was seen; z does not count at that step.
        {1,
         [](D& d) { d.offset_est[1] = 12.5, d.offset_est[2] = 40.0, d.tilt_turn = 1, d.in35 = 2; },
         WhyRule::RadiusUnsteady, ""},
        // Accuracy 3 needs two axes' turn counters done (or seven faces, or
        // turned over): with z done and the four faces seen, x or y is missing.
        {2,
         [](D& d) {
             d.turn_cnt_z = 1000, d.turn_cnt_x = 7, d.in3 = 20;
             d.face_xp = d.face_xn = d.face_yp = d.face_yn = 1;
         },
         WhyRule::Coverage,
         "accuracy 2 from 0.0 s to the end (2.0 s): turn the device about its x or y axis (or "
         "tilt it once more towards three of its edges); the turn about z and the four faces are "
         "done"},
        {2, [](D& d) { d.face_yn = 1, d.in3 = 20; }, WhyRule::Coverage,
         "about two of its axes, one at a time; the tilt towards -y is done"},
        // Two counters done but not all round is not enough; all round, steadiness
        // is next (2 * (15 / 3) = 10 samples at 20 ms).
        {2, [](D& d) { d.turn_cnt_z = d.turn_cnt_y = 1000, d.in3 = 20; }, WhyRule::Coverage, ""},
        {2, [](D& d) { d.turn_cnt_z = d.turn_cnt_y = 1000, d.all_round = 1, d.in3 = 3; },
         WhyRule::RadiusUnsteady, "within 3.0 uT for 0.20 s"},
        // The earth range is open at both ends.
        {2, [](D& d) { d.turn_cnt_x = d.turn_cnt_z = 1000, d.all_round = 1, d.radius = 70.0; },
         WhyRule::RadiusRange, ""},
        // Accuracy 3 checks z too, against the tunable threshold.
        {2,
         [](D& d) { d.turn_cnt_x = d.turn_cnt_z = 1000, d.all_round = 1, d.rls_centre[2] = -15.0; },
         WhyRule::SphereApart, "15.0 uT apart on z (accuracy 3 needs less than 15 uT)"},
    };
    for (const auto& c : cases) {
        std::vector<TraceRow> rows;
        for (double t = 0.0; t <= 2.0 + 1e-9; t += 0.02) {
            rows.push_back(row(t, c.accuracy));
            c.set(rows.back().decision);
        }
        const WhyMessage m = stretch_of(rows);
        EXPECT_EQ(m.rule, c.rule) << c.phrase;
        EXPECT_NE(m.text.find(c.phrase), std::string::npos) << m.text;
    }
}

TEST(AccuracyWhy, DropsAreToldApartByTheLossTestTheyMet) {
    std::vector<TraceRow> rows{row(0.0, 3), row(0.02, 3), row(0.04, 0)};
    rows[2].decision.mag[0] = 200.0;  // horizontal 201 uT: the test at accuracy >= 1
    std::vector<WhyMessage> m = explain_accuracy(rows);
    ASSERT_EQ(m.size(), 3u);  // session, drop, the last stretch
    EXPECT_EQ(m[1].kind, WhyMessage::Kind::Drop);
    EXPECT_EQ(m[1].rule, WhyRule::StrongField);
    EXPECT_EQ(m[1].from_accuracy, 3);
    EXPECT_EQ(m[1].text.rfind("accuracy dropped from 3 to 0 at 0.0 s: the horizontal field", 0), 0u)
        << m[1].text;

    rows[2].decision.mag[0] = 10.0;
    rows[2].decision.radius = 190.5;  // only at accuracy 3
    rows[2].decision.range_hold = 30;
    m = explain_accuracy(rows);
    EXPECT_EQ(m[1].rule, WhyRule::RadiusTooLarge);
    EXPECT_NE(m[1].text.find("waiting 0.6 s before starting again"), std::string::npos)
        << m[1].text;

    // Neither loss condition: only a start lowers the accuracy otherwise.
    // The seeding sample shows the stored accuracy without deciding anything.
    std::vector<TraceRow> start{row(0.0, 3), row(0.02, 0), row(0.04, 0)};
    start[0].decision.run_state = 0;
    start[1].decision.radius = 58.0;
    m = explain_accuracy(start, RestoredCalibration{3, 45.0});
    ASSERT_GE(m.size(), 2u);
    EXPECT_EQ(m[1].rule, WhyRule::StartRejected);
    EXPECT_NE(m[1].text.find("from 3 to 0 at 0.0 s"), std::string::npos) << m[1].text;
    EXPECT_NE(m[1].text.find("radius 58.0 uT against the stored 45.0 uT"), std::string::npos)
        << m[1].text;
    EXPECT_EQ(m[0].text.find("accuracy 3"), std::string::npos) << "3 was never decided";
    m = explain_accuracy(start, RestoredCalibration{1, 45.0});
    EXPECT_NE(m[1].text.find("a restored accuracy of 1 is not kept"), std::string::npos)
        << m[1].text;
}

TEST(AccuracyWhy, StretchesFollowTheAccuracyAndSkipUnprocessedSamples) {
    std::vector<TraceRow> rows;
    for (int i = 0; i < 100; ++i) rows.push_back(row(i * 0.02, i < 50 ? 0 : i < 52 ? 1 : 2));
    rows[10].processed = false;
    rows[10].decision.accuracy = 3;  // a refused sample's state must not count
    for (int i = 52; i < 100; ++i) rows[i].decision.turn_cnt_y = 1000;
    const std::vector<WhyMessage> m = explain_accuracy(rows);
    ASSERT_EQ(m.size(), 3u);  // session, 0 stretch, 2 stretch; 1 lasted 0.04 s
    EXPECT_EQ(m[0].kind, WhyMessage::Kind::Session);
    EXPECT_NE(m[0].text.find("never reached 3 (highest 2, first at 1.0 s)"), std::string::npos)
        << m[0].text;
    EXPECT_EQ(m[1].t_begin_s, 0.0);
    EXPECT_DOUBLE_EQ(m[1].t_end_s, 1.0);
    EXPECT_EQ(m[1].accuracy, 0);
    EXPECT_EQ(m[2].accuracy, 2);
    EXPECT_NE(m[2].text.find("turn the device about its z or x axis; the turn about y is done"),
              std::string::npos)
        << m[2].text;
}

TEST(AccuracyWhy, SessionLinesForCalibratedAndEmptySessions) {
    std::vector<TraceRow> rows{row(0.0, 0), row(0.5, 1), row(1.0, 3), row(3.0, 3)};
    EXPECT_EQ(explain_accuracy(rows)[0].text, "session of 3.0 s: accuracy 3 from 1.0 s to the end");
    rows[0].processed = rows[1].processed = rows[2].processed = rows[3].processed = false;
    const std::vector<WhyMessage> none = explain_accuracy(rows);
    ASSERT_EQ(none.size(), 1u);
    EXPECT_NE(none[0].text.find("no magnetometer sample was processed"), std::string::npos);
}

}  // namespace
