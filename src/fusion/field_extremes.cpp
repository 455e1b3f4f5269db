// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "fusion/field_extremes.h"

namespace magcal {
namespace {

constexpr double kStartLowest = 5000.0;    // no field is stronger [uT]
constexpr double kStartHighest = -5000.0;  // [uT]

int32_t wrap(int32_t position) {
    return position >= kFieldHistoryLength ? position - kFieldHistoryLength : position;
}

// Entries out of the window, or in the slot the new sample just took, leave
// from the front.
void drop_old(SlotQueue& q, int32_t newest, int32_t count) {
    while (q.size > 0) {
        const int32_t slot = q.slot[q.first];
        const int32_t age = wrap(slot - newest + kFieldHistoryLength);
        if (slot != newest && age < count) break;
        q.first = static_cast<uint8_t>(wrap(q.first + 1));
        --q.size;
    }
}

// `outranks(a, b)`: an entry of value b is no longer needed once a newer
// entry of value a arrives.
template <typename Outranks>
void push_newest(SlotQueue& q, const double (*hist)[3], int axis, int32_t newest,
                 Outranks outranks) {
    const double v = hist[newest][axis];
    if (v != v) return;  // NaN
    while (q.size > 0 && outranks(v, hist[q.slot[wrap(q.first + q.size - 1)]][axis])) --q.size;
    q.slot[wrap(q.first + q.size)] = static_cast<uint8_t>(newest);
    ++q.size;
}

}  // namespace

void update_field_extremes(FieldExtremes& e, const double (*hist)[3], int32_t newest, int32_t count,
                           double lowest[3], double highest[3]) {
    for (int axis = 0; axis < 3; ++axis) {
        SlotQueue& low = e.low[axis];
        SlotQueue& high = e.high[axis];
        drop_old(low, newest, count);
        drop_old(high, newest, count);
        push_newest(low, hist, axis, newest, [](double a, double b) { return a <= b; });
        push_newest(high, hist, axis, newest, [](double a, double b) { return a >= b; });
        lowest[axis] = kStartLowest;
        highest[axis] = kStartHighest;
        if (low.size > 0 && hist[low.slot[low.first]][axis] < kStartLowest)
            lowest[axis] = hist[low.slot[low.first]][axis];
        if (high.size > 0 && hist[high.slot[high.first]][axis] > kStartHighest)
            highest[axis] = hist[high.slot[high.first]][axis];
    }
}

}  // namespace magcal
