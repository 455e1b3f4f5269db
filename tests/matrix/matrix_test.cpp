// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

// A record whose every element holds `fill`, shaped rows x cols, with the
// leading elements taken row by row from `values`.
template <typename M>
M make(int32_t rows, int32_t cols, std::initializer_list<double> values = {}, double fill = 0.0) {
    M m;
    m.rows = rows;
    m.cols = cols;
    for (auto& row : m.data)
        for (double& v : row) v = fill;
    int k = 0;
    for (double v : values) m.data[k / cols][k % cols] = v, ++k;
    return m;
}

TEST(MatrixShapes, MismatchReturnsMinusOneAndLeavesDestination) {
    const Matrix9 a = make<Matrix9>(3, 3, {}, 1.0);
    const Matrix9 b = make<Matrix9>(4, 1, {}, 2.0);
    Matrix9 dst = make<Matrix9>(2, 2, {}, 5.0);
    const Matrix9 before = dst;
    EXPECT_EQ(qvmtx_mulm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_addm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_subm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_addm_self(&dst, a), -1);
    EXPECT_EQ(qvmtx_subm_self(&dst, a), -1);
    EXPECT_EQ(std::memcmp(&dst, &before, sizeof dst), 0);

    const Matrix6 a6 = make<Matrix6>(3, 3, {}, 1.0);
    const Matrix6 b6 = make<Matrix6>(4, 1, {}, 1.0);
    Matrix6 d6 = make<Matrix6>(6, 6, {}, 9.0);
    const Matrix6 before6 = d6;
    EXPECT_EQ(qvmtx_mulm_6(&d6, a6, b6), -1);
    EXPECT_EQ(qvmtx_addm_6(&d6, a6, b6), -1);
    EXPECT_EQ(std::memcmp(&d6, &before6, sizeof d6), 0);

    EXPECT_EQ(qvmtx_mulm(nullptr, a, a), -1);
    EXPECT_EQ(qvmtx_eye(&dst, 0), -1);
    EXPECT_EQ(qvmtx_eye_6(nullptr, 3), -1);
}

TEST(MatrixProducts, DestinationMayAliasASource) {
    const Matrix9 a = make<Matrix9>(2, 2, {1, 2, 3, 4});
    const Matrix9 b = make<Matrix9>(2, 2, {5, 6, 7, 8});
    Matrix9 left = a;
    ASSERT_EQ(qvmtx_mulm(&left, left, b), 0);
    Matrix9 right = b;
    ASSERT_EQ(qvmtx_mulm(&right, a, right), 0);
    Matrix9 square = a;
    ASSERT_EQ(qvmtx_mulm(&square, square, square), 0);
    for (const Matrix9* m : {&left, &right}) {  // [[19, 22], [43, 50]]
        EXPECT_EQ(m->data[0][0], 19.0);
        EXPECT_EQ(m->data[0][1], 22.0);
        EXPECT_EQ(m->data[1][0], 43.0);
        EXPECT_EQ(m->data[1][1], 50.0);
    }
    EXPECT_EQ(square.data[0][1], 10.0);  // [[7, 10], [15, 22]]
    EXPECT_EQ(square.data[1][1], 22.0);

    Matrix9 t = make<Matrix9>(2, 3, {0, 0, 4, -1, 0, 0});
    ASSERT_EQ(qvmtx_trans(&t, t), 0);
    EXPECT_EQ(t.rows, 3);
    EXPECT_EQ(t.cols, 2);
    EXPECT_EQ(t.data[2][0], 4.0);
    EXPECT_EQ(t.data[0][1], -1.0);

    Matrix6 d6;
    qvmtx_eye_muls_6(&d6, 3, 2.0);
    ASSERT_EQ(qvmtx_mulm_6(&d6, d6, d6), 0);
    EXPECT_EQ(d6.data[1][1], 4.0);
    EXPECT_EQ(d6.data[0][1], 0.0);
}

TEST(MatrixInverse, NoPivotSearchAndWellConditionedCases) {
    Matrix9 dst;
    EXPECT_EQ(qvmtx_inv(&dst, make<Matrix9>(2, 2, {0, 1, 1, 0})), -1);  // invertible, but no row swap
    ASSERT_EQ(qvmtx_inv(&dst, make<Matrix9>(1, 1, {4.0}, 3.0)), 0);
    EXPECT_EQ(dst.rows, 1);
    EXPECT_EQ(dst.data[0][0], 0.25);
    Matrix6 dst6;
    ASSERT_EQ(qvmtx_inv_6(&dst6, make<Matrix6>(1, 1, {4.0}, 3.0)), 0);
    EXPECT_EQ(dst6.data[0][0], 0.25);

    Matrix6 a = make<Matrix6>(6, 6);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) a.data[i][j] = (i == j) ? 10.0 + i : 1.0 / (1.0 + i + 2 * j);
    ASSERT_EQ(qvmtx_inv_6(&dst6, a), 0);
    Matrix6 product;
    ASSERT_EQ(qvmtx_mulm_6(&product, a, dst6), 0);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) EXPECT_NEAR(product.data[i][j], i == j ? 1.0 : 0.0, 1e-14);
}

