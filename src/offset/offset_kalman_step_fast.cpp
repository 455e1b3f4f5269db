// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The Kalman offset filter's step specialised to the structure of its
// matrices.
//
// In the plain step (offset_kalman.cpp) F = [[R, I3 - R], [0, I3]], H =
// [I3, 0], and the noise matrices Q and R are diagonal, so most of its 6x6
// products multiply zeros that are there by construction, and its many
// scratch records are copied whole. This step computes each element of each
// product from its non-zero terms only, in the plain order and with the
// plain leading 0.0 (matrix/row_kernels.h says why that is exact), in local
// arrays. It runs only when its operands and the intermediates that meet a
// skipped zero are finite, Q and R are diagonal and the shapes are the
// initialised ones; otherwise it declines and the plain step runs. The
// differential tests in tests/offset/offset_kalman_fast_test.cpp hold the
// two to the same bits. Units: field [uT], rate [rad/s], time step [s].
#include "magcal/magcal_algorithms.h"
#include "matrix/fast_path.h"
#include "matrix/inverse_kernel.h"
#include "matrix/row_kernels.h"
#include "offset/offset_kalman_state.h"
#include "offset/offset_kalman_step.h"
#include "offset/rotation_over_step.h"

namespace magcal::offset {

namespace {

// The step with rows carried W lanes at a time.
template <int W>
MAGCAL_INLINE bool step_kernel(const double mag[3], const double gyro[3], double dt) {
    using FiniteCheck = matrix::FiniteCheck<W>;
    OffsetKalmanState& st = g_offset_kalman;
    const Matrix6& p_old = st.kf_Pf;
    const Matrix6& q_noise = st.kf_Qf;
    const Matrix6& r_noise = st.kf_Rf;
    if (st.kf_xf.rows != 6 || st.kf_xf.cols != 1 || p_old.rows != 6 || p_old.cols != 6 ||
        q_noise.rows != 6 || q_noise.cols != 6 || r_noise.rows != 3 || r_noise.cols != 3)
        return false;
    double x_old[6];
    for (int i = 0; i < 6; ++i) x_old[i] = st.kf_xf.data[i][0];
    FiniteCheck inputs;
    inputs.template add<3>(mag);
    inputs.template add<3>(gyro);
    inputs.add(dt);
    inputs.template add<6>(x_old);
    inputs.template add<36>(&p_old.data[0][0]);
    double rot[3][3];
    rotation_over_step(rot, gyro, dt);
    inputs.template add<9>(&rot[0][0]);
    if (!inputs.all_finite() || !matrix::diagonal_and_finite<6, 6>(&q_noise.data[0][0]) ||
        !matrix::diagonal_and_finite<3, 6>(&r_noise.data[0][0]))
        return false;

    // F = [[R, I3 - R], [0, I3]], and F^T as the plain transposition forms
    // it (0.0 + element).
    double f[6][6];
    double f_t[6][6];
#pragma GCC unroll 6
    for (int i = 0; i < 6; ++i)
#pragma GCC unroll 6
        for (int j = 0; j < 6; ++j) {
            const double id = i == j ? 1.0 : 0.0;
            if (i >= 3)
                f[i][j] = j >= 3 ? id : 0.0;
            else if (j < 3)
                f[i][j] = rot[i][j];
            else
                f[i][j] = 0.0 + ((i == j - 3 ? 1.0 : 0.0) - rot[i][j - 3]);
        }
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) f_t[j][i] = 0.0 + f[i][j];

    // Predicted state, F x, copied back through a scaling by 1.0.
    FiniteCheck meets_zero;
    double x[6];
    for (int i = 0; i < 6; ++i) {
        double sum = 0.0;
        if (i < 3)
            for (int k = 0; k < 6; ++k) sum += f[i][k] * x_old[k];
        else
            sum += x_old[i];
        x[i] = 0.0 + sum;
    }
    meets_zero.template add<6>(x);

    // Qd = 0.5 (A + A^T), A = dt Q + h (F Q) + (h Q^T) F^T with Q diagonal;
    // a_t holds A^T.
    using matrix::kZeroPair;
    using matrix::load_pair;
    using matrix::splat;
    using matrix::store_pair;
    const double h = (dt * 0.5) * dt;
    double q_diag[6];
    for (int k = 0; k < 6; ++k) q_diag[k] = q_noise.data[k][k];
    double a[6][6];
    double a_t[6][6];
    for (int i = 0; i < 6; ++i) {
        const matrix::Pair hq = splat(0.0 + h * (0.0 + q_diag[i]));
        for (int j = 0; j < 6; j += 2) {
            const matrix::Pair fq = kZeroPair + load_pair(&f[i][j]) * load_pair(&q_diag[j]);
            const matrix::Pair first =
                kZeroPair + ((kZeroPair + splat(dt) * load_pair(&q_noise.data[i][j])) +
                             (kZeroPair + splat(h) * fq));
            store_pair(&a[i][j], first + (kZeroPair + hq * load_pair(&f_t[i][j])));
        }
        for (int j = 0; j < 6; ++j) a_t[j][i] = a[i][j];
    }

