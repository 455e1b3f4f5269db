// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The nine-state filter step specialised to the structure of its matrices.
//
// The plain step (nine_state_step.cpp) is the model as written: every
// product a whole 9x9 operation. Most of those multiply-adds meet a zero
// that is there by construction: F = [[-[w x], -0.5 I3, 0], [0, 0, 0],
// [0, 0, 0]], so Phi is the identity below its first three rows; H =
// [[2[g x], 0, 0], [2[p x], 0, I3]]; I - K H keeps the identity in columns
// 3-5; Q and R are diagonal. This step computes each element of each product
// from its non-zero terms only, in the plain order, with the plain leading
// 0.0 (see matrix/row_kernels.h for why that is exact), and keeps every
// intermediate in local arrays instead of the scratch records. It runs only
// when its operands and the intermediates that meet a skipped zero are
// finite, Q and R are diagonal and the shapes are the initialised ones;
// otherwise it declines and the plain step runs. The differential tests in
// tests/ekf/nine_state_fast_test.cpp hold the two to the same bits.
//
// Units as in the plain step: rate [rad/s], acc [m/s^2], field [uT], time
// step [s], dip [deg].
#include <cmath>

#include "ekf/nine_state_constants.h"
#include "ekf/nine_state_state.h"
#include "ekf/nine_state_step.h"
#include "matrix/fast_path.h"
#include "matrix/inverse_kernel.h"
#include "matrix/row_kernels.h"

namespace magcal::ekf {
namespace {

// Omega(w) as the plain step builds it: zeros, then the rate components.
void set_omega(double m[4][4], const double w[3]) {
    const double wx = w[0], wy = w[1], wz = w[2];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) m[i][j] = 0.0;
    m[0][1] = -wx;
    m[0][2] = -wy;
    m[0][3] = -wz;
    m[1][0] = wx;
    m[1][2] = wz;
    m[1][3] = -wy;
    m[2][0] = wy;
    m[2][1] = -wz;
    m[2][3] = wx;
    m[3][0] = wz;
    m[3][1] = wy;
    m[3][2] = -wx;
}

// [v x] scaled by s as the plain step forms it: 0.0 + s * element, the
// diagonal an exact +0.0.
void scaled_cross_matrix(double m[3][3], const double v[3], double s) {
    const double c[3][3] = {{0.0, -v[2], v[1]}, {v[2], 0.0, -v[0]}, {-v[1], v[0], 0.0}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m[i][j] = 0.0 + s * c[i][j];
}

// Theta = I4 + (0.75 dt) W1 - (0.25 dt) W0 - (s/6) I4 - (s dt/48) W1
// - (dt^2/24) W1 W0, element by element as the plain chain of operations.
void propagation_matrix(double th[4][4], const double w1[4][4], const double w0[4][4], double s,
                        double dt) {
    const double c1 = 0.75 * dt;
    const double c0 = 0.25 * dt;
    const double cs = s / 6;
    const double csdt = s * dt / 48;
    const double cdd = dt * dt / 24;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double prod = 0.0;  // (W1 W0)[i][j]; both diagonals are structural zeros
            for (int k = 0; k < 4; ++k)
                if (k != i && k != j) prod += w1[i][k] * w0[k][j];
            double t = i == j ? 1.0 : 0.0;
            t = 0.0 + (t + (0.0 + c1 * w1[i][j]));
            t = 0.0 + (t - (0.0 + c0 * w0[i][j]));
            t = 0.0 + (t - (i == j ? 0.0 + cs : 0.0));
            t = 0.0 + (t - (0.0 + csdt * w1[i][j]));
            th[i][j] = 0.0 + (t - (0.0 + cdd * prod));
        }
}

double norm4(const double v[4]) {
    double sum = 0.0;
    for (int i = 0; i < 4; ++i) sum += v[i] * v[i];
    return std::sqrt(sum);
}

double norm3(const double v[3]) {
    double sum = 0.0;
    for (int i = 0; i < 3; ++i) sum += v[i] * v[i];
    return std::sqrt(sum);
}

// The non-zero block of the discrete transition, Phi rows 0-2, columns 0-5;
// the rest of Phi is the identity.
void transition_block(double phi[3][6], const double f[3][6], double dt) {
    const double c = dt * dt * 0.5;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 6; ++j) {
            // (F F)[i][j]: only F's first three rows are non-zero.
            double ff = 0.0;
            for (int k = 0; k < 3; ++k) ff += f[i][k] * f[k][j];
            const double id = i == j ? 1.0 : 0.0;
            const double first = 0.0 + (id + (0.0 + dt * f[i][j]));
            phi[i][j] = 0.0 + (first + (0.0 + c * ff));
        }
}

