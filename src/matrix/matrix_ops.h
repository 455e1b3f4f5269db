// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Fixed-capacity dense matrices: one implementation for both capacities.
//
// A matrix is a shape (rows, cols) and a row-major block of doubles with a
// fixed row stride (9 or 6); only the leading rows x cols block means
// anything. Every operation first gives the destination its result shape and
// clears its leading block to 0.0, then accumulates the result into it, so a
// result element is always 0.0 + (value). A destination may be one of its own
// sources: the exported functions take their sources by value, and these
// templates, which the library calls directly, read such a source from a copy
// (and only then, so the common case copies nothing).
//
// The two capacities differ in three places, each kept from the original
// interface: the 6x6 assign fills the whole record, and the 6x6 identity and
// cross product clear the whole record rather than the leading block.
//
// Shapes beyond the capacity are refused (-1) instead of writing past the
// record; no caller in the library asks for them.
#pragma once

#include <cmath>
#include <cstdint>

namespace magcal::matrix {

template <typename M>
constexpr int32_t capacity_of() {
    return static_cast<int32_t>(sizeof(M::data[0]) / sizeof(double));
}

template <typename M>
constexpr bool is_compact() {  // the 6x6 record
    return capacity_of<M>() == 6;
}

template <typename M>
bool shape_fits(int32_t rows, int32_t cols) {
    return rows <= capacity_of<M>() && cols <= capacity_of<M>();
}

// Gives dst its shape and zeroes the leading block (nothing for an empty shape).
template <typename M>
void reshape_cleared(M* dst, int32_t rows, int32_t cols) {
    dst->rows = rows;
    dst->cols = cols;
    for (int32_t i = 0; i < rows; ++i)
        for (int32_t j = 0; j < cols; ++j) dst->data[i][j] = 0.0;
}

template <typename M>
void clear_record(M* dst) {
    for (auto& row : dst->data)
        for (double& v : row) v = 0.0;
}

template <typename M>
M* assign(M* dst, int32_t rows, int32_t cols, double value) {
    if (dst == nullptr) return dst;
    dst->rows = rows;
    dst->cols = cols;
    if (is_compact<M>()) {  // the 6x6 form fills the record whatever the shape
        for (auto& row : dst->data)
            for (double& v : row) v = value;
        return dst;
    }
    if (rows < 1 || cols < 1) return dst;
    const int32_t n = capacity_of<M>();
    for (int32_t i = 0; i < rows && i < n; ++i)
        for (int32_t j = 0; j < cols && j < n; ++j) dst->data[i][j] = value;
    return dst;
}

template <typename M>
int32_t eye_scaled(M* dst, int32_t n, double s, bool clear_whole) {
    if (dst == nullptr || n < 1 || !shape_fits<M>(n, n)) return -1;
    if (clear_whole) clear_record(dst);
    reshape_cleared(dst, n, n);
    for (int32_t i = 0; i < n; ++i) dst->data[i][i] += s;
    return 0;
}

template <typename M>
int32_t eye(M* dst, int32_t n) {
    return eye_scaled(dst, n, 1.0, is_compact<M>());
}

template <typename M>
int32_t eye_muls(M* dst, int32_t n, double s) {
    return eye_scaled(dst, n, s, false);
}

template <typename M>
int32_t trans(M* dst, const M& a) {
    if (dst == &a) return trans(dst, M(a));
    if (dst == nullptr || !shape_fits<M>(a.rows, a.cols)) return -1;
    reshape_cleared(dst, a.cols, a.rows);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) dst->data[j][i] += a.data[i][j];
    return 0;
}

template <typename M>
int32_t mulm(M* dst, const M& a, const M& b) {
    if (dst == &a || dst == &b) {
        const M copy = *dst;
        return mulm(dst, dst == &a ? copy : a, dst == &b ? copy : b);
    }
    if (dst == nullptr || a.cols != b.rows) return -1;
    if (!shape_fits<M>(a.rows, a.cols) || !shape_fits<M>(b.rows, b.cols)) return -1;
    reshape_cleared(dst, a.rows, b.cols);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < b.cols; ++j)
            for (int32_t k = 0; k < a.cols; ++k) dst->data[i][j] += a.data[i][k] * b.data[k][j];
    return 0;
}

