// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The 9x9-capacity matrix operations used by the nine-state filter.
#include "magcal/magcal_algorithms.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

extern "C" {

MAGCAL_API Matrix9* qvmtx_assign(Matrix9* dst, int32_t rows, int32_t cols, double value) {
    return mx::assign(dst, rows, cols, value);
}
MAGCAL_API int32_t qvmtx_eye(Matrix9* dst, int32_t n) { return mx::eye(dst, n); }
MAGCAL_API int32_t qvmtx_eye_muls(Matrix9* dst, int32_t n, double s) {
    return mx::eye_muls(dst, n, s);
}
MAGCAL_API int32_t qvmtx_trans(Matrix9* dst, Matrix9 a) { return mx::trans(dst, a); }
MAGCAL_API int32_t qvmtx_mulm(Matrix9* dst, Matrix9 a, Matrix9 b) { return mx::mulm(dst, a, b); }
MAGCAL_API int32_t qvmtx_muls(Matrix9* dst, Matrix9 a, double s) { return mx::muls(dst, a, s); }
MAGCAL_API int32_t qvmtx_divs(Matrix9* dst, Matrix9 a, double s) { return mx::divs(dst, a, s); }
MAGCAL_API int32_t qvmtx_addm(Matrix9* dst, Matrix9 a, Matrix9 b) { return mx::addm(dst, a, b); }
MAGCAL_API int32_t qvmtx_subm(Matrix9* dst, Matrix9 a, Matrix9 b) { return mx::subm(dst, a, b); }
MAGCAL_API int32_t qvmtx_addm_self(Matrix9* m, Matrix9 a) { return mx::addm_self(m, a); }
MAGCAL_API int32_t qvmtx_subm_self(Matrix9* m, Matrix9 a) { return mx::subm_self(m, a); }
MAGCAL_API int32_t qvmtx_muls_self(Matrix9* m, double s) { return mx::muls_self(m, s); }
MAGCAL_API int32_t qvmtx_divs_self(Matrix9* m, double s) { return mx::divs_self(m, s); }
MAGCAL_API int32_t qvmtx_cross(Matrix9* dst, Matrix9 a, Matrix9 b) { return mx::cross(dst, a, b); }
MAGCAL_API int32_t qvmtx_inv(Matrix9* dst, Matrix9 a) { return mx::inv(dst, a); }
MAGCAL_API double qvmtx_trace(Matrix9 a) { return mx::trace(a); }
MAGCAL_API double qvmtx_norm_square(Matrix9 a) { return mx::norm_square(a); }
MAGCAL_API double qvmtx_norm(Matrix9 a) { return mx::norm(a); }

}  // extern "C"