// Qd = 0.5 (A + A^T), A = dt Q + h F Q + h Q F^T with Q diagonal. A, and so
// Qd, is +0.0 outside its leading 6x6 block and the diagonal: qd holds that
// block, qd_tail the diagonal elements 6-8.
void discrete_noise(double qd[6][6], double qd_tail[3], const double f[3][6], const Matrix9& q,
                    double dt) {
    using matrix::kZeroPair;
    using matrix::load_pair;
    using matrix::Pair;
    using matrix::splat;
    using matrix::store_pair;
    const double h = dt * 0.5 * dt;
    double f6[6][6] = {};   // F's leading block
    double f6t[6][6] = {};  // its transpose as the plain transposition forms it
    double q_diag[6];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 6; ++j) {
            f6[i][j] = f[i][j];
            f6t[j][i] = 0.0 + f[i][j];
        }
    for (int i = 0; i < 6; ++i) q_diag[i] = q.data[i][i];
    double a[6][6];
    double a_t[6][6];
    for (int i = 0; i < 6; ++i) {
        for (int j = 0; j < 6; j += 2) {
            const Pair fq = kZeroPair + load_pair(&f6[i][j]) * load_pair(&q_diag[j]);
            const Pair first = kZeroPair + ((kZeroPair + splat(dt) * load_pair(&q.data[i][j])) +
                                            (kZeroPair + splat(h) * fq));
            const Pair qft = kZeroPair + splat(q_diag[i]) * load_pair(&f6t[i][j]);
            store_pair(&a[i][j], kZeroPair + (first + (kZeroPair + splat(h) * qft)));
        }
        for (int j = 0; j < 6; ++j) a_t[j][i] = a[i][j];
    }
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; j += 2)
            store_pair(&qd[i][j], kZeroPair + splat(0.5) * (kZeroPair +
                                                            (load_pair(&a[i][j]) +
                                                             (kZeroPair + load_pair(&a_t[i][j])))));
    for (int m = 0; m < 3; ++m) {
        const double q_ii = q.data[6 + m][6 + m];
        const double first = 0.0 + ((0.0 + dt * q_ii) + (0.0 + h * (0.0 + 0.0 * q_ii)));
        const double a_ii = 0.0 + (first + (0.0 + h * (0.0 + q_ii * 0.0)));
        qd_tail[m] = 0.0 + 0.5 * (0.0 + (a_ii + (0.0 + a_ii)));
    }
}

