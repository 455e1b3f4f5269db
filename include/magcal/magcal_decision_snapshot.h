/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors
 *
 * A read-only copy of the state behind the calibration accuracy, for tools
 * that replay sensor logs and want to say why the accuracy is what it is.
 *
 * Hosts do not see this: the plug-in libmagcal.so does not export the
 * function below. It is exported by libmagcal_trace.so, the plug-in's own
 * objects linked with one more exported name, which `magcal replay --trace`
 * and the Python package load. Taking a snapshot reads process-wide records
 * and writes only the caller's record, so the library's outputs are the same
 * bits with or without it.
 *
 * Field names are those of the library's own records; units in brackets.
 * Flags are widened to int32 (0 or 1) so that the layout has no padding and
 * reads the same from C, C++ and Python. Compiles as C11 and as C++17. */
#ifndef MAGCAL_DECISION_SNAPSHOT_H
#define MAGCAL_DECISION_SNAPSHOT_H

#include <stddef.h>
#include <stdint.h>

#include "magcal/magcal_export.h"

MAGCAL_EXTERN_C_BEGIN

/* Raised whenever a field is added, removed or changes meaning. */
#define MAGCAL_DECISION_SNAPSHOT_VERSION 1

typedef struct MagcalDecisionSnapshot {
    uint32_t size;    /* sizeof the record as the library filled it [bytes] */
    uint32_t version; /* MAGCAL_DECISION_SNAPSHOT_VERSION of the library */

    /* Fusion driver, after the sample. */
    double mag[3];        /* field the fusion saw last: soft-iron-corrected, offset not removed [uT] */
    double offset_est[3]; /* working hard-iron offset (Kalman offset filter) [uT] */
    double offset_pub[3]; /* published offset [uT] */
    double radius;        /* |mag - offset_est| [uT] */
    double ref_radius;    /* reference radius of the stability check and sphere-fit agreement [uT] */
    double rls_centre[3]; /* sphere-fit centre [uT] */
    double rls_radius;    /* sphere-fit radius [uT] */
    double start_radius_tol; /* largest radius change for a stored accuracy 3 to survive a start [uT] */

    /* Accuracy rules. */
    double r_ref6;  /* reference radius of the 6.0 uT steadiness tracker [uT] */
    double r_ref35; /* of the 3.5 uT tracker [uT] */
    double r_ref3;  /* of the 3.0 uT tracker [uT] */
    double ref_ang0, ref_ang1, ref_ang2;    /* reference attitude angles [deg] */
    double ref_acc_x, ref_acc_y, ref_acc_z; /* reference acceleration [m/s^2] */
    double accuracy3_offset_diff_th;        /* largest offset/sphere-centre gap for 3 [uT] */

    /* Calibration driver. */
    double last_time; /* timestamp of the last accepted sample [s] */

    /* Fusion driver flags and counters. */
    int32_t accuracy;      /* reported accuracy 0..3 */
    int32_t acc_prev;      /* accuracy before this sample's decision */
    int32_t run_state;     /* 0 first sample, 2 first after a restart, 1 running */
    int32_t period_10ms;   /* sample period [10 ms], 1..20 */
    int32_t move_hold;     /* hold after gyroscope motion (0.6 s) [samples] */
    int32_t fast_hold;     /* hold after fast turning (0.5 s) [samples] */
    int32_t range_hold;    /* hold after a field swing of more than 130 uT (0.6 s) [samples] */
    int32_t recover_cnt;   /* recovery countdown after an offset jump (0.8 s) [samples] */
    int32_t rls_drift_cnt; /* countdown of offset/sphere disagreement at accuracy 3 [samples] */
    int32_t agree_cnt;     /* sphere-fit radius agreements, capped at 0.4 s [samples] */
    int32_t mag_hist_cnt;  /* valid older entries of the one-second field history [samples] */
    int32_t disturbed;     /* 1: the raw field strength jumped by more than 15 uT */
    int32_t stable;        /* 1: the radius is stable (stability check) */
    int32_t cal_flag;      /* 1: calibration confirmed */
    int32_t fusion_enable; /* 1: the attitude comes from the nine-state filter */
    int32_t rls_started;   /* 1: the sphere fit runs in this spell of motion */
    int32_t kf_ran;        /* 1: the Kalman offset step ran on this sample */

    /* Detectors. */
    int32_t moving;  /* motion detector's verdict (gates the sphere fit) */
    int32_t in_cnt;  /* stability check: samples within 2.0 uT of ref_radius [samples] */
    int32_t out_cnt; /* stability check: samples outside it [samples] */

    /* Accuracy rules. */
    int32_t cal_stage; /* 0 none, 1 coarse, 2 calibrated */
    int32_t in6, out6, in35, out35, in3, out3; /* steadiness trackers' runs [samples] */
    int32_t turn_cnt_x, turn_cnt_y, turn_cnt_z; /* rotation dominated by an axis; 1000 = done */
    int32_t turn_x, turn_y; /* rotation about x, y seen */
    int32_t turn_z;         /* rotation about z: 0 none, 1 some, 2 half a turn */
    int32_t face_xp, face_xn, face_yp, face_yn;     /* tilt towards +x, -x, +y, -y seen */
    int32_t face_xp2, face_xn2, face_yp2, face_yn2; /* the same seen again after all four */
    int32_t flip_cnt_x, flip_cnt_y, flip_cnt_z;     /* turned-over evidence; 1000 = done */
    int32_t all_round; /* the device has been moved all round */
    int32_t ref_taken; /* reference attitude and acceleration taken */
    int32_t tilt_turn; /* a turn about a tilted axis seen while the offset agreed */
    int32_t acc3_wait; /* wait for accuracy 3; -500 after a wait [samples] */
} MagcalDecisionSnapshot;

/* Fills *out with the current decision state and returns 0. Returns -1 and
 * writes nothing when `size` is not sizeof(MagcalDecisionSnapshot) of the
 * library, so a tool built against another layout cannot misread it; the
 * tool should also compare `version`. Reads only; not for hosts. */
MAGCAL_API int32_t magcal_decision_snapshot(MagcalDecisionSnapshot* out, size_t size);

MAGCAL_EXTERN_C_END

#ifdef __cplusplus
static_assert(sizeof(MagcalDecisionSnapshot) % 8 == 0, "no tail padding");
static_assert(offsetof(MagcalDecisionSnapshot, accuracy) ==
                  8 + 8 * (3 + 3 + 3 + 1 + 1 + 3 + 1 + 1 + 3 + 3 + 3 + 1 + 1),
              "doubles are packed");
#else
_Static_assert(sizeof(MagcalDecisionSnapshot) % 8 == 0, "no tail padding");
#endif

#endif /* MAGCAL_DECISION_SNAPSHOT_H */
