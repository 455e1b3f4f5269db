// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The read-only view of the accuracy decision for replay tools. This is the
// one place outside the tests that reads several modules' process-wide
// records at once; it only copies, so the library's outputs cannot depend on
// whether anyone looks. The plug-in's export map leaves the function hidden;
// libmagcal_trace.so exports it.
#include <cstring>

#include "calib/calibration_state.h"
#include "fusion/accuracy_state.h"
#include "fusion/detector_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_decision_snapshot.h"

namespace magcal {
namespace {

void copy_vector(double out[3], const double in[3]) {
    std::memcpy(out, in, 3 * sizeof(double));
}

int32_t flag(bool b) {
    return b ? 1 : 0;
}

void copy_fusion(const FusionState& fs, MagcalDecisionSnapshot* s) {
    copy_vector(s->mag, fs.mag_hist[fs.mag_hist_newest]);  // the history is a ring
    copy_vector(s->offset_est, fs.offset_est);
    copy_vector(s->offset_pub, fs.offset_pub);
    s->radius = fs.radius;
    s->ref_radius = fs.ref_radius;
    copy_vector(s->rls_centre, fs.rls_centre);
    s->rls_radius = fs.rls_radius;
    s->start_radius_tol = start_radius_tol();
    s->accuracy = fs.accuracy;
    s->acc_prev = fs.acc_prev;
    s->run_state = fs.run_state;
    s->period_10ms = period_10ms;
    s->move_hold = fs.move_hold;
    s->fast_hold = fs.fast_hold;
    s->range_hold = fs.range_hold;
    s->recover_cnt = fs.recover_cnt;
    s->rls_drift_cnt = fs.rls_drift_cnt;
    s->agree_cnt = fs.agree_cnt;
    s->mag_hist_cnt = fs.mag_hist_cnt;
    s->disturbed = fs.disturbed;
    s->stable = fs.stable;
    s->cal_flag = flag(fs.cal_flag);
    s->fusion_enable = flag(fs.fusion_enable);
    s->rls_started = flag(fs.rls_started);
    s->kf_ran = flag(fs.kf_ran);
}

void copy_accuracy(const AccuracyState& st, MagcalDecisionSnapshot* s) {
    s->r_ref6 = st.r_ref6;
    s->r_ref35 = st.r_ref35;
    s->r_ref3 = st.r_ref3;
    s->ref_ang0 = st.ref_ang0;
    s->ref_ang1 = st.ref_ang1;
    s->ref_ang2 = st.ref_ang2;
    s->ref_acc_x = st.ref_acc_x;
    s->ref_acc_y = st.ref_acc_y;
    s->ref_acc_z = st.ref_acc_z;
    s->accuracy3_offset_diff_th = static_cast<double>(accuracy3_offset_diff_th);
    s->cal_stage = st.cal_stage;
    s->in6 = st.in6;
    s->out6 = st.out6;
    s->in35 = st.in35;
    s->out35 = st.out35;
    s->in3 = st.in3;
    s->out3 = st.out3;
    s->turn_cnt_x = st.turn_cnt_x;
    s->turn_cnt_y = st.turn_cnt_y;
    s->turn_cnt_z = st.turn_cnt_z;
    s->turn_x = flag(st.turn_x);
    s->turn_y = flag(st.turn_y);
    s->turn_z = st.turn_z;
    s->face_xp = flag(st.face_xp);
    s->face_xn = flag(st.face_xn);
    s->face_yp = flag(st.face_yp);
    s->face_yn = flag(st.face_yn);
    s->face_xp2 = flag(st.face_xp2);
    s->face_xn2 = flag(st.face_xn2);
    s->face_yp2 = flag(st.face_yp2);
    s->face_yn2 = flag(st.face_yn2);
    s->flip_cnt_x = st.flip_cnt_x;
    s->flip_cnt_y = st.flip_cnt_y;
    s->flip_cnt_z = st.flip_cnt_z;
    s->all_round = flag(st.all_round);
    s->ref_taken = flag(st.ref_taken);
    s->tilt_turn = flag(st.tilt_turn);
    s->acc3_wait = st.acc3_wait;
}

}  // namespace
}  // namespace magcal

extern "C" MAGCAL_API int32_t magcal_decision_snapshot(MagcalDecisionSnapshot* out, size_t size) {
    using namespace magcal;
    if (out == nullptr || size != sizeof(MagcalDecisionSnapshot)) return -1;
    MagcalDecisionSnapshot s;
    std::memset(&s, 0, sizeof s);
    s.size = sizeof(MagcalDecisionSnapshot);
    s.version = MAGCAL_DECISION_SNAPSHOT_VERSION;
    copy_fusion(g_fusion, &s);
    copy_accuracy(g_accuracy_state, &s);
    s.last_time = g_gyro_cal.last_time;
    s.moving = g_motion_state.moving;
    s.in_cnt = g_stability_state.in_cnt;
    s.out_cnt = g_stability_state.out_cnt;
    *out = s;
    return 0;
}
