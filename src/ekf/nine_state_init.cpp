// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Initialisation of the nine-state error Kalman filter.
//
// Loads the error covariance P, the process-noise density Q and the
// measurement noise R as block-diagonal matrices of scaled identities, each
// scale a power of ten given by an exponent in the configuration, and sets
// the dip estimate, its gain and the fading factor. The attitude block of Q
// carries an extra 1/4 because the attitude states are half-angles.
//
// Configuration (14 doubles): 0-2 exponents of the attitude, bias and offset
// blocks of P, 3 exponent of a factor on all of P; 4-5 exponents of the
// accelerometer and magnetometer blocks of R, 6 factor on all of R; 7-9
// exponents of the attitude, bias and offset blocks of Q, 10 factor on all of
// Q; 11 fading factor; 12 initial dip [deg]; 13 dip gain. Exponents are
// truncated toward zero before use.
#include <cmath>

#include "ekf/block_copy.h"
#include "ekf/nine_state_state.h"
#include "matrix/matrix_ops.h"
#include "matrix/numeric.h"

namespace mx = magcal::matrix;

namespace magcal::ekf {

NineStateFilter g_nine_state{};

namespace {

double power_of_ten(double exponent) {
    return std::pow(10.0, static_cast<double>(magcal::truncate_to_int32(exponent)));
}

}  // namespace
}  // namespace magcal::ekf

extern "C" MAGCAL_API int32_t QvGyroCal_9_states_init(const double config[14]) {
    using magcal::ekf::copy_block;
    using magcal::ekf::power_of_ten;
    if (config == nullptr) return 0;
    auto& f = magcal::ekf::g_nine_state;

    Matrix9* const square[] = {&f.ns_T1, &f.ns_T2, &f.ns_T3, &f.ns_T4, &f.ns_T5, &f.ns_P, &f.ns_Q};
    for (Matrix9* m : square) mx::assign(m, 9, 9, 0.0);
    mx::assign(&f.ns_R, 6, 6, 0.0);

    mx::eye_muls(&f.ns_T1, 3, power_of_ten(config[0]));
    mx::eye_muls(&f.ns_T2, 3, power_of_ten(config[1]));
    mx::eye_muls(&f.ns_T3, 3, power_of_ten(config[2]));
    copy_block(&f.ns_P, f.ns_T1, 0, 0);
    copy_block(&f.ns_P, f.ns_T2, 3, 3);
    copy_block(&f.ns_P, f.ns_T3, 6, 6);
    mx::muls_self(&f.ns_P, power_of_ten(config[3]));

    mx::eye_muls(&f.ns_T1, 3, power_of_ten(config[4]));
    mx::eye_muls(&f.ns_T2, 3, power_of_ten(config[5]));
    copy_block(&f.ns_R, f.ns_T1, 0, 0);
    copy_block(&f.ns_R, f.ns_T2, 3, 3);
    mx::muls_self(&f.ns_R, power_of_ten(config[6]));

    mx::eye_muls(&f.ns_T1, 3, power_of_ten(config[7]) * 0.25);  // half-angle states
    mx::eye_muls(&f.ns_T2, 3, power_of_ten(config[8]));
    mx::eye_muls(&f.ns_T3, 3, power_of_ten(config[9]));
    copy_block(&f.ns_Q, f.ns_T1, 0, 0);
    copy_block(&f.ns_Q, f.ns_T2, 3, 3);
    copy_block(&f.ns_Q, f.ns_T3, 6, 6);
    mx::muls_self(&f.ns_Q, power_of_ten(config[10]));

    f.ns_dip = config[12];
    f.ns_dip_gain = config[13];
    f.ns_lambda = config[11];
    return 0;
}
