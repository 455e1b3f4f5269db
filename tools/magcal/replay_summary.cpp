#include "replay_summary.h"

#include <cmath>

namespace magcal::tool {
namespace {

constexpr double kLevelSine = 0.7071067811865476;  // sin 45 deg: "+y near horizontal"

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

void ReplaySummary::set_softiron(const double* matrix) {
    for (size_t i = 0; i < softiron_.size(); ++i) softiron_[i] = matrix[i];
    softiron_set_ = true;
}

void ReplaySummary::count_sample(int sensor_index) {
    ++per_sensor_[sensor_index];
}

void ReplaySummary::add(const ResultRow& row) {
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
    const auto length = [](const double* v) {
        return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    };
    const double raw[3] = {row.raw[0], row.raw[1], row.raw[2]};
    // The library's calibrated output is a moving average and shrinks while
    // the phone turns; the sample corrected with the published offset shows
    // the calibration itself.
    double corrected[3];
    for (int i = 0; i < 3; ++i) {
        corrected[i] = raw[0] * softiron_[i] + raw[1] * softiron_[3 + i] +
                       raw[2] * softiron_[6 + i] - row.result.offset[i];
    }
    const double library[3] = {row.result.field[0], row.result.field[1], row.result.field[2]};
    raw_norm_.add(length(raw));
    corrected_norm_.add(length(corrected));
    library_norm_.add(length(library));
    if (row.truth == nullptr) return;
    ++truth_rows_;
    for (size_t i = 0; i < kCheckpoints.size(); ++i) {
        if (t <= kCheckpoints[i]) error_at_[i] = row.offset_error;
    }
    final_error_ = row.offset_error;
    if (time_to_accuracy_[3] < 0.0) return;
    accuracy3_seen_ = true;
    // Heading is well defined only while the +y axis is far from vertical:
    // the world-z component of body +y is 2 (y z + w x).
    const auto& q = row.truth->q;
    const double y_up = 2.0 * (q[2] * q[3] + q[0] * q[1]);
    if (std::fabs(y_up) < kLevelSine) {
        ++level_n_;
        fused_heading_sq_ += row.fused_heading_error * row.fused_heading_error;
        azimuth_heading_sq_ += row.heading_error * row.heading_error;
    }
}

void ReplaySummary::print(std::FILE* out, const std::array<float, 3>& final_offset,
                          bool with_truth) const {
    std::fprintf(out, "  samples            %zu acc, %zu gyro, %zu mag\n", per_sensor_[0],
                 per_sensor_[1], per_sensor_[2]);
    std::fprintf(out, "  mag processed      %zu, refused %zu\n", processed_, refused_);
    std::fputs("  time to accuracy  ", out);
    for (int level = 1; level <= 3; ++level) {
        if (time_to_accuracy_[level] >= 0.0) {
            std::fprintf(out, " %d: %.2f s%s", level, time_to_accuracy_[level],
                         level < 3 ? "," : "");
        } else {
            std::fprintf(out, " %d: never%s", level, level < 3 ? "," : "");
        }
    }
    std::fputc('\n', out);
    std::fprintf(out, "  final offset       %.3f %.3f %.3f uT (accuracy %d)\n",
                 static_cast<double>(final_offset[0]), static_cast<double>(final_offset[1]),
                 static_cast<double>(final_offset[2]), last_accuracy_);
    if (processed_ > 0) {
        std::fprintf(out, "  |field| raw        mean %.3f uT, sd %.3f uT\n", raw_norm_.mean(),
                     raw_norm_.sd());
        std::fprintf(out,
                     "  |field| calibrated mean %.3f uT, sd %.3f uT (%sraw - published offset, per "
                     "sample)\n",
                     corrected_norm_.mean(), corrected_norm_.sd(),
                     softiron_set_ ? "soft-iron-corrected " : "");
        std::fprintf(out,
                     "                     mean %.3f uT, sd %.3f uT (library output, 0.8 s "
                     "average)\n",
                     library_norm_.mean(), library_norm_.sd());
    }
    if (!with_truth) return;
    if (truth_rows_ == 0) {
        std::fputs("  truth              no truth row matches a processed mag sample\n", out);
        return;
    }
    std::fputs("  offset error      ", out);
    for (size_t i = 0; i < kCheckpoints.size(); ++i) {
        if (error_at_[i] >= 0.0 && last_t_ >= kCheckpoints[i]) {
            std::fprintf(out, " %.0f s: %.3f uT,", kCheckpoints[i], error_at_[i]);
        } else {
            std::fprintf(out, " %.0f s: n/a,", kCheckpoints[i]);
        }
    }
    std::fprintf(out, " final: %.3f uT\n", final_error_);
    if (!accuracy3_seen_) {
        std::fputs("  heading error      n/a (accuracy 3 never reached)\n", out);
    } else if (level_n_ == 0) {
        std::fputs(
            "  heading error      n/a (no sample from accuracy 3 on with +y within 45 deg of "
            "horizontal)\n",
            out);
    } else {
        const double n = static_cast<double>(level_n_);
        std::fprintf(out,
                     "  heading error of the fused attitude: RMS %.2f deg (over %zu samples with "
                     "+y within 45 deg of horizontal)\n",
                     std::sqrt(fused_heading_sq_ / n), level_n_);
        std::fprintf(out,
                     "  azimuth output error:                RMS %.2f deg (includes its 1 s "
                     "smoothing)\n",
                     std::sqrt(azimuth_heading_sq_ / n));
    }
}

}  // namespace magcal::tool
