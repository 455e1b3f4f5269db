// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The figures a person looks at after a replay: what went in and what the
// input checks found, which soft-iron matrix was in force, how many samples
// the plug-in processed, how fast the accuracy rose after the motion began,
// what offset it settled on, how round the calibrated field is, and, with
// truth, how far off offset, heading and tilt were.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "log_checks.h"
#include "replay_engine.h"
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

// Root mean square of the finite values added.
class RmsError {
  public:
    void add(double x) {
        if (x - x != 0.0) return;  // NaN or infinite: counted elsewhere
        ++n_;
        sum_sq_ += x * x;
    }
    size_t count() const { return n_; }
    double rms() const;

  private:
    size_t n_ = 0;
    double sum_sq_ = 0.0;
};

class ReplaySummary : public RowSink {
  public:
    // Offset-error checkpoints, seconds after the first mag sample.
    static constexpr std::array<double, 3> kCheckpoints{10.0, 20.0, 30.0};
    // |gyro| from which the device counts as moving: the library's own
    // motion threshold (0.1 rad/s).
    static constexpr double kMotionRate = 0.1;  // [rad/s]

    void set_input(const CheckReport& checks) { checks_ = checks; }
    // The soft-iron matrix in force; the library corrects a raw field as a
    // row vector times it before removing the offset.
    void set_softiron(const SoftironInForce& softiron) { softiron_ = softiron; }

    void on_row(const ResultRow& row) override;

    // The summary lines; `final_offset` is the published offset after the
    // last sample [uT].
    std::string text(const std::array<float, 3>& final_offset, bool with_truth) const;

    size_t processed() const { return processed_; }

  private:
    void add_truth(const ResultRow& row, double t);
    std::string softiron_line() const;
    std::string accuracy_line() const;
    std::string truth_lines() const;

    CheckReport checks_;
    SoftironInForce softiron_;
    size_t processed_ = 0, refused_ = 0;
    bool have_t0_ = false;
    int64_t t0_ns_ = 0;
    double last_t_ = 0.0;     // [s] since the first mag sample
    double motion_t_ = -1.0;  // [s] of the first processed sample with |gyro| >= kMotionRate
    int last_accuracy_ = 0;
    std::array<double, 4> time_to_accuracy_{-1.0, -1.0, -1.0, -1.0};  // [s], -1 = never
    size_t nonfinite_rows_ = 0;  // rows with a NaN or infinite fusion output
    double nonfinite_t_ = -1.0;  // [s] of the first
    // |raw|, |raw - published offset| and |library's calibrated output| [uT]
    RunningStats raw_norm_, corrected_norm_, library_norm_;
    std::array<double, 3> error_at_{-1.0, -1.0, -1.0};  // [uT], -1 = no truth yet
    double final_error_ = -1.0;                         // [uT]
    size_t truth_rows_ = 0;
    // Over samples whose +y axis is near horizontal, from accuracy 3 on and
    // over the whole session [deg]:
    RmsError fused_heading_, azimuth_heading_, fused_heading_all_, azimuth_heading_all_;
    // Angle between the true and the fused vertical [deg], before accuracy 3
    // (the attitude is the gyroscope's alone) and from it on.
    struct TiltError {
        RmsError rms;
        double max = 0.0;   // [deg]
        double last = 0.0;  // [deg]
    };
    std::array<TiltError, 2> tilt_;
};

}  // namespace magcal::tool
