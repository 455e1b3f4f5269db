// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The two forms of the sphere fit's update behind QvGyroCal_RLS; both update
// rls_theta and rls_P only.
//
// sphere_fit_step_plain is the update as written, every product a matrix
// operation; it is the reference. sphere_fit_step_fast computes the same
// bits on plain arrays without the record copies and returns false, having
// changed nothing, when its operands or its results are not all finite or a
// shape is not the initialised one.
#pragma once

namespace magcal::offset {

void sphere_fit_step_plain(const double mag[3]);
bool sphere_fit_step_fast(const double mag[3]);

}  // namespace magcal::offset
