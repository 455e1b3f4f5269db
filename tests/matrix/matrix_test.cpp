#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "magcal/magcal_algorithms.h"
#include "support/alloc_counter.h"

namespace {

Matrix9 filled9(double value) {
    Matrix9 m;
    m.rows = 9;
    m.cols = 9;
    for (auto& row : m.data)
        for (double& v : row) v = value;
    return m;
}

Matrix6 filled6(double value) {
    Matrix6 m;
    m.rows = 6;
    m.cols = 6;
    for (auto& row : m.data)
        for (double& v : row) v = value;
    return m;
}

Matrix9 column9(double a, double b, double c) {
    const double v[3] = {a, b, c};
    Matrix9 m = filled9(7.0);
    qvmatrix_double_to_matrix_trans(&m, v, 3);
    return m;
}

TEST(MatrixShapes, MismatchReturnsMinusOneAndLeavesDestination) {
    Matrix9 a = filled9(1.0);
    a.rows = 3;
    a.cols = 3;
    Matrix9 b = filled9(2.0);
    b.rows = 4;
    b.cols = 1;
    Matrix9 dst = filled9(5.0);
    dst.rows = 2;
    dst.cols = 2;
    const Matrix9 before = dst;
    EXPECT_EQ(qvmtx_mulm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_addm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_subm(&dst, a, b), -1);
    EXPECT_EQ(qvmtx_addm_self(&dst, a), -1);
    EXPECT_EQ(qvmtx_subm_self(&dst, a), -1);
    EXPECT_EQ(std::memcmp(&dst, &before, sizeof dst), 0);

    Matrix6 a6 = filled6(1.0);
    a6.rows = 3;
    a6.cols = 3;
    Matrix6 b6 = filled6(1.0);
    b6.rows = 4;
    b6.cols = 1;
    Matrix6 d6 = filled6(9.0);
    const Matrix6 before6 = d6;
    EXPECT_EQ(qvmtx_mulm_6(&d6, a6, b6), -1);
    EXPECT_EQ(qvmtx_addm_6(&d6, a6, b6), -1);
    EXPECT_EQ(std::memcmp(&d6, &before6, sizeof d6), 0);

    EXPECT_EQ(qvmtx_mulm(nullptr, a, a), -1);
    EXPECT_EQ(qvmtx_eye(&dst, 0), -1);
    EXPECT_EQ(qvmtx_eye_6(nullptr, 3), -1);
}

TEST(MatrixProducts, DestinationMayAliasASource) {
    // [[1,2],[3,4]] * [[5,6],[7,8]] = [[19,22],[43,50]]
    Matrix9 a = filled9(0.0);
    a.rows = a.cols = 2;
    a.data[0][0] = 1, a.data[0][1] = 2, a.data[1][0] = 3, a.data[1][1] = 4;
    Matrix9 b = filled9(0.0);
    b.rows = b.cols = 2;
    b.data[0][0] = 5, b.data[0][1] = 6, b.data[1][0] = 7, b.data[1][1] = 8;
    Matrix9 left = a;
    ASSERT_EQ(qvmtx_mulm(&left, left, b), 0);
    Matrix9 right = b;
    ASSERT_EQ(qvmtx_mulm(&right, a, right), 0);
    for (const Matrix9* m : {&left, &right}) {
        EXPECT_EQ(m->data[0][0], 19.0);
        EXPECT_EQ(m->data[0][1], 22.0);
        EXPECT_EQ(m->data[1][0], 43.0);
        EXPECT_EQ(m->data[1][1], 50.0);
    }
    // a * a in place: [[7,10],[15,22]]
    Matrix9 sq = a;
    ASSERT_EQ(qvmtx_mulm(&sq, sq, sq), 0);
    EXPECT_EQ(sq.data[0][0], 7.0);
    EXPECT_EQ(sq.data[1][1], 22.0);
    // Transpose in place of a 2x3 gives a 3x2.
    Matrix9 t = filled9(0.0);
    t.rows = 2;
    t.cols = 3;
    t.data[0][2] = 4.0;
    t.data[1][0] = -1.0;
    ASSERT_EQ(qvmtx_trans(&t, t), 0);
    EXPECT_EQ(t.rows, 3);
    EXPECT_EQ(t.cols, 2);
    EXPECT_EQ(t.data[2][0], 4.0);
    EXPECT_EQ(t.data[0][1], -1.0);
    EXPECT_EQ(t.data[0][0], 0.0);

    Matrix6 a6;
    qvmtx_eye_muls_6(&a6, 3, 2.0);
    ASSERT_EQ(qvmtx_mulm_6(&a6, a6, a6), 0);
    EXPECT_EQ(a6.data[1][1], 4.0);
    EXPECT_EQ(a6.data[0][1], 0.0);
}

TEST(MatrixInverse, NoPivotSearchAndExactSmallCases) {
    Matrix9 swap = filled9(0.0);
    swap.rows = swap.cols = 2;
    swap.data[0][1] = 1.0;
    swap.data[1][0] = 1.0;
    Matrix9 dst;
    EXPECT_EQ(qvmtx_inv(&dst, swap), -1);

    Matrix9 four = filled9(3.0);
    four.rows = four.cols = 1;
    four.data[0][0] = 4.0;
    ASSERT_EQ(qvmtx_inv(&dst, four), 0);
    EXPECT_EQ(dst.rows, 1);
    EXPECT_EQ(dst.data[0][0], 0.25);

    Matrix6 four6 = filled6(3.0);
    four6.rows = four6.cols = 1;
    four6.data[0][0] = 4.0;
    Matrix6 dst6;
    ASSERT_EQ(qvmtx_inv_6(&dst6, four6), 0);
    EXPECT_EQ(dst6.data[0][0], 0.25);
}

TEST(MatrixInverse, WellConditioned6x6TimesInverseIsIdentity) {
    Matrix6 a;
    qvmtx_assign_6(&a, 6, 6, 0.0);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) a.data[i][j] = (i == j) ? 10.0 + i : 1.0 / (1.0 + i + 2 * j);
    Matrix6 inverse;
    ASSERT_EQ(qvmtx_inv_6(&inverse, a), 0);
    Matrix6 product;
    ASSERT_EQ(qvmtx_mulm_6(&product, a, inverse), 0);
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j) EXPECT_NEAR(product.data[i][j], i == j ? 1.0 : 0.0, 1e-14);

    Matrix9 a9;
    qvmtx_assign(&a9, 9, 9, 0.0);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j) a9.data[i][j] = (i == j) ? 5.0 : 0.1 * (i - j);
    Matrix9 inv9;
    ASSERT_EQ(qvmtx_inv(&inv9, a9), 0);
    Matrix9 p9;
    ASSERT_EQ(qvmtx_mulm(&p9, inv9, a9), 0);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j) EXPECT_NEAR(p9.data[i][j], i == j ? 1.0 : 0.0, 1e-14);
}