    // P = (F P) F^T + Qd. Rows 3-5 of F P are 0.0 + P.
    double fp[6][6];
    for (int i = 0; i < 3; ++i) {
        matrix::RowSum<6, W> row;
        for (int k = 0; k < 6; ++k) row.add(f[i][k], p_old.data[k]);
        row.store(fp[i]);
        meets_zero.add(row);
    }
    for (int i = 3; i < 6; ++i)
        for (int j = 0; j < 6; ++j) fp[i][j] = 0.0 + p_old.data[i][j];
    double p[6][6];
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<3, W> left;
        for (int k = 0; k < 6; ++k) left.add(fp[i][k], f_t[k]);
        left.store(p[i]);
        for (int j = 3; j < 6; ++j) p[i][j] = 0.0 + fp[i][j];
        for (int j = 0; j < 6; j += 2) {
            const matrix::Pair qd =
                kZeroPair + splat(0.5) * (kZeroPair + (load_pair(&a[i][j]) +
                                                       (kZeroPair + load_pair(&a_t[i][j]))));
            store_pair(&p[i][j], kZeroPair + (load_pair(&p[i][j]) + qd));
        }
        meets_zero.template add<6>(p[i]);
    }

    // S = (H P) H^T + Rf is P's leading block, each element through 0.0 + twice.
    double s_mat[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            s_mat[i][j] = 0.0 + ((0.0 + (0.0 + p[i][j])) + r_noise.data[i][j]);
    double s_inv[3][3];
    matrix::invert_without_pivoting<3>(s_inv, s_mat);  // a singular S leaves a partial result

    // K = (P H^T) S^-1, P H^T being P's left columns (0.0 + element).
    double k_gain[6][3];
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<3, W> row;
        for (int k = 0; k < 3; ++k) row.add(0.0 + p[i][k], s_inv[k]);
        row.store(k_gain[i]);
        meets_zero.add(row);
    }

    // State update with the innovation z - H x.
    double y[3];
    for (int i = 0; i < 3; ++i) y[i] = 0.0 + (mag[i] - (0.0 + x[i]));
    double x_new[6];
    for (int i = 0; i < 6; ++i) {
        double ky = 0.0;
        for (int k = 0; k < 3; ++k) ky += k_gain[i][k] * y[k];
        x_new[i] = x[i] + ky;
    }
    if (!meets_zero.all_finite()) return false;

    // Joseph form: P = ((I6 - K H) P) (I6 - K H)^T + (K Rf) K^T; I6 - K H
    // keeps the identity's columns 3-5.
    double a_left[6][3];  // columns 0-2 of I6 - K H
    double a_left_t[3][6];
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 3; ++j) {
            a_left[i][j] = 0.0 + ((i == j ? 1.0 : 0.0) - (0.0 + k_gain[i][j]));
            a_left_t[j][i] = a_left[i][j];
        }
    FiniteCheck ap_check;
    double ap[6][6];
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<6, W> row;
        for (int k = 0; k < 3; ++k) row.add(a_left[i][k], p[k]);
        if (i >= 3) row.add(1.0, p[i]);
        row.store(ap[i]);
        ap_check.add(row);
    }
    if (!ap_check.all_finite()) return false;
    double k_t[3][6];
    double kr[6][3];
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 3; ++j) {
            k_t[j][i] = k_gain[i][j];
            kr[i][j] = 0.0 + k_gain[i][j] * r_noise.data[j][j];
        }
    // Nothing can decline from here on: the new covariance goes straight
    // into the state.
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<6, W> apat;
        for (int k = 0; k < 3; ++k) apat.add(ap[i][k], a_left_t[k]);
        for (int k = 3; k < 6; ++k) apat.add_at(k, ap[i][k]);
        matrix::RowSum<6, W> krkt;
        for (int k = 0; k < 3; ++k) krkt.add(kr[i][k], k_t[k]);
        matrix::store_sum<false>(st.kf_Pf.data[i], apat, krkt);
    }
    for (int i = 0; i < 6; ++i) st.kf_xf.data[i][0] = x_new[i];
    return true;
}

#if MAGCAL_WIDE_LANES
MAGCAL_WIDE_TARGET bool step_wide(const double mag[3], const double gyro[3], double dt) {
    return step_kernel<4>(mag, gyro, dt);
}
#endif

}  // namespace

bool offset_kalman_step_fast(const double mag[3], const double gyro[3], double dt) {
#if MAGCAL_WIDE_LANES
    if (wide_lanes_enabled()) return step_wide(mag, gyro, dt);
#endif
    return step_kernel<2>(mag, gyro, dt);
}

}  // namespace magcal::offset
