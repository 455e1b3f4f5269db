// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Gauss-Jordan inverse without pivot search for the specialised filter
// steps, on plain n x n arrays.
//
// It performs the plain inverse's operations (matrix_ops.h) on the same
// elements in the same order, so the result has the same bits, and a zero
// pivot leaves the same partial result. The work matrix and the result share
// one row, [work | inverse], so that each row operation runs over pairs;
// pairs of work columns that are never read again are not updated.
#pragma once

#include "matrix/row_kernels.h"

namespace magcal::matrix {

template <int n>
void invert_without_pivoting(double inv[n][n], const double s[n][n]) {
    constexpr int kWidth = 2 * n;  // [work | inverse]
    double aug[n][kWidth];
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            aug[i][j] = s[i][j];
            aug[i][n + j] = i == j ? 1.0 : 0.0;
        }
#pragma GCC unroll 6
    for (int k = 0; k < n; ++k) {
        const double p = aug[k][k];
        if (p == 0.0) break;
        // The first pair holding a column that is read later: a work column
        // right of k, or the inverse.
        const int first = (k + 1) / 2 < n / 2 ? (k + 1) / 2 : n / 2;
        const Pair pp = {p, p};
        for (int jp = first; jp < n; ++jp)
            store_pair(&aug[k][2 * jp], load_pair(&aug[k][2 * jp]) / pp);
        for (int i = 0; i < n; ++i) {
            if (i == k) continue;
            const Pair f = {aug[i][k], aug[i][k]};
            for (int jp = first; jp < n; ++jp)
                store_pair(&aug[i][2 * jp],
                           load_pair(&aug[i][2 * jp]) - f * load_pair(&aug[k][2 * jp]));
        }
    }
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) inv[i][j] = aug[i][n + j];
}

}  // namespace magcal::matrix
