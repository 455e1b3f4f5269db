// Results are printed with %.9g (floats, exact on reading back) and %.17g
// (the double-precision truth comparisons).
#include "replay_results.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>

namespace magcal::tool {
namespace {

void put3(std::FILE* out, const float* v) {
    std::fprintf(out, ",%.9g,%.9g,%.9g", static_cast<double>(v[0]), static_cast<double>(v[1]),
                 static_cast<double>(v[2]));
}

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
    std::fprintf(out, "%" PRId64, r.t_ns);
    put3(out, r.raw.data());
    put3(out, r.result.field);
    put3(out, r.result.offset);
    std::fprintf(out, ",%d", static_cast<int>(r.result.accuracy));
    put3(out, r.rotation_vector.values);
    put3(out, r.orientation.values);
    put3(out, r.gravity.values);
    put3(out, r.linear_accel.values);
    put3(out, r.game_rotation.values);
    put3(out, r.geomagnetic.values);
    put3(out, r.virtual_gyro.values);
    std::fprintf(out, ",%d,%.17g", r.processed ? 1 : 0, r.fused_heading);
    if (with_truth) {
        if (r.truth != nullptr) {
            std::fprintf(out, ",%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g", r.truth->offset[0],
                         r.truth->offset[1], r.truth->offset[2], r.truth->heading_deg,
                         r.offset_error, r.heading_error, r.fused_heading_error);
        } else {
            std::fputs(",,,,,,,", out);
        }
    }
    std::fputc('\n', out);
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
