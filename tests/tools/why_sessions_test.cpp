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
using Kind = WhyMessage::Kind;

// Turns about z while tilted each way: every axis and face is visited.
const std::string kCalibrate =
    "hold 1; turn z 360 90; tilt +x 60 60; turn z 360 90; tilt -x 120 60; turn z 360 90; "
    "tilt +x 60 60; tilt +y 60 60; turn z 360 90; tilt -y 120 60; turn z 360 90; "
    "tilt +y 60 60; hold 2";
const std::string kTurnsXYZ =
    "hold 1; turn z 360 90; turn x 360 90; turn y 360 90; hold 1; turn z 360 90; hold 2";
const SavedCalibration kStored{{25.0f, -35.0f, 40.0f}, 3, 45.0};  // the simulator's offset

struct Explain : RowSink {
    explicit Explain(std::optional<RestoredCalibration> r) : explainer(r) {}
    void on_row(const ResultRow& row) override {
        if (t0 < 0) t0 = row.t_ns;
        explainer.add(
            {row.t_ns, static_cast<double>(row.t_ns - t0) * 1e-9, row.processed, row.decision});
    }
    AccuracyExplainer explainer;
    int64_t t0 = -1;
};

struct Session {
    std::vector<WhyMessage> messages;
    int final_accuracy = -1;

    WhyMessage find(Kind kind, WhyRule rule) const {  // the first such message, or an empty one
        for (const WhyMessage& m : messages)
            if (m.kind == kind && m.rule == rule) return m;
        return WhyMessage{};
    }
    std::string all() const {
        std::string s;
        for (const WhyMessage& m : messages) s += m.text + "\n";
        return s;
    }
};

Session run(const std::string& script, double field_ut, double mag_noise,
            std::optional<SavedCalibration> restore) {
    sim::Config c;
    c.scenario = sim::Scenario::Scripted;
    c.script = sim::parse_motion_script(script);
    c.duration_s = sim::script_duration(c.script);
    if (field_ut > 0) c.field_ut = field_ut;
    if (mag_noise > 0) c.mag_noise = mag_noise;
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

// A session, how it must end and the message that must say why: the
// stretch at `level`, or the drop from `level`, whose rule is `rule`.
struct Case {
    const char* name;
    std::string script;
    double field_ut, mag_noise;  // 0: the simulator's default
    const SavedCalibration* restore;
    int lowest_final, highest_final;
    Kind kind;
    WhyRule rule;
    int level;
    const char* phrase;          // in that message
    const char* other_phrase;    // in that message too, or ""
    const char* session_phrase;  // in the session line, or ""
};

std::string magnet_waves() {
    std::string script = "hold 1; turn z 360 90; hold 1";
    for (int i = 0; i < 7; ++i) script += "; magnet 200 0.3 up; magnet 0 0.3 up";
    return script + "; hold 2";
}

TEST(WhySessions, EachRuleIsNamedBySessionsThatMeetIt) {
    // The right offset restored at accuracy 0: the radius is the 15 uT field at once.
    const SavedCalibration weak{kStored.offset, 0, 15.0};
    const Case cases[] = {
        {"all round", kCalibrate, 0, 0, nullptr, 3, 3, Kind::Stretch, WhyRule::NoRotation, 0, "",
         "", "accuracy 3 from "},
        {"still", "hold 10", 0, 0, nullptr, 0, 0, Kind::Stretch, WhyRule::NoRotation, 0,
         "accuracy 0 from 0.0 s to the end (10.0 s): no rotation seen yet: turn the device", "",
         ""},
        {"about z alone", "hold 1; turn z 360 90; hold 1; turn z -360 90; hold 4", 0, 0, nullptr, 2,
         2, Kind::Stretch, WhyRule::Coverage, 2,
         "turn the device about its x or y axis; the turn about z is done", "", ""},
        {"noisy field", kTurnsXYZ, 0, 6.0, nullptr, 0, 1, Kind::Stretch, WhyRule::RadiusUnsteady, 0,
         "has not stayed within 6.0 uT", "", ""},
        {"weak field", kTurnsXYZ, 15.0, 0, &weak, 1, 1, Kind::Stretch, WhyRule::WeakField, 1,
         "not more than 20 uT", "", ""},
        {"below the earth range", kCalibrate, 22.0, 0, nullptr, 2, 2, Kind::Stretch,
         WhyRule::RadiusRange, 2, "outside the 25 to 70 uT of an earth field", "", ""},
        {"sphere apart", kTurnsXYZ, 0, 0, nullptr, 2, 2, Kind::Stretch, WhyRule::SphereApart, 2,
         "accuracy 3 needs less than 15 uT", "", ""},
        // A swing drops the evidence, not the accuracy: both axes are wanted again.
        {"magnet waved", magnet_waves(), 0, 0, nullptr, 2, 2, Kind::Stretch, WhyRule::SwingHold, 2,
         "swung by more than 130 uT within a second",
         "at the end: turn the device about two of its axes", ""},
        {"magnet near", kCalibrate + "; magnet 200 3; hold 4", 0, 0, nullptr, 0, 0, Kind::Drop,
         WhyRule::StrongField, 3, "accuracy dropped from 3 to 0 at ", "", "1 drop"},
        {"vertical magnet", kCalibrate + "; magnet 250 3 up; hold 4", 0, 0, nullptr, 0, 0,
         Kind::Drop, WhyRule::RadiusTooLarge, 3, "(over 190 uT)", "", ""},
        // Stored for a 45 uT field; the session's field is 60 uT (more than 10 apart).
        {"restore that does not fit", kCalibrate, 60.0, 0, &kStored, 0, 3, Kind::Drop,
         WhyRule::StartRejected, 3, "from 3 to 0 at 0.0 s", "against the stored 45.0 uT", ""},
    };
    for (const Case& c : cases) {
        const Session s = run(c.script, c.field_ut, c.mag_noise,
                              c.restore ? std::optional(*c.restore) : std::nullopt);
        EXPECT_GE(s.final_accuracy, c.lowest_final) << c.name;
        EXPECT_LE(s.final_accuracy, c.highest_final) << c.name;
        const WhyMessage m = s.find(c.kind, c.rule);
        EXPECT_EQ(c.kind == Kind::Drop ? m.from_accuracy : m.accuracy, c.level) << c.name << "\n"
                                                                                << s.all();
        for (const char* phrase : {c.phrase, c.other_phrase})
            EXPECT_NE(m.text.find(phrase), std::string::npos) << c.name << ": " << phrase;
        EXPECT_NE(s.messages[0].text.find(c.session_phrase), std::string::npos) << c.name;
    }
    // A still device's whole session is summed up by the rule it never met.
    EXPECT_EQ(run("hold 10", 0, 0, std::nullopt).messages[0].rule, WhyRule::NoRotation);
    // The calibration restored where it fits survives: no drop at all.
    const Session kept = run("hold 3", 0, 0, kStored);
    EXPECT_EQ(kept.final_accuracy, 3);
    for (const WhyMessage& m : kept.messages) EXPECT_NE(m.kind, Kind::Drop) << kept.all();
}

}  // namespace
