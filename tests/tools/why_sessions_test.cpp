// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Every condition that can hold the accuracy back, and every cause of a drop,
// shown by a scripted session from the simulator and read back from the
// message the explainer gives for it. Each session is replayed through a
// fresh load of libmagcal_trace.so, as `magcal replay --trace` does; the
// script is chosen so that the library's rules (not the explainer) decide
// the outcome: a device only ever turned about z cannot reach accuracy 3, a
// 15 uT field cannot pass the 20 uT test, and so on.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "accuracy_why.h"
#include "plugin_library.h"
#include "replay_engine.h"
#include "sim/session_simulator.h"

namespace {

using namespace magcal::tool;
namespace sim = magcal::sim;

// Turns about z while tilted each way: every axis and face is visited.
const char* const kCalibrate =
    "hold 1; turn z 360 90; tilt +x 60 60; turn z 360 90; tilt -x 120 60; turn z 360 90; "
    "tilt +x 60 60; tilt +y 60 60; turn z 360 90; tilt -y 120 60; turn z 360 90; "
    "tilt +y 60 60; hold 2";
const char* const kTurnsXYZ =
    "hold 1; turn z 360 90; turn x 360 90; turn y 360 90; hold 1; turn z 360 90; hold 2";

struct Session {
    std::vector<WhyMessage> messages;
    int final_accuracy = -1;

    // The first message of `kind` whose rule is `rule`, or an empty one.
    WhyMessage find(WhyMessage::Kind kind, WhyRule rule) const {
        for (const WhyMessage& m : messages)
            if (m.kind == kind && m.rule == rule) return m;
        return WhyMessage{};
    }
    int count(WhyMessage::Kind kind) const {
        int n = 0;
        for (const WhyMessage& m : messages) n += m.kind == kind;
        return n;
    }
    std::string all() const {
        std::string s;
        for (const WhyMessage& m : messages) s += m.text + "\n";
        return s;
    }
};

struct Explain : RowSink {
    explicit Explain(std::optional<RestoredCalibration> r) : explainer(r) {}
    void on_row(const ResultRow& row) override {
        if (t0 < 0) t0 = row.t_ns;
        TraceRow t;
        t.t_ns = row.t_ns;
        t.t_s = static_cast<double>(row.t_ns - t0) * 1e-9;
        t.processed = row.processed;
        t.decision = row.decision;
        explainer.add(t);
    }
    AccuracyExplainer explainer;
    int64_t t0 = -1;
};

Session run(const std::string& script, void (*tweak)(sim::Config&) = nullptr,
            std::optional<SavedCalibration> restore = std::nullopt) {
    sim::Config c;
    c.scenario = sim::Scenario::Scripted;
    c.script = sim::parse_motion_script(script);
    c.duration_s = sim::script_duration(c.script);
    if (tweak) tweak(c);
    std::vector<LogRecord> log;
    for (const auto& s : sim::simulate(c).samples) log.push_back({s.t_ns, s.sensor, s.v, 0, 0});
    const PluginLibrary lib(MAGCAL_TRACE_PLUGIN_PATH);  // a fresh library state
    ReplaySetup setup;
    setup.decision_snapshots = true;
    setup.restore = restore;
    std::optional<RestoredCalibration> restored;
    if (restore) restored = RestoredCalibration{restore->accuracy, restore->radius};
    Explain sink(restored);
    const ReplayOutcome out = replay_session(lib.binding(), setup, log.data(), log.size(), sink);
    return {sink.explainer.finish(), out.final_accuracy};
}

using Kind = WhyMessage::Kind;

TEST(WhySessions, TurningAllRoundReachesThreeAndSaysSo) {
    const Session s = run(kCalibrate);
    EXPECT_EQ(s.final_accuracy, 3);
    EXPECT_NE(s.messages[0].text.find("accuracy 3 from "), std::string::npos) << s.all();
    EXPECT_NE(s.messages[0].text.find(" to the end"), std::string::npos) << s.all();
    EXPECT_EQ(s.find(Kind::Stretch, WhyRule::NoRotation).accuracy, 0) << s.all();
}

TEST(WhySessions, StillDeviceIsToldToTurn) {
    const Session s = run("hold 10");
    EXPECT_EQ(s.final_accuracy, 0);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::NoRotation);
    EXPECT_NE(m.text.find("accuracy 0 from 0.0 s to the end (10.0 s): no rotation seen yet: "
                          "turn the device"),
              std::string::npos)
        << s.all();
    EXPECT_EQ(s.messages[0].rule, WhyRule::NoRotation);
}

TEST(WhySessions, TurnsAboutZAloneAreToldTheMissingAxis) {
    const Session s = run("hold 1; turn z 360 90; hold 1; turn z -360 90; hold 4");
    EXPECT_EQ(s.final_accuracy, 2);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::Coverage);
    EXPECT_EQ(m.accuracy, 2) << s.all();
    EXPECT_NE(m.text.find("turn the device about its x or y axis; the turn about z is done"),
              std::string::npos)
        << s.all();
}

