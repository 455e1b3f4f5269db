// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The fusion driver's process-wide state. Defined in fusion_driver.cpp; the
// calibration driver restores three fields through the configuration calls,
// and tests read it.
#pragma once

#include <cstdint>

#include "fusion/field_extremes.h"
#include "magcal/magcal_algorithms.h"

namespace magcal {

struct FusionState {
    bool initialised;          // set once by the one-time initialisation
    RlsConfig rls_start;       // sphere-fit start configuration, copied on every re-init
    double filter_config[14];  // nine-state filter configuration
    double filter_vec_a[3];    // last step's mag-offset correction [uT] (never read)
    double filter_vec_b[3];    // last step's gyro-bias correction [rad/s] (never read)
    double offset_est[3];      // working hard-iron offset [uT]
    double q_out[4];           // quaternion reported to the caller
    int32_t run_state;         // 0 first sample, 2 first after restart, 1 running
    double offset_pub[3];      // published offset [uT]; also the stored calibration
    int32_t accuracy;          // reported accuracy 0..3
    double radius;             // |mag - offset_est| [uT]
    double ref_radius;         // reference radius for the sphere fit [uT]
    double gyro_prev[3];       // previous sample's rate [rad/s]
    double offset_saved[3];    // last offset judged good [uT]
    bool cal_flag;             // calibration confirmed (gates the level gate)
    bool fusion_enable;        // nine-state fusion enabled (gates heading test and filter)
    int32_t disturbed;         // 1: magnetic disturbance this sample
    int32_t stable;            // 1: radius stable
    double field_ref;          // raw field magnitude for the disturbance test [uT]; 0 unset
    int32_t agree_cnt;         // sphere-fit radius agreements [samples]
    double mag_cal[3];         // mag - offset_est [uT]
    int32_t move_hold;         // hold after gyro motion [samples]
    int32_t fast_hold;         // hold after fast turning [samples]
    double mag_hist[kFieldHistoryLength][3];  // raw field of the last second, a ring [uT]
    int32_t mag_hist_cnt;                     // valid older entries of mag_hist
    int32_t mag_hist_newest;                  // slot of mag_hist's newest entry
    FieldExtremes mag_hist_extremes;          // per axis extremes of the valid entries
    int32_t range_hold;                       // hold after a >130 uT swing [samples]
    bool rls_started;                         // sphere fit initialised in this spell of motion
    double rls_centre[3];                     // sphere-fit centre [uT]
    double rls_radius;                        // sphere-fit radius [uT]
    bool kf_ran;                              // Kalman offset step ran on the previous sample
    int32_t acc_prev;                         // accuracy before this sample's decision
    int32_t recover_cnt;                      // recovery countdown after an offset jump [samples]
    int32_t rls_drift_cnt;  // sustained offset/centre disagreement countdown [samples]
};

extern FusionState g_fusion;

// The two attitude quaternions (w, x, y, z): the nine-state filter's and the
// gyroscope-only one.
extern double q_fused[4];
extern double q_gyro[4];

// Current sample period in units of 10 ms, 1..20 after the first sample.
extern int32_t period_10ms;

// Accuracy tuning: four doubles of which only the fourth, the start radius
// tolerance [uT], is read.
extern double g_accuracy_tuning[4];
inline double start_radius_tol() {
    return g_accuracy_tuning[3];
}

}  // namespace magcal
