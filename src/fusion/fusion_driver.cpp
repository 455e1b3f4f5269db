// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Nine-axis hybrid fusion driver: one call per magnetometer sample.
//
// Two estimators compete for the hard-iron offset. The gyro-aided Kalman
// offset filter alone moves the working offset (and the field radius), and
// only while the gyroscope reports motion and no field swing is being held
// off. The recursive least-squares sphere fit never writes the offset: it is
// the referee. Its radius agreeing with the reference radius counts towards
// accuracy, and its distance from the Kalman offset and the sample's residual
// against its sphere trigger accuracy loss, offset recovery and its own
// restart. The attitude comes from the nine-state filter while calibration is
// confirmed and from the gyroscope alone otherwise; the gyroscope attitude is
// re-anchored on the filter's while the device turns slowly.
//
// Units: field [uT], acceleration [m/s^2], rate [rad/s], dt [s], angles [deg].
// Hold-offs are hundredths of a second divided by the sample period in 10 ms
// (integer division), reloaded from the current period.
#include <cmath>

#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"
#include "matrix/vector3.h"

namespace magcal {

FusionState g_fusion;
double q_fused[4] = {1.0, 0.0, 0.0, 0.0};
double q_gyro[4] = {1.0, 0.0, 0.0, 0.0};
int32_t period_10ms = 2;
double g_accuracy_tuning[4] = {600.0, 50.0, 10.0, 10.0};

namespace {

constexpr double kMoveRate = 0.10000000149011612;        // 0.1f: the device is turning [rad/s]
constexpr double kFastRate = 0.5;                        // fast turning [rad/s]
constexpr double kFilterRate = 0.05000000074505806;      // 0.05f: enough rate to step the filter
constexpr double kRadiusAgreement = 0.4000000059604645;  // 0.4f: sphere radius agrees [uT]
constexpr double kSwingRange = 130.0;     // a larger swing within a second is no earth field [uT]
constexpr double kMinFieldRadius = 25.0;  // plausible earth field, lower bound [uT]
constexpr double kMaxFieldRadius = 70.0;  // plausible earth field, upper bound [uT]
constexpr double kPublishRadius = 20.0;   // a shorter corrected field is not trusted [uT]

FusionState& fs = g_fusion;

void restart_sphere_fit() {
    const RlsConfig config = fs.rls_start;
    QvGyroCal_RLS_init(&config);
}

void seed_offset_filter(const double mag[3]) {
    func_Offset_Calibration_KF_update_xf(1, mag, 1, fs.offset_est);
}

void subtract3(double out[3], const double a[3], const double b[3]) {
    out[0] = a[0] - b[0];
    out[1] = a[1] - b[1];
    out[2] = a[2] - b[2];
}

// Seeds the offset filter and takes the absolute attitude from this sample
// for both quaternions.
void seed_attitude(const double mag[3], const double acc[3]) {
    seed_offset_filter(mag);
    subtract3(fs.mag_cal, mag, fs.offset_est);
    acc_mag2quaternion_b(q_fused, acc, fs.mag_cal);
    copy4(q_gyro, q_fused);
}

bool stored_radius_plausible(double r) {
    return r > kMinFieldRadius && r < kMaxFieldRadius &&
           std::fabs(r - fs.radius) < start_radius_tol();
}

void lose_accuracy_at_start() {
    fs.accuracy = 0;
    reset_accuracy();
    fs.agree_cnt = 0;
    fs.field_ref = 0.0;
}

// First sample after a restart: only a stored accuracy of 3 whose radius
// still fits survives.
void start_after_restart(const double mag[3], const double acc[3], const double gyro[3]) {
    copy3(fs.gyro_prev, gyro);
    fs.cal_flag = false;
    fs.fusion_enable = false;
    const double r = distance3(mag, fs.offset_est);
    if (fs.accuracy >= 3 && stored_radius_plausible(r)) {
        fs.accuracy = 3;
        fs.cal_flag = true;
        fs.fusion_enable = true;
    } else {
        fs.accuracy = 0;
        fs.field_ref = 0.0;
        reset_accuracy();
        fs.agree_cnt = 0;
    }
    seed_attitude(mag, acc);
}

// First sample after the first initialisation: a stored accuracy of 2 or 3
// whose radius fits is taken as calibrated; below 2 nothing is seeded.
void first_start(const double mag[3], const double acc[3], const double gyro[3], double mag_norm) {
    copy3(fs.gyro_prev, gyro);
    copy3(fs.offset_est, fs.offset_pub);
    copy3(fs.offset_saved, fs.offset_pub);
    const double r = distance3(mag, fs.offset_est);
    fs.cal_flag = false;
    fs.fusion_enable = false;
    if (fs.accuracy < 2) {
        lose_accuracy_at_start();
        return;
    }
    if (stored_radius_plausible(r)) {
        fs.accuracy = 3;
        fs.disturbed = 0;
        fs.ref_radius = fs.radius;
        fs.stable = 1;
        fs.field_ref = mag_norm;
        fs.cal_flag = true;
        fs.fusion_enable = true;
        set_calibrated();
    } else {
        lose_accuracy_at_start();
    }
    seed_attitude(mag, acc);
}

void count_down(int32_t* counter) {
    if (*counter > 0) --*counter;
}

void update_gyro_holds(double g) {
    if (g >= kMoveRate)
        fs.move_hold = samples_for(60, period_10ms);
    else
        count_down(&fs.move_hold);
    if (g >= kFastRate)
        fs.fast_hold = samples_for(50, period_10ms);
    else
        count_down(&fs.fast_hold);
}

// Pushes the sample into the one-second history; returns whether any axis
// swung by more than kSwingRange within it.
bool push_field_history(const double mag[3]) {
    fs.mag_hist_newest = ring_slot_before<kFieldHistoryLength>(fs.mag_hist_newest);
    copy3(fs.mag_hist[fs.mag_hist_newest], mag);
    // The new sample always counts; older entries only up to the valid count.
    const int32_t scanned = 1 + (fs.mag_hist_cnt < 0    ? 0
                                 : fs.mag_hist_cnt < 99 ? fs.mag_hist_cnt
                                                        : 99);
    double lo[3];
    double hi[3];
    update_field_extremes(fs.mag_hist_extremes, fs.mag_hist, fs.mag_hist_newest, scanned, lo, hi);
    bool swing = false;
    for (int axis = 0; axis < 3; ++axis)
        if (hi[axis] - lo[axis] > kSwingRange) swing = true;
    const int32_t window = samples_for(100, period_10ms);
    fs.mag_hist_cnt = fs.mag_hist_cnt + 1;
    if (fs.mag_hist_cnt >= window) fs.mag_hist_cnt = window - 1;
    return swing;
}

void apply_swing_test(bool swing) {
    if (swing) {
        fs.range_hold = samples_for(60, period_10ms);
        reset_accuracy();
        fs.agree_cnt = 0;
    } else if (fs.range_hold > 0) {
        --fs.range_hold;
        if (fs.range_hold == 0) {
            reset_accuracy();
            fs.agree_cnt = 0;
            restart_sphere_fit();
        }
    }
}

void run_sphere_fit(const double mag[3], const double acc[3], const double gyro[3]) {
    const int32_t moving =
        func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(gyro, acc, period_10ms, fs.accuracy);
    if (moving == 0) {
        if (fs.accuracy == 0) fs.rls_started = false;
        return;
    }
    if (!fs.rls_started) {
        fs.rls_started = true;
        restart_sphere_fit();
    }
    if (fs.range_hold != 0) return;
    QvGyroCal_RLS(fs.rls_centre, &fs.rls_radius, mag);
    if (std::fabs(fs.ref_radius - fs.rls_radius) <= kRadiusAgreement) {
        if (fs.agree_cnt < samples_for(40, period_10ms)) ++fs.agree_cnt;
    } else {
        fs.ref_radius = fs.rls_radius;
    }
}

// Restores the last good offset once the recovery countdown has run to 1 with
// nothing calibrated; a field too strong for any earth field restarts the
// offset filter from the sample itself.
void recover_offset(const double mag[3], int32_t level) {
    if (level == 0 && fs.recover_cnt == 1) {
        fs.recover_cnt = 0;
        if (fs.radius < kSwingRange) {
            copy3(fs.offset_est, fs.offset_saved);
        } else {
            for (int k = 0; k < 3; ++k) fs.offset_est[k] = mag[k] - 1.0;
            copy3(fs.offset_saved, fs.offset_est);
            func_Offset_Calibration_KF_reset();
        }
        seed_offset_filter(mag);
    } else {
        count_down(&fs.recover_cnt);
    }
}

void check_offset_jump(const double mag[3], const double rls_diff[3], double rls_resid,
                       int32_t level) {
    if (fs.range_hold > 0) {
        fs.recover_cnt = 1;
        return;
    }
    const bool centre_far = level >= 2 && (rls_diff[0] >= 10.0 || rls_diff[1] >= 10.0);
    const bool off_sphere = rls_resid > 4.0 && level >= 1;
    if (fs.move_hold >= 1 && (centre_far || off_sphere)) {
        fs.recover_cnt = samples_for(80, period_10ms);
        if (level >= 2 && (rls_diff[0] >= 20.0 || rls_resid > 20.0 || rls_diff[1] >= 20.0)) {
            reset_accuracy();
            fs.agree_cnt = 0;
        }
        return;
    }
    recover_offset(mag, level);
}

void track_sphere_drift(const double rls_diff[3]) {
    const double drift = std::sqrt(rls_diff[0] * rls_diff[0] + rls_diff[1] * rls_diff[1]);
    if (fs.accuracy == 3 && drift > 20.0) {
        if (fs.rls_drift_cnt != 0 && fs.rls_started) {
            --fs.rls_drift_cnt;
        } else {
            if (fs.rls_drift_cnt == 0) fs.rls_started = false;
            fs.rls_drift_cnt = samples_for(1000, period_10ms);
        }
    } else {
        fs.rls_drift_cnt = 0;
    }
}

void confirm_calibration(int32_t level) {
    if (level < 1 || fs.disturbed == 1 || fs.recover_cnt >= 1) {
        fs.cal_flag = false;
        fs.fusion_enable = false;
        qvArrayInit(fs.filter_vec_b, 3);
    } else if (fs.stable == 0) {
        fs.cal_flag = false;
        fs.fusion_enable = false;
    } else if (fs.stable == 1) {
        fs.cal_flag = true;
        fs.fusion_enable = true;
    }
}

void choose_attitude(const double mag[3], const double acc[3], const double gyro[3], double dt,
                     double g, const double rls_diff[3], double rls_resid) {
    if (!fs.fusion_enable || fs.range_hold != 0) {
        copy4(q_fused, q_gyro);
        copy4(fs.q_out, q_gyro);
        return;
    }
    subtract3(fs.mag_cal, mag, fs.offset_est);
    if (g > kFilterRate)
        QvGyroCal_9_states(q_fused, fs.filter_vec_a, fs.filter_vec_b, fs.mag_cal, acc, gyro,
                           fs.gyro_prev, dt);
    copy4(fs.q_out, q_fused);
    if (fs.move_hold < 1) return;
    // Re-anchor on the filter while turning slowly; during fast turns only
    // face down with the offset close to the sphere.
    const bool anchor = fs.fast_hold == 0 || (acc[2] <= 0.0 && rls_diff[0] < 7.0 &&
                                              rls_resid < 2.0 && rls_diff[1] < 7.0);
    if (anchor) {
        copy4(q_gyro, q_fused);
        copy3(fs.offset_saved, fs.offset_est);
    }
}

}  // namespace

}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API void Sensor_Fusion_9_Hybrid_Mar_2018_v3(
    double quat_out[4], double offset_out[3], int32_t* accuracy_out, double* radius_out,
    const double mag[3], const double acc[3], const double gyro[3], double dt) {
    const double mag_norm = length3(mag);
    if (!fs.initialised) {
        qvArrayInit(offset_out, 3);
        *radius_out = mag_norm;
        *accuracy_out = 0;
        return;
    }
    if (fs.run_state == 2) start_after_restart(mag, acc, gyro);
    if (fs.run_state == 0) first_start(mag, acc, gyro, mag_norm);

    period_10ms = period_from_step(dt);

    const double g = length3(gyro);
    update_gyro_holds(g);
    const bool moving = g >= kMoveRate;

    const bool swing = push_field_history(mag);
    fs.radius = distance3(mag, fs.offset_est);
    apply_swing_test(swing);

    run_sphere_fit(mag, acc, gyro);
    const double rls_resid = std::fabs(distance3(mag, fs.rls_centre) - fs.rls_radius);

    if (moving && fs.range_hold == 0) {
        if (!fs.kf_ran) seed_offset_filter(mag);
        func_Offset_Calibration_KF_v4(mag, gyro, fs.offset_est, &fs.radius, dt);
        fs.kf_ran = true;
    } else {
        fs.kf_ran = false;
    }

    func_Disturbance_Detection_v7(mag, fs.offset_est, &fs.field_ref, &fs.disturbed, period_10ms,
                                  fs.radius);
    func_R_Stability_from_RLSM_v8(fs.disturbed, &fs.ref_radius, &fs.stable, period_10ms, fs.radius);

    double rls_diff[3];
    for (int k = 0; k < 3; ++k) rls_diff[k] = std::fabs(fs.offset_est[k] - fs.rls_centre[k]);
    fs.acc_prev = fs.accuracy;
    const double hx = mag[0] - fs.offset_est[0];
    const double hy = mag[1] - fs.offset_est[1];
    const double horiz_radius = std::sqrt(hx * hx + hy * hy);
    int32_t rls_reset = 0;
    int32_t level =
        get_accuracy(mag, acc, gyro, rls_diff, 1, fs.disturbed, period_10ms, &fs.accuracy, q_gyro,
                     &rls_reset, fs.radius, fs.rls_radius, horiz_radius);
    if (rls_reset != 0) restart_sphere_fit();
    if (fs.acc_prev < 3 && fs.accuracy >= 3) copy3(fs.offset_saved, fs.offset_est);

    // The gyroscope and the filter must agree on heading once calibrated and
    // the device has settled. The angles are read only then, and forming them
    // changes nothing else, so they are formed only then.
    if (fs.fusion_enable && level >= 1 && fs.move_hold == 0) {
        double angles_gyro[3];
        double angles_fused[3];
        QvGyroCal_quaternion2angle(angles_gyro, q_gyro);
        QvGyroCal_quaternion2angle(angles_fused, q_fused);
        const double d = std::fabs(angles_gyro[0] - angles_fused[0]);
        if (d > 5.0 && d < 355.0) {
            if (rls_resid > 20.0 && level >= 2)
                reset_accuracy();
            else
                reset_accuracy2();
            level = 0;
            fs.agree_cnt = 0;
        }
    }

    check_offset_jump(mag, rls_diff, rls_resid, level);

    if (!fs.cal_flag && level >= 2 && fs.agree_cnt < samples_for(40, period_10ms)) level = 0;

    track_sphere_drift(rls_diff);
    confirm_calibration(level);

    func_Quat_Gyro_v2(gyro, q_gyro, dt);
    choose_attitude(mag, acc, gyro, dt, g, rls_diff, rls_resid);

    copy4(quat_out, fs.q_out);
    if (distance3(mag, fs.offset_est) > kPublishRadius) copy3(fs.offset_pub, fs.offset_est);
    copy3(offset_out, fs.offset_pub);
    copy3(fs.gyro_prev, gyro);
    if (fs.run_state == 0 || fs.run_state == 2) fs.run_state = 1;
    *radius_out = distance3(mag, offset_out);
    *accuracy_out = fs.accuracy;
}

extern "C" MAGCAL_API int32_t QvGyroCal_update_offset_9_states(
    double quat_out[4], double offset_out[3], int32_t* accuracy_out, double* radius_out,
    const double mag[3], const double acc[3], const double gyro[3], double dt) {
    Sensor_Fusion_9_Hybrid_Mar_2018_v3(quat_out, offset_out, accuracy_out, radius_out, mag, acc,
                                       gyro, dt);
    return 0;
}
