// Pitch and roll from the mean accelerometer vector of the last half second.
// Gravity alone is assumed, so the mean direction is "up" in device axes;
// face down (mean z < 0) folds pitch beyond +-90 degrees. Angles [deg].
#include <cmath>

#include "calib/calibration_state.h"
#include "calib/smoothing_steps.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/row_kernels.h"

namespace magcal {
namespace {
constexpr double kPi = 3.141592025756836;  // 3.141592f widened
}

TiltStep tilt_begin() {
    UpdateHistory& h = g_update_history;
    const int32_t window = samples_for(50, period_10ms);  // half a second of samples
    const int32_t n = h.accel_b_cnt >= window ? window : h.accel_b_cnt + 1;
    h.accel_b_cnt = n;
    // With fewer than two the new sample replaces the newest entry.
    return TiltStep{n, n >= 2 ? (n - 1 < 49 ? n - 1 : 49) : 0};
}

void tilt_end(const double acc[3], const double sum[3], const TiltStep& step, double* pitch,
              double* roll) {
    UpdateHistory& h = g_update_history;
    if (step.n >= 2) h.accel_b_newest = ring_slot_before<50>(h.accel_b_newest);
    for (int i = 0; i < 3; ++i) h.B_Accel[h.accel_b_newest][i] = acc[i];

    double mean[3];
    for (int i = 0; i < 3; ++i) mean[i] = sum[i] / step.n;
    const double norm = std::sqrt(mean[0] * mean[0] + mean[1] * mean[1] + mean[2] * mean[2]);

    double p = std::asin(-mean[1] / norm) * 180 / kPi;
    *roll = std::asin(mean[0] / norm) * 180 / kPi;
    if (mean[2] < 0) p = p >= 0 ? 180 - p : -180 - p;
    *pitch = p;
}

}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API void QvGyroCal_update_get_pitch_roll(const double acc[3], double* pitch,
                                                           double* roll) {
    UpdateHistory& h = g_update_history;
    const TiltStep step = tilt_begin();
    // The sum starts with the new sample and adds the entries before it,
    // oldest first. x and y are two independent sums carried in one
    // register, z beside them; held in registers, not in an array, so that
    // no sum waits on memory.
    matrix::Pair xy = {acc[0], acc[1]};
    double z = acc[2];
    ring_visit_oldest_first<50>(h.accel_b_newest, 0, step.entries - 1, [&](int32_t slot) {
        xy += matrix::load_pair(h.B_Accel[slot]);
        z += h.B_Accel[slot][2];
    });
    const double sum[3] = {xy[0], xy[1], z};
    tilt_end(acc, sum, step, pitch, roll);
}
