// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// One step of the nine-state error Kalman filter.
//
// Propagates the attitude quaternion (scalar first, navigation -> body, z up)
// with a second-order integrator over the current and previous angular rate,
// predicts the error covariance through a second-order discretisation of the
// error dynamics, then corrects the quaternion with one joint update from the
// accelerometer (gravity (0, 0, 9.79) m/s^2 in navigation axes) and the
// calibrated field (unit reference (0, cos dip, -sin dip) scaled to the
// measured length, so the field corrects direction only). The error state is
// zero at every entry (closed loop): the attitude part is folded back into
// the quaternion at once, the bias and offset parts are handed back as this
// step's increments. Units: rate [rad/s], acc [m/s^2], field [uT], time
// step [s], dip [deg].
//
// While the device lies flat the dip is re-estimated from the angle between
// acc and mag with a first-order low pass. Its radian-to-degree factor is
// 180/pi but the degree-to-radian factor is 3.14159/180; the pair is part of
// the tuned behaviour and kept.
//
// Every matrix intermediate runs through the process-wide scratch matrices;
// a destination may be one of its own sources. Nothing is allocated.
#include "ekf/nine_state_step.h"

#include <cmath>

#include "ekf/block_copy.h"
#include "ekf/nine_state_constants.h"
#include "ekf/nine_state_state.h"
#include "matrix/fast_path.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

namespace magcal::ekf {
namespace {

// Omega(w), the 4x4 matrix with q_dot = 0.5 * Omega(w) * q for body rates.
void set_omega(Matrix9* dst, const double w[3]) {
    const double wx = w[0], wy = w[1], wz = w[2];
    mx::assign(dst, 4, 4, 0.0);
    dst->data[0][1] = -wx;
    dst->data[0][2] = -wy;
    dst->data[0][3] = -wz;
    dst->data[1][0] = wx;
    dst->data[1][2] = wz;
    dst->data[1][3] = -wy;
    dst->data[2][0] = wy;
    dst->data[2][1] = -wz;
    dst->data[2][3] = wx;
    dst->data[3][0] = wz;
    dst->data[3][1] = wy;
    dst->data[3][2] = -wx;
}

// Puts 2 * [v x] into dst at rows row..row+2, columns 0..2.
void put_twice_cross_matrix(NineStateFilter& f, Matrix9* dst, const double v[3], int32_t row) {
    mx::column_from_array(&f.ns_T2, v, 3);
    mx::cross_matrix(&f.ns_T1, f.ns_T2);
    mx::muls(&f.ns_T1, f.ns_T1, 2.0);
    copy_block(dst, f.ns_T1, row, 0);
}

}  // namespace
}  // namespace magcal::ekf

