// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Calibration accuracy (0..3) and calibration stage, decided once a sample.
//
// The hard-iron offset can only be trusted once the device has been turned
// enough for the field samples to cover the sphere, and once the field radius
// (|B - offset| [uT]) has stopped moving. So the accuracy rises in steps:
//   1  some rotation seen and the radius steady within 6.0 uT;
//   2  the radius steady within 3.5 uT while the offset agrees with the
//      sphere-fit centre (or a turn about a tilted axis was seen);
//   3  the device moved all round and the radius steady within 3.0 uT at an
//      Earth-like strength, with the offset close to the sphere centre.
// Evidence of rotation comes from the gyroscope (which axis dominates [rad/s]),
// from the gyro attitude (change of its Euler angles [deg] since a reference),
// from tilts of gravity [m/s^2] in four directions, and from the device being
// turned over. The accuracy falls at once when the radius leaves plausible
// bounds. Hold-off lengths are in samples of the current period (10 ms units).
#include <cmath>
#include <cstdint>

#include "fusion/accuracy_state.h"
#include "magcal/magcal_algorithms.h"
#include "matrix/numeric.h"

namespace magcal {

AccuracyState g_accuracy_state;

namespace {

constexpr double kPi = 3.141592025756836;             // 3.141592f widened
constexpr double kDivisorFloor = 0.0001;              // keeps rate ratios finite [rad/s]
constexpr double kTurnRateMin = 0.10000000149011612;  // 0.1f widened: turning at all [rad/s]
constexpr double kTiltRateMin = 0.30000001192092896;  // 0.3f widened: tilting, not resting [rad/s]
constexpr double kTiltRatio = 0.699999988079071;      // 0.7f widened: about 35 deg of tilt
constexpr double kAxisDominance = 6.0;                // rate about one axis vs the other two
constexpr double kFlatAccZ = 2.5;                     // face up enough to judge tilts [m/s^2]
constexpr double kTiltTurnAccY = 3.0;                 // y axis tilted up [m/s^2]
constexpr double kFlipAccXY = 5.0;          // change of gravity on x/y when flipped [m/s^2]
constexpr double kFlipAccZ = 15.5;          // change of gravity on z when flipped [m/s^2]
constexpr int32_t kTurnDone = 1000;         // counter value meaning "seen"
constexpr int32_t kTurnCountMax = 99;       // counting stops here [samples]
constexpr double kMaxRadius = 190.0;        // no Earth field is this strong [uT]
constexpr double kMaxHorizRadius = 150.0;   // nor this strong horizontally [uT]
constexpr double kTol6 = 6.0;               // coarse steadiness [uT]
constexpr double kTol35 = 3.5;              // medium steadiness [uT]
constexpr double kTol3 = 3.0;               // fine steadiness [uT]
constexpr double kMinRadius2 = 20.0;        // weaker fields are not trusted for 2 [uT]
constexpr double kEarthMin = 25.0;          // Earth's field range [uT]
constexpr double kEarthMax = 70.0;          // [uT]
constexpr double kRlsAgree = 10.0;          // offset within this of the sphere centre [uT]
constexpr double kRlsAgreeLoose = 15.0;     // the same, given rotation on several axes [uT]
constexpr double kTiltTurnRlsY = 35.0;      // y gap still fine for a tilted turn [uT]
constexpr double kRlsLost = 50.0;           // the sphere fit has wandered off [uT]
constexpr int32_t kIn3Clear = 10;           // fixed on purpose, not scaled by the period [samples]
constexpr int32_t kAcc3WaitRestart = -500;  // pause after a wait for accuracy 3 [samples]

inline double floored(double divisor) {
    return divisor < kDivisorFloor ? kDivisorFloor : divisor;
}

// Run lengths of the steadiness trackers and of the turn and flip counters.
// Periods outside the usual range fall back to the 10 ms lengths.
struct TrackerLengths {
    int32_t len20;  // 0.2 s [samples]
    int32_t len30;  // 0.3 s [samples]
};

TrackerLengths tracker_lengths(int32_t period_10ms) {
    const int32_t p = period_10ms;
    if (p >= 2 && p <= 29) {
        TrackerLengths t{20 / p, 30 / p};
        if (p >= 21) t.len20 = 1;
        return t;
    }
    return TrackerLengths{20, 30};
}

void mark_all_round(AccuracyState& st) {
    st.all_round = true;
    st.turn_x = true;
    st.turn_y = true;
    st.turn_z = 2;
    st.turn_cnt_z = kTurnDone;
    st.turn_cnt_y = kTurnDone;
    st.turn_cnt_x = kTurnDone;
}

// A tilt seen for the first time sets its face; seen again once all four were
// seen, it sets the second face.
void note_face(AccuracyState& st, bool& face, bool& face2) {
    if (face && st.face_xp && st.face_xn && st.face_yp && st.face_yn) face2 = true;
    if (!face) face = true;
}

}  // namespace
}  // namespace magcal