TEST(MatrixCross, ColumnAndRowShapesAndTheSkewMatrix) {
    Matrix9 dst = make<Matrix9>(9, 9, {}, 8.0);
    ASSERT_EQ(qvmtx_cross(&dst, make<Matrix9>(3, 1, {1, 0, 0}), make<Matrix9>(3, 1, {0, 1, 0})), 0);
    EXPECT_EQ(dst.rows, 3);
    EXPECT_EQ(dst.cols, 1);
    EXPECT_EQ(dst.data[0][0], 0.0);
    EXPECT_EQ(dst.data[2][0], 1.0);

    Matrix6 d6 = make<Matrix6>(6, 6, {}, 8.0);
    ASSERT_EQ(qvmtx_cross_6(&d6, make<Matrix6>(1, 3, {1, 0, 0}), make<Matrix6>(1, 3, {0, 1, 0})), 0);
    EXPECT_EQ(d6.rows, 1);
    EXPECT_EQ(d6.data[0][2], 1.0);
    EXPECT_EQ(d6.data[5][5], 0.0);  // the 6x6 form clears the whole record

    // Neither a column nor a row: the cleared leading block, still 0.
    Matrix9 d = make<Matrix9>(9, 9, {}, 8.0);
    const Matrix9 square = make<Matrix9>(2, 2, {}, 3.0);
    EXPECT_EQ(qvmtx_cross(&d, square, square), 0);
    EXPECT_EQ(d.data[1][1], 0.0);
    EXPECT_EQ(d.data[2][2], 8.0);

    const Matrix9 v = make<Matrix9>(3, 1, {1.5, -2.0, 0.25});
    const Matrix9 u = make<Matrix9>(3, 1, {-0.5, 3.0, 4.0});
    Matrix9 skew, by_matrix, by_cross;
    ASSERT_EQ(convm_vec_to_product(&skew, v), 0);
    ASSERT_EQ(qvmtx_mulm(&by_matrix, skew, u), 0);
    ASSERT_EQ(qvmtx_cross(&by_cross, v, u), 0);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(by_matrix.data[k][0], by_cross.data[k][0]);
}

TEST(MatrixAssign, ClearingRulesPerCapacity) {
    Matrix9 m = make<Matrix9>(9, 9, {}, 4.0);
    qvmtx_assign(&m, 3, 1, 0.0);
    EXPECT_EQ(m.rows, 3);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j) EXPECT_EQ(m.data[i][j], (i < 3 && j == 0) ? 0.0 : 4.0);

    Matrix6 m6 = make<Matrix6>(6, 6, {}, 4.0);
    EXPECT_EQ(qvmtx_assign_6(&m6, 3, 1, 0.0), &m6);
    for (const auto& row : m6.data)
        for (double v : row) EXPECT_EQ(v, 0.0);

    Matrix9 e = make<Matrix9>(9, 9, {}, 4.0);
    ASSERT_EQ(qvmtx_eye(&e, 2), 0);
    EXPECT_EQ(e.data[0][1], 0.0);
    EXPECT_EQ(e.data[2][2], 4.0);  // leading block only
    Matrix6 e6 = make<Matrix6>(6, 6, {}, 4.0);
    ASSERT_EQ(qvmtx_eye_6(&e6, 2), 0);
    EXPECT_EQ(e6.data[2][2], 0.0);  // whole record

    Matrix9 empty = make<Matrix9>(9, 9, {}, 4.0);
    qvmtx_assign(&empty, 0, 3, 1.0);  // shape stored, nothing written
    EXPECT_EQ(empty.rows, 0);
    EXPECT_EQ(empty.data[0][0], 4.0);
    EXPECT_EQ(qvmtx_trace(empty), 0.0);
    EXPECT_EQ(qvmtx_norm(make<Matrix9>(3, 1, {3, 4, 12})), 13.0);
}

TEST(MatrixConversions, ColumnsQuaternionsAndArrays) {
    Matrix9 q;
    const double v[4] = {1.0, 2.0, 3.0, 4.0};
    ASSERT_EQ(qvmatrix_double_to_matrix_trans(&q, v, 4), 0);
    double out[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_EQ(qvmatrix_matrix_to_double_trans(q, out), 0);
    EXPECT_EQ(out[3], 4.0);
    EXPECT_EQ(out[4], 9.0);  // exactly four doubles written

    // Hamilton convention: i j = k, j i = -k; the destination may alias.
    const Matrix9 i9 = make<Matrix9>(4, 1, {0, 1, 0, 0});
    const Matrix9 j9 = make<Matrix9>(4, 1, {0, 0, 1, 0});
    Matrix9 r;
    QvGyroCal_quaternionmul(&r, i9, j9);
    EXPECT_EQ(r.data[3][0], 1.0);
    QvGyroCal_quaternionmul(&r, j9, i9);
    EXPECT_EQ(r.data[3][0], -1.0);
    Matrix6 i6 = make<Matrix6>(4, 1, {0, 1, 0, 0});
    QvGyroCal_quaternionmul_6(&i6, i6, make<Matrix6>(4, 1, {0, 0, 1, 0}));
    EXPECT_EQ(i6.data[3][0], 1.0);

    double arr[3] = {1, 2, 3};
    qvArrayInit(arr, 2);
    qvArrayInit(arr, -4);
    EXPECT_EQ(arr[1], 0.0);
    EXPECT_EQ(arr[2], 3.0);
}

TEST(MatrixAllocation, OperationsNeverTouchTheHeap) {
    Matrix9 a;
    qvmtx_eye_muls(&a, 9, 3.0);
    Matrix6 b;
    qvmtx_eye_muls_6(&b, 6, 3.0);
    const std::size_t count = magcal_test::allocations_during([&] {
        qvmtx_mulm(&a, a, a);
        qvmtx_inv(&a, a);
        qvmtx_mulm_6(&b, b, b);
        qvmtx_inv_6(&b, b);
    });
    EXPECT_EQ(count, 0u);
}

}  // namespace