void magcal::ekf::nine_state_step_plain(double q[4], double mag_corr_out[3],
                                        double bias_corr_out[3], const double mag[3],
                                        const double acc[3], const double gyro[3],
                                        const double gyro_prev[3], double dt) {
    NineStateFilter& f = g_nine_state;

    // Set-up: error state and innovation start at zero every step.
    double x[9] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    double z[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    mx::assign(&f.ns_F, 9, 9, 0.0);
    mx::assign(&f.ns_H, 6, 9, 0.0);
    mx::eye_muls(&f.ns_T1, 3, -0.5);  // attitude error driven by bias error
    copy_block(&f.ns_F, f.ns_T1, 0, 3);
    mx::eye(&f.ns_T1, 3);  // field reading moves one-to-one with the offset error
    copy_block(&f.ns_H, f.ns_T1, 3, 6);

    // Quaternion propagation over the current and the previous rate.
    set_omega(&f.ns_T3, gyro);
    set_omega(&f.ns_T4, gyro_prev);
    const double s = (gyro[0] * gyro[0] + gyro[1] * gyro[1] + gyro[2] * gyro[2]) * dt * dt;
    mx::eye(&f.ns_T1, 4);  // Theta accumulates in T1
    mx::muls(&f.ns_T2, f.ns_T3, 0.75 * dt);
    mx::addm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::muls(&f.ns_T2, f.ns_T4, 0.25 * dt);
    mx::subm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::eye_muls(&f.ns_T2, 4, s / 6);
    mx::subm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::muls(&f.ns_T2, f.ns_T3, s * dt / 48);
    mx::subm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::mulm(&f.ns_T2, f.ns_T3, f.ns_T4);
    mx::muls(&f.ns_T2, f.ns_T2, dt * dt / 24);
    mx::subm(&f.ns_T1, f.ns_T1, f.ns_T2);

    mx::column_from_array(&f.ns_M, q, 4);
    mx::mulm(&f.ns_T2, f.ns_T1, f.ns_M);
    f.ns_norm = mx::norm(f.ns_T2);
    mx::divs_self(&f.ns_T2, guarded(f.ns_norm));
    mx::column_to_array(f.ns_T2, q);  // the correction starts from this value

    // Error dynamics: attitude error rotates against the rate and is driven
    // by the bias error; bias and offset errors are random walks.
    mx::column_from_array(&f.ns_M, gyro, 3);
    mx::cross_matrix(&f.ns_T1, f.ns_M);
    mx::muls(&f.ns_T1, f.ns_T1, -1.0);
    copy_block(&f.ns_F, f.ns_T1, 0, 0);

    // Phi = I + dt F + (dt^2/2) F^2
    mx::eye(&f.ns_Phi, 9);
    mx::muls(&f.ns_T1, f.ns_F, dt);
    mx::addm(&f.ns_Phi, f.ns_Phi, f.ns_T1);
    mx::mulm(&f.ns_T1, f.ns_F, f.ns_F);
    mx::muls(&f.ns_T1, f.ns_T1, dt * dt * 0.5);
    mx::addm(&f.ns_Phi, f.ns_Phi, f.ns_T1);

    // Qd = sym(dt Q + (dt^2/2) F Q + (dt^2/2) Q F^T); A accumulates in T1.
    const double half_dt_sq = dt * 0.5 * dt;
    mx::muls(&f.ns_T1, f.ns_Q, dt);
    mx::mulm(&f.ns_T2, f.ns_F, f.ns_Q);
    mx::muls(&f.ns_T2, f.ns_T2, half_dt_sq);
    mx::addm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::trans(&f.ns_T3, f.ns_F);
    mx::mulm(&f.ns_T2, f.ns_Q, f.ns_T3);
    mx::muls(&f.ns_T2, f.ns_T2, half_dt_sq);
    mx::addm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::trans(&f.ns_T2, f.ns_T1);
    mx::addm(&f.ns_T2, f.ns_T1, f.ns_T2);
    mx::muls(&f.ns_Qd, f.ns_T2, 0.5);

    // P = (Phi P) Phi^T + Qd
    mx::mulm(&f.ns_T1, f.ns_Phi, f.ns_P);
    mx::trans(&f.ns_T2, f.ns_Phi);
    mx::mulm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::addm(&f.ns_P, f.ns_T1, f.ns_Qd);

    // C(q), navigation -> body, of the propagated quaternion (kept in T5).
    const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
    Matrix9& c_nb = f.ns_T5;
    mx::assign(&c_nb, 3, 3, 0.0);
    c_nb.data[0][0] = 2 * q0 * q0 + 2 * q1 * q1 - 1;
    c_nb.data[0][1] = 2 * q1 * q2 + 2 * q0 * q3;
    c_nb.data[0][2] = 2 * q1 * q3 - 2 * q0 * q2;
    c_nb.data[1][0] = 2 * q1 * q2 - 2 * q0 * q3;
    c_nb.data[1][1] = 2 * q0 * q0 + 2 * q2 * q2 - 1;
    c_nb.data[1][2] = 2 * q2 * q3 + 2 * q0 * q1;
    c_nb.data[2][0] = 2 * q1 * q3 + 2 * q0 * q2;
    c_nb.data[2][1] = 2 * q2 * q3 - 2 * q0 * q1;
    c_nb.data[2][2] = 2 * q0 * q0 + 2 * q3 * q3 - 1;

    // Dip re-estimate while flat: the field's angle to the vertical is
    // 90 degrees less the dip. A zero-length acc makes the test NaN, i.e. false.
    mx::column_from_array(&f.ns_M, acc, 3);
    const double acc_len = mx::norm(f.ns_M);  // [m/s^2]
    f.ns_norm = acc_len;
    if (std::fabs(1 - std::fabs(acc[2] / acc_len)) < kFlatTolerance) {
        mx::column_from_array(&f.ns_T1, mag, 3);
        mx::cross(&f.ns_T2, f.ns_M, f.ns_T1);
        double sin_angle = mx::norm(f.ns_T2) / mx::norm(f.ns_T1) / acc_len;
        if (std::fabs(sin_angle) > 1) sin_angle = sin_angle > 1 ? 1.0 : -1.0;
        f.ns_dip = f.ns_dip_gain * (90 - std::asin(sin_angle) * kRadToDeg) +
                   (1 - f.ns_dip_gain) * f.ns_dip;
    }
    const double cos_dip = std::cos(f.ns_dip * kDegToRad);
    const double sin_dip = std::sin(f.ns_dip * kDegToRad);

    // Measurement model: predicted gravity and field in body axes.
    const double g[3] = {kGravity * c_nb.data[0][2], kGravity * c_nb.data[1][2],
                         kGravity * c_nb.data[2][2]};
    put_twice_cross_matrix(f, &f.ns_H, g, 0);

    mx::column_from_array(&f.ns_M, mag, 3);
    const double mag_len = mx::norm(f.ns_M);  // [uT]
    f.ns_norm = mag_len;
    double p[3];
    for (int i = 0; i < 3; ++i) {
        // C * (0, cos, -sin); the zero x-component of the reference still enters.
        const double unit =
            c_nb.data[i][0] * 0.0 + c_nb.data[i][1] * cos_dip - c_nb.data[i][2] * sin_dip;
        p[i] = mag_len * unit;
    }
    put_twice_cross_matrix(f, &f.ns_H, p, 3);

    for (int i = 0; i < 3; ++i) {
        z[i] = acc[i] - g[i];
        z[3 + i] = mag[i] - p[i];
    }

    // S = (H P) H^T + lambda R, held in T1; its inverse in T4.
    mx::mulm(&f.ns_T1, f.ns_H, f.ns_P);
    mx::trans(&f.ns_T2, f.ns_H);
    mx::mulm(&f.ns_T1, f.ns_T1, f.ns_T2);
    mx::muls(&f.ns_T3, f.ns_R, f.ns_lambda);
    mx::addm(&f.ns_T1, f.ns_T1, f.ns_T3);
    mx::inv(&f.ns_T4, f.ns_T1);  // a singular S leaves a partial result, used as is

    // K = (P H^T) S^-1
    mx::trans(&f.ns_T2, f.ns_H);
    mx::mulm(&f.ns_T5, f.ns_P, f.ns_T2);
    mx::mulm(&f.ns_K, f.ns_T5, f.ns_T4);

    // x = K z
    mx::column_from_array(&f.ns_T1, z, 6);
    mx::mulm(&f.ns_T2, f.ns_K, f.ns_T1);
    mx::column_to_array(f.ns_T2, x);

    // Joseph form with the unscaled R: P = (A P) A^T + (K R) K^T, A = I - K H.
    mx::mulm(&f.ns_T1, f.ns_K, f.ns_H);
    mx::eye(&f.ns_T2, 9);
    mx::subm(&f.ns_T2, f.ns_T2, f.ns_T1);
    mx::mulm(&f.ns_T3, f.ns_T2, f.ns_P);
    mx::trans(&f.ns_T1, f.ns_T2);
    mx::mulm(&f.ns_T3, f.ns_T3, f.ns_T1);
    mx::mulm(&f.ns_T4, f.ns_K, f.ns_R);
    mx::trans(&f.ns_T5, f.ns_K);
    mx::mulm(&f.ns_T4, f.ns_T4, f.ns_T5);
    mx::addm(&f.ns_P, f.ns_T3, f.ns_T4);
    mx::divs_self(&f.ns_P, guarded(f.ns_lambda));  // fading

    // Fold the attitude error into q on the body side: q (x) (1, x0, x1, x2).
    mx::column_from_array(&f.ns_M, q, 4);
    f.ns_norm = mx::norm(f.ns_M);
    mx::divs(&f.ns_T1, f.ns_M, guarded(f.ns_norm));
    const double dq[4] = {1.0, x[0], x[1], x[2]};
    mx::column_from_array(&f.ns_T2, dq, 4);
    mx::quaternion_product(&f.ns_T3, f.ns_T1, f.ns_T2);
    f.ns_norm = mx::norm(f.ns_T3);
    mx::divs_self(&f.ns_T3, guarded(f.ns_norm));
    mx::column_to_array(f.ns_T3, q);

    for (int i = 0; i < 3; ++i) {
        bias_corr_out[i] = x[3 + i];
        mag_corr_out[i] = x[6 + i];
    }
}

extern "C" MAGCAL_API void QvGyroCal_9_states(double q[4], double mag_corr_out[3],
                                              double bias_corr_out[3], const double mag[3],
                                              const double acc[3], const double gyro[3],
                                              const double gyro_prev[3], double dt) {
    using namespace magcal::ekf;
    if (q == nullptr || mag_corr_out == nullptr || bias_corr_out == nullptr || mag == nullptr ||
        acc == nullptr || gyro == nullptr || gyro_prev == nullptr)
        return;
    // The specialised step gives the same bits for a fraction of the work; it
    // declines, having changed nothing, whenever an operand is not finite.
    if (magcal::fast_path_enabled() &&
        nine_state_step_fast(q, mag_corr_out, bias_corr_out, mag, acc, gyro, gyro_prev, dt))
        return;
    nine_state_step_plain(q, mag_corr_out, bias_corr_out, mag, acc, gyro, gyro_prev, dt);
}
