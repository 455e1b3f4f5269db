#include "replay_summary.h"

#include <algorithm>
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
    const auto length = [](const float* v) {
        return std::sqrt(static_cast<double>(v[0]) * v[0] + static_cast<double>(v[1]) * v[1] +
                         static_cast<double>(v[2]) * v[2]);
    };
    raw_norm_.add(length(row.raw.data()));
    cal_norm_.add(length(row.result.field));
    if (row.truth == nullptr) return;
    ++truth_rows_;
    for (size_t i = 0; i < kCheckpoints.size(); ++i) {
        if (t <= kCheckpoints[i]) error_at_[i] = row.offset_error;
    }
    final_error_ = row.offset_error;
    if (time_to_accuracy_[3] >= 0.0) {
        heading_errors_.push_back(row.heading_error);
        // Heading is well defined only while the +y axis is far from vertical:
        // the world-z component of body +y is 2 (y z + w x).
        const auto& q = row.truth->q;
        const double y_up = 2.0 * (q[2] * q[3] + q[0] * q[1]);
        if (std::fabs(y_up) < kLevelSine) {
            level_heading_sq_ += row.heading_error * row.heading_error;
            ++level_heading_n_;
        }
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
        std::fprintf(out, "  |field| calibrated mean %.3f uT, sd %.3f uT\n", cal_norm_.mean(),
                     cal_norm_.sd());
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
    if (!heading_errors_.empty()) {
        double sq = 0.0;
        std::vector<double> magnitude;
        for (double e : heading_errors_) {
            sq += e * e;
            magnitude.push_back(std::fabs(e));
        }
        std::nth_element(magnitude.begin(), magnitude.begin() + magnitude.size() / 2,
                         magnitude.end());
        std::fprintf(out,
                     "  heading error      RMS %.2f deg, median |error| %.2f deg, over %zu samples "
                     "from accuracy 3 on\n",
                     std::sqrt(sq / static_cast<double>(heading_errors_.size())),
                     magnitude[magnitude.size() / 2], heading_errors_.size());
        if (level_heading_n_ > 0) {
            std::fprintf(out,
                         "                     RMS %.2f deg over the %zu of them with the +y axis "
                         "within 45 deg of horizontal\n",
                         std::sqrt(level_heading_sq_ / static_cast<double>(level_heading_n_)),
                         level_heading_n_);
        }
    } else {
        std::fputs("  heading error      n/a (accuracy 3 never reached)\n", out);
    }
}

}  // namespace magcal::tool
