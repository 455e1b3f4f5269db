// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Gyro-aided Kalman filter of the magnetometer's hard-iron offset.
//
// The Earth's field is fixed in the world, so between two samples the field
// seen by the device turns by the inverse of the device's own rotation, which
// the gyroscope measures; the offset b is attached to the device and does not
// turn. With m the raw reading (field plus offset) and R the rotation that
// carries the field from the previous attitude into the current one:
//
//     m' = R.(m - b) + b = R.m + (I3 - R).b,      b' = b,      z = m.
//
// The state is [m; b] (6x1, [uT]); only m is measured, b is observable
// through the model as soon as the device turns. Units: field [uT], angular
// rate [rad/s], time step [s].
//
// R comes from the half angle h = |w|.dt/2 of the gyroscope sample
// (offset/rotation_over_step.h).
//
// Results are reproduced bit for bit, so every product of the plain step runs
// through the 6x6 matrix operations in the order the step is written, each
// into a named destination; offset_kalman_step_fast.cpp computes the same
// bits from the structure of F, H, Q and R. The filter has no gate, no
// counter and no check; which samples it sees is the driver's decision.
#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "matrix/fast_path.h"
#include "matrix/matrix_ops.h"
#include "offset/offset_kalman_state.h"
#include "offset/offset_kalman_step.h"
#include "offset/rotation_over_step.h"

namespace mx = magcal::matrix;

namespace magcal::offset {

OffsetKalmanState g_offset_kalman;

namespace {

constexpr double kInitReadingVar = 0.001;  // trust the seeded reading: it is a measurement
constexpr double kInitOffsetVar = 1.0;     // the offset is what is unknown
constexpr double kNoiseDensity = 0.01;     // lets reading and offset drift slowly
constexpr double kMeasurementVar = 0.1;    // magnetometer noise

// Copies the leading 3x3 block of `block` into dst at (row0, col0).
void place_block(Matrix6* dst, const Matrix6& block, int row0, int col0) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) dst->data[row0 + i][col0 + j] = block.data[i][j];
}

// Block-diagonal 6x6 with upper * I3 and lower * I3, built through two 3x3
// scaled identities in the first two work matrices.
void set_block_diagonal(Matrix6* dst, double upper, double lower) {
    auto& st = g_offset_kalman;
    mx::assign(dst, 6, 6, 0.0);
    mx::eye_muls(&st.work_a, 3, upper);
    mx::eye_muls(&st.work_b, 3, lower);
    place_block(dst, st.work_a, 0, 0);
    place_block(dst, st.work_b, 3, 3);
}

void copy_elements(Matrix6* dst, const Matrix6& src) {
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) dst->data[i][j] = src.data[i][j];
}

}  // namespace

}  // namespace magcal::offset

namespace off = magcal::offset;
using off::g_offset_kalman;

extern "C" {

MAGCAL_API void func_Offset_Calibration_KF_init(const double prior_offset[3]) {
    auto& st = g_offset_kalman;
    mx::assign(&st.kf_xf, 6, 1, 30.0);
    // Exact comparison: an all-zero prior keeps the 30.0 start, and a NaN
    // component counts as non-zero.
    if (prior_offset != nullptr &&
        (prior_offset[0] != 0.0 || prior_offset[1] != 0.0 || prior_offset[2] != 0.0)) {
        for (int i = 0; i < 3; ++i) st.kf_xf.data[3 + i][0] = prior_offset[i];
    }
    off::set_block_diagonal(&st.kf_Pf, off::kInitReadingVar, off::kInitOffsetVar);
    off::set_block_diagonal(&st.kf_Pf0, off::kInitReadingVar, off::kInitOffsetVar);
    off::set_block_diagonal(&st.kf_Qf, off::kNoiseDensity, off::kNoiseDensity);
    off::set_block_diagonal(&st.kf_Qf0, off::kNoiseDensity, off::kNoiseDensity);
    mx::eye_muls(&st.kf_Rf, 3, off::kMeasurementVar);
}

// Back to the initial covariance and noise density; the state and the shapes
// stay as they are.
MAGCAL_API void func_Offset_Calibration_KF_reset(void) {
    auto& st = g_offset_kalman;
    off::copy_elements(&st.kf_Pf, st.kf_Pf0);
    off::copy_elements(&st.kf_Qf, st.kf_Qf0);
}

MAGCAL_API void func_Offset_Calibration_KF_update_xf(int32_t set_reading, const double reading[3],
                                                     int32_t set_offset, const double offset[3]) {
    auto& st = g_offset_kalman;
    if (set_reading != 0 && reading != nullptr)
        for (int i = 0; i < 3; ++i) st.kf_xf.data[i][0] = reading[i];
    if (set_offset != 0 && offset != nullptr)
        for (int i = 0; i < 3; ++i) st.kf_xf.data[3 + i][0] = offset[i];
}

}  // extern "C"

