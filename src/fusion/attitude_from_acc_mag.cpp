// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Absolute attitude from one accelerometer and one calibrated field sample.
//
// At rest the accelerometer reads the upward direction and the field points
// north and down, so in device coordinates
//   east  = -(acc x mag) / |acc x mag|,
//   north = -(acc x east_hat') / |...|  with east_hat' = (acc x mag)/|acc x mag|,
//   up    = acc / |acc|.
// These three unit vectors are the columns of the direction-cosine matrix
// whose quaternion (scalar first) is the attitude. Units do not matter: only
// directions are used.
//
// Parallel acc and mag leave no east direction: the zero cross product is
// divided by its zero length through the matrix division, and the NaNs that
// result pass through to the quaternion.
#include "magcal/magcal_algorithms.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

extern "C" MAGCAL_API int32_t acc_mag2quaternion_b(double q_out[4], const double acc[3],
                                                   const double mag[3]) {
    if (q_out == nullptr || acc == nullptr || mag == nullptr) return -1;

    Matrix6 a;
    Matrix6 m;
    Matrix6 east;
    Matrix6 north;
    Matrix6 up;
    mx::column_from_array(&a, acc, 3);
    mx::column_from_array(&m, mag, 3);

    mx::cross(&east, a, m);
    mx::divs(&east, east, mx::norm(east));
    mx::cross(&north, a, east);
    mx::divs(&north, north, mx::norm(north));
    mx::divs(&up, a, mx::norm(a));

    Matrix6 dcm;
    mx::assign(&dcm, 3, 3, 0.0);
    for (int r = 0; r < 3; ++r) {
        dcm.data[r][0] = -east.data[r][0];
        dcm.data[r][1] = -north.data[r][0];
        dcm.data[r][2] = up.data[r][0];
    }
    return convm_dc_to_quat_b(q_out, &dcm);
}
