/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors */

/* magcal algorithm functions, exported by name for advanced hosts and tools.
 *
 * Every function keeps its state in process-wide records inside the library:
 * none is re-entrant, and a host must serialise all calls. Units: field [uT],
 * acceleration [m/s^2], angular rate [rad/s], time [s], angles [deg].
 * Quaternions are four doubles, scalar first (w, x, y, z). Compiles as C11
 * and as C++17. */
#ifndef MAGCAL_ALGORITHMS_H
#define MAGCAL_ALGORITHMS_H

#include <stddef.h>
#include <stdint.h>

#include "magcal/magcal_export.h"

MAGCAL_EXTERN_C_BEGIN

/* ---------------------------------------------------------------------------
 * Fixed-capacity matrices. Row-major with a fixed row stride; only the leading
 * rows x cols block is meaningful. Sources are passed by value, so a
 * destination may be the same object as a source. */
typedef struct Matrix9 {
    int32_t rows;
    int32_t cols;
    double data[9][9];
} Matrix9;

typedef struct Matrix6 {
    int32_t rows;
    int32_t cols;
    double data[6][6];
} Matrix6;

MAGCAL_API Matrix9* qvmtx_assign(Matrix9* dst, int32_t rows, int32_t cols, double value);
MAGCAL_API int32_t qvmtx_eye(Matrix9* dst, int32_t n);
MAGCAL_API int32_t qvmtx_eye_muls(Matrix9* dst, int32_t n, double s);
MAGCAL_API int32_t qvmtx_trans(Matrix9* dst, Matrix9 a);
MAGCAL_API int32_t qvmtx_mulm(Matrix9* dst, Matrix9 a, Matrix9 b);
MAGCAL_API int32_t qvmtx_muls(Matrix9* dst, Matrix9 a, double s);
MAGCAL_API int32_t qvmtx_divs(Matrix9* dst, Matrix9 a, double s);
MAGCAL_API int32_t qvmtx_addm(Matrix9* dst, Matrix9 a, Matrix9 b);
MAGCAL_API int32_t qvmtx_subm(Matrix9* dst, Matrix9 a, Matrix9 b);
MAGCAL_API int32_t qvmtx_addm_self(Matrix9* m, Matrix9 a);
MAGCAL_API int32_t qvmtx_subm_self(Matrix9* m, Matrix9 a);
MAGCAL_API int32_t qvmtx_muls_self(Matrix9* m, double s);
MAGCAL_API int32_t qvmtx_divs_self(Matrix9* m, double s);
MAGCAL_API int32_t qvmtx_cross(Matrix9* dst, Matrix9 a, Matrix9 b);
MAGCAL_API int32_t qvmtx_inv(Matrix9* dst, Matrix9 a);
MAGCAL_API double qvmtx_trace(Matrix9 a);
MAGCAL_API double qvmtx_norm_square(Matrix9 a);
MAGCAL_API double qvmtx_norm(Matrix9 a);
MAGCAL_API int32_t qvmatrix_double_to_matrix_trans(Matrix9* dst, const double* v, int32_t n);
MAGCAL_API int32_t qvmatrix_matrix_to_double_trans(Matrix9 a, double* out);
MAGCAL_API void QvGyroCal_quaternionmul(Matrix9* dst, Matrix9 p, Matrix9 q);
MAGCAL_API int32_t convm_vec_to_product(Matrix9* dst, Matrix9 v);

MAGCAL_API Matrix6* qvmtx_assign_6(Matrix6* dst, int32_t rows, int32_t cols, double value);
MAGCAL_API int32_t qvmtx_eye_6(Matrix6* dst, int32_t n);
MAGCAL_API int32_t qvmtx_eye_muls_6(Matrix6* dst, int32_t n, double s);
MAGCAL_API int32_t qvmtx_trans_6(Matrix6* dst, Matrix6 a);
MAGCAL_API int32_t qvmtx_mulm_6(Matrix6* dst, Matrix6 a, Matrix6 b);
MAGCAL_API int32_t qvmtx_muls_6(Matrix6* dst, Matrix6 a, double s);
MAGCAL_API int32_t qvmtx_divs_6(Matrix6* dst, Matrix6 a, double s);
MAGCAL_API int32_t qvmtx_addm_6(Matrix6* dst, Matrix6 a, Matrix6 b);
MAGCAL_API int32_t qvmtx_subm_6(Matrix6* dst, Matrix6 a, Matrix6 b);
MAGCAL_API int32_t qvmtx_addm_self_6(Matrix6* m, Matrix6 a);
MAGCAL_API int32_t qvmtx_muls_self_6(Matrix6* m, double s);
MAGCAL_API int32_t qvmtx_divs_self_6(Matrix6* m, double s);
MAGCAL_API int32_t qvmtx_cross_6(Matrix6* dst, Matrix6 a, Matrix6 b);
MAGCAL_API int32_t qvmtx_inv_6(Matrix6* dst, Matrix6 a);
MAGCAL_API double qvmtx_trace_6(Matrix6 a);
MAGCAL_API double qvmtx_norm_square_6(Matrix6 a);
MAGCAL_API double qvmtx_norm_6(Matrix6 a);
MAGCAL_API int32_t qvmatrix_double_to_matrix_trans_6(Matrix6* dst, const double* v, int32_t n);
MAGCAL_API void QvGyroCal_quaternionmul_6(Matrix6* dst, Matrix6 p, Matrix6 q);