void magcal::offset::offset_kalman_step_plain(const double mag[3], const double gyro[3],
                                              double dt) {
    auto& st = g_offset_kalman;

    double r[3][3];
    rotation_over_step(r, gyro, dt);
    Matrix6 rot;
    mx::assign(&rot, 3, 3, 0.0);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) rot.data[i][j] = r[i][j];

    // F = [R, I3 - R; 0, I3].
    Matrix6 eye3;
    mx::eye(&eye3, 3);
    Matrix6 transition;
    mx::assign(&transition, 6, 6, 0.0);
    mx::subm(&st.work_a, eye3, rot);
    off::place_block(&transition, rot, 0, 0);
    off::place_block(&transition, st.work_a, 0, 3);
    off::place_block(&transition, eye3, 3, 3);

    // Predicted state.
    mx::mulm(&st.work_a, transition, st.kf_xf);
    mx::muls(&st.kf_xf, st.work_a, 1.0);

    // H = [I3, 0]: the reading is measured, the offset only through the model.
    Matrix6 meas;
    mx::assign(&meas, 3, 6, 0.0);
    off::place_block(&meas, eye3, 0, 0);

    // Discrete process noise Qd = sym(dt.Q + (dt^2/2).(F.Q) + ((dt^2/2).Q^T).F^T).
    const double half_dt2 = (dt * 0.5) * dt;
    mx::muls(&st.work_a, st.kf_Qf, dt);
    mx::mulm(&st.work_b, transition, st.kf_Qf);
    mx::muls(&st.work_b, st.work_b, half_dt2);
    mx::addm(&st.work_a, st.work_a, st.work_b);
    mx::trans(&st.work_b, st.kf_Qf);
    mx::muls(&st.work_b, st.work_b, half_dt2);
    mx::trans(&st.work_c, transition);
    mx::mulm(&st.work_b, st.work_b, st.work_c);
    mx::addm_self(&st.work_a, st.work_b);
    mx::trans(&st.work_b, st.work_a);
    mx::addm(&st.work_a, st.work_a, st.work_b);
    mx::muls(&st.work_d, st.work_a, 0.5);

    // Predicted covariance P = (F.P).F^T + Qd (work_c still holds F^T).
    mx::mulm(&st.work_a, transition, st.kf_Pf);
    mx::mulm(&st.work_a, st.work_a, st.work_c);
    mx::addm(&st.kf_Pf, st.work_a, st.work_d);

    // Gain K = (P.H^T).S^-1 with S = (H.P).H^T + Rf.
    mx::mulm(&st.work_a, meas, st.kf_Pf);
    mx::trans(&st.work_b, meas);
    mx::mulm(&st.work_a, st.work_a, st.work_b);
    mx::addm(&st.work_a, st.work_a, st.kf_Rf);
    mx::inv(&st.work_a, st.work_a);
    mx::mulm(&st.work_c, st.kf_Pf, st.work_b);
    Matrix6 gain;
    mx::mulm(&gain, st.work_c, st.work_a);

    // State update with the innovation z - H.x.
    Matrix6 z;
    mx::column_from_array(&z, mag, 3);
    mx::mulm(&st.work_a, meas, st.kf_xf);
    mx::subm(&st.work_a, z, st.work_a);
    mx::mulm(&st.work_b, gain, st.work_a);
    mx::addm_self(&st.kf_xf, st.work_b);

    // Joseph form keeps P symmetric and positive semi-definite:
    // P = ((I6 - K.H).P).(I6 - K.H)^T + (K.Rf).K^T.
    mx::mulm(&st.work_a, gain, meas);
    mx::eye(&st.work_b, 6);
    mx::subm(&st.work_b, st.work_b, st.work_a);
    mx::mulm(&st.work_a, st.work_b, st.kf_Pf);
    mx::trans(&st.work_c, st.work_b);
    mx::mulm(&st.work_a, st.work_a, st.work_c);
    mx::mulm(&st.work_b, gain, st.kf_Rf);
    mx::trans(&st.work_c, gain);
    mx::mulm(&st.work_b, st.work_b, st.work_c);
    mx::addm(&st.kf_Pf, st.work_a, st.work_b);
}

extern "C" MAGCAL_API void func_Offset_Calibration_KF_v4(const double mag[3], const double gyro[3],
                                                         double offset_out[3], double* radius_out,
                                                         double dt) {
    if (mag == nullptr || gyro == nullptr) return;
    // The specialised step gives the same bits for a fraction of the work; it
    // declines, having changed nothing, whenever an operand is not finite.
    if (!magcal::fast_path_enabled() || !off::offset_kalman_step_fast(mag, gyro, dt))
        off::offset_kalman_step_plain(mag, gyro, dt);

    // The radius refers to the updated offset.
    const auto& st = g_offset_kalman;
    const double b0 = st.kf_xf.data[3][0];
    const double b1 = st.kf_xf.data[4][0];
    const double b2 = st.kf_xf.data[5][0];
    if (offset_out != nullptr) {
        offset_out[0] = b0;
        offset_out[1] = b1;
        offset_out[2] = b2;
    }
    if (radius_out != nullptr) {
        const double d0 = mag[0] - b0;
        const double d1 = mag[1] - b1;
        const double d2 = mag[2] - b2;
        *radius_out = std::sqrt(d0 * d0 + d1 * d1 + d2 * d2);
    }
}
