// Circular moving average of the azimuth over one second, with outlier
// rejection. Angles near north (below 90 or from 270 on) are averaged with
// those below 180 lifted by 360, so that 358 and 2 average to 0, not 180; a
// history entry more than 10 degrees from the input (but not across north)
// is dropped from the average. Angles [deg].
#include <cmath>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"

using namespace magcal;

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
    int32_t count = h.angle_cnt;
    // The entries before the new one, oldest first, as far as the count goes.
    const int32_t last = h.angle_cnt < 99 ? h.angle_cnt : 99;
    ring_visit_oldest_first<100>(h.angle_newest, 0, last - 1, [&](int32_t slot) {
        const double v = h.angle_buf[slot];
        const double gap = std::fabs(a - v);
        if (count >= 1 && gap > 10 && gap < 350) {
            --count;  // outlier
        } else {
            sum += v < 180 ? v + wrap : v;  // the entry and its wrap as one term
        }
    });
    double result = sum / (count + 1);
    if (result >= 360) result -= 360;
    h.angle_newest = ring_slot_before<100>(h.angle_newest);
    h.angle_buf[h.angle_newest] = a;
    h.angle_cnt = h.angle_cnt + 1;
    if (h.angle_cnt >= length) h.angle_cnt = length - 1;
    return result;
}
