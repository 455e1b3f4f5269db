// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Resets of the accuracy evidence, called by the fusion driver when what was
// learnt can no longer be trusted. Neither touches the reported accuracy
// itself; the driver decides that. The reference attitude and acceleration
// survive both: they are retaken on the next sample because `ref_taken` drops.
#include <cstdint>

#include "fusion/accuracy_state.h"
#include "magcal/magcal_algorithms.h"

// Softer: the radius must settle again, but the device need not be waved
// around a second time (turn and flip counters, all-round and faces stay).
extern "C" MAGCAL_API int32_t reset_accuracy2(void) {
    magcal::AccuracyState& st = magcal::g_accuracy_state;
    st.r_ref6 = 0.0;
    st.r_ref35 = 0.0;
    st.r_ref3 = 0.0;
    st.in6 = 0;
    st.out6 = 0;
    st.in35 = 0;
    st.out35 = 0;
    st.in3 = 0;
    st.out3 = 0;
    st.turn_z = 0;
    st.turn_y = false;
    st.turn_x = false;
    st.ref_taken = false;
    st.tilt_turn = false;
    st.acc3_wait = 0;
    st.cal_stage = 0;
    return 0;
}

// Forget everything: what the soft reset forgets, and the motion evidence too.
extern "C" MAGCAL_API int32_t reset_accuracy(void) {
    reset_accuracy2();
    magcal::AccuracyState& st = magcal::g_accuracy_state;
    st.turn_cnt_z = 0;
    st.turn_cnt_y = 0;
    st.turn_cnt_x = 0;
    st.all_round = false;
    st.face_xp = st.face_xn = st.face_yp = st.face_yn = false;
    st.face_xp2 = st.face_xn2 = st.face_yp2 = st.face_yn2 = false;
    st.flip_cnt_x = 0;
    st.flip_cnt_y = 0;
    st.flip_cnt_z = 0;
    return 0;
}

// A calibration restored at start-up counts as complete.
extern "C" MAGCAL_API int32_t set_calibrated(void) {
    magcal::g_accuracy_state.cal_stage = 2;
    return 0;
}
