// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Counts heap allocations made through operator new in this test process, so
// that tests can prove a per-sample function allocates nothing.
#pragma once

#include <cstddef>

namespace magcal_test {

// Number of operator new calls since the process started.
std::size_t allocation_count();

// Runs `body` and returns how many allocations it made.
template <typename Body>
std::size_t allocations_during(Body&& body) {
    const std::size_t before = allocation_count();
    body();
    return allocation_count() - before;
}

}  // namespace magcal_test
