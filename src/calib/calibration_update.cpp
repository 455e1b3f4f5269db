// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The per-sample update: one magnetometer sample with the latest
// accelerometer and gyroscope samples in, the host's results out.
//
// The sample is validated and timed (the step is clamped to 4 ms..250 ms and
// sets the period in 10 ms), the field is corrected for soft iron as a row
// vector times the matrix, and the fusion driver returns an attitude, an
// offset, an accuracy and a radius. From those come the rotation vector,
// gravity and linear acceleration (g = 9.79f), the published offset with a
// 0.2 uT hysteresis against the offset three samples back, the smoothed
// calibrated field, and heading, pitch and roll. The first sample after a
// start skips the fusion and reports the seeded attitude and offset.
//
// Units: field [uT], acceleration [m/s^2], rate [rad/s], time [s], angles
// [deg]. pi is the truncated single-precision 3.141592 throughout.
#include <cmath>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/vector3.h"

namespace magcal {
namespace {

constexpr double kPi = 3.141592025756836;             // 3.141592f widened
constexpr double kGravity = 9.789999961853027;        // 9.79f widened [m/s^2]
constexpr double kMinStep = 0.004000000189989805;     // 0.004f: shortest step taken [s]
constexpr double kMaxStep = 0.25;                     // longest step taken [s]
constexpr double kMaxField = 4914.0;                  // beyond any magnetometer's range [uT]
constexpr double kPublishStep = 0.20000000298023224;  // 0.2f: smaller moves are not published [uT]
constexpr double kFlippedBank = 120.0;                // beyond this the device is upside down [deg]

bool all_zero(const double v[3]) {
    return v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0;
}

// Publishes the offset only when it moved more than kPublishStep from the one
// three samples back; the calibrated field always uses the new offset.
void publish_offset(CalibrationResult* r, const double offset[3], const double corrected[3]) {
    UpdateHistory& h = g_update_history;
    const double d = distance3(offset, &h.offset_b[6]);
    for (int k = 0; k < 3; ++k) {
        if (d > kPublishStep) {
            r->offset[k] = offset[k];
            h.offset_old[k] = offset[k];
        } else {
            r->offset[k] = h.offset_old[k];
        }
    }
    for (int k = 0; k < 3; ++k) {
        h.offset_b[6 + k] = h.offset_b[3 + k];
        h.offset_b[3 + k] = h.offset_b[k];
        h.offset_b[k] = offset[k];
    }
    for (int k = 0; k < 3; ++k) r->calibrated[k] = corrected[k] - offset[k];
}

}  // namespace
}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API int32_t QvGyroCal_update_offset(CalibrationResult* r, const double mag[3],
                                                      const double acc[3], const double gyro[3],
                                                      double t) {
    GyroCalState& cal = g_gyro_cal;
    if (r == nullptr || all_zero(acc) || all_zero(mag)) return -1;
    if (!(length3(mag) <= kMaxField) || !cal.init_done) return -1;

    double q[4] = {0.0, 0.0, 0.0, 0.0};
    double offset[3] = {0.0, 0.0, 0.0};
    bool first_sample = false;
    if (cal.start_state == 0 || cal.start_state == 2) {
        if (cal.start_state == 2) {
            cal.start_state = 1;
            QvGyroCal_init_start();
        }
        cal.start_state = 1;
        cal.last_time = t;
        copy4(q, g_update_history.g_out_q);
        copy3(offset, cal.cal_offset);
        first_sample = true;
    }

    double dt = first_sample ? 0.0 : std::fabs(t - cal.last_time);
    if (dt < kMinStep)
        dt = kMinStep;
    else if (dt > kMaxStep)
        dt = kMaxStep;
    period_10ms = period_from_step(dt);
    // Never true after the clamp; kept so that a longer step limit would
    // restart the field smoothing as intended.
    if (dt > 0.5) g_update_history.mag_cnt = 0;

    const double* s = softiron;
    double corrected[3];
    for (int i = 0; i < 3; ++i)
        corrected[i] = mag[0] * s[0 * 3 + i] + mag[1] * s[1 * 3 + i] + mag[2] * s[2 * 3 + i];

    if (!first_sample)
        QvGyroCal_update_offset_9_states(q, offset, &cal.cal_accuracy, &cal.cal_radius, corrected,
                                         acc, gyro, dt);
    cal.last_time = t;

    double w = q[0], x = q[1], y = q[2], z = q[3];
    const double yaw = std::atan2(2 * x * y + 2 * w * z, 2 * x * x + 2 * w * w - 1);
    const double tilt = std::asin(2 * w * y - 2 * x * z);
    const double bank = std::atan2(2 * y * z + 2 * w * x, 2 * z * z + 2 * w * w - 1);
    copy4(g_update_history.g_out_q, q);

    r->gravity[0] = (2 * x * z - 2 * w * y) * kGravity;
    r->gravity[1] = (2 * w * x + 2 * y * z) * kGravity;
    r->gravity[2] = (2 * w * w + 2 * z * z - 1) * kGravity;
    for (int k = 0; k < 3; ++k) r->linear_accel[k] = acc[k] - r->gravity[k];

    copy3(cal.cal_offset, offset);
    publish_offset(r, offset, corrected);
    average_filter(r->calibrated);

    if (w < 0) {
        w = -w;
        x = -x;
        y = -y;
        z = -z;
    }
    r->rotation_vector[0] = x;
    r->rotation_vector[1] = y;
    r->rotation_vector[2] = z;
    r->rotation_vector[3] = w;

    const double yaw_deg = yaw * 180 / kPi;
    const double bank_deg = bank * 180 / kPi;
    double azimuth = yaw_deg >= 0 ? 360.0 - yaw_deg : -yaw_deg;
    r->orientation[1] = -bank_deg;
    if (std::fabs(-bank_deg) > kFlippedBank) {
        azimuth += 180;
        if (azimuth >= 360) azimuth -= 360;
    }
    r->orientation[2] = tilt * (-180) / kPi;

    double pitch = 0.0;
    double roll = 0.0;
    QvGyroCal_update_get_pitch_roll(acc, &pitch, &roll);
    r->orientation[1] = pitch;
    r->orientation[2] = roll;
    r->orientation[0] = angle_filter(azimuth);

    r->accuracy = cal.cal_accuracy;
    r->radius = cal.cal_radius;
    return 0;
}
