// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "matrix/fast_path.h"

namespace magcal {

FastPathSwitch g_fast_path{};

void set_fast_path_enabled(bool enabled) {
    g_fast_path.plain_only = !enabled;
}

void set_wide_lanes_enabled(bool enabled) {
    g_fast_path.narrow_only = !enabled;
}

}  // namespace magcal
