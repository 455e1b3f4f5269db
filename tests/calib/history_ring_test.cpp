// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The per-sample update's three smoothing filters keep their histories in
// rings. Each is checked here against a model that keeps its history as the
// plain arrays the filters first had, shifting every entry along on every
// call, over long streams with special values and changing sample periods:
// every result must have the same bits.
#include <gtest/gtest.h>

#include <cmath>

#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "support/library_reset.h"
#include "support/value_source.h"

namespace {

using magcal_test::same_bits;
using magcal_test::ValueSource;

constexpr double kPi = 3.141592025756836;  // 3.141592f widened

int32_t per_period(int32_t hundredths, int32_t period) {
    return period == 0 ? 0 : hundredths / period;
}

// The shifting forms, as the filters read before their histories became rings.
struct ShiftedHistories {
    double accel[50][3] = {};
    int32_t accel_cnt = 0;
    double angle[100] = {10000.0};
    int32_t angle_cnt = 0;
    double mag[80][3] = {};
    int32_t mag_cnt = 0;

    void pitch_roll(const double acc[3], int32_t period, double* pitch, double* roll) {
        const int32_t window = per_period(50, period);
        const int32_t n = accel_cnt >= window ? window : accel_cnt + 1;
        accel_cnt = n;
        double sum[3] = {acc[0], acc[1], acc[2]};
        if (n >= 2)
            for (int32_t k = (n - 1 < 49 ? n - 1 : 49); k >= 1; --k)
                for (int i = 0; i < 3; ++i) {
                    accel[k][i] = accel[k - 1][i];
                    sum[i] += accel[k][i];
                }
        for (int i = 0; i < 3; ++i) accel[0][i] = acc[i];
        double mean[3];
        for (int i = 0; i < 3; ++i) mean[i] = sum[i] / n;
        const double norm = std::sqrt(mean[0] * mean[0] + mean[1] * mean[1] + mean[2] * mean[2]);
        double p = std::asin(-mean[1] / norm) * 180 / kPi;
        *roll = std::asin(mean[0] / norm) * 180 / kPi;
        if (mean[2] < 0) p = p >= 0 ? 180 - p : -180 - p;
        *pitch = p;
    }

    double angle_filter(double a, int32_t period) {
        const int32_t length = (period >= 2 && period <= 29) ? per_period(100, period) : 100;
        if (angle_cnt == 0) {
            angle[0] = a;
            angle_cnt = 1;
            return a;
        }
        const double wrap = ((a >= 0 && a < 90) || (a >= 270 && a <= 360)) ? 360 : 0;
        double sum = a < 180 ? a + wrap : a;
        int32_t count = angle_cnt;
        for (int i = 99; i >= 1; --i) {
            angle[i] = angle[i - 1];
            if (i > angle_cnt) continue;
            const double v = angle[i];
            const double gap = std::fabs(a - v);
            if (count >= 1 && gap > 10 && gap < 350)
                --count;
            else
                sum += v < 180 ? v + wrap : v;
        }
        double result = sum / (count + 1);
        if (result >= 360) result -= 360;
        angle[0] = a;
        angle_cnt = angle_cnt + 1 >= length ? length - 1 : angle_cnt + 1;
        return result;
    }

    void average_filter(double v[3], int32_t period) {
        int32_t length = per_period(80, period);
        if (length < 1) length = 1;
        if (mag_cnt < 80) {
            for (auto& entry : mag)
                for (int i = 0; i < 3; ++i) entry[i] = v[i];
            mag_cnt = 80;
            return;
        }
        double sum[3] = {0.0, 0.0, 0.0};
        for (int i = 79; i >= 1; --i)
            for (int k = 0; k < 3; ++k) {
                mag[i][k] = mag[i - 1][k];
                if (i < length) sum[k] += mag[i][k];
            }
        for (int k = 0; k < 3; ++k) {
            mag[0][k] = v[k];
            v[k] = (sum[k] + v[k]) / length;
        }
    }
};

// The same bits; except that when a sum meets two NaNs of different sign the
// result's sign depends on which operand the compiler puts first, which C++
// leaves open and which differs between this model and the library in some
// builds (the sanitizer build does it). The host-level comparison of two
// builds (scripts/compare-with-base.sh) checks the shipped build's NaNs.
bool same_result(double a, double b) {
    return same_bits(a, b) || (a != a && b != b);
}

double sample(ValueSource& src, double lo, double hi) {
    return src.chance(0.01) ? src.special() : src.uniform(lo, hi);
}

TEST(HistoryRings, EveryFilterGivesTheShiftedHistorysBitsOverLongStreams) {
    const int32_t periods[] = {1, 2, 3, 5, 20, 1, 2, 0, -3, 25, 30};
    for (uint64_t seed = 1; seed <= 3; ++seed) {
        magcal_test::reset_library_state();
        ShiftedHistories model;
        ValueSource src(seed);
        int32_t period = 2;
        for (int step = 0; step < 6000; ++step) {
            if (src.chance(0.01)) period = periods[src.index(11)];
            if (src.chance(0.002)) model.mag_cnt = magcal::g_update_history.mag_cnt = 0;
            magcal::period_10ms = period;

            const double acc[3] = {sample(src, -3.0, 3.0), sample(src, -3.0, 3.0),
                                   sample(src, -10.0, 10.0)};
            double pitch = 0.0, roll = 0.0, model_pitch = 0.0, model_roll = 0.0;
            QvGyroCal_update_get_pitch_roll(acc, &pitch, &roll);
            model.pitch_roll(acc, period, &model_pitch, &model_roll);
            ASSERT_TRUE(same_result(pitch, model_pitch) && same_result(roll, model_roll)) << step;
            ASSERT_EQ(magcal::g_update_history.accel_b_cnt, model.accel_cnt);

            // Azimuths bunch near north so that the wrap and the outlier rule both work.
            const double a = src.chance(0.5) ? sample(src, 0.0, 360.0)
                                             : std::fmod(360.0 + sample(src, -15.0, 15.0), 360.0);
            ASSERT_TRUE(same_result(angle_filter(a), model.angle_filter(a, period))) << step;
            ASSERT_EQ(magcal::g_update_history.angle_cnt, model.angle_cnt);

            double field[3] = {sample(src, -60.0, 60.0), sample(src, -60.0, 60.0),
                               sample(src, -60.0, 60.0)};
            double model_field[3] = {field[0], field[1], field[2]};
            average_filter(field);
            model.average_filter(model_field, period);
            for (int k = 0; k < 3; ++k) ASSERT_TRUE(same_result(field[k], model_field[k])) << step;
        }
    }
}

}  // namespace
