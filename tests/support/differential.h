// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The differential tests of the specialised filter steps: one step from the
// same state on the plain path and on the specialised path in each lane
// width, compared bit for bit.
#pragma once

#include <gtest/gtest.h>

#include <limits>

#include "matrix/fast_path.h"
#include "support/value_source.h"

namespace magcal_test {

// A time step as hosts give them: the usual rates, none, the longest the
// library accepts, or anything between [s].
inline double plausible_dt(ValueSource& src) {
    const double steps[] = {0.0, 0.004000000189989805, 0.01, 0.02, 0.25};
    return src.chance(0.5) ? steps[src.index(5)] : src.uniform(0.004, 0.25);
}

// Fills a matrix record with `value` and, when rows > 0, gives it that shape.
template <typename Matrix>
void fill_matrix(Matrix* m, double value, int rows = 0, int cols = 0) {
    if (rows > 0) m->rows = rows, m->cols = cols;
    for (auto& row : m->data)
        for (double& v : row) v = value;
}

// Runs one step from the current `state` on the plain path, then on the
// specialised path in two lanes and, where the processor has them, in four.
// `run(fast)` steps through the exported entry point with the specialised
// path allowed or not and returns what it handed back (the state included);
// `kernel()` calls the specialised kernel alone and returns whether it ran,
// and a kernel that declines must leave the state as it was. Leaves the
// plain step's state behind; returns whether the kernel ran.
template <typename State, typename Run, typename Kernel, typename Same>
bool step_both_paths(State& state, Run run, Kernel kernel, Same same, const char* what) {
    const State start = state;
    magcal::set_fast_path_enabled(false);
    const auto plain = run();
    magcal::set_fast_path_enabled(true);
    const State after_plain = state;
    bool taken = false;
    for (const bool wide : {false, true}) {
        if (wide && !magcal::wide_lanes_available()) break;
        magcal::set_wide_lanes_enabled(wide);
        state = start;
        taken = kernel();
        EXPECT_TRUE(taken || same_bits(start, state)) << what << ": a declined step changed it";
        state = start;
        EXPECT_TRUE(same(run(), plain))
            << what << (taken ? " (specialised" : " (declined") << (wide ? ", four lanes)" : ")");
        magcal::set_wide_lanes_enabled(true);
    }
    state = after_plain;
    return taken;
}

}  // namespace magcal_test
