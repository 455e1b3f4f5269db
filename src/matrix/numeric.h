// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Small numeric rules shared by every stage.
#pragma once

#include <cmath>
#include <cstdint>

namespace magcal {

// Truncation toward zero into an int32, defined for every input: values that
// do not fit (and NaN) give INT32_MIN, which is what the hardware conversion
// yields, instead of undefined behaviour.
inline int32_t truncate_to_int32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// A hold-off written as hundredths of a second, in samples of the current
// period (integer division). A zero period gives 0 rather than a trap.
inline int32_t samples_for(int32_t hundredths, int32_t period_10ms) {
    if (period_10ms == 0) return 0;
    return hundredths / period_10ms;
}

// The sample period in units of 10 ms for a step of `dt` seconds: rounded,
// at least 1 and at most 20.
inline int32_t period_from_step(double dt) {
    int32_t period = truncate_to_int32(std::fabs(dt) * 100.0 + 0.5);
    if (period == 0) period = 1;
    if (period >= 21) period = 20;
    return period;
}

// Histories are rings read newest first: entry k (0 the newest) of a ring
// of N slots whose newest entry is in slot `newest`. A new entry goes into
// the slot before the newest, so nothing is ever shifted.
template <typename T, int N>
T& ring_entry(T (&ring)[N], int32_t newest, int32_t k) {
    return ring[(newest + k) % N];
}

template <int N>
int32_t ring_slot_before(int32_t newest) {
    return newest == 0 ? N - 1 : newest - 1;
}

// Calls visit(slot) for entries last, last - 1, ..., first of a ring of N
// slots (0 the newest): the oldest first, as a history shifted along reads
// them, without an index division per entry.
template <int N, typename Visit>
void ring_visit_oldest_first(int32_t newest, int32_t first, int32_t last, Visit visit) {
    int32_t k = last;
    for (; k >= first && newest + k >= N; --k) visit(newest + k - N);
    for (; k >= first; --k) visit(newest + k);
}

// Calls visit(slot) for entries 0, 1, ..., count - 1: the newest first.
template <int N, typename Visit>
void ring_visit_newest_first(int32_t newest, int32_t count, Visit visit) {
    int32_t k = 0;
    for (; k < count && newest + k < N; ++k) visit(newest + k);
    for (; k < count; ++k) visit(newest + k - N);
}

}  // namespace magcal
