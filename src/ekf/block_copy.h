// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Placing a small matrix inside a larger one.
#pragma once

#include "magcal/magcal_algorithms.h"

namespace magcal::ekf {

// Copies the leading rows x cols of src, row by row, into dst with its
// top-left corner at (row, col). dst keeps its shape; elements that would
// fall outside the 9x9 record are skipped.
void copy_block(Matrix9* dst, const Matrix9& src, int32_t row, int32_t col);

}  // namespace magcal::ekf
