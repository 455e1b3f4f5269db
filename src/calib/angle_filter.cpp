// Circular moving average of the azimuth over one second, with outlier
// rejection. Angles near north (below 90 or from 270 on) are averaged with
// those below 180 lifted by 360, so that 358 and 2 average to 0, not 180; a
// history entry more than 10 degrees from the input (but not across north)
// is dropped from the average. Angles [deg].
#include <cmath>
#include <cstring>
#include <limits>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "calib/calibration_state.h"
#include "calib/smoothing_steps.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"

namespace magcal {
namespace {
constexpr double kOutlierGap = 10.0;    // farther from the input is an outlier [deg]
constexpr double kAcrossNorth = 350.0;  // a gap this large is a neighbour across north [deg]
}  // namespace

bool azimuth_begin(double a, AzimuthStep* step) {
    UpdateHistory& h = g_update_history;
    if (h.angle_cnt == 0) {
        ring_entry(h.angle_buf, h.angle_newest, 0) = a;
        h.angle_cnt = 1;
        return false;
    }
    step->length = (period_10ms >= 2 && period_10ms <= 29) ? samples_for(100, period_10ms) : 100;
    step->wrap = ((a >= 0 && a < 90) || (a >= 270 && a <= 360)) ? 360 : 0;
    step->start = a < 180 ? a + step->wrap : a;
    const int32_t last = h.angle_cnt < 99 ? h.angle_cnt : 99;
    step->entries = last > 0 ? last : 0;
    return true;
}

// An outlier's term is +0.0, which leaves the sum as it was: the sum starts
// as a lifted input, never -0.0, and a sum becomes -0.0 only from two -0.0
// operands. So the sum adds every term in order without a branch.
int32_t azimuth_terms(double a, const AzimuthStep& step, double term[100]) {
    const UpdateHistory& h = g_update_history;
    const int32_t n = step.entries;
    double value[100];  // the entries by age, 0 the newest
    const int32_t first_run = n < 100 - h.angle_newest ? n : 100 - h.angle_newest;
    std::memcpy(value, &h.angle_buf[h.angle_newest], sizeof(double) * first_run);
    std::memcpy(value + first_run, h.angle_buf, sizeof(double) * (n - first_run));
    int64_t outliers = 0;
#if defined(__SSE2__)
    // Two entries at a time with the comparisons as bit masks; the partner of
    // an odd last entry is a NaN, which is never an outlier.
    if (n % 2 == 1) value[n] = std::numeric_limits<double>::quiet_NaN();
    const __m128d input = _mm_set1_pd(a);
    const __m128d wraps = _mm_set1_pd(step.wrap);
    const __m128d magnitude = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffff));
    __m128i count = _mm_setzero_si128();
    for (int32_t k = 0; k < n; k += 2) {
        const __m128d v = _mm_loadu_pd(&value[k]);
        const __m128d gap = _mm_and_pd(_mm_sub_pd(input, v), magnitude);
        const __m128d drop = _mm_and_pd(_mm_cmpgt_pd(gap, _mm_set1_pd(kOutlierGap)),
                                        _mm_cmplt_pd(gap, _mm_set1_pd(kAcrossNorth)));
        // v + wrap below 180, else v + 0.0, which is v itself there (v >= 180 or NaN).
        const __m128d lifted =
            _mm_add_pd(v, _mm_and_pd(wraps, _mm_cmplt_pd(v, _mm_set1_pd(180.0))));
        _mm_storeu_pd(&term[k], _mm_andnot_pd(drop, lifted));
        count = _mm_sub_epi64(count, _mm_castpd_si128(drop));
    }
    int64_t lanes[2];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), count);
    outliers = lanes[0] + lanes[1];
#else
    for (int32_t k = 0; k < n; ++k) {
        const double v = value[k];
        const double gap = std::fabs(a - v);
        const bool drop = gap > kOutlierGap && gap < kAcrossNorth;
        term[k] = drop ? 0.0 : v < 180 ? v + step.wrap : v;
        outliers += drop ? 1 : 0;
    }
#endif
    return static_cast<int32_t>(outliers);
}

// The rule's guard that the count is still at least 1 when an outlier is
// dropped always holds (at most entries - 1 <= angle_cnt - 1 entries precede
// one), so the count is angle_cnt less the outliers.
double azimuth_end(double a, double sum, int32_t outliers, const AzimuthStep& step) {
    UpdateHistory& h = g_update_history;
    const int32_t count = h.angle_cnt - outliers;
    double result = sum / (count + 1);
    if (result >= 360) result -= 360;
    h.angle_newest = ring_slot_before<100>(h.angle_newest);
    h.angle_buf[h.angle_newest] = a;
    h.angle_cnt = h.angle_cnt + 1;
    if (h.angle_cnt >= step.length) h.angle_cnt = step.length - 1;
    return result;
}

}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API double angle_filter(double a) {
    AzimuthStep step;
    if (!azimuth_begin(a, &step)) return a;
    // The entries before the new one, oldest first, as far as the count goes.
    double term[100];
    const int32_t outliers = azimuth_terms(a, step, term);
    double sum = step.start;
    for (int32_t k = step.entries - 1; k >= 0; --k) sum += term[k];
    return azimuth_end(a, sum, outliers, step);
}
