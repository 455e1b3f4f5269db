// The per-sample update's three smoothing filters run side by side.
//
// Each filter's sum adds up to 99 history entries one after the other, and
// its order is part of the result, so each sum is a chain of dependent
// additions whose latency, not its arithmetic, sets the time. The three
// chains are independent: run in one loop they overlap, and the update waits
// for the longest instead of for all three. Each chain keeps its own order;
// a shorter chain is padded at its start with -0.0, which leaves any sum as
// it is (x + -0.0 is x for every x, both zeros included). The exported
// filters (average_filter.cpp, pitch_roll_filter.cpp, angle_filter.cpp) run
// the same halves with their own sums; tests/calib/history_ring_test.cpp
// holds both to the same bits. Units as in the filters.
#include <cstring>

#include "calib/calibration_state.h"
#include "calib/smoothing_steps.h"
#include "matrix/row_kernels.h"

namespace magcal {
namespace {

constexpr int32_t kLongest = 99;  // no filter's sum reads more entries

// The `entries` newest entries of a ring of N rows by age (0 the newest),
// then -0.0 up to age `padded`.
template <int N>
void rows_by_age(double out[kLongest][3], const double (&ring)[N][3], int32_t newest,
                 int32_t entries, int32_t padded) {
    const int32_t first_run = entries < N - newest ? entries : N - newest;
    std::memcpy(out, &ring[newest], sizeof(double) * 3 * first_run);
    std::memcpy(out + first_run, ring, sizeof(double) * 3 * (entries - first_run));
    for (int32_t k = entries; k < padded; ++k) out[k][0] = out[k][1] = out[k][2] = -0.0;
}

}  // namespace

void smoothed_outputs(double field[3], const double acc[3], double azimuth, double* pitch,
                      double* roll, double* heading) {
    const UpdateHistory& h = g_update_history;
    FieldAverageStep average;
    const bool averaging = field_average_begin(field, &average);
    if (!averaging) average.entries = 0;
    const TiltStep tilt = tilt_begin();
    AzimuthStep turn;
    const bool smoothing_azimuth = azimuth_begin(azimuth, &turn);
    if (!smoothing_azimuth) turn.entries = 0;

    int32_t longest = average.entries > tilt.entries ? average.entries : tilt.entries;
    if (turn.entries > longest) longest = turn.entries;
    double fields[kLongest][3];
    double accels[kLongest][3];
    double terms[100];
    rows_by_age(fields, h.mag_buf, h.mag_newest, average.entries, longest);
    rows_by_age(accels, h.B_Accel, h.accel_b_newest, tilt.entries, longest);
    int32_t outliers = 0;
    if (smoothing_azimuth) outliers = azimuth_terms(azimuth, turn, terms);
    for (int32_t k = turn.entries; k < longest; ++k) terms[k] = -0.0;

    // Oldest first; x and y of a vector share a register.
    matrix::Pair field_xy = {0.0, 0.0};
    double field_z = 0.0;
    matrix::Pair acc_xy = {acc[0], acc[1]};
    double acc_z = acc[2];
    double turn_sum = turn.start;
    for (int32_t k = longest - 1; k >= 0; --k) {
        field_xy += matrix::load_pair(fields[k]);
        field_z += fields[k][2];
        acc_xy += matrix::load_pair(accels[k]);
        acc_z += accels[k][2];
        turn_sum += terms[k];
    }

    if (averaging) {
        const double sum[3] = {field_xy[0], field_xy[1], field_z};
        field_average_end(field, sum, average);
    }
    const double acc_sum[3] = {acc_xy[0], acc_xy[1], acc_z};
    tilt_end(acc, acc_sum, tilt, pitch, roll);
    *heading = smoothing_azimuth ? azimuth_end(azimuth, turn_sum, outliers, turn) : azimuth;
}

}  // namespace magcal
