// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The 6x6-capacity matrix operations used by the sphere fit, the Kalman
// offset filter and the accelerometer/field attitude.
#include "magcal/magcal_algorithms.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

extern "C" {

MAGCAL_API Matrix6* qvmtx_assign_6(Matrix6* dst, int32_t rows, int32_t cols, double value) {
    return mx::assign(dst, rows, cols, value);
}
MAGCAL_API int32_t qvmtx_eye_6(Matrix6* dst, int32_t n) { return mx::eye(dst, n); }
MAGCAL_API int32_t qvmtx_eye_muls_6(Matrix6* dst, int32_t n, double s) {
    return mx::eye_muls(dst, n, s);
}
MAGCAL_API int32_t qvmtx_trans_6(Matrix6* dst, Matrix6 a) { return mx::trans(dst, a); }
MAGCAL_API int32_t qvmtx_mulm_6(Matrix6* dst, Matrix6 a, Matrix6 b) { return mx::mulm(dst, a, b); }
MAGCAL_API int32_t qvmtx_muls_6(Matrix6* dst, Matrix6 a, double s) { return mx::muls(dst, a, s); }
MAGCAL_API int32_t qvmtx_divs_6(Matrix6* dst, Matrix6 a, double s) { return mx::divs(dst, a, s); }
MAGCAL_API int32_t qvmtx_addm_6(Matrix6* dst, Matrix6 a, Matrix6 b) { return mx::addm(dst, a, b); }
MAGCAL_API int32_t qvmtx_subm_6(Matrix6* dst, Matrix6 a, Matrix6 b) { return mx::subm(dst, a, b); }
MAGCAL_API int32_t qvmtx_addm_self_6(Matrix6* m, Matrix6 a) { return mx::addm_self(m, a); }
MAGCAL_API int32_t qvmtx_muls_self_6(Matrix6* m, double s) { return mx::muls_self(m, s); }
MAGCAL_API int32_t qvmtx_divs_self_6(Matrix6* m, double s) { return mx::divs_self(m, s); }
MAGCAL_API int32_t qvmtx_cross_6(Matrix6* dst, Matrix6 a, Matrix6 b) {
    return mx::cross(dst, a, b);
}
MAGCAL_API int32_t qvmtx_inv_6(Matrix6* dst, Matrix6 a) { return mx::inv(dst, a); }
MAGCAL_API double qvmtx_trace_6(Matrix6 a) { return mx::trace(a); }
MAGCAL_API double qvmtx_norm_square_6(Matrix6 a) { return mx::norm_square(a); }
MAGCAL_API double qvmtx_norm_6(Matrix6 a) { return mx::norm(a); }

}  // extern "C"
