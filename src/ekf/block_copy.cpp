// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Block copy between fixed-capacity matrices, used to assemble the filter's
// block-structured matrices from small scaled identities and cross-product
// matrices.
#include "ekf/block_copy.h"

namespace magcal::ekf {

void copy_block(Matrix9* dst, const Matrix9& src, int32_t row, int32_t col) {
    if (dst == nullptr) return;
    constexpr int32_t kCap = 9;  // record capacity per dimension
    for (int32_t i = 0; i < src.rows && i < kCap; ++i)
        for (int32_t j = 0; j < src.cols && j < kCap; ++j) {
            const int32_t r = row + i;
            const int32_t c = col + j;
            if (r < 0 || r >= kCap || c < 0 || c >= kCap) continue;
            dst->data[r][c] = src.data[i][j];
        }
}

}  // namespace magcal::ekf
