// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The lowest and highest value per axis over the newest entries of the
// driver's field history ring, kept up to date in constant time per sample
// instead of a scan of up to 100 entries.
//
// For each axis and each direction a queue holds the slots of the entries
// that can still be the extreme of a later window, the oldest at the front,
// their values strictly rising (for the lowest) towards the back. A new
// entry removes from the back every entry it is at least as low as: being
// newer, it stays in every later window those could be in, since a window
// always ends at the newest sample and never starts before the one before
// it. The front leaves once it falls out of the window.
// NaN never enters, as a scan never takes it either. So the extremes are the
// values a scan of the window finds, up to the sign of a zero extreme, which
// the swing test cannot see: it only compares their difference.
#pragma once

#include <cstdint>

namespace magcal {

constexpr int32_t kFieldHistoryLength = 100;  // one second at 100 Hz

struct SlotQueue {
    uint8_t slot[kFieldHistoryLength];  // history slots, a ring
    uint8_t first;                      // position of the oldest in `slot`
    uint8_t size;
};

struct FieldExtremes {
    SlotQueue low[3];   // per axis
    SlotQueue high[3];  // per axis
};

// Brings the queues up to date after the newest sample went into slot
// `newest` of `hist`, for a window of the `count` newest entries (1 to 100),
// and returns per axis the lowest and highest value of the window, starting
// from +-5000 as the scan did.
void update_field_extremes(FieldExtremes& e, const double (*hist)[3], int32_t newest, int32_t count,
                           double lowest[3], double highest[3]);

}  // namespace magcal