TEST(MatrixCross, ColumnAndRowShapes) {
    Matrix9 x = column9(1, 0, 0);
    Matrix9 y = column9(0, 1, 0);
    Matrix9 dst = filled9(8.0);
    ASSERT_EQ(qvmtx_cross(&dst, x, y), 0);
    EXPECT_EQ(dst.rows, 3);
    EXPECT_EQ(dst.cols, 1);
    EXPECT_EQ(dst.data[0][0], 0.0);
    EXPECT_EQ(dst.data[1][0], 0.0);
    EXPECT_EQ(dst.data[2][0], 1.0);

    Matrix6 rx = filled6(0.0);
    rx.rows = 1;
    rx.cols = 3;
    rx.data[0][0] = 1.0;
    Matrix6 ry = filled6(0.0);
    ry.rows = 1;
    ry.cols = 3;
    ry.data[0][1] = 1.0;
    Matrix6 d6 = filled6(8.0);
    ASSERT_EQ(qvmtx_cross_6(&d6, rx, ry), 0);
    EXPECT_EQ(d6.rows, 1);
    EXPECT_EQ(d6.cols, 3);
    EXPECT_EQ(d6.data[0][2], 1.0);
    EXPECT_EQ(d6.data[0][0], 0.0);
    EXPECT_EQ(d6.data[5][5], 0.0);  // the 6x6 cross clears the whole record

    // A 2x2 operand is neither a column nor a row: cleared result, still 0.
    Matrix9 square = filled9(3.0);
    square.rows = square.cols = 2;
    Matrix9 d = filled9(8.0);
    EXPECT_EQ(qvmtx_cross(&d, square, square), 0);
    EXPECT_EQ(d.data[0][0], 0.0);
    EXPECT_EQ(d.data[1][1], 0.0);
    EXPECT_EQ(d.data[2][2], 8.0);  // the 9x9 form clears only the leading block

    // [v x] u equals v x u.
    Matrix9 v = column9(1.5, -2.0, 0.25);
    Matrix9 u = column9(-0.5, 3.0, 4.0);
    Matrix9 skew;
    ASSERT_EQ(convm_vec_to_product(&skew, v), 0);
    Matrix9 by_matrix;
    ASSERT_EQ(qvmtx_mulm(&by_matrix, skew, u), 0);
    Matrix9 by_cross;
    ASSERT_EQ(qvmtx_cross(&by_cross, v, u), 0);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(by_matrix.data[k][0], by_cross.data[k][0]);
}