template <typename M>
int32_t muls(M* dst, const M& a, double s) {
    if (dst == &a) return muls(dst, M(a), s);
    if (dst == nullptr || !shape_fits<M>(a.rows, a.cols)) return -1;
    reshape_cleared(dst, a.rows, a.cols);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) dst->data[i][j] += s * a.data[i][j];
    return 0;
}

template <typename M>
int32_t divs(M* dst, const M& a, double s) {
    if (dst == &a) return divs(dst, M(a), s);
    if (dst == nullptr || !shape_fits<M>(a.rows, a.cols)) return -1;
    reshape_cleared(dst, a.rows, a.cols);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) dst->data[i][j] += a.data[i][j] / s;
    return 0;
}

template <typename M>
int32_t addm(M* dst, const M& a, const M& b) {
    if (dst == &a || dst == &b) {
        const M copy = *dst;
        return addm(dst, dst == &a ? copy : a, dst == &b ? copy : b);
    }
    if (dst == nullptr || a.rows != b.rows || a.cols != b.cols) return -1;
    if (!shape_fits<M>(a.rows, a.cols)) return -1;
    reshape_cleared(dst, a.rows, a.cols);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) dst->data[i][j] += a.data[i][j] + b.data[i][j];
    return 0;
}

template <typename M>
int32_t subm(M* dst, const M& a, const M& b) {
    if (dst == &a || dst == &b) {
        const M copy = *dst;
        return subm(dst, dst == &a ? copy : a, dst == &b ? copy : b);
    }
    if (dst == nullptr || a.rows != b.rows || a.cols != b.cols) return -1;
    if (!shape_fits<M>(a.rows, a.cols)) return -1;
    reshape_cleared(dst, a.rows, a.cols);
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) dst->data[i][j] += a.data[i][j] - b.data[i][j];
    return 0;
}

template <typename M>
int32_t addm_self(M* m, const M& a) {
    if (m == &a) return addm_self(m, M(a));
    if (m == nullptr || m->rows != a.rows || m->cols != a.cols) return -1;
    if (!shape_fits<M>(a.rows, a.cols)) return -1;
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) m->data[i][j] += a.data[i][j];
    return 0;
}

template <typename M>
int32_t subm_self(M* m, const M& a) {
    if (m == &a) return subm_self(m, M(a));
    if (m == nullptr || m->rows != a.rows || m->cols != a.cols) return -1;
    if (!shape_fits<M>(a.rows, a.cols)) return -1;
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) m->data[i][j] -= a.data[i][j];
    return 0;
}

template <typename M>
int32_t muls_self(M* m, double s) {
    if (m == nullptr || !shape_fits<M>(m->rows, m->cols)) return -1;
    for (int32_t i = 0; i < m->rows; ++i)
        for (int32_t j = 0; j < m->cols; ++j) m->data[i][j] = s * m->data[i][j];
    return 0;
}

template <typename M>
int32_t divs_self(M* m, double s) {
    if (m == nullptr || !shape_fits<M>(m->rows, m->cols)) return -1;
    for (int32_t i = 0; i < m->rows; ++i)
        for (int32_t j = 0; j < m->cols; ++j) m->data[i][j] = m->data[i][j] / s;
    return 0;
}

// a x b for 3-vectors held as columns (a.cols == 1) or rows (a.rows == 1);
// the destination takes a's shape, b's shape is not looked at.
template <typename M>
int32_t cross(M* dst, const M& a, const M& b) {
    if (dst == &a || dst == &b) {
        const M copy = *dst;
        return cross(dst, dst == &a ? copy : a, dst == &b ? copy : b);
    }
    if (dst == nullptr || !shape_fits<M>(a.rows, a.cols)) return -1;
    if (is_compact<M>()) clear_record(dst);
    reshape_cleared(dst, a.rows, a.cols);
    double u[3];
    double v[3];
    if (a.cols == 1) {
        for (int k = 0; k < 3; ++k) u[k] = a.data[k][0], v[k] = b.data[k][0];
    } else if (a.rows == 1) {
        for (int k = 0; k < 3; ++k) u[k] = a.data[0][k], v[k] = b.data[0][k];
    } else {
        return 0;
    }
    const double r[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                         u[0] * v[1] - u[1] * v[0]};
    for (int k = 0; k < 3; ++k) {
        if (a.cols == 1)
            dst->data[k][0] += r[k];
        else
            dst->data[0][k] += r[k];
    }
    return 0;
}

