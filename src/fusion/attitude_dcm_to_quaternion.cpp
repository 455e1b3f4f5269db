// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Quaternion (scalar first) of a 3x3 direction-cosine matrix.
//
// Of the four squared components 4w^2 = 1 + t, 4x^2 = 1 + m00 - m11 - m22,
// and so on, the largest is taken to its root, which keeps the divisor of
// the other three well away from zero; the others come from the
// off-diagonal sums and differences divided by 4 times that root. The matrix
// is used as it is (no orthonormalisation) and the quaternion is not
// renormalised.
#include <cmath>

#include "magcal/magcal_algorithms.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

namespace {
constexpr double kTraceError = -32768.0;  // what the trace reports for an unusable matrix
}  // namespace

extern "C" MAGCAL_API int32_t convm_dc_to_quat_b(double q_out[4], const Matrix6* dcm) {
    if (q_out == nullptr || dcm == nullptr) return -1;

    const double t = mx::trace(*dcm);
    if (t == kTraceError) return -1;

    const double m00 = dcm->data[0][0], m01 = dcm->data[0][1], m02 = dcm->data[0][2];
    const double m10 = dcm->data[1][0], m11 = dcm->data[1][1], m12 = dcm->data[1][2];
    const double m20 = dcm->data[2][0], m21 = dcm->data[2][1], m22 = dcm->data[2][2];

    const double candidates[4] = {
        (t + 1) / 4,
        (m00 - m11 - m22 + 1) / 4,
        (m11 - m00 - m22 + 1) / 4,
        (m22 - m11 - m00 + 1) / 4,
    };
    // Strictly larger only, so a tie keeps the lower index.
    int chosen = 0;
    for (int i = 1; i < 4; ++i)
        if (candidates[i] > candidates[chosen]) chosen = i;

    const double r = std::sqrt(candidates[chosen]);
    q_out[chosen] = r;
    if (r == 0.0) return -1;
    const double f = 4 * r;

    switch (chosen) {
        case 0:
            q_out[1] = (m12 - m21) / f;
            q_out[2] = (m20 - m02) / f;
            q_out[3] = (m01 - m10) / f;
            break;
        case 1:
            q_out[0] = (m12 - m21) / f;
            q_out[2] = (m01 + m10) / f;
            q_out[3] = (m02 + m20) / f;
            break;
        case 2:
            q_out[0] = (m20 - m02) / f;
            q_out[1] = (m01 + m10) / f;
            q_out[3] = (m12 + m21) / f;
            break;
        default:
            q_out[0] = (m01 - m10) / f;
            q_out[1] = (m02 + m20) / f;
            q_out[2] = (m12 + m21) / f;
            break;
    }
    return 0;
}