TEST(MatrixAssign, ClearingRulesPerCapacity) {
    Matrix9 m = filled9(4.0);
    qvmtx_assign(&m, 3, 1, 0.0);
    EXPECT_EQ(m.rows, 3);
    EXPECT_EQ(m.cols, 1);
    for (int i = 0; i < 9; ++i)
        for (int j = 0; j < 9; ++j) EXPECT_EQ(m.data[i][j], (i < 3 && j == 0) ? 0.0 : 4.0);

    Matrix6 m6 = filled6(4.0);
    EXPECT_EQ(qvmtx_assign_6(&m6, 3, 1, 0.0), &m6);
    for (const auto& row : m6.data)
        for (double v : row) EXPECT_EQ(v, 0.0);

    // Identity: the 9x9 form clears its leading block only, the 6x6 the record.
    Matrix9 e = filled9(4.0);
    ASSERT_EQ(qvmtx_eye(&e, 2), 0);
    EXPECT_EQ(e.data[0][0], 1.0);
    EXPECT_EQ(e.data[0][1], 0.0);
    EXPECT_EQ(e.data[2][2], 4.0);
    Matrix6 e6 = filled6(4.0);
    ASSERT_EQ(qvmtx_eye_6(&e6, 2), 0);
    EXPECT_EQ(e6.data[1][1], 1.0);
    EXPECT_EQ(e6.data[2][2], 0.0);

    // An empty shape is stored and nothing else happens.
    Matrix9 empty = filled9(4.0);
    qvmtx_assign(&empty, 0, 3, 1.0);
    EXPECT_EQ(empty.rows, 0);
    EXPECT_EQ(empty.data[0][0], 4.0);
    EXPECT_EQ(qvmtx_trace(empty), 0.0);
    EXPECT_EQ(qvmtx_norm_square(empty), 0.0);
}

TEST(MatrixConversions, ColumnsQuaternionsAndArrays) {
    Matrix9 q;
    const double v[4] = {1.0, 2.0, 3.0, 4.0};
    ASSERT_EQ(qvmatrix_double_to_matrix_trans(&q, v, 4), 0);
    double out[6] = {9, 9, 9, 9, 9, 9};
    ASSERT_EQ(qvmatrix_matrix_to_double_trans(q, out), 0);
    EXPECT_EQ(out[3], 4.0);
    EXPECT_EQ(out[4], 9.0);  // exactly four doubles written

    // i * j = k and j * i = -k in the Hamilton convention.
    const double qi[4] = {0, 1, 0, 0};
    const double qj[4] = {0, 0, 1, 0};
    Matrix9 a, b, r;
    qvmatrix_double_to_matrix_trans(&a, qi, 4);
    qvmatrix_double_to_matrix_trans(&b, qj, 4);
    QvGyroCal_quaternionmul(&r, a, b);
    EXPECT_EQ(r.data[3][0], 1.0);
    QvGyroCal_quaternionmul(&r, b, a);
    EXPECT_EQ(r.data[3][0], -1.0);
    EXPECT_EQ(r.data[0][0], 0.0);

    Matrix6 a6, b6;
    qvmatrix_double_to_matrix_trans_6(&a6, qi, 4);
    qvmatrix_double_to_matrix_trans_6(&b6, qj, 4);
    QvGyroCal_quaternionmul_6(&a6, a6, b6);  // destination aliases a source
    EXPECT_EQ(a6.rows, 4);
    EXPECT_EQ(a6.data[3][0], 1.0);

    double arr[3] = {1, 2, 3};
    qvArrayInit(arr, 2);
    EXPECT_EQ(arr[0], 0.0);
    EXPECT_EQ(arr[1], 0.0);
    EXPECT_EQ(arr[2], 3.0);
    qvArrayInit(arr, 0);
    qvArrayInit(arr, -4);
    EXPECT_EQ(arr[2], 3.0);
}

TEST(MatrixScalars, NormsTracesAndSelfForms) {
    Matrix9 v = column9(3.0, 4.0, 12.0);
    EXPECT_EQ(qvmtx_norm_square(v), 169.0);
    EXPECT_EQ(qvmtx_norm(v), 13.0);
    Matrix9 e;
    qvmtx_eye_muls(&e, 4, 2.5);
    EXPECT_EQ(qvmtx_trace(e), 10.0);
    qvmtx_muls_self(&e, 2.0);
    EXPECT_EQ(e.data[3][3], 5.0);
    qvmtx_divs_self(&e, 4.0);
    EXPECT_EQ(e.data[0][0], 1.25);
    Matrix9 d;
    qvmtx_divs(&d, e, 0.5);
    EXPECT_EQ(d.data[2][2], 2.5);
    ASSERT_EQ(qvmtx_subm_self(&d, e), 0);
    EXPECT_EQ(d.data[2][2], 1.25);
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