// The step with rows carried W lanes at a time.
template <int W>
MAGCAL_INLINE bool step_kernel(double q_io[4], double mag_corr_out[3], double bias_corr_out[3],
                               const double mag[3], const double acc[3], const double gyro[3],
                               const double gyro_prev[3], double dt) {
    using FiniteCheck = matrix::FiniteCheck<W>;
    NineStateFilter& st = g_nine_state;
    const Matrix9& p_old = st.ns_P;
    const Matrix9& q_noise = st.ns_Q;
    const Matrix9& r_noise = st.ns_R;
    if (p_old.rows != 9 || p_old.cols != 9 || q_noise.rows != 9 || q_noise.cols != 9 ||
        r_noise.rows != 6 || r_noise.cols != 6)
        return false;
    // The plain step writes q back half-way and reads its inputs after that.
    if (matrix::overlap(q_io, 4, mag, 3) || matrix::overlap(q_io, 4, acc, 3) ||
        matrix::overlap(q_io, 4, gyro, 3) || matrix::overlap(q_io, 4, gyro_prev, 3))
        return false;
    // P itself needs no check of its own: every element reaches Phi P or the
    // predicted P, which are checked below.
    FiniteCheck inputs;
    inputs.template add<4>(q_io);
    inputs.template add<3>(mag);
    inputs.template add<3>(acc);
    inputs.template add<3>(gyro);
    inputs.template add<3>(gyro_prev);
    inputs.add(dt);
    inputs.add(st.ns_dip);
    inputs.add(st.ns_dip_gain);
    inputs.add(st.ns_lambda);
    if (!inputs.all_finite() || !matrix::diagonal_and_finite<9, 9>(&q_noise.data[0][0]) ||
        !matrix::diagonal_and_finite<6, 9>(&r_noise.data[0][0]))
        return false;

    // Quaternion propagation over the current and the previous rate.
    double w1[4][4];
    double w0[4][4];
    set_omega(w1, gyro);
    set_omega(w0, gyro_prev);
    const double s = (gyro[0] * gyro[0] + gyro[1] * gyro[1] + gyro[2] * gyro[2]) * dt * dt;
    double theta[4][4];
    propagation_matrix(theta, w1, w0, s, dt);
    double q[4];
    for (int i = 0; i < 4; ++i) {
        double sum = 0.0;
        for (int k = 0; k < 4; ++k) sum += theta[i][k] * q_io[k];
        q[i] = sum;
    }
    const double q_len = guarded(norm4(q));
    for (double& v : q) v = v / q_len;

    // F's non-zero rows 0-2, columns 0-5: -[w x] and -0.5 I3.
    double f[3][6];
    double minus_cross[3][3];
    scaled_cross_matrix(minus_cross, gyro, -1.0);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            f[i][j] = minus_cross[i][j];
            f[i][3 + j] = i == j ? -0.5 : 0.0;
        }
    double phi[3][6];
    transition_block(phi, f, dt);
    double qd[6][6];
    double qd_tail[3];
    discrete_noise(qd, qd_tail, f, q_noise, dt);

    // P = (Phi P) Phi^T + Qd. Rows 3-8 of Phi P are 0.0 + P.
    double phi_p[9][9];
    FiniteCheck meets_zero;
    for (int i = 0; i < 3; ++i) {
        matrix::RowSum<9, W> row;
        for (int k = 0; k < 6; ++k) row.add(phi[i][k], p_old.data[k]);
        row.store(phi_p[i]);
        meets_zero.add(row);
    }
    for (int i = 3; i < 9; ++i)
        for (int j = 0; j < 9; ++j) phi_p[i][j] = 0.0 + p_old.data[i][j];
    double phi_t[6][3];  // Phi^T rows 0-5, columns 0-2
    for (int k = 0; k < 6; ++k)
        for (int j = 0; j < 3; ++j) phi_t[k][j] = phi[j][k];
    // Adding Qd's +0.0 elements would change nothing: these sums are never -0.0.
    double p[9][9];
    for (int i = 0; i < 9; ++i) {
        matrix::RowSum<3, W> left;
        for (int k = 0; k < 6; ++k) left.add(phi_p[i][k], phi_t[k]);
        left.store(p[i]);
        for (int j = 3; j < 9; ++j) p[i][j] = 0.0 + phi_p[i][j];
        if (i < 6)
            for (int j = 0; j < 6; j += 2)
                matrix::store_pair(&p[i][j], matrix::kZeroPair + (matrix::load_pair(&p[i][j]) +
                                                                  matrix::load_pair(&qd[i][j])));
        else
            p[i][i] = 0.0 + (p[i][i] + qd_tail[i - 6]);
        meets_zero.template add<9>(p[i]);
    }

    // C(q), navigation -> body, of the propagated quaternion.
    const double q0 = q[0], q1 = q[1], q2 = q[2], q3 = q[3];
    double c[3][3];
    c[0][0] = 2 * q0 * q0 + 2 * q1 * q1 - 1;
    c[0][1] = 2 * q1 * q2 + 2 * q0 * q3;
    c[0][2] = 2 * q1 * q3 - 2 * q0 * q2;
    c[1][0] = 2 * q1 * q2 - 2 * q0 * q3;
    c[1][1] = 2 * q0 * q0 + 2 * q2 * q2 - 1;
    c[1][2] = 2 * q2 * q3 + 2 * q0 * q1;
    c[2][0] = 2 * q1 * q3 + 2 * q0 * q2;
    c[2][1] = 2 * q2 * q3 - 2 * q0 * q1;
    c[2][2] = 2 * q0 * q0 + 2 * q3 * q3 - 1;

    // Dip re-estimate while flat.
    double dip = st.ns_dip;
    const double acc_len = norm3(acc);
    if (std::fabs(1 - std::fabs(acc[2] / acc_len)) < kFlatTolerance) {
        const double cross[3] = {0.0 + (acc[1] * mag[2] - acc[2] * mag[1]),
                                 0.0 + (acc[2] * mag[0] - acc[0] * mag[2]),
                                 0.0 + (acc[0] * mag[1] - acc[1] * mag[0])};
        double sin_angle = norm3(cross) / norm3(mag) / acc_len;
        if (std::fabs(sin_angle) > 1) sin_angle = sin_angle > 1 ? 1.0 : -1.0;
        dip = st.ns_dip_gain * (90 - std::asin(sin_angle) * kRadToDeg) + (1 - st.ns_dip_gain) * dip;
    }
    const double cos_dip = std::cos(dip * kDegToRad);
    const double sin_dip = std::sin(dip * kDegToRad);

    // Measurement model: H = [[2[g x], 0, 0], [2[pr x], 0, I3]]; its left
    // 6x3 block is h_left.
    const double g[3] = {kGravity * c[0][2], kGravity * c[1][2], kGravity * c[2][2]};
    const double mag_len = norm3(mag);
    double pr[3];
    for (int i = 0; i < 3; ++i) {
        const double unit = c[i][0] * 0.0 + c[i][1] * cos_dip - c[i][2] * sin_dip;
        pr[i] = mag_len * unit;
    }
    double h_left[6][3];
    scaled_cross_matrix(h_left, g, 2.0);
    scaled_cross_matrix(h_left + 3, pr, 2.0);
    double z[6];
    for (int i = 0; i < 3; ++i) {
        z[i] = acc[i] - g[i];
        z[3 + i] = mag[i] - pr[i];
    }
    double h_t[3][6];  // H^T rows 0-2
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 6; ++j) h_t[k][j] = h_left[j][k];

    // S = (H P) H^T + lambda R.
    double hp[6][9];
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<9, W> row;
        for (int k = 0; k < 3; ++k)
            if (k != i % 3) row.add(h_left[i][k], p[k]);
        if (i >= 3) row.add(1.0, p[6 + i - 3]);
        row.store(hp[i]);
        meets_zero.add(row);
    }
    double s_mat[6][6];
    for (int i = 0; i < 6; ++i) {
        matrix::RowSum<6, W> row;
        for (int k = 0; k < 3; ++k) row.add(hp[i][k], h_t[k]);
        for (int k = 6; k < 9; ++k) row.add_at(k - 3, hp[i][k]);
        row.store(s_mat[i]);
        for (int j = 0; j < 6; ++j)
            s_mat[i][j] = 0.0 + (s_mat[i][j] + (0.0 + st.ns_lambda * r_noise.data[i][j]));
    }
    double s_inv[6][6];
    matrix::invert_without_pivoting<6>(s_inv,
                                       s_mat);  // a singular S leaves a partial result, used as is

    // K = (P H^T) S^-1 and x = K z; k_t holds K^T.
    double k_gain[9][6];
    double k_t[6][9];
    for (int i = 0; i < 9; ++i) {
        matrix::RowSum<6, W> pht;
        for (int k = 0; k < 3; ++k) pht.add(p[i][k], h_t[k]);
        for (int k = 6; k < 9; ++k) pht.add_at(k - 3, p[i][k]);
        double pht_row[6];
        pht.store(pht_row);
        matrix::RowSum<6, W> row;
        for (int k = 0; k < 6; ++k) row.add(pht_row[k], s_inv[k]);
        row.store(k_gain[i]);
        meets_zero.add(row);
        for (int j = 0; j < 6; ++j) k_t[j][i] = k_gain[i][j];
    }
    if (!meets_zero.all_finite()) return false;
    double x[9];
    {
        matrix::RowSum<9, W> kz;
        for (int k = 0; k < 6; ++k) kz.add(z[k], k_t[k]);
        kz.store(x);
    }

    // A = I - K H, kept as A^T: columns 0-2 and 6-8 of A from K; columns 3-5
    // stay the identity's.
    double a_t[9][9];
    for (int i = 0; i < 9; ++i) {
        matrix::RowSum<3, W> kh;
        for (int k = 0; k < 6; ++k) kh.add(k_gain[i][k], h_left[k]);
        double kh_row[3];
        kh.store(kh_row);
        for (int j = 0; j < 3; ++j) {
            a_t[j][i] = 0.0 + ((i == j ? 1.0 : 0.0) - kh_row[j]);
            a_t[3 + j][i] = i == 3 + j ? 1.0 : 0.0;
            a_t[6 + j][i] = 0.0 + ((i == 6 + j ? 1.0 : 0.0) - (0.0 + k_gain[i][3 + j]));
        }
    }

    // Joseph form: P = (A P) A^T + (K R) K^T, then the fading division.
    FiniteCheck ap_check;
    double ap[9][9];
    for (int i = 0; i < 9; ++i) {
        matrix::RowSum<9, W> row;
        for (int k = 0; k < 3; ++k) row.add(a_t[k][i], p[k]);
        if (i >= 3 && i < 6) row.add(1.0, p[i]);
        for (int k = 6; k < 9; ++k) row.add(a_t[k][i], p[k]);
        row.store(ap[i]);
        ap_check.add(row);
    }
    if (!ap_check.all_finite()) return false;
    // Nothing can decline from here on: the new covariance goes straight
    // into the state.
    double kr[9][6];
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 6; ++j) kr[i][j] = 0.0 + k_gain[i][j] * r_noise.data[j][j];
    const double fading = guarded(st.ns_lambda);
    for (int i = 0; i < 9; ++i) {
        matrix::RowSum<9, W> apat;
        for (int k = 0; k < 3; ++k) apat.add(ap[i][k], a_t[k]);
        for (int k = 3; k < 6; ++k) apat.add_at(k, ap[i][k]);
        for (int k = 6; k < 9; ++k) apat.add(ap[i][k], a_t[k]);
        matrix::RowSum<9, W> krkt;
        for (int k = 0; k < 6; ++k) krkt.add(kr[i][k], k_t[k]);
        matrix::store_sum<true>(st.ns_P.data[i], apat, krkt, fading);
    }

    // Fold the attitude error into q on the body side: q (x) (1, x0, x1, x2).
    const double q_scale = guarded(norm4(q));
    double u[4];
    for (int i = 0; i < 4; ++i) u[i] = 0.0 + q[i] / q_scale;
    const double d[4] = {1.0, x[0], x[1], x[2]};
    double r[4];
    r[0] = u[0] * d[0] - u[1] * d[1] - u[2] * d[2] - u[3] * d[3];
    r[1] = u[1] * d[0] + u[0] * d[1] - u[3] * d[2] + u[2] * d[3];
    r[2] = u[2] * d[0] + u[3] * d[1] + u[0] * d[2] - u[1] * d[3];
    r[3] = u[3] * d[0] - u[2] * d[1] + u[1] * d[2] + u[0] * d[3];
    const double r_len = norm4(r);
    const double r_scale = guarded(r_len);

    // Commit: the state, then the caller's arrays in the plain order.
    st.ns_dip = dip;
    st.ns_norm = r_len;
    for (int i = 0; i < 4; ++i) q_io[i] = r[i] / r_scale;
    for (int i = 0; i < 3; ++i) {
        bias_corr_out[i] = x[3 + i];
        mag_corr_out[i] = x[6 + i];
    }
    return true;
}

#if MAGCAL_WIDE_LANES
MAGCAL_WIDE_TARGET bool step_wide(double q[4], double mag_corr_out[3], double bias_corr_out[3],
                                  const double mag[3], const double acc[3], const double gyro[3],
                                  const double gyro_prev[3], double dt) {
    return step_kernel<4>(q, mag_corr_out, bias_corr_out, mag, acc, gyro, gyro_prev, dt);
}
#endif

}  // namespace

bool nine_state_step_fast(double q[4], double mag_corr_out[3], double bias_corr_out[3],
                          const double mag[3], const double acc[3], const double gyro[3],
                          const double gyro_prev[3], double dt) {
#if MAGCAL_WIDE_LANES
    if (wide_lanes_enabled())
        return step_wide(q, mag_corr_out, bias_corr_out, mag, acc, gyro, gyro_prev, dt);
#endif
    return step_kernel<2>(q, mag_corr_out, bias_corr_out, mag, acc, gyro, gyro_prev, dt);
}

}  // namespace magcal::ekf
