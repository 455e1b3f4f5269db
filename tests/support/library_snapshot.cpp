// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include "support/library_snapshot.h"

#include <cstring>

#include "magcal/magcal_algorithms.h"

namespace magcal_test {

LibrarySnapshot capture_library() {
    using namespace magcal;
    LibrarySnapshot s{};
    std::memcpy(&s.host, &g_host, sizeof s.host);
    std::memcpy(&s.gyro_cal, &g_gyro_cal, sizeof s.gyro_cal);
    std::memcpy(s.softiron, softiron, sizeof s.softiron);
    std::memcpy(&s.update_history, &g_update_history, sizeof s.update_history);
    std::memcpy(&s.fusion, &g_fusion, sizeof s.fusion);
    std::memcpy(s.q_fused, q_fused, sizeof s.q_fused);
    std::memcpy(s.q_gyro, q_gyro, sizeof s.q_gyro);
    std::memcpy(s.qt_gy_p, qt_gy_p, sizeof s.qt_gy_p);
    std::memcpy(&s.period_10ms, &period_10ms, sizeof s.period_10ms);
    std::memcpy(s.accuracy_tuning, g_accuracy_tuning, sizeof s.accuracy_tuning);
    std::memcpy(&s.motion, &g_motion_state, sizeof s.motion);
    std::memcpy(&s.stability, &g_stability_state, sizeof s.stability);
    std::memcpy(&s.accuracy, &g_accuracy_state, sizeof s.accuracy);
    std::memcpy(&s.accuracy3_offset_diff_th, &accuracy3_offset_diff_th,
                sizeof s.accuracy3_offset_diff_th);
    std::memcpy(&s.nine_state, &ekf::g_nine_state, sizeof s.nine_state);
    std::memcpy(&s.sphere_fit, &offset::g_sphere_fit, sizeof s.sphere_fit);
    std::memcpy(&s.offset_kalman, &offset::g_offset_kalman, sizeof s.offset_kalman);
    return s;
}

void restore_library(const LibrarySnapshot& s) {
    using namespace magcal;
    std::memcpy(&g_host, &s.host, sizeof s.host);
    std::memcpy(&g_gyro_cal, &s.gyro_cal, sizeof s.gyro_cal);
    std::memcpy(softiron, s.softiron, sizeof s.softiron);
    std::memcpy(&g_update_history, &s.update_history, sizeof s.update_history);
    std::memcpy(&g_fusion, &s.fusion, sizeof s.fusion);
    std::memcpy(q_fused, s.q_fused, sizeof s.q_fused);
    std::memcpy(q_gyro, s.q_gyro, sizeof s.q_gyro);
    std::memcpy(qt_gy_p, s.qt_gy_p, sizeof s.qt_gy_p);
    std::memcpy(&period_10ms, &s.period_10ms, sizeof s.period_10ms);
    std::memcpy(g_accuracy_tuning, s.accuracy_tuning, sizeof s.accuracy_tuning);
    std::memcpy(&g_motion_state, &s.motion, sizeof s.motion);
    std::memcpy(&g_stability_state, &s.stability, sizeof s.stability);
    std::memcpy(&g_accuracy_state, &s.accuracy, sizeof s.accuracy);
    std::memcpy(&accuracy3_offset_diff_th, &s.accuracy3_offset_diff_th,
                sizeof s.accuracy3_offset_diff_th);
    std::memcpy(&ekf::g_nine_state, &s.nine_state, sizeof s.nine_state);
    std::memcpy(&offset::g_sphere_fit, &s.sphere_fit, sizeof s.sphere_fit);
    std::memcpy(&offset::g_offset_kalman, &s.offset_kalman, sizeof s.offset_kalman);
}

namespace {

template <typename T>
bool same(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

}  // namespace

std::string differing_records(const LibrarySnapshot& a, const LibrarySnapshot& b) {
    std::string names;
    auto check = [&names](bool equal, const char* name) {
        if (!equal) names += std::string(names.empty() ? "" : ", ") + name;
    };
    check(same(a.host, b.host), "host records");
    check(same(a.gyro_cal, b.gyro_cal), "calibration state");
    check(same(a.softiron, b.softiron), "soft iron");
    check(same(a.update_history, b.update_history), "update histories");
    check(same(a.fusion, b.fusion), "fusion state");
    check(same(a.q_fused, b.q_fused) && same(a.q_gyro, b.q_gyro) && same(a.qt_gy_p, b.qt_gy_p),
          "quaternions");
    check(a.period_10ms == b.period_10ms && same(a.accuracy_tuning, b.accuracy_tuning) &&
              same(a.accuracy3_offset_diff_th, b.accuracy3_offset_diff_th),
          "period and tuning");
    check(
        same(a.motion, b.motion) && same(a.stability, b.stability) && same(a.accuracy, b.accuracy),
        "detectors and accuracy");
    const auto& n = a.nine_state;
    const auto& m = b.nine_state;
    check(same(n.ns_P, m.ns_P) && same(n.ns_Q, m.ns_Q) && same(n.ns_R, m.ns_R) &&
              same(n.ns_dip, m.ns_dip) && same(n.ns_dip_gain, m.ns_dip_gain) &&
              same(n.ns_lambda, m.ns_lambda),
          "nine-state filter");
    const auto& f = a.sphere_fit;
    const auto& g = b.sphere_fit;
    check(same(f.rls_theta, g.rls_theta) && same(f.rls_P, g.rls_P) && same(f.rls_r, g.rls_r) &&
              same(f.rls_lambda, g.rls_lambda),
          "sphere fit");
    const auto& k = a.offset_kalman;
    const auto& l = b.offset_kalman;
    check(same(k.kf_xf, l.kf_xf) && same(k.kf_Pf, l.kf_Pf) && same(k.kf_Pf0, l.kf_Pf0) &&
              same(k.kf_Qf, l.kf_Qf) && same(k.kf_Qf0, l.kf_Qf0) && same(k.kf_Rf, l.kf_Rf),
          "Kalman offset filter");
    return names;
}

}  // namespace magcal_test
