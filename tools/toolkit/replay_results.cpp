// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Results are printed as %.9g would print them (floats, exact on reading
// back) and %.17g (the double-precision truth comparisons), but through
// std::to_chars into one line buffer: printf was most of the cost of
// writing a 10-hour session's 1.8 million rows.
#include "replay_results.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace magcal::tool {
namespace {

class Line {
  public:
    void number(double v, int precision) {
        *end_++ = ',';
        end_ =
            std::to_chars(end_, buf_ + sizeof buf_, v, std::chars_format::general, precision).ptr;
    }
    void floats(const float* v) {
        for (int k = 0; k < 3; ++k) number(static_cast<double>(v[k]), 9);
    }
    void integer(int64_t v, bool comma = true) {
        if (comma) *end_++ = ',';
        end_ = std::to_chars(end_, buf_ + sizeof buf_, v).ptr;
    }
    void text(const char* t) {
        while (*t != '\0') *end_++ = *t++;
    }
    void write(std::FILE* out) {
        *end_++ = '\n';
        std::fwrite(buf_, 1, static_cast<size_t>(end_ - buf_), out);
    }

  private:
    // 34 numbers of at most 24 characters each, and 7 more with truth.
    char buf_[1536];
    char* end_ = buf_;
};

}  // namespace

void write_result_header(std::FILE* out, bool with_truth) {
    std::fputs(
        "t_ns,mag_x,mag_y,mag_z,cal_x,cal_y,cal_z,offset_x,offset_y,offset_z,accuracy,"
        "rv_x,rv_y,rv_z,azimuth,pitch,roll,gravity_x,gravity_y,gravity_z,"
        "linacc_x,linacc_y,linacc_z,game_rv_x,game_rv_y,game_rv_z,"
        "geomag_x,geomag_y,geomag_z,vgyro_x,vgyro_y,vgyro_z,processed,fused_heading",
        out);
    if (with_truth) {
        std::fputs(
            ",truth_offset_x,truth_offset_y,truth_offset_z,truth_heading,"
            "offset_error,heading_error,fused_heading_err",
            out);
    }
    std::fputc('\n', out);
}

void write_result_row(std::FILE* out, const ResultRow& r, bool with_truth) {
    Line line;
    line.integer(r.t_ns, false);
    line.floats(r.raw.data());
    line.floats(r.result.field);
    line.floats(r.result.offset);
    line.integer(r.result.accuracy);
    line.floats(r.rotation_vector.values);
    line.floats(r.orientation.values);
    line.floats(r.gravity.values);
    line.floats(r.linear_accel.values);
    line.floats(r.game_rotation.values);
    line.floats(r.geomagnetic.values);
    line.floats(r.virtual_gyro.values);
    line.integer(r.processed ? 1 : 0);
    line.number(r.fused_heading, 17);
    if (with_truth) {
        if (r.truth != nullptr) {
            for (double v :
                 {r.truth->offset[0], r.truth->offset[1], r.truth->offset[2], r.truth->heading_deg,
                  r.offset_error, r.heading_error, r.fused_heading_error}) {
                line.number(v, 17);
            }
        } else {
            line.text(",,,,,,,");
        }
    }
    line.write(out);
}

double heading_of_rotation_vector(const float* rotation_vector) {
    const double x = rotation_vector[0], y = rotation_vector[1], z = rotation_vector[2];
    const double w = std::sqrt(std::max(0.0, 1.0 - x * x - y * y - z * z));
    // World east and north components of the rotated +y axis: the second
    // column of the rotation matrix.
    const double east = 2.0 * (x * y - w * z);
    const double north = 1.0 - 2.0 * (x * x + z * z);
    double heading = std::atan2(east, north) * (180.0 / 3.141592653589793);
    if (heading < 0.0) heading += 360.0;
    if (heading >= 360.0) heading -= 360.0;  // a tiny negative angle rounds up to 360
    return heading;
}

double circular_difference_deg(double a, double b) {
    double d = std::fmod(a - b, 360.0);
    if (d > 180.0) d -= 360.0;
    if (d <= -180.0) d += 360.0;
    return d;
}

}  // namespace magcal::tool
