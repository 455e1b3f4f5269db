// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Process-wide record of the calibration-accuracy rules: the evidence that
// the device has been turned enough, and the three radius-steadiness trackers
// that decide when that evidence may raise the accuracy.
#pragma once

#include <cstdint>

namespace magcal {

struct AccuracyState {
    double r_ref6 = 0.0;     // reference radius of the 6.0 uT tracker [uT]
    double r_ref35 = 0.0;    // reference radius of the 3.5 uT tracker [uT]
    double r_ref3 = 0.0;     // reference radius of the 3.0 uT tracker [uT]
    int32_t in6 = 0;         // consecutive samples within 6.0 uT [samples]
    int32_t out6 = 0;        // samples outside 6.0 uT [samples]
    int32_t in35 = 0;        // consecutive samples within 3.5 uT [samples]
    int32_t out35 = 0;       // samples outside 3.5 uT [samples]
    int32_t in3 = 0;         // consecutive samples within 3.0 uT [samples]
    int32_t out3 = 0;        // samples outside 3.0 uT [samples]
    int32_t turn_cnt_z = 0;  // samples of rotation dominated by z; 1000 = done [samples]
    int32_t turn_cnt_y = 0;  // the same about y [samples]
    int32_t turn_cnt_x = 0;  // the same about x [samples]
    bool all_round = false;  // the device has been moved all round
    bool ref_taken = false;  // reference attitude and acceleration taken
    bool tilt_turn = false;  // a turn about a tilted axis seen while the offset agreed
    int32_t acc3_wait = 0;   // wait for accuracy 3; -500 after a wait [samples]
    int32_t cal_stage = 0;   // 0 none, 1 coarse, 2 calibrated
    bool face_xp = false;    // tilt towards +x seen
    bool face_xn = false;    // tilt towards -x seen
    bool face_yp = false;    // tilt towards +y seen
    bool face_yn = false;    // tilt towards -y seen
    bool face_xp2 = false;   // +x seen again after all four
    bool face_xn2 = false;   // -x seen again after all four
    bool face_yp2 = false;   // +y seen again after all four
    bool face_yn2 = false;   // -y seen again after all four
    int32_t turn_z = 0;      // rotation about z: 0 none, 1 some, 2 half a turn
    bool turn_y = false;     // rotation about y seen
    bool turn_x = false;     // rotation about x seen
    int32_t flip_cnt_x = 0;  // turned-over evidence about x; 1000 = done [samples * 2]
    int32_t flip_cnt_y = 0;  // the same about y [samples * 2]
    int32_t flip_cnt_z = 0;  // the same along z [samples]
    double ref_ang0 = 0.0;   // reference heading [deg]
    double ref_ang1 = 0.0;   // reference pitch-like angle [deg]
    double ref_ang2 = 0.0;   // reference roll-like angle [deg]
    double ref_acc_x = 0.0;  // reference acceleration [m/s^2]
    double ref_acc_y = 0.0;  // [m/s^2]
    double ref_acc_z = 9.800000190734863;  // 9.8f widened: flat and still [m/s^2]
};

extern AccuracyState g_accuracy_state;

}  // namespace magcal