MAGCAL_API void qvArrayInit(double* array, int32_t count);

/* ---------------------------------------------------------------------------
 * Recursive least-squares sphere fit of the raw field. */
typedef struct RlsConfig {
    int32_t p_scale_exp;  /* power of ten of the whole initial covariance */
    int32_t p_centre_exp; /* power of ten of the centre block */
    int32_t p_term_exp;   /* power of ten of the d = r^2 - |c|^2 term */
    int32_t r_exp;        /* power of ten of the measurement-noise variance */
    double lambda;        /* forgetting factor (enters squared) */
} RlsConfig;

MAGCAL_API int32_t QvGyroCal_RLS_init(const RlsConfig* config);
MAGCAL_API int32_t QvGyroCal_RLS(double centre_out[3], double* radius_out, const double mag[3]);
MAGCAL_API int32_t QvGyroCal_RLS_update_hr(const double centre[3]);

/* ---------------------------------------------------------------------------
 * Gyro-aided Kalman offset calibration. */
MAGCAL_API void func_Offset_Calibration_KF_init(const double prior_offset[3]);
MAGCAL_API void func_Offset_Calibration_KF_reset(void);
MAGCAL_API void func_Offset_Calibration_KF_update_xf(int32_t set_reading, const double reading[3],
                                                     int32_t set_offset, const double offset[3]);
MAGCAL_API void func_Offset_Calibration_KF_v4(const double mag[3], const double gyro[3],
                                              double offset_out[3], double* radius_out, double dt);

/* ---------------------------------------------------------------------------
 * Attitude kinematics. */
MAGCAL_API extern double qt_gy_p[4]; /* quaternion before the last gyro propagation */

MAGCAL_API void func_Quat_Gyro_v2(const double gyro[3], double q[4], double dt);
MAGCAL_API int32_t acc_mag2quaternion_b(double q_out[4], const double acc[3], const double mag[3]);
MAGCAL_API int32_t convm_dc_to_quat_b(double q_out[4], const Matrix6* dcm);
MAGCAL_API void QvGyroCal_quaternion2angle(double angles[3], const double q[4]);

/* ---------------------------------------------------------------------------
 * Nine-state error Kalman filter (attitude error, gyro bias, mag offset). */
MAGCAL_API int32_t QvGyroCal_9_states_init(const double config[14]);
MAGCAL_API void QvGyroCal_9_states(double q[4], double mag_corr_out[3], double bias_corr_out[3],
                                   const double mag[3], const double acc[3], const double gyro[3],
                                   const double gyro_prev[3], double dt);

/* ---------------------------------------------------------------------------
 * Motion, disturbance and stability detectors. */
MAGCAL_API int32_t func_Dual_Cal_Motion_Detection_with_Acc_Gyro_Signal_v2(const double gyro[3],
                                                                          const double acc[3],
                                                                          int32_t period_10ms,
                                                                          int32_t accuracy);
MAGCAL_API int32_t func_Disturbance_Detection_v7(const double mag[3], const double offset[3],
                                                 double* field_ref, int32_t* disturbed,
                                                 int32_t period_10ms, double radius);
MAGCAL_API int32_t func_R_Stability_from_RLSM_v8(int32_t disturbed, double* ref_radius,
                                                 int32_t* stable, int32_t period_10ms,
                                                 double radius);

/* ---------------------------------------------------------------------------
 * Calibration accuracy. */
MAGCAL_API extern float accuracy3_offset_diff_th; /* largest per-axis KF/RLS gap for accuracy 3 [uT] */

MAGCAL_API int32_t get_accuracy(const double mag[3], const double acc[3], const double gyro[3],
                                const double rls_diff[3], int32_t mode, int32_t disturbed,
                                int32_t period_10ms, int32_t* accuracy, const double q_gyro[4],
                                int32_t* rls_reset, double radius, double rls_radius,
                                double horiz_radius);
