// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Motion detector: decides whether the device is being turned enough for the
// sphere fit to learn from the field samples.
//
// Model: the score of one sample is built from the accelerometer (gravity,
// m/s^2) and the gyroscope (rad/s). A turn about any axis other than gravity
// gives a large cross product acc x gyro; the component-wise product adds the
// part of the turn along the device axes. A pure turn about the device z axis
// held flat gives neither, so a fallback score rewards a z rate that dominates
// the x/y rates. Motion starts after more than `enter` samples above the
// threshold and ends after more than `release` samples at or below it; both
// lengths follow the sample period (units of 10 ms). Once the accuracy is 3
// the threshold is raised and the release shortened, so only a deliberate
// turn restarts the sphere fit.
#include <cmath>
#include <cstdint>

#include "fusion/detector_state.h"
#include "magcal/magcal_algorithms.h"

namespace magcal {

MotionState g_motion_state;

namespace {

constexpr double kZRateMin = 0.10000000149011612;   // 0.1f widened: z rate for the fallback [rad/s]
constexpr double kZRateWeight = 0.699999988079071;  // 0.7f widened
constexpr double kGravityRef = 9.899999618530273;   // 9.9f widened: flat-device |acc.z| [m/s^2]
constexpr double kFastScore = 6.0;                  // a brisk turn
constexpr double kVeryFastScore = 25.0;             // a fast spin
constexpr int32_t kCountCap = 10000;                // counters stop here [samples]

}  // namespace
}  // namespace magcal

extern "C" MAGCAL_API int32_t func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(
    const double gyro[3], const double acc[3], int32_t period_10ms, int32_t accuracy) {
    using namespace magcal;
    MotionState& st = g_motion_state;

    // Calibrated devices need a clearly stronger turn, and let go sooner.
    double threshold;      // score threshold [rad/s * m/s^2]
    int32_t release_base;  // release length at a 10 ms period [samples]
    if (accuracy < 0) {
        threshold = 1.0;
        release_base = 80;
    } else if (accuracy >= 3) {
        threshold = 4.0;
        release_base = 2;
    } else {
        threshold = 0.5;
        release_base = 60;
    }

    int32_t enter;    // samples above the threshold before motion, minus one [samples]
    int32_t release;  // samples below it before motion ends, minus one [samples]
    int32_t avg_len;  // samples averaged into the score [samples]
    const int32_t p = period_10ms;
    if (p < 2 || p > 29) {
        // Unusual periods: fixed lengths, and smooth the score over two samples.
        enter = 6;
        release = release_base;
        avg_len = 2;
    } else {
        enter = (p >= 7) ? 1 : 6 / p;
        release = (release_base < p) ? 1 : release_base / p;
        avg_len = 1;
    }

    const double cx = acc[1] * gyro[2] - acc[2] * gyro[1];
    const double cy = acc[2] * gyro[0] - acc[0] * gyro[2];
    const double cz = acc[0] * gyro[1] - acc[1] * gyro[0];
    const double cross_len = std::sqrt(cx * cx + cy * cy + cz * cz);
    const double px = acc[0] * gyro[0];
    const double py = acc[1] * gyro[1];
    const double pz = acc[2] * gyro[2];
    const double prod_len = std::sqrt(px * px + py * py + pz * pz);

    double score = 0.0;
    if (prod_len >= threshold / 4.0 && cross_len >= threshold) score = cross_len + prod_len;
    if (score < threshold && std::fabs(gyro[2]) > kZRateMin) {
        // No division guard: a pure z turn scores infinity, which is motion.
        const double gxy = std::sqrt(gyro[0] * gyro[0] + gyro[1] * gyro[1]);
        score = std::fabs(gyro[2]) / gxy * kZRateWeight *
                (1.0 + std::fabs(kGravityRef - std::fabs(acc[2])));
    }

    const double raw = score;
    if (st.avg_cnt != 0) score = (score + st.score_prev) / static_cast<double>(st.avg_cnt + 1);
    st.score_prev = raw;
    st.avg_cnt = (st.avg_cnt + 1 < avg_len) ? st.avg_cnt + 1 : avg_len - 1;

    if (score > threshold) {
        if (st.on_cnt <= kCountCap) ++st.on_cnt;
        if (st.on_cnt == 10 || st.on_cnt > enter) {
            --st.on_cnt;
            st.off_cnt = 0;
            st.moving = 1;
        }
        if (score > kFastScore) {
            if (st.fast_cnt <= kCountCap) ++st.fast_cnt;
            if (st.fast_cnt >= 10 && st.fast_off >= 1 && st.fast_off <= 10) {
                st.fast_cnt += st.fast_off;
                st.fast_off = 0;
            }
            if (st.fast_cnt > enter) {
                st.fast = 1;
                st.fast_off = 0;
                --st.fast_cnt;
            }
            if (score >= kVeryFastScore) {
                if (st.vfast_cnt <= kCountCap) ++st.vfast_cnt;
                if (st.vfast_cnt >= 10 && st.vfast_off >= 1 && st.vfast_off <= 10) {
                    st.vfast_cnt += st.vfast_off;
                    st.vfast_off = 0;
                }
                if (st.vfast_cnt > enter) {
                    st.vfast = 1;
                    st.vfast_off = 0;
                    --st.vfast_cnt;
                }
            } else {
                if (st.vfast_off <= kCountCap) ++st.vfast_off;
                if (st.vfast_off > release) {
                    st.vfast = 0;
                    st.vfast_cnt = 0;
                    --st.vfast_off;
                }
            }
        } else {
            if (st.fast_off <= kCountCap) {
                ++st.fast_off;
                if (st.fast_off >= 10) st.fast_cnt = 0;
            }
            if (st.fast_off > release) {
                st.fast = 0;
                st.vfast = 0;
                st.fast_cnt = 0;
                st.vfast_cnt = 0;
                --st.fast_off;
            }
        }
    } else {
        if (st.off_cnt <= kCountCap) {
            // A quiet spell of ten samples forgets scattered earlier peaks.
            if (st.off_cnt == 10) st.on_cnt = 0;
            ++st.off_cnt;
        }
        if (st.off_cnt > release) {
            st.on_cnt = 0;
            st.fast_cnt = 0;
            st.vfast_cnt = 0;
            st.moving = 0;
            st.fast = 0;
            st.vfast = 0;
            --st.off_cnt;
        }
    }
    return st.moving;
}