// Gauss-Jordan elimination without pivot search: a zero on the diagonal
// fails even when the matrix is invertible, and a tiny pivot is used as is.
template <typename M>
int32_t inv(M* dst, const M& a) {
    if (dst == &a) return inv(dst, M(a));
    if (dst == nullptr) return -1;
    const int32_t n = a.rows;
    if (n < 1) {
        dst->rows = n;
        dst->cols = n;
        return 0;
    }
    if (!shape_fits<M>(n, n)) return -1;
    M work = a;
    eye(dst, n);
    for (int32_t k = 0; k < n; ++k) {
        const double p = work.data[k][k];
        if (p == 0.0) return -1;
        for (int32_t j = 0; j < n; ++j) {
            work.data[k][j] = work.data[k][j] / p;
            dst->data[k][j] = dst->data[k][j] / p;
        }
        for (int32_t i = 0; i < n; ++i) {
            if (i == k) continue;
            const double f = work.data[i][k];
            for (int32_t j = 0; j < n; ++j) {
                work.data[i][j] = work.data[i][j] - f * work.data[k][j];
                dst->data[i][j] = dst->data[i][j] - f * dst->data[k][j];
            }
        }
    }
    return 0;
}

template <typename M>
double trace(const M& a) {
    double sum = 0.0;
    for (int32_t i = 0; i < a.rows && i < capacity_of<M>(); ++i) sum += a.data[i][i];
    return sum;
}

template <typename M>
double norm_square(const M& a) {
    if (!shape_fits<M>(a.rows, a.cols)) return 0.0;
    double sum = 0.0;
    for (int32_t i = 0; i < a.rows; ++i)
        for (int32_t j = 0; j < a.cols; ++j) sum += a.data[i][j] * a.data[i][j];
    return sum;
}

template <typename M>
double norm(const M& a) {
    return std::sqrt(norm_square(a));
}

template <typename M>
int32_t column_from_array(M* dst, const double* v, int32_t n) {
    if (dst == nullptr || (n > 0 && v == nullptr) || n > capacity_of<M>()) return -1;
    assign(dst, n, 1, 0.0);
    for (int32_t i = 0; i < n; ++i) dst->data[i][0] = v[i];
    return 0;
}

// Hamilton product p (x) q of 4x1 quaternions, scalar first; not normalised.
template <typename M>
void quaternion_product(M* dst, const M& p, const M& q) {
    if (dst == &p || dst == &q) {
        const M copy = *dst;
        return quaternion_product(dst, dst == &p ? copy : p, dst == &q ? copy : q);
    }
    if (dst == nullptr) return;
    assign(dst, 4, 1, 0.0);
    const double p0 = p.data[0][0], p1 = p.data[1][0], p2 = p.data[2][0], p3 = p.data[3][0];
    const double q0 = q.data[0][0], q1 = q.data[1][0], q2 = q.data[2][0], q3 = q.data[3][0];
    dst->data[0][0] = p0 * q0 - p1 * q1 - p2 * q2 - p3 * q3;
    dst->data[1][0] = p1 * q0 + p0 * q1 - p3 * q2 + p2 * q3;
    dst->data[2][0] = p2 * q0 + p3 * q1 + p0 * q2 - p1 * q3;
    dst->data[3][0] = p3 * q0 - p2 * q1 + p1 * q2 + p0 * q3;
}

// out[i] = a(i, 0) for the used rows: the first column only.
template <typename M>
int32_t column_to_array(const M& a, double* out) {
    if (out == nullptr) return -1;
    for (int32_t i = 0; i < a.rows && i < capacity_of<M>(); ++i) out[i] = a.data[i][0];
    return 0;
}

// [v x] of the 3-vector in v's first column, so that [v x] * u = v x u.
template <typename M>
int32_t cross_matrix(M* dst, const M& v) {
    if (dst == nullptr) return -1;
    const double x = v.data[0][0];
    const double y = v.data[1][0];
    const double z = v.data[2][0];
    reshape_cleared(dst, 3, 3);
    dst->data[0][1] = -z;
    dst->data[0][2] = y;
    dst->data[1][0] = z;
    dst->data[1][2] = -x;
    dst->data[2][0] = -y;
    dst->data[2][1] = x;
    return 0;
}

}  // namespace magcal::matrix
