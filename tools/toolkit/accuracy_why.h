// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Why the accuracy is what it is, in plain words, from a decision trace.
//
// The library raises its accuracy one step at a time when named evidence is
// there, and lowers it only through its loss test (a field too strong to be
// the earth's) or at a start that rejects a restored calibration. For every
// processed sample below accuracy 3 the explainer finds the first condition
// of the next step that is not met (in the order a person can act on:
// hold-offs and strong fields, then motion, then field strength, then the
// two estimators agreeing, then steadiness), and for every stretch of one
// accuracy below 3 it says which condition held it back longest and what
// would move it. Each drop gets its own message. Times are seconds from the
// first magnetometer sample. Samples the library refused, and the seeding
// sample after a start (the fusion does not run on it), are left out. Memory does not grow with the session: a
// 10-hour replay streams through it.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "decision_trace.h"

namespace magcal::tool {

// What can hold the accuracy back, and the drops. The names are stable: the
// tests and the Python package match on them.
enum class WhyRule {
    SwingHold,       // "swing-hold": a >130 uT swing within a second; 0.6 s wait
    StrongField,     // "strong-field": horizontal field > 150 uT (the loss test)
    NoRotation,      // "no-rotation": no turn of the device seen yet (0 -> 1)
    RadiusUnsteady,  // "radius-unsteady": the radius left the tracker's tolerance
    WeakField,       // "weak-field": radius 20 uT or less (1 -> 2)
    SphereApart,     // "sphere-apart": offset filter and sphere fit disagree
    Coverage,        // "coverage": not turned about enough axes (2 -> 3)
    RadiusRange,     // "radius-range": radius outside 25..70 uT (2 -> 3)
    Waiting,         // "waiting": everything is there; the next steady sample raises it
    StartRejected,   // "start-rejected": the restored calibration did not fit
    RadiusTooLarge,  // "radius-too-large": radius > 190 uT at accuracy 3
};

const char* why_rule_name(WhyRule rule);

struct WhyMessage {
    enum class Kind { Session, Stretch, Drop };
    Kind kind = Kind::Session;
    double t_begin_s = 0.0;  // [s] since the first mag sample
    double t_end_s = 0.0;    // [s]; a drop: its instant
    int accuracy = 0;        // the stretch's accuracy, the level dropped to, or the session's last
    int from_accuracy = 0;   // a drop: the level before it
    std::optional<WhyRule> rule;  // what held back (stretch), caused (drop) or is missing (session)
    std::string text;             // one line, no line break
};

// A calibration pushed back before the first sample, as the replay does.
struct RestoredCalibration {
    int accuracy = 0;
    double radius = 0.0;  // [uT]
};

class AccuracyExplainer {
  public:
    explicit AccuracyExplainer(std::optional<RestoredCalibration> restored = std::nullopt);

    void add(const TraceRow& row);
    // The session message first, then stretches and drops in time order.
    std::vector<WhyMessage> finish();

  private:
    struct Stretch {
        int accuracy = -1;
        double t_begin_s = 0.0;
        std::array<double, 11> held_s{};  // time each rule was the first unmet one [s]
        std::array<MagcalDecisionSnapshot, 11> last_seen{};  // the row it was last seen on
        WhyRule last_rule = WhyRule::Waiting;
    };
    void close_stretch(double t_end_s, bool at_end);
    void note_drop(const TraceRow& row, int from);

    std::optional<RestoredCalibration> restored_;
    std::vector<WhyMessage> messages_;
    Stretch stretch_;
    bool any_ = false;
    int last_accuracy_ = 0;
    double last_t_s_ = 0.0;
    double first_t_s_ = 0.0;
    int highest_ = 0;
    std::array<double, 4> first_at_{-1.0, -1.0, -1.0, -1.0};  // first time at each level [s]
    double time_at3_s_ = 0.0;
    int drops_ = 0;
};

// The messages of a whole trace.
std::vector<WhyMessage> explain_accuracy(
    const std::vector<TraceRow>& rows, std::optional<RestoredCalibration> restored = std::nullopt);

// "why:" followed by one indented line per message.
std::string why_text(const std::vector<WhyMessage>& messages);

}  // namespace magcal::tool
