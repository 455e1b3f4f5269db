// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The conditions below restate the library's accuracy rules from the
// snapshot taken after each sample: run lengths come from the sample period
// exactly as the library derives them, and the offset/sphere gaps and the
// horizontal field are recomputed from the snapshot's offset, sphere centre
// and field. They are read after the sample, so on the one sample where an
// offset recovery restores an older offset the gaps shown are the restored
// ones; the message is about a stretch, not a sample, so that does not move it.
#include "accuracy_why.h"

#include <cmath>

#include "text_fields.h"

namespace magcal::tool {
namespace {

constexpr size_t kRules = 11;
constexpr int32_t kTurnDone = 1000;          // the library's "seen" value of its counters
constexpr double kMaxHorizRadius = 150.0;    // loss test at accuracy >= 1 [uT]
constexpr double kMaxRadius = 190.0;         // loss test at accuracy 3 [uT]
constexpr double kMinRadius2 = 20.0;         // accuracy 2 needs a longer radius [uT]
constexpr double kEarthMin = 25.0;           // accuracy 3 needs an earth-like radius [uT]
constexpr double kEarthMax = 70.0;           // [uT]
constexpr double kSphereAgree2 = 10.0;       // offset/sphere gap for accuracy 2, x and y [uT]
constexpr double kTol[3] = {6.0, 3.5, 3.0};  // steadiness for the step from 0, 1, 2 [uT]
constexpr double kShortStretchS = 0.25;      // shorter stretches get no message [s]

size_t index_of(WhyRule r) {
    return static_cast<size_t>(r);
}

// The trackers' run lengths for the period, as the library derives them.
struct Lengths {
    int32_t len20, len30;
};
Lengths lengths(int32_t period_10ms) {
    const int32_t p = period_10ms;
    if (p >= 2 && p <= 29) return {p >= 21 ? 1 : 20 / p, 30 / p};
    return {20, 30};
}

// Consecutive in-tolerance samples each step needs, and what the tracker has.
int32_t steady_needed(const MagcalDecisionSnapshot& d) {
    const Lengths len = lengths(d.period_10ms);
    if (d.accuracy == 0) return len.len30 / 2;
    if (d.accuracy == 1) return len.len30;
    return 2 * (len.len30 / 3);
}
int32_t steady_have(const MagcalDecisionSnapshot& d) {
    if (d.accuracy == 0) return d.in6;
    if (d.accuracy == 1) return d.in35;
    return d.in3;
}
double seconds_of(int32_t samples, const MagcalDecisionSnapshot& d) {
    const int32_t p = d.period_10ms > 0 ? d.period_10ms : 1;
    return samples * p * 0.01;
}

std::array<double, 3> sphere_gap(const MagcalDecisionSnapshot& d) {
    return {std::fabs(d.offset_est[0] - d.rls_centre[0]),
            std::fabs(d.offset_est[1] - d.rls_centre[1]),
            std::fabs(d.offset_est[2] - d.rls_centre[2])};
}

double horizontal_radius(const MagcalDecisionSnapshot& d) {
    const double hx = d.mag[0] - d.offset_est[0];
    const double hy = d.mag[1] - d.offset_est[1];
    return std::sqrt(hx * hx + hy * hy);
}

int turns_done(const MagcalDecisionSnapshot& d) {
    return (d.turn_cnt_x >= kTurnDone) + (d.turn_cnt_y >= kTurnDone) + (d.turn_cnt_z >= kTurnDone);
}

bool sphere_agrees(const MagcalDecisionSnapshot& d) {
    const std::array<double, 3> gap = sphere_gap(d);
    if (d.accuracy == 1) return d.tilt_turn || (gap[0] < kSphereAgree2 && gap[1] < kSphereAgree2);
    const double th = d.accuracy3_offset_diff_th;
    return gap[0] < th && gap[1] < th && gap[2] < th;
}

// The first condition of the next step that this row does not meet.
WhyRule first_unmet(const MagcalDecisionSnapshot& d) {
    if (d.range_hold > 0) return WhyRule::SwingHold;
    if (horizontal_radius(d) > kMaxHorizRadius) return WhyRule::StrongField;
    if (d.accuracy == 0) {
        if (!d.turn_x && !d.turn_y && d.turn_z == 0) return WhyRule::NoRotation;
    } else if (d.accuracy == 1) {
        if (!(d.radius > kMinRadius2)) return WhyRule::WeakField;
        if (!sphere_agrees(d)) return WhyRule::SphereApart;
    } else {
        const int32_t sum = d.turn_cnt_x + d.turn_cnt_y + d.turn_cnt_z;
        if (!d.all_round || sum < 2 * kTurnDone) return WhyRule::Coverage;
        if (!(d.radius > kEarthMin && d.radius < kEarthMax)) return WhyRule::RadiusRange;
        if (!sphere_agrees(d)) return WhyRule::SphereApart;
    }
    if (steady_have(d) < steady_needed(d)) return WhyRule::RadiusUnsteady;
    return WhyRule::Waiting;
}

std::string and_list(const std::vector<std::string>& items) {
    std::string s;
    for (size_t i = 0; i < items.size(); ++i) {
        if (i > 0) s += i + 1 == items.size() ? " and " : ", ";
        s += items[i];
    }
    return s;
}

std::string coverage_text(const MagcalDecisionSnapshot& d) {
    const char* axis[3] = {"x", "y", "z"};
    const int32_t cnt[3] = {d.turn_cnt_x, d.turn_cnt_y, d.turn_cnt_z};
    std::vector<std::string> missing, done;
    for (int k : {2, 0, 1}) (cnt[k] >= kTurnDone ? done : missing).push_back(axis[k]);
    std::string s;
    if (turns_done(d) >= 1) {
        s = "turn the device about its ";
        for (size_t i = 0; i < missing.size(); ++i) s += (i ? " or " : "") + missing[i];
        s += " axis";
    } else {
        s = "turn the device about two of its axes, one at a time";
    }
    const int faces = d.face_xp + d.face_xn + d.face_yp + d.face_yn;
    std::vector<std::string> seen;
    bool plural = false;
    if (!done.empty()) {
        plural = done.size() > 1;
        seen.push_back((plural ? "the turns about " : "the turn about ") + and_list(done));
    }
    if (faces == 4) {
        // Seven faces (the four and three of them again) count as all round.
        seen.push_back("the four faces");
        plural = true;
        s += " (or tilt it once more towards three of its edges)";
    } else if (faces > 0) {
        std::vector<std::string> f;
        if (d.face_xp) f.push_back("+x");
        if (d.face_xn) f.push_back("-x");
        if (d.face_yp) f.push_back("+y");
        if (d.face_yn) f.push_back("-y");
        plural = plural || faces > 1;
        seen.push_back(std::string(faces > 1 ? "the tilts" : "the tilt") + " towards " +
                       and_list(f));
    }
    if (!seen.empty())
        s += "; " + and_list(seen) + (plural || seen.size() > 1 ? " are done" : " is done");
    return s;
}

std::string sphere_text(const MagcalDecisionSnapshot& d) {
    const std::array<double, 3> gap = sphere_gap(d);
    const int axes = d.accuracy == 1 ? 2 : 3;
    int worst = 0;
    for (int k = 1; k < axes; ++k)
        if (gap[k] > gap[worst]) worst = k;
    const double limit = d.accuracy == 1 ? kSphereAgree2 : d.accuracy3_offset_diff_th;
    std::string s = printed(
        "the offset filter and the sphere fit are %.1f uT apart on %c (accuracy %d needs less "
        "than %.0f uT)",
        gap[worst], "xyz"[worst], d.accuracy + 1, limit);
    if (!d.moving)
        s += ": the sphere fit learns only while the device is judged moving; turn it slowly "
             "through many orientations";
    else
        s += ": keep turning the device slowly through many orientations until they agree";
    return s;
}

std::string describe(WhyRule rule, const MagcalDecisionSnapshot& d) {
    switch (rule) {
        case WhyRule::SwingHold:
            return "the field swung by more than 130 uT within a second (a magnet or iron "
                   "near the device): what was learnt is dropped, and calibration starts again "
                   "0.6 s after the field settles; keep the device away from magnets";
        case WhyRule::StrongField:
            return printed(
                "the horizontal field is %.1f uT, more than the 150 uT any earth field has: a "
                "magnet or iron is near the device; move away from it",
                horizontal_radius(d));
        case WhyRule::NoRotation:
            return "no rotation seen yet: turn the device by 40 degrees or more about any axis";
        case WhyRule::RadiusUnsteady: {
            const int level = d.accuracy < 0 ? 0 : d.accuracy > 2 ? 2 : d.accuracy;
            return printed(
                "the field radius (now %.1f uT) has not stayed within %.1f uT for %.2f s: the "
                "offset estimate is still moving or the field is disturbed; turn the device "
                "slowly and smoothly, away from metal, and pause for a moment",
                d.radius, kTol[level], seconds_of(steady_needed(d), d));
        }
        case WhyRule::WeakField:
            return printed(
                "the field radius is %.1f uT, not more than 20 uT: too weak to trust (a "
                "shielded place, or an offset estimate far off); calibrate away from metal",
                d.radius);
        case WhyRule::SphereApart:
            return sphere_text(d);
        case WhyRule::Coverage:
            return coverage_text(d);
        case WhyRule::RadiusRange:
            return printed(
                "the field radius is %.1f uT, outside the 25 to 70 uT of an earth field: a "
                "magnet or iron nearby, or an offset still off; move away from metal and keep "
                "turning",
                d.radius);
        case WhyRule::Waiting:
            return "everything the next step needs is there; it comes with the next steady "
                   "sample";
        case WhyRule::StartRejected:
        case WhyRule::RadiusTooLarge:
            break;
    }
    return "";
}

std::string seconds(double t) {
    return printed("%.1f s", t);
}

}  // namespace

const char* why_rule_name(WhyRule rule) {
    switch (rule) {
        case WhyRule::SwingHold:
            return "swing-hold";
        case WhyRule::StrongField:
            return "strong-field";
        case WhyRule::NoRotation:
            return "no-rotation";
        case WhyRule::RadiusUnsteady:
            return "radius-unsteady";
        case WhyRule::WeakField:
            return "weak-field";
        case WhyRule::SphereApart:
            return "sphere-apart";
        case WhyRule::Coverage:
            return "coverage";
        case WhyRule::RadiusRange:
            return "radius-range";
        case WhyRule::Waiting:
            return "waiting";
        case WhyRule::StartRejected:
            return "start-rejected";
        case WhyRule::RadiusTooLarge:
            return "radius-too-large";
    }
    return "unknown";
}

AccuracyExplainer::AccuracyExplainer(std::optional<RestoredCalibration> restored)
    : restored_(restored) {
    if (restored_) last_accuracy_ = restored_->accuracy;
}

void AccuracyExplainer::note_drop(const TraceRow& row, int from) {
    const MagcalDecisionSnapshot& d = row.decision;
    WhyMessage m;
    m.kind = WhyMessage::Kind::Drop;
    m.t_begin_s = m.t_end_s = row.t_s;
    m.accuracy = d.accuracy;
    m.from_accuracy = from;
    std::string cause;
    // Only the loss test and a start lower the accuracy; the loss test is
    // the one whose condition the row shows.
    if (from >= 1 && horizontal_radius(d) > kMaxHorizRadius) {
        m.rule = WhyRule::StrongField;
        cause = printed(
            "the horizontal field reached %.1f uT (over 150 uT): a magnet or iron came near; "
            "calibration starts again",
            horizontal_radius(d));
    } else if (from >= 3 && d.radius > kMaxRadius) {
        m.rule = WhyRule::RadiusTooLarge;
        cause = printed(
            "the field radius reached %.1f uT (over 190 uT): a magnet or iron came near; "
            "calibration starts again",
            d.radius);
    } else {
        m.rule = WhyRule::StartRejected;
        cause = "the restored calibration does not fit the field here";
        if (restored_ && restored_->accuracy < 2) {
            cause = printed(
                "a restored accuracy of %d is not kept at a start (2 or 3 is, when "
                "the field fits)",
                restored_->accuracy);
        } else if (restored_) {
            cause +=
                printed(" (radius %.1f uT against the stored %.1f uT", d.radius, restored_->radius);
            cause +=
                printed("; it must lie between 25 and 70 uT and within %.1f uT of the stored one)",
                        d.start_radius_tol);
        }
        cause += ": calibration starts again";
    }
    if (d.range_hold > 0)
        cause += printed(
            "; the field also swung by more than 130 uT within a second: waiting %.1f s "
            "before starting again",
            seconds_of(d.range_hold, d));
    m.text = printed("accuracy dropped from %d to %d at %s: ", from, d.accuracy,
                     seconds(row.t_s).c_str()) +
             cause;
    messages_.push_back(m);
    ++drops_;
}

void AccuracyExplainer::close_stretch(double t_end_s, bool at_end) {
    Stretch& s = stretch_;
    if (s.accuracy < 0 || s.accuracy >= 3) return;
    // A level passed through on the way up, or touched between two drops,
    // says nothing a person could act on.
    if (t_end_s - s.t_begin_s < kShortStretchS && !at_end) return;
    size_t main = index_of(s.last_rule);
    for (size_t r = 0; r < kRules; ++r)
        if (s.held_s[r] > s.held_s[main]) main = r;
    WhyMessage m;
    m.kind = WhyMessage::Kind::Stretch;
    m.t_begin_s = s.t_begin_s;
    m.t_end_s = t_end_s;
    m.accuracy = s.accuracy;
    m.rule = static_cast<WhyRule>(main);
    const std::string span =
        at_end ? "from " + seconds(s.t_begin_s) + " to the end (" + seconds(t_end_s) + ")"
               : "from " + seconds(s.t_begin_s) + " to " + seconds(t_end_s);
    m.text = printed("accuracy %d %s: ", s.accuracy, span.c_str()) +
             describe(*m.rule, s.last_seen[main]);
    // What is missing at the end matters most to someone still waiting.
    const size_t last = index_of(s.last_rule);
    if (at_end && last != main)
        m.text += "; at the end: " + describe(s.last_rule, s.last_seen[last]);
    messages_.push_back(m);
}

void AccuracyExplainer::add(const TraceRow& row) {
    // The first sample after a start seeds the calibration driver without
    // running the fusion (run_state stays 0 or 2): its state is the stored
    // one, not a decision, and the host is shown the driver's seed instead.
    if (!row.processed || row.decision.run_state != 1) return;
    if (row.decision.accuracy < 0 || row.decision.accuracy > 3) return;  // not the library's
    const MagcalDecisionSnapshot& d = row.decision;
    if (!any_) {
        any_ = true;
        first_t_s_ = row.t_s;
    } else if (last_accuracy_ >= 3) {
        time_at3_s_ += row.t_s - last_t_s_;
    }
    const int a = d.accuracy;
    if (a != stretch_.accuracy) {
        close_stretch(row.t_s, false);
        if (a < last_accuracy_) note_drop(row, last_accuracy_);
        stretch_ = Stretch{};
        stretch_.accuracy = a;
        stretch_.t_begin_s = row.t_s;
    } else if (a < 3) {
        stretch_.held_s[index_of(stretch_.last_rule)] += row.t_s - last_t_s_;
    }
    if (a < 3) {
        stretch_.last_rule = first_unmet(d);
        stretch_.last_seen[index_of(stretch_.last_rule)] = d;
    }
    if (first_at_[a] < 0.0) first_at_[a] = row.t_s;
    if (a > highest_) highest_ = a;
    last_accuracy_ = a;
    last_t_s_ = row.t_s;
}

std::vector<WhyMessage> AccuracyExplainer::finish() {
    WhyMessage session;
    session.kind = WhyMessage::Kind::Session;
    if (!any_) {
        session.text =
            "no magnetometer sample was processed (none came after both an accelerometer "
            "and a gyroscope sample, or the library refused them all)";
        messages_.insert(messages_.begin(), session);
        return std::move(messages_);
    }
    const Stretch final_stretch = stretch_;
    close_stretch(last_t_s_, true);
    session.t_begin_s = first_t_s_;
    session.t_end_s = last_t_s_;
    session.accuracy = last_accuracy_;
    const double length = last_t_s_ - first_t_s_;
    std::string text = printed("session of %.1f s: ", length);
    if (first_at_[3] < 0.0) {
        text += printed("accuracy never reached 3 (highest %d", highest_);
        if (highest_ > 0) text += ", first at " + seconds(first_at_[highest_]);
        text += ")";
        session.rule = final_stretch.last_rule;
        text += "; what is missing at the end: " +
                describe(final_stretch.last_rule,
                         final_stretch.last_seen[index_of(final_stretch.last_rule)]);
    } else if (last_accuracy_ == 3 && drops_ == 0) {
        text += "accuracy 3 from " + seconds(first_at_[3]) + " to the end";
    } else {
        text += printed("accuracy 3 first at %s, %.1f s at 3 in all, %d drop%s",
                        seconds(first_at_[3]).c_str(), time_at3_s_, drops_, drops_ == 1 ? "" : "s");
        if (last_accuracy_ < 3) {
            session.rule = final_stretch.last_rule;
            text += printed("; at the end accuracy %d: ", last_accuracy_) +
                    describe(final_stretch.last_rule,
                             final_stretch.last_seen[index_of(final_stretch.last_rule)]);
        }
    }
    session.text = text;
    messages_.insert(messages_.begin(), session);
    return std::move(messages_);
}

std::vector<WhyMessage> explain_accuracy(const std::vector<TraceRow>& rows,
                                         std::optional<RestoredCalibration> restored) {
    AccuracyExplainer explainer(restored);
    for (const TraceRow& r : rows) explainer.add(r);
    return explainer.finish();
}

std::string why_text(const std::vector<WhyMessage>& messages) {
    std::string s = "why:\n";
    for (const WhyMessage& m : messages) s += "  " + m.text + "\n";
    return s;
}

}  // namespace magcal::tool
