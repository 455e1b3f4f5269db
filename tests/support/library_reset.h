// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Puts every process-wide record of the library back to its load-time
// value, so that each test starts from a freshly loaded library.
#pragma once

namespace magcal_test {

void reset_library_state();

}  // namespace magcal_test
