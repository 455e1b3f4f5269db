// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "replay_summary.h"

#include <cmath>
#include <cstdio>

#include "text_fields.h"

namespace magcal::tool {
namespace {

constexpr double kLevelSine = 0.7071067811865476;   // sin 45 deg: "+y near horizontal"
constexpr double kDeg = 180.0 / 3.141592653589793;  // degrees per radian

double length(const double* v) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

bool all_finite(const FusionOutput& o) {
    return std::isfinite(o.values[0]) && std::isfinite(o.values[1]) && std::isfinite(o.values[2]);
}

// World up (z) in body coordinates for the unit quaternion (w, x, y, z)
// rotating body into world: the third row of the rotation matrix.
std::array<double, 3> body_up(double w, double x, double y, double z) {
    return {2.0 * (x * z - w * y), 2.0 * (y * z + w * x), 1.0 - 2.0 * (x * x + y * y)};
}

}  // namespace

void RunningStats::add(double x) {
    ++n_;
    const double d = x - mean_;
    mean_ += d / static_cast<double>(n_);
    m2_ += d * (x - mean_);
}

double RunningStats::sd() const {
    return n_ > 0 ? std::sqrt(m2_ / static_cast<double>(n_)) : 0.0;
}

double RmsError::rms() const {
    return n_ > 0 ? std::sqrt(sum_sq_ / static_cast<double>(n_)) : 0.0;
}

void ReplaySummary::on_row(const ResultRow& row) {
    if (!have_t0_) {
        have_t0_ = true;
        t0_ns_ = row.t_ns;
    }
    const double t = static_cast<double>(row.t_ns - t0_ns_) * 1e-9;
    last_t_ = t;
    const int accuracy = row.result.accuracy;
    last_accuracy_ = accuracy;
    for (int level = 1; level <= 3; ++level) {
        if (accuracy >= level && time_to_accuracy_[level] < 0.0) time_to_accuracy_[level] = t;
    }
    if (!row.processed) {
        ++refused_;
        return;
    }
    ++processed_;
    if (!all_finite(row.rotation_vector) || !all_finite(row.orientation) ||
        !all_finite(row.gravity) || !all_finite(row.linear_accel)) {
        if (nonfinite_rows_++ == 0) nonfinite_t_ = t;
    }
    const float* g = row.virtual_gyro.values;
    if (motion_t_ < 0.0 &&
        std::sqrt(double{g[0]} * g[0] + double{g[1]} * g[1] + double{g[2]} * g[2]) >= kMotionRate) {
        motion_t_ = t;
    }
    const double raw[3] = {row.raw[0], row.raw[1], row.raw[2]};
    // The library's calibrated output is a moving average and shrinks while
    // the phone turns; the sample corrected with the published offset shows
    // the calibration itself.
    const std::array<double, 9>& s = softiron_.matrix;
    double corrected[3];
    for (int i = 0; i < 3; ++i) {
        corrected[i] = raw[0] * s[i] + raw[1] * s[3 + i] + raw[2] * s[6 + i] - row.result.offset[i];
    }
    const double library[3] = {row.result.field[0], row.result.field[1], row.result.field[2]};
    raw_norm_.add(length(raw));
    corrected_norm_.add(length(corrected));
    library_norm_.add(length(library));
    if (row.truth != nullptr) add_truth(row, t);
}

void ReplaySummary::add_truth(const ResultRow& row, double t) {
    ++truth_rows_;
    for (size_t i = 0; i < kCheckpoints.size(); ++i) {
        if (t <= kCheckpoints[i]) error_at_[i] = row.offset_error;
    }
    final_error_ = row.offset_error;
    const auto& q = row.truth->q;
    const float* rv = row.rotation_vector.values;
    const double x = rv[0], y = rv[1], z = rv[2];
    const double w = std::sqrt(std::fmax(0.0, 1.0 - x * x - y * y - z * z));
    const std::array<double, 3> fused = body_up(w, x, y, z);
    const std::array<double, 3> truth = body_up(q[0], q[1], q[2], q[3]);
    const double cross[3] = {fused[1] * truth[2] - fused[2] * truth[1],
                             fused[2] * truth[0] - fused[0] * truth[2],
                             fused[0] * truth[1] - fused[1] * truth[0]};
    const double dot = fused[0] * truth[0] + fused[1] * truth[1] + fused[2] * truth[2];
    const double tilt = std::atan2(length(cross), dot) * kDeg;
    TiltError& tilt_error = tilt_[time_to_accuracy_[3] >= 0.0 ? 1 : 0];
    tilt_error.rms.add(tilt);
    tilt_error.max = std::fmax(tilt_error.max, tilt);
    tilt_error.last = tilt;
    // Heading is well defined only while the +y axis is far from vertical:
    // the world-z component of body +y is 2 (y z + w x).
    const double y_up = 2.0 * (q[2] * q[3] + q[0] * q[1]);
    if (std::fabs(y_up) >= kLevelSine) return;
    fused_heading_all_.add(row.fused_heading_error);
    azimuth_heading_all_.add(row.heading_error);
    if (time_to_accuracy_[3] < 0.0) return;
    fused_heading_.add(row.fused_heading_error);
    azimuth_heading_.add(row.heading_error);
}

std::string ReplaySummary::softiron_line() const {
    std::string m;
    for (int i = 0; i < 9; ++i) {
        m += printed("%s%.9g", i == 0 ? "" : i % 3 == 0 ? "; " : " ", softiron_.matrix[i]);
    }
    switch (softiron_.source) {
        case SoftironInForce::Source::GivenFile:
            return "  soft-iron          " + m + " (from " + softiron_.path + ")\n";
        case SoftironInForce::Source::PluginFile:
            return "  soft-iron          " + m + " (the plug-in's own parameter file)\n";
        case SoftironInForce::Source::Identity:
            break;
    }
    return "  soft-iron          identity: the plug-in found no valid parameter file, so the "
           "field is not corrected for soft iron\n";
}

std::string ReplaySummary::accuracy_line() const {
    std::string line = "  time to accuracy  ";
    for (int level = 1; level <= 3; ++level) {
        const char* sep = level < 3 ? "," : "";
        line += time_to_accuracy_[level] >= 0.0
                    ? printed(" %d: %.2f s%s", level, time_to_accuracy_[level], sep)
                    : printed(" %d: never%s", level, sep);
    }
    if (motion_t_ < 0.0) return line + " (the device never turned)\n";
    const double t3 = time_to_accuracy_[3];
    if (t3 >= motion_t_) {
        return line +
               printed(" (%.2f s after the motion began at %.2f s)\n", t3 - motion_t_, motion_t_);
    }
    return line + printed(" (motion began at %.2f s)\n", motion_t_);
}

std::string ReplaySummary::text(const std::array<float, 3>& final_offset, bool with_truth) const {
    const auto& n = checks_.per_sensor;
    std::string out =
        printed("  samples            %zu acc, %zu gyro, %zu mag\n", n[0], n[1], n[2]);
    if (checks_.findings.empty()) {
        out += "  input checks       no warnings\n";
    } else {
        out += printed("  input checks       %zu warning%s:", checks_.findings.size(),
                       checks_.findings.size() == 1 ? "" : "s");
        for (size_t i = 0; i < checks_.findings.size(); ++i) {
            const CheckFinding& f = checks_.findings[i];
            out += printed("%s %s (%zu line%s)", i == 0 ? "" : ",", check_kind_name(f.kind),
                           f.count, f.count == 1 ? "" : "s");
        }
        out += "; see above\n";
    }
    out += softiron_line();
    out += printed("  mag processed      %zu, refused %zu\n", processed_, refused_);
    out += accuracy_line();
    out += printed("  final offset       %.3f %.3f %.3f uT (accuracy %d)\n",
                   static_cast<double>(final_offset[0]), static_cast<double>(final_offset[1]),
                   static_cast<double>(final_offset[2]), last_accuracy_);
    if (nonfinite_rows_ > 0) {
        out += printed(
            "  non-finite outputs %zu processed samples from %.2f s on: NaN or infinite gravity, "
            "rotation vector, orientation or linear acceleration\n",
            nonfinite_rows_, nonfinite_t_);
    }
    if (processed_ > 0) {
        out += printed("  |field| raw        mean %.3f uT, sd %.3f uT\n", raw_norm_.mean(),
                       raw_norm_.sd());
        out += printed(
            "  |field| calibrated mean %.3f uT, sd %.3f uT (%sraw - published offset, per "
            "sample)\n",
            corrected_norm_.mean(), corrected_norm_.sd(),
            softiron_.source == SoftironInForce::Source::Identity ? "" : "soft-iron-corrected ");
        out += printed(
            "                     mean %.3f uT, sd %.3f uT (library output, 0.8 s average)\n",
            library_norm_.mean(), library_norm_.sd());
    }
    if (with_truth) out += truth_lines();
    return out;
}

std::string ReplaySummary::truth_lines() const {
    if (truth_rows_ == 0)
        return "  truth              no truth row matches a processed mag sample\n";
    std::string out = "  offset error      ";
    for (size_t i = 0; i < kCheckpoints.size(); ++i) {
        out += error_at_[i] >= 0.0 && last_t_ >= kCheckpoints[i]
                   ? printed(" %.0f s: %.3f uT,", kCheckpoints[i], error_at_[i])
                   : printed(" %.0f s: n/a,", kCheckpoints[i]);
    }
    out += printed(" final: %.3f uT\n", final_error_);
    const bool reached = time_to_accuracy_[3] >= 0.0;
    const RmsError& fused = reached ? fused_heading_ : fused_heading_all_;
    const RmsError& azimuth = reached ? azimuth_heading_ : azimuth_heading_all_;
    if (fused.count() == 0) {
        out +=
            "  heading error      n/a (no processed sample with +y within 45 deg of "
            "horizontal" +
            std::string(reached ? " from accuracy 3 on)\n" : ")\n");
    } else {
        const char* span =
            reached ? "from accuracy 3 on" : "whole session, accuracy 3 never reached";
        out += printed(
            "  heading error of the fused attitude: RMS %.2f deg (%s, over %zu samples with +y "
            "within 45 deg of horizontal)\n",
            fused.rms(), span, fused.count());
        out += printed(
            "  azimuth output error:                RMS %.2f deg (includes its 1 s smoothing)\n",
            azimuth.rms());
    }
    // The attitude comes from the gyroscope alone until calibration is
    // confirmed, so its tilt is judged apart before and after.
    const TiltError &before = tilt_[0], &after = tilt_[1];
    if (after.rms.count() > 0) {
        out += printed(
            "  tilt error of the fused attitude: RMS %.2f deg, max %.2f deg from accuracy 3 on",
            after.rms.rms(), after.max);
        out += before.rms.count() > 0
                   ? printed("; before (gyroscope alone): max %.2f deg, last %.2f deg\n",
                             before.max, before.last)
                   : "\n";
    } else if (before.rms.count() > 0) {
        out += printed(
            "  tilt error of the fused attitude: RMS %.2f deg, max %.2f deg, final %.2f deg "
            "(accuracy 3 never reached: the gyroscope alone)\n",
            before.rms.rms(), before.max, before.last);
    }
    return out;
}

}  // namespace magcal::tool