extern "C" MAGCAL_API int32_t get_accuracy(const double* /*mag*/, const double acc[3],
                                           const double gyro[3], const double rls_diff[3],
                                           int32_t mode, int32_t /*disturbed*/, int32_t period_10ms,
                                           int32_t* accuracy, const double q_gyro[4],
                                           int32_t* rls_reset, double radius, double /*rls_radius*/,
                                           double horiz_radius) {
    using namespace magcal;
    AccuracyState& st = g_accuracy_state;
    const TrackerLengths len = tracker_lengths(period_10ms);
    const int32_t len20 = len.len20;
    const int32_t len30 = len.len30;

    const double gx = gyro[0];
    const double gy = gyro[1];
    const double gz = gyro[2];
    const double g = std::sqrt(gx * gx + gy * gy + gz * gz);
    const double gxy = std::sqrt(gx * gx + gy * gy);
    const double gyz = std::sqrt(gy * gy + gz * gz);
    const double gzx = std::sqrt(gz * gz + gx * gx);

    // Attitude of the gyro quaternion as three angles in [0, 360) [deg].
    double ang0 = 0.0;
    double ang1 = 0.0;
    double ang2 = 0.0;
    if (st.cal_stage == 0) {
        const double w = q_gyro[0];
        const double x = q_gyro[1];
        const double y = q_gyro[2];
        const double z = q_gyro[3];
        const double a0 = std::atan2(2.0 * (x * y + w * z), 2.0 * (w * w + x * x) - 1.0);
        const double a1 = std::asin(2.0 * (w * y - x * z));
        const double a2 = std::atan2(2.0 * (y * z + w * x), 2.0 * (w * w + z * z) - 1.0);
        ang0 = a0 * 180.0 / kPi + 180.0;
        if (ang0 >= 360.0) ang0 -= 360.0;
        ang1 = 90.0 - a1 * 180.0 / kPi;
        if (ang1 >= 360.0) ang1 -= 180.0;
        ang2 = 180.0 - a2 * 180.0 / kPi;
        if (ang2 >= 360.0) ang2 -= 360.0;
        if (!st.ref_taken) {
            st.ref_ang0 = ang0;
            st.ref_ang1 = ang1;
            st.ref_ang2 = ang2;
            st.turn_z = 0;
            st.turn_y = false;
            st.turn_x = false;
            st.ref_acc_x = acc[0];
            st.ref_acc_y = acc[1];
            st.ref_acc_z = acc[2];
            st.tilt_turn = false;
            st.ref_taken = true;
        }
    }

    // Rotation dominated by one axis, held for 0.2 s.
    if (g > kTurnRateMin) {
        if (st.turn_cnt_z <= kTurnCountMax && std::fabs(gz) / floored(gxy) > kAxisDominance) {
            ++st.turn_cnt_z;
            if (st.turn_cnt_z == len20) {
                st.turn_cnt_z = kTurnDone;
                if (st.turn_z == 0) st.turn_z = 1;
            }
        }
        if (st.turn_cnt_x <= kTurnCountMax && std::fabs(gx) / floored(gyz) > kAxisDominance) {
            ++st.turn_cnt_x;
            if (st.turn_cnt_x == len20) {
                st.turn_cnt_x = kTurnDone;
                st.turn_x = true;
            }
        }
        if (st.turn_cnt_y <= kTurnCountMax && std::fabs(gy) / floored(gzx) > kAxisDominance) {
            ++st.turn_cnt_y;
            if (st.turn_cnt_y == len20) {
                st.turn_cnt_y = kTurnDone;
                st.turn_y = true;
            }
        }
        // A turn about an axis between y and z, with the y axis raised: the
        // way a phone is turned while held up to be looked at.
        const double ydz = std::fabs(gy - gz);
        if (gyz / floored(std::fabs(gx)) > kAxisDominance && ydz < std::fabs(gy) &&
            ydz < std::fabs(gz) && acc[1] > kTiltTurnAccY) {
            if (st.turn_cnt_z <= kTurnCountMax) ++st.turn_cnt_z;
            if (st.turn_cnt_z >= len20) {
                st.turn_cnt_z = kTurnDone;
                if (st.turn_z == 0) st.turn_z = 1;
                if (rls_diff[0] < kRlsAgreeLoose && rls_diff[1] < kTiltTurnRlsY && *accuracy >= 1) {
                    st.tilt_turn = true;
                }
            }
        }
    }

    // Change of attitude since the reference.
    if (st.cal_stage == 0) {
        const double d0 = std::fabs(st.ref_ang0 - ang0);
        if (st.turn_z == 0 && d0 > 40.0 && d0 < 320.0) st.turn_z = 1;
        if (d0 > 100.0 && d0 < 260.0) st.turn_z = 2;
        const double d1 = std::fabs(st.ref_ang1 - ang1);
        if (d1 > 40.0 && d1 < 140.0) st.turn_y = true;
        const double d2 = std::fabs(st.ref_ang2 - ang2);
        if (d2 > 40.0 && d2 < 320.0) st.turn_x = true;
    }

    // Tilts in four directions while moving; seven faces count as all round.
    if (g > kTiltRateMin && acc[2] > kFlatAccZ) {
        if (acc[0] / acc[2] > kTiltRatio) note_face(st, st.face_xp, st.face_xp2);
        if (-acc[0] / acc[2] > kTiltRatio) note_face(st, st.face_xn, st.face_xn2);
        if (acc[1] / acc[2] > kTiltRatio) note_face(st, st.face_yp, st.face_yp2);
        if (-acc[1] / acc[2] > kTiltRatio) note_face(st, st.face_yn, st.face_yn2);
        const int32_t faces = int32_t{st.face_xp} + int32_t{st.face_xn} + int32_t{st.face_yp} +
                              int32_t{st.face_yn} + int32_t{st.face_xp2} + int32_t{st.face_xn2} +
                              int32_t{st.face_yp2} + int32_t{st.face_yn2};
        if (faces >= 7) mark_all_round(st);
    }

    // Two axes done count as all round; so does being turned over.
    if (st.turn_cnt_z + st.turn_cnt_y + st.turn_cnt_x >= 2 * kTurnDone) st.all_round = true;
    if (std::fabs(st.ref_acc_x - acc[0]) > kFlipAccXY && acc[2] < 0.0 && st.flip_cnt_x < len30) {
        st.flip_cnt_x += 2;
    }
    if (st.flip_cnt_x >= len30) st.flip_cnt_x = kTurnDone;
    if (std::fabs(st.ref_acc_y - acc[1]) > kFlipAccXY && acc[2] < 0.0 && st.flip_cnt_y < len30) {
        st.flip_cnt_y += 2;
    }
    if (st.flip_cnt_y >= len30) st.flip_cnt_y = kTurnDone;
    if (st.flip_cnt_z < len30 && std::fabs(st.ref_acc_z - acc[2]) > kFlipAccZ) {
        st.flip_cnt_z += 1;
        if (st.flip_cnt_z >= len30) st.flip_cnt_z = kTurnDone;
    }
    if (st.flip_cnt_x + st.flip_cnt_y + st.flip_cnt_z >= 2 * kTurnDone) mark_all_round(st);

    // Loss: an implausible radius means the offset is wrong.
    if ((radius > kMaxRadius && *accuracy >= 3) ||
        (horiz_radius > kMaxHorizRadius && *accuracy >= 1)) {
        *accuracy = 0;
        reset_accuracy();
        return 0;
    }
    if (mode != 1) return st.cal_stage;

    int32_t level = st.cal_stage;

    // Tracker 6.0: rotation seen and a roughly steady radius give accuracy 1.
    if (std::fabs(st.r_ref6 - radius) < kTol6) {
        const int32_t k = st.in6;
        ++st.in6;
        if (k >= 2 * (len30 / 3)) st.out6 = 0;
        if (k >= len30 / 2) {
            if (*accuracy == 0 && (st.turn_x || st.turn_y || st.turn_z != 0)) *accuracy = 1;
            st.in6 = k;
        }
    } else {
        const int32_t k = st.out6;
        ++st.out6;
        if (k >= len20 / 2) st.in6 = 0;
        if (k >= len20) {
            st.out6 = k;
            st.r_ref6 = radius;
            st.in6 = 0;
        }
    }

    // Tracker 3.5: the coarse calibration stage, and accuracy 2.
    if (std::fabs(st.r_ref35 - radius) < kTol35) {
        const int32_t k = st.in35;
        ++st.in35;
        if (k >= 2 * (len30 / 3)) st.out35 = 0;
        if (k >= len30) {
            st.in35 = k;
            if (level < 1 && *accuracy >= 1) {
                if (st.turn_z >= 1 && rls_diff[0] < kRlsAgree && rls_diff[1] < kRlsAgree) {
                    level = 1;
                    st.cal_stage = 1;
                } else {
                    const int32_t spread = (st.turn_x ? 2 : 0) + st.turn_z + (st.turn_y ? 2 : 0);
                    if (spread >= 3) {
                        if (rls_diff[0] < kRlsAgreeLoose &&
                            (rls_diff[1] < kRlsAgreeLoose || st.tilt_turn)) {
                            level = 1;
                            st.cal_stage = 1;
                        }
                    } else if (st.tilt_turn) {
                        level = 1;
                        st.cal_stage = 1;
                    }
                }
            }
            if (radius > kMinRadius2 && *accuracy == 1 &&
                ((rls_diff[0] < kRlsAgree && rls_diff[1] < kRlsAgree) || st.tilt_turn)) {
                *accuracy = 2;
                // Credit the dominant axis so that one more axis completes the turns.
                if (st.turn_cnt_z <= 999 && st.turn_cnt_x <= 999 && st.turn_cnt_y <= 999) {
                    if (st.turn_cnt_z >= st.turn_cnt_x && st.turn_cnt_z >= st.turn_cnt_y) {
                        st.turn_cnt_z = kTurnDone;
                    } else if (st.turn_cnt_x >= st.turn_cnt_y) {
                        st.turn_cnt_x = kTurnDone;
                    } else {
                        st.turn_cnt_y = kTurnDone;
                    }
                }
            }
        }
    } else {
        const int32_t k = st.out35;
        ++st.out35;
        if (k >= len20 / 2) st.in35 = 0;
        if (k >= len20) {
            st.out35 = k;
            st.in35 = 0;
            st.r_ref35 = radius;
        }
    }

    // Tracker 3.0: accuracy 3, or a restart of a sphere fit that is stuck.
    if (!(std::fabs(st.r_ref3 - radius) < kTol3)) {
        const int32_t k = st.out3;
        ++st.out3;
        if (k >= len20 / 2) st.in3 = 0;
        if (k >= len20) {
            st.out3 = k;
            st.r_ref3 = radius;
            st.in3 = 0;
        }
        return level;
    }
    const int32_t k = st.in3;
    ++st.in3;
    if (k >= kIn3Clear) st.out3 = 0;
    if (k < 2 * (len30 / 3)) return level;
    st.in3 = k;
    if (*accuracy >= 1) {
        const bool placed = radius > kEarthMin && radius < kEarthMax && st.all_round &&
                            st.turn_cnt_z + st.turn_cnt_y + st.turn_cnt_x >= 2 * kTurnDone;
        const double th = static_cast<double>(accuracy3_offset_diff_th);
        if (rls_diff[0] < th && rls_diff[1] < th && rls_diff[2] < th && placed) {
            *accuracy = 3;
            st.cal_stage = 2;
            st.acc3_wait = 0;
            return 2;
        }
        if ((*accuracy == 1 || *accuracy == 2) && placed) {
            const int32_t waited = st.acc3_wait;
            ++st.acc3_wait;
            if (waited >= samples_for(100, period_10ms)) {
                st.acc3_wait = kAcc3WaitRestart;
                if (rls_diff[0] > kRlsLost || rls_diff[1] > kRlsLost || rls_diff[2] > kRlsLost) {
                    *rls_reset = 1;
                }
            }
        }
    }
    return level;
}
