// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Circular moving average of the azimuth over one second, with outlier
// rejection. Angles near north (below 90 or from 270 on) are averaged with
// those below 180 lifted by 360, so that 358 and 2 average to 0, not 180; a
// history entry more than 10 degrees from the input (but not across north)
// is dropped from the average. Angles [deg].
#include <cmath>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/row_kernels.h"

using namespace magcal;

namespace {

constexpr double kOutlierGap = 10.0;    // farther from the input is an outlier [deg]
constexpr double kAcrossNorth = 350.0;  // a gap this large is a neighbour across north [deg]

// Each entry's term in the average for the slots lo..hi of the history (and
// their neighbours in the same pair): the entry lifted by `wrap` when below
// 180, or +0.0 where the entry is an outlier; `outlier` is -1 for an
// outlier and 0 otherwise.
void entry_terms(const double buf[100], int32_t lo, int32_t hi, double a, double wrap,
                 double term[100], long long outlier[100]) {
#if defined(__SSE2__)
    // Two entries at a time with the comparisons as bit masks.
    const __m128d input = _mm_set1_pd(a);
    const __m128d wraps = _mm_set1_pd(wrap);
    const __m128d magnitude = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffff));
    for (int32_t s = lo & ~1; s <= hi; s += 2) {
        const __m128d v = _mm_loadu_pd(&buf[s]);
        const __m128d gap = _mm_and_pd(_mm_sub_pd(input, v), magnitude);
        const __m128d drop = _mm_and_pd(_mm_cmpgt_pd(gap, _mm_set1_pd(kOutlierGap)),
                                        _mm_cmplt_pd(gap, _mm_set1_pd(kAcrossNorth)));
        // v + wrap below 180, else v + 0.0, which is v itself there (v >= 180 or NaN).
        const __m128d lifted =
            _mm_add_pd(v, _mm_and_pd(wraps, _mm_cmplt_pd(v, _mm_set1_pd(180.0))));
        _mm_storeu_pd(&term[s], _mm_andnot_pd(drop, lifted));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(&outlier[s]), _mm_castpd_si128(drop));
    }
#else
    for (int32_t s = lo & ~1; s <= (hi | 1); ++s) {
        const double v = buf[s];
        const double gap = std::fabs(a - v);
        const bool drop = gap > kOutlierGap && gap < kAcrossNorth;
        term[s] = drop ? 0.0 : v < 180 ? v + wrap : v;
        outlier[s] = drop ? -1 : 0;
    }
#endif
}

}  // namespace

extern "C" MAGCAL_API double angle_filter(double a) {
    UpdateHistory& h = g_update_history;
    const int32_t length =
        (period_10ms >= 2 && period_10ms <= 29) ? samples_for(100, period_10ms) : 100;
    if (h.angle_cnt == 0) {
        ring_entry(h.angle_buf, h.angle_newest, 0) = a;
        h.angle_cnt = 1;
        return a;
    }
    const double wrap = ((a >= 0 && a < 90) || (a >= 270 && a <= 360)) ? 360 : 0;
    double sum = a < 180 ? a + wrap : a;

    // The entries before the new one, oldest first, as far as the count goes:
    // slots newest .. newest + last - 1 of the ring, in at most two runs.
    // Their terms are formed for all of them at once; the sum then adds them
    // in order without a branch. An outlier's term is +0.0, which leaves the
    // sum as it was: the sum starts as a lifted input, never -0.0, and a sum
    // becomes -0.0 only from two -0.0 operands. The rule's guard that the
    // count is still at least 1 when an outlier is dropped always holds (at
    // most last - 1 <= angle_cnt - 1 entries precede one), so the count is
    // angle_cnt less the outliers.
    const int32_t last = h.angle_cnt < 99 ? h.angle_cnt : 99;
    double term[100];
    long long outlier[100];
    if (last >= 1) {
        const int32_t end = h.angle_newest + last - 1;  // the oldest entry's slot, unwrapped
        entry_terms(h.angle_buf, h.angle_newest, end < 100 ? end : 99, a, wrap, term, outlier);
        if (end >= 100) entry_terms(h.angle_buf, 0, end - 100, a, wrap, term, outlier);
    }
    long long outliers = 0;
    ring_visit_oldest_first<100>(h.angle_newest, 0, last - 1, [&](int32_t slot) {
        sum = matrix::add_nan_first(sum, term[slot]);
        outliers -= outlier[slot];
    });
    const int32_t count = h.angle_cnt - static_cast<int32_t>(outliers);

    double result = sum / (count + 1);
    if (result >= 360) result -= 360;
    h.angle_newest = ring_slot_before<100>(h.angle_newest);
    h.angle_buf[h.angle_newest] = a;
    h.angle_cnt = h.angle_cnt + 1;
    if (h.angle_cnt >= length) h.angle_cnt = length - 1;
    return result;
}
