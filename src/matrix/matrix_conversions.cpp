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
    if (out == nullptr) return -1;
    for (int32_t i = 0; i < a.rows && i < 9; ++i) out[i] = a.data[i][0];
    return 0;
}

MAGCAL_API void QvGyroCal_quaternionmul(Matrix9* dst, Matrix9 p, Matrix9 q) {
    mx::quaternion_product(dst, p, q);
}

MAGCAL_API void QvGyroCal_quaternionmul_6(Matrix6* dst, Matrix6 p, Matrix6 q) {
    mx::quaternion_product(dst, p, q);
}

// [v x], so that [v x] * u = v x u; v is read from the first column.
MAGCAL_API int32_t convm_vec_to_product(Matrix9* dst, Matrix9 v) {
    if (dst == nullptr) return -1;
    const double x = v.data[0][0];
    const double y = v.data[1][0];
    const double z = v.data[2][0];
    mx::reshape_cleared(dst, 3, 3);
    dst->data[0][1] = -z;
    dst->data[0][2] = y;
    dst->data[1][0] = z;
    dst->data[1][2] = -x;
    dst->data[2][0] = -y;
    dst->data[2][1] = x;
    return 0;
}

MAGCAL_API void qvArrayInit(double* array, int32_t count) {
    if (array == nullptr) return;
    for (int32_t i = 0; i < count; ++i) array[i] = 0.0;
}

}  // extern "C"