TEST(WhySessions, NoisyFieldNeverSteadyNamesTheRadius) {
    const Session s = run(kTurnsXYZ, [](sim::Config& c) { c.mag_noise = 6.0; });
    EXPECT_LT(s.final_accuracy, 2);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::RadiusUnsteady);
    EXPECT_EQ(m.accuracy, 0) << s.all();
    EXPECT_NE(m.text.find("has not stayed within 6.0 uT"), std::string::npos) << s.all();
}

TEST(WhySessions, WeakFieldStopsAtOne) {
    // The right offset restored (accuracy 0): the radius is the 15 uT field at once.
    const Session s = run(
        kTurnsXYZ, [](sim::Config& c) { c.field_ut = 15.0; },
        SavedCalibration{{25.0f, -35.0f, 40.0f}, 0, 15.0});
    EXPECT_EQ(s.final_accuracy, 1);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::WeakField);
    EXPECT_EQ(m.accuracy, 1) << s.all();
    EXPECT_NE(m.text.find("not more than 20 uT"), std::string::npos) << s.all();
}

TEST(WhySessions, FieldBelowTheEarthRangeStopsAtTwo) {
    const Session s = run(kCalibrate, [](sim::Config& c) { c.field_ut = 22.0; });
    EXPECT_EQ(s.final_accuracy, 2);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::RadiusRange);
    EXPECT_EQ(m.accuracy, 2) << s.all();
    EXPECT_NE(m.text.find("outside the 25 to 70 uT of an earth field"), std::string::npos);
}

TEST(WhySessions, OffsetAndSphereApartAreNamed) {
    const Session s = run(kTurnsXYZ);
    EXPECT_EQ(s.final_accuracy, 2);
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::SphereApart);
    EXPECT_EQ(m.accuracy, 2) << s.all();
    EXPECT_NE(m.text.find("accuracy 3 needs less than 15 uT"), std::string::npos) << s.all();
}

TEST(WhySessions, MagnetWavedNearTheDeviceHoldsOffCalibration) {
    std::string script = "hold 1; turn z 360 90; hold 1";
    for (int i = 0; i < 7; ++i) script += "; magnet 200 0.3 up; magnet 0 0.3 up";
    const Session s = run(script + "; hold 2");
    EXPECT_EQ(s.final_accuracy, 2);  // a swing drops the evidence, not the accuracy
    const WhyMessage m = s.find(Kind::Stretch, WhyRule::SwingHold);
    EXPECT_EQ(m.accuracy, 2) << s.all();
    EXPECT_NE(m.text.find("swung by more than 130 uT within a second"), std::string::npos);
    // What was learnt is gone: both axes are wanted again.
    EXPECT_NE(m.text.find("at the end: turn the device about two of its axes"), std::string::npos)
        << s.all();
}

TEST(WhySessions, MagnetNearDropsToZeroAndHoldsItThere) {
    const Session s = run(std::string(kCalibrate) + "; magnet 200 3; hold 4");
    EXPECT_EQ(s.final_accuracy, 0);
    const WhyMessage drop = s.find(Kind::Drop, WhyRule::StrongField);
    EXPECT_EQ(drop.from_accuracy, 3) << s.all();
    EXPECT_NE(drop.text.find("accuracy dropped from 3 to 0 at "), std::string::npos);
    EXPECT_EQ(s.find(Kind::Stretch, WhyRule::StrongField).accuracy, 0) << s.all();
    EXPECT_NE(s.messages[0].text.find("1 drop"), std::string::npos) << s.all();
}

TEST(WhySessions, VerticalMagnetDropsThroughTheRadiusLimit) {
    const Session s = run(std::string(kCalibrate) + "; magnet 250 3 up; hold 4");
    EXPECT_EQ(s.final_accuracy, 0);
    const WhyMessage drop = s.find(Kind::Drop, WhyRule::RadiusTooLarge);
    EXPECT_EQ(drop.from_accuracy, 3) << s.all();
    EXPECT_NE(drop.text.find("(over 190 uT)"), std::string::npos);
}

TEST(WhySessions, RestoredCalibrationThatDoesNotFitIsRejectedAtStart) {
    // Stored for a 45 uT field; the session's field is 60 uT (more than 10 apart).
    const Session s = run(
        kCalibrate, [](sim::Config& c) { c.field_ut = 60.0; },
        SavedCalibration{{25.0f, -35.0f, 40.0f}, 3, 45.0});
    const WhyMessage drop = s.find(Kind::Drop, WhyRule::StartRejected);
    EXPECT_EQ(drop.from_accuracy, 3) << s.all();
    EXPECT_LT(drop.t_begin_s, 0.1);
    EXPECT_NE(drop.text.find("against the stored 45.0 uT"), std::string::npos) << drop.text;

    // The same calibration restored where it fits survives: no drop at all.
    const Session kept = run("hold 3", nullptr, SavedCalibration{{25.0f, -35.0f, 40.0f}, 3, 45.0});
    EXPECT_EQ(kept.final_accuracy, 3);
    EXPECT_EQ(kept.count(Kind::Drop), 0) << kept.all();
}

}  // namespace
