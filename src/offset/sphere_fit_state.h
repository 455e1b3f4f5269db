// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Process-wide record of the recursive least-squares sphere fit, declared
// here so that tests can look inside it.
#pragma once

#include "magcal/magcal_algorithms.h"

namespace magcal::offset {

struct SphereFitState {
    Matrix6 rls_theta;  // 4x1 [c0, c1, c2, d]: centre [uT] and d = r^2 - |c|^2 [uT^2]
    Matrix6 rls_P;      // 4x4 parameter covariance
    double rls_r;       // measurement-noise variance of y = |m|^2 [uT^4]
    double rls_lambda;  // forgetting factor; enters squared
    // Scratch for the products of one step; meaningless between calls.
    Matrix6 work_a;
    Matrix6 work_b;
    Matrix6 work_c;
};

extern SphereFitState g_sphere_fit;

}  // namespace magcal::offset
