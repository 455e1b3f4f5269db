// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Moving vectors between plain arrays and column matrices, quaternion
// products on 4x1 columns, the cross-product matrix, and array clearing.
#include "magcal/magcal_algorithms.h"
#include "matrix/matrix_ops.h"

namespace mx = magcal::matrix;

extern "C" {

MAGCAL_API int32_t qvmatrix_double_to_matrix_trans(Matrix9* dst, const double* v, int32_t n) {
    return mx::column_from_array(dst, v, n);
}

MAGCAL_API int32_t qvmatrix_double_to_matrix_trans_6(Matrix6* dst, const double* v, int32_t n) {
    return mx::column_from_array(dst, v, n);
}

// First column only, one double per row.
MAGCAL_API int32_t qvmatrix_matrix_to_double_trans(Matrix9 a, double* out) {
    return mx::column_to_array(a, out);
}

MAGCAL_API void QvGyroCal_quaternionmul(Matrix9* dst, Matrix9 p, Matrix9 q) {
    mx::quaternion_product(dst, p, q);
}

MAGCAL_API void QvGyroCal_quaternionmul_6(Matrix6* dst, Matrix6 p, Matrix6 q) {
    mx::quaternion_product(dst, p, q);
}

// [v x], so that [v x] * u = v x u; v is read from the first column.
MAGCAL_API int32_t convm_vec_to_product(Matrix9* dst, Matrix9 v) {
    return mx::cross_matrix(dst, v);
}

MAGCAL_API void qvArrayInit(double* array, int32_t count) {
    if (array == nullptr) return;
    for (int32_t i = 0; i < count; ++i) array[i] = 0.0;
}

}  // extern "C"