MAGCAL_API int32_t reset_accuracy(void);
MAGCAL_API int32_t reset_accuracy2(void);
MAGCAL_API int32_t set_calibrated(void);
MAGCAL_API int32_t set_accuracy3_th(int32_t tenths);
MAGCAL_API int32_t set_reset_cnt(void);

/* ---------------------------------------------------------------------------
 * Fusion driver. */
MAGCAL_API int32_t QvGyroCal_init_9_states(void);
MAGCAL_API int32_t QvGyroCal_init_9_states_160423(void);
MAGCAL_API int32_t QvGyroCal_update_offset_9_states(double quat_out[4], double offset_out[3],
                                                    int32_t* accuracy_out, double* radius_out,
                                                    const double mag[3], const double acc[3],
                                                    const double gyro[3], double dt);
MAGCAL_API void Sensor_Fusion_9_Hybrid_Mar_2018_v3(double quat_out[4], double offset_out[3],
                                                   int32_t* accuracy_out, double* radius_out,
                                                   const double mag[3], const double acc[3],
                                                   const double gyro[3], double dt);
MAGCAL_API int32_t QvGyroCal_config_status_9_states(const double offset[3], int32_t accuracy,
                                                    double radius);
MAGCAL_API int32_t QvGyroCal_config_status_9_accuracy(const double tuning[4]);

/* ---------------------------------------------------------------------------
 * Calibration driver. */

/* One sample's results, in the order the host interface narrows them. */
typedef struct CalibrationResult {
    double rotation_vector[4]; /* x, y, z, w */
    double orientation[3];     /* azimuth, pitch, roll [deg] */
    double linear_accel[3];    /* [m/s^2] */
    double gravity[3];         /* [m/s^2] */
    double offset[3];          /* published hard-iron offset [uT] */
    double calibrated[3];      /* calibrated field [uT] */
    int32_t accuracy;          /* 0..3, in a double-sized slot */
    int32_t accuracy_pad;
    double radius; /* field radius [uT] */
} CalibrationResult;

MAGCAL_API int32_t QvGyroCal_init(void);
MAGCAL_API int32_t QvGyroCal_config_softiron(const double m[9]);
MAGCAL_API int32_t QvGyroCal_config_status(const double offset[3], int32_t accuracy, double radius);
MAGCAL_API int32_t QvGyroCal_config_accuracy(const double tuning[4]);
MAGCAL_API int32_t QvGyroCal_save(void);
MAGCAL_API int32_t QvGyroCal_update_last_timestamp(double t);
MAGCAL_API int32_t set_acc3_th(int32_t tenths);
MAGCAL_API int32_t QvGyroCal_init_reset(void);
MAGCAL_API int32_t QvGyroCal_init_start(void);
MAGCAL_API int32_t QvGyroCal_update_offset(CalibrationResult* r, const double mag[3],
                                           const double acc[3], const double gyro[3], double t);
MAGCAL_API void QvGyroCal_update_get_pitch_roll(const double acc[3], double* pitch, double* roll);
MAGCAL_API double angle_filter(double azimuth);
MAGCAL_API double* average_filter(double v[3]);

#if defined(__cplusplus)
static_assert(sizeof(Matrix9) == 656, "Matrix9 layout");
static_assert(offsetof(Matrix9, data) == 8, "Matrix9 data at 8");
static_assert(sizeof(Matrix6) == 296, "Matrix6 layout");
static_assert(offsetof(Matrix6, data) == 8, "Matrix6 data at 8");
static_assert(sizeof(RlsConfig) == 24, "RlsConfig layout");
static_assert(offsetof(RlsConfig, lambda) == 16, "RlsConfig.lambda at 16");
static_assert(offsetof(CalibrationResult, orientation) == 32, "orientation at 32");
static_assert(offsetof(CalibrationResult, offset) == 104, "offset at 104");
static_assert(offsetof(CalibrationResult, calibrated) == 128, "calibrated at 128");
static_assert(offsetof(CalibrationResult, accuracy) == 152, "accuracy at 152");
static_assert(offsetof(CalibrationResult, radius) == 160, "radius at 160");
static_assert(sizeof(CalibrationResult) == 168, "CalibrationResult layout");
#else
_Static_assert(sizeof(Matrix9) == 656, "Matrix9 layout");
_Static_assert(sizeof(Matrix6) == 296, "Matrix6 layout");
_Static_assert(sizeof(RlsConfig) == 24, "RlsConfig layout");
_Static_assert(sizeof(CalibrationResult) == 168, "CalibrationResult layout");
#endif

MAGCAL_EXTERN_C_END

#endif /* MAGCAL_ALGORITHMS_H */
