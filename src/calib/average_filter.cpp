// Moving average of the calibrated field over 0.8 s. The first call after an
// initialisation fills the history with its input, so the output starts at
// the first sample instead of ramping up from zero. Field [uT].
#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"

using namespace magcal;

extern "C" MAGCAL_API double* average_filter(double v[3]) {
    UpdateHistory& h = g_update_history;
    int32_t length = samples_for(80, period_10ms);
    if (length < 1) length = 1;
    if (h.mag_cnt < 80) {
        for (auto& entry : h.mag_buf)
            for (int i = 0; i < 3; ++i) entry[i] = v[i];
        h.mag_cnt = 80;
        return v;
    }
    double sum[3] = {0.0, 0.0, 0.0};
    for (int i = 79; i >= 1; --i) {
        for (int k = 0; k < 3; ++k) {
            h.mag_buf[i][k] = h.mag_buf[i - 1][k];
            if (i < length) sum[k] += h.mag_buf[i][k];
        }
    }
    for (int k = 0; k < 3; ++k) {
        h.mag_buf[0][k] = v[k];
        v[k] = (sum[k] + v[k]) / length;
    }
    return v;
}
