// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The sphere fit's update on plain 4-element arrays.
//
// The plain update (sphere_fit.cpp) runs every product through the 6x6
// matrix records, clearing and copying whole records for 1x4, 4x1 and 4x4
// shapes. This one performs the same operations on the same elements in the
// same order, each result element 0.0 + its terms as the matrix operations
// form it, so it yields the same bits; nothing is skipped, and it declines
// whenever an operand or a result is not finite, so that every NaN the fit
// can produce comes from the plain update. The differential tests in
// tests/offset/sphere_fit_fast_test.cpp hold the two to the same bits.
// Units: field [uT], d [uT^2].
#include "magcal/magcal_algorithms.h"
#include "matrix/row_kernels.h"
#include "offset/sphere_fit_state.h"
#include "offset/sphere_fit_step.h"

namespace magcal::offset {

bool sphere_fit_step_fast(const double mag[3]) {
    SphereFitState& st = g_sphere_fit;
    if (st.rls_theta.rows != 4 || st.rls_theta.cols != 1 || st.rls_P.rows != 4 ||
        st.rls_P.cols != 4)
        return false;
    const auto& p = st.rls_P.data;
    double theta[4];
    for (int i = 0; i < 4; ++i) theta[i] = st.rls_theta.data[i][0];
    const double lambda = st.rls_lambda;
    matrix::FiniteCheck operands;
    operands.add<3>(mag);
    operands.add<4>(theta);
    for (int i = 0; i < 4; ++i) operands.add<4>(p[i]);
    operands.add(st.rls_r);
    operands.add(lambda);
    if (!operands.all_finite()) return false;

    const double y = 0.0 + mag[0] * mag[0] + mag[1] * mag[1] + mag[2] * mag[2];  // |m|^2
    const double phi[4] = {2.0 * mag[0], 2.0 * mag[1], 2.0 * mag[2], 1.0};
    double phi_t[4];  // phi^T as the plain transposition forms it
    for (int k = 0; k < 4; ++k) phi_t[k] = 0.0 + phi[k];

    // Innovation variance and its 1x1 inverse (the identity when s is zero).
    double s = 0.0;
    for (int k = 0; k < 4; ++k) {
        double phi_p = 0.0;
        for (int m = 0; m < 4; ++m) phi_p += phi[m] * p[m][k];
        s += phi_p * phi_t[k];
    }
    s = s + (lambda * lambda) * st.rls_r;
    const double s_inv = s == 0.0 ? 1.0 : 1.0 / s;

    double gain[4];
    for (int i = 0; i < 4; ++i) {
        double p_phi = 0.0;
        for (int k = 0; k < 4; ++k) p_phi += p[i][k] * phi_t[k];
        gain[i] = 0.0 + p_phi * s_inv;
    }
    double phi_theta = 0.0;
    for (int k = 0; k < 4; ++k) phi_theta += phi[k] * theta[k];
    const double e = 0.0 + (y - phi_theta);

    matrix::FiniteCheck results;
    double theta_new[4];
    for (int i = 0; i < 4; ++i) theta_new[i] = theta[i] + (0.0 + gain[i] * e);
    results.add<4>(theta_new);
    double b[4][4];  // I4 - K phi
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            b[i][j] = 0.0 + ((i == j ? 1.0 : 0.0) - (0.0 + gain[i] * phi[j]));
    const double forget = lambda * lambda;
    double p_new[4][4];
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k) sum += b[i][k] * p[k][j];
            p_new[i][j] = 0.0 + sum / forget;
        }
        results.add<4>(p_new[i]);
    }
    if (!results.all_finite()) return false;

    for (int i = 0; i < 4; ++i) st.rls_theta.data[i][0] = theta_new[i];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) st.rls_P.data[i][j] = p_new[i][j];
    return true;
}

}  // namespace magcal::offset
