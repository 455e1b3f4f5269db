// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Recursive least-squares fit of a sphere to the raw field samples, taken
// before the hard-iron offset is removed.
//
// Every sample m obeys |m|^2 = 2 m.c + d on a sphere of centre c (the
// hard-iron offset [uT]) and d = r^2 - |c|^2 [uT^2], which is linear in
// theta = [c0, c1, c2, d]. One step is the textbook RLS update with the
// regressor phi = [2 m0, 2 m1, 2 m2, 1] and the observation y = |m|^2; the
// radius r = sqrt(d + |c|^2) is the local field strength [uT].
//
// The forgetting factor lambda enters twice, squared: it scales the noise
// term of the innovation variance and divides the covariance. With the
// driver's lambda = 1 both vanish and nothing is forgotten.
//
// Results are reproduced bit for bit across builds and ports, so every
// product runs through the 6x6 matrix operations in the order the update is
// written, each into its own destination. The prediction error e = y - phi.theta
// is kept as a 1x1 matrix: y is loaded with assign and phi.theta subtracted
// with the matrix subtraction, then K.e is a 4x1-by-1x1 product. That yields
// the same doubles as the scalar y - (phi.theta) and e.K_i (both are 0.0 plus
// one rounded operation, and y >= +0.0 rules out a negative zero).
//
// No checks, no logging, no allocation: a negative d + |c|^2 gives a NaN
// radius, which the driver's comparisons then reject.
#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "matrix/fast_path.h"
#include "matrix/matrix_ops.h"
#include "offset/sphere_fit_state.h"
#include "offset/sphere_fit_step.h"

namespace mx = magcal::matrix;

namespace magcal::offset {

SphereFitState g_sphere_fit;

namespace {

double power_of_ten(int32_t exponent) {
    return std::pow(10.0, static_cast<double>(exponent));
}

}  // namespace

}  // namespace magcal::offset

using magcal::offset::g_sphere_fit;

extern "C" {

MAGCAL_API int32_t QvGyroCal_RLS_init(const RlsConfig* config) {
    if (config == nullptr) return -1;
    auto& st = g_sphere_fit;
    mx::assign(&st.rls_theta, 4, 1, 0.0);
    mx::assign(&st.rls_P, 4, 4, 0.0);

    mx::eye_muls(&st.work_a, 3, magcal::offset::power_of_ten(config->p_centre_exp));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) st.rls_P.data[i][j] = st.work_a.data[i][j];
    st.rls_P.data[3][3] = magcal::offset::power_of_ten(config->p_term_exp);
    // The overall scale applies to both blocks (and to the zeros between).
    mx::muls_self(&st.rls_P, magcal::offset::power_of_ten(config->p_scale_exp));

    st.rls_r = magcal::offset::power_of_ten(config->r_exp);
    st.rls_lambda = config->lambda;
    return 0;
}

}  // extern "C"

void magcal::offset::sphere_fit_step_plain(const double mag[3]) {
    auto& st = g_sphere_fit;
    const double lambda = st.rls_lambda;

    Matrix6 z{};
    mx::column_from_array(&z, mag, 3);
    const double y = mx::norm_square(z);  // observation |m|^2 [uT^2]

    Matrix6 phi;  // 1x4 regressor [2 m, 1]
    mx::assign(&phi, 1, 4, 1.0);
    for (int i = 0; i < 3; ++i) phi.data[0][i] = 2.0 * z.data[i][0];

    // Innovation variance s = (phi.P).phi^T + (lambda.lambda).r, then its inverse.
    mx::mulm(&st.work_a, phi, st.rls_P);
    mx::trans(&st.work_b, phi);
    mx::mulm(&st.work_a, st.work_a, st.work_b);
    st.work_a.data[0][0] = st.work_a.data[0][0] + (lambda * lambda) * st.rls_r;
    mx::inv(&st.work_a, st.work_a);

    // Gain K = (P.phi^T).s^-1, 4x1.
    mx::mulm(&st.work_c, st.rls_P, st.work_b);
    mx::mulm(&st.work_c, st.work_c, st.work_a);

    // Prediction error e = y - phi.theta (1x1), then theta += K.e in place.
    mx::mulm(&st.work_a, phi, st.rls_theta);
    mx::assign(&st.work_b, 1, 1, y);
    mx::subm(&st.work_a, st.work_b, st.work_a);
    mx::mulm(&st.work_b, st.work_c, st.work_a);
    mx::addm_self(&st.rls_theta, st.work_b);

    // P = ((I4 - K.phi).P) / (lambda.lambda).
    mx::mulm(&st.work_a, st.work_c, phi);
    mx::eye(&st.work_b, 4);
    mx::subm(&st.work_b, st.work_b, st.work_a);
    mx::mulm(&st.work_a, st.work_b, st.rls_P);
    mx::divs(&st.rls_P, st.work_a, lambda * lambda);
}

extern "C" {

MAGCAL_API int32_t QvGyroCal_RLS(double centre_out[3], double* radius_out, const double mag[3]) {
    if (centre_out == nullptr || radius_out == nullptr || mag == nullptr) return -1;
    // The specialised step gives the same bits for a fraction of the work; it
    // declines, having changed nothing, whenever an operand is not finite.
    if (!magcal::fast_path_enabled() || !magcal::offset::sphere_fit_step_fast(mag))
        magcal::offset::sphere_fit_step_plain(mag);

    const auto& st = g_sphere_fit;
    const double c0 = st.rls_theta.data[0][0];
    const double c1 = st.rls_theta.data[1][0];
    const double c2 = st.rls_theta.data[2][0];
    centre_out[0] = c0;
    centre_out[1] = c1;
    centre_out[2] = c2;
    *radius_out = std::sqrt(st.rls_theta.data[3][0] + (c0 * c0 + c1 * c1 + c2 * c2));
    return 0;
}

// Moves the centre without touching d or the covariance.
MAGCAL_API int32_t QvGyroCal_RLS_update_hr(const double centre[3]) {
    if (centre == nullptr) return -1;
    for (int i = 0; i < 3; ++i) g_sphere_fit.rls_theta.data[i][0] = centre[i];
    return 0;
}

}  // extern "C"
