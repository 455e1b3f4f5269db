// The figures a person looks at after a replay: how many samples the plug-in
// processed, how fast the accuracy rose, what offset it settled on, how round
// the calibrated field is, and, with truth, how far off offset and heading were.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "replay_results.h"

namespace magcal::tool {

// Mean and standard deviation (population) by Welford's update.
class RunningStats {
  public:
    void add(double x);
    size_t count() const { return n_; }
    double mean() const { return mean_; }
    double sd() const;

  private:
    size_t n_ = 0;
    double mean_ = 0.0;
    double m2_ = 0.0;
};

class ReplaySummary {
  public:
    // Offset-error checkpoints, seconds after the first mag sample.
    static constexpr std::array<double, 3> kCheckpoints{10.0, 20.0, 30.0};

    // The soft-iron matrix installed in the plug-in, row-major; the library
    // corrects a raw field as a row vector times it before removing the
    // offset. Identity unless set.
    void set_softiron(const double* matrix);

    void count_sample(int sensor_index);  // 0 acc, 1 gyro, 2 mag
    void add(const ResultRow& row);

    // `final_offset` is the published offset after the last sample [uT].
    void print(std::FILE* out, const std::array<float, 3>& final_offset, bool with_truth) const;

    size_t processed() const { return processed_; }

  private:
    std::array<double, 9> softiron_{1, 0, 0, 0, 1, 0, 0, 0, 1};
    bool softiron_set_ = false;
    std::array<size_t, 3> per_sensor_{};
    size_t processed_ = 0, refused_ = 0;
    bool have_t0_ = false;
    int64_t t0_ns_ = 0;
    double last_t_ = 0.0;  // [s] since the first mag sample
    int last_accuracy_ = 0;
    std::array<double, 4> time_to_accuracy_{-1.0, -1.0, -1.0, -1.0};  // [s], -1 = never
    // |raw|, |raw - published offset| and |library's calibrated output| [uT]
    RunningStats raw_norm_, corrected_norm_, library_norm_;
    std::array<double, 3> error_at_{-1.0, -1.0, -1.0};  // [uT], -1 = no truth yet
    double final_error_ = -1.0;                         // [uT]
    size_t truth_rows_ = 0;
    // From accuracy 3 on, over samples whose +y axis is near horizontal:
    bool accuracy3_seen_ = false;
    size_t level_n_ = 0;
    double fused_heading_sq_ = 0.0;    // sum of squared fused-attitude heading errors [deg^2]
    double azimuth_heading_sq_ = 0.0;  // sum of squared azimuth-output errors [deg^2]
};

}  // namespace magcal::tool
