/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors */

/* magcal host interface.
 *
 * A sensor service loads libmagcal.so, resolves the data symbol
 * MAG_LIB_API_INTERFACE and calls the library only through the function
 * pointers in it. The record layouts below are binary contracts: sizes and
 * offsets are checked at compile time. Compiles as C11 and as C++17. */
#ifndef MAGCAL_HOST_H
#define MAGCAL_HOST_H

#include <stddef.h>
#include <stdint.h>

#include "magcal/magcal_export.h"

MAGCAL_EXTERN_C_BEGIN

/* One sample of one sensor, as the host hands it over. */
typedef struct SensorSample {
    int64_t timestamp; /* [ns] */
    float x;           /* [uT], [m/s^2] or [rad/s] depending on the sensor */
    float y;
    float z;
    int32_t status; /* stored with the sample, never used */
} SensorSample;

/* One fused output as the getters copy it. Bytes 20-31 and 33-39 belong to
 * the caller: the library never writes them. */
typedef struct FusionOutput {
    int64_t timestamp;  /* [ns] of the magnetometer sample that produced it */
    float values[3];    /* meaning depends on the getter */
    float reserved[3];  /* never written by the library */
    uint8_t accuracy;   /* 0..3 */
    uint8_t tail[7];    /* never written by the library */
} FusionOutput;

/* Result of one magnetometer sample, filled by QVG_doCaliApi. */
typedef struct CalibratedMagResult {
    int64_t timestamp; /* [ns] */
    float field[3];    /* calibrated field [uT] */
    float offset[3];   /* published hard-iron offset [uT] */
    uint8_t accuracy;  /* 0..3, low byte of the accuracy */
    uint8_t tail[7];   /* never written by the library */
} CalibratedMagResult;

typedef int32_t (*QvgVoidFn)(void);
typedef int32_t (*QvgOffsetOutFn)(float offset[3]);
typedef int32_t (*QvgOffsetInFn)(const float offset[3]);
typedef int32_t (*QvgSampleFn)(const SensorSample* sample);
typedef int32_t (*QvgProcessFn)(const SensorSample* mag, CalibratedMagResult* out);
typedef int32_t (*QvgGetterFn)(FusionOutput* out);

/* The exported table: a name pointer, then fifteen entry points in this
 * fixed slot order. */
typedef struct MagLibApiInterface {
    const char* name; /* "MAG_LIB_API_INTERFACE" */
    QvgVoidFn initLib;                  /* 1  QVG_initLib */
    QvgVoidFn enableLib;                /* 2  QVG_enableLib */
    QvgOffsetOutFn caliApiGetOffset;    /* 3  QVG_caliApiGetOffset */
    QvgOffsetInFn caliApiSetOffset;     /* 4  QVG_caliApiSetOffset */
    QvgSampleFn caliApiSetGyroData;     /* 5  QVG_caliApiSetGyroData */
    QvgSampleFn caliApiSetAccData;      /* 6  QVG_caliApiSetAccData */
    QvgSampleFn setMagData;             /* 7  QVG_SetMagData: does nothing */
    QvgProcessFn doCaliApi;             /* 8  QVG_doCaliApi */
    QvgGetterFn getGravity;             /* 9  QVG_getGravity */
    QvgGetterFn getRotationVector;      /* 10 QVG_getRotationVector */
    QvgGetterFn getOrientation;         /* 11 QVG_getOrientation */
    QvgGetterFn getLinearaccel;         /* 12 QVG_getLinearaccel */
    QvgGetterFn getGameRotationVector;  /* 13 QVG_getGameRotationVector */
    QvgGetterFn getGeoMagnetic;         /* 14 QVG_getGeoMagnetic */
    QvgGetterFn getVirtualGyro;         /* 15 QVG_getVirtualGyro */
} MagLibApiInterface;

MAGCAL_API extern const MagLibApiInterface MAG_LIB_API_INTERFACE;

/* The entry points, also exported by name. All return 0, except
 * QVG_LoadPDC (1 on success, -1 on failure). */
MAGCAL_API int32_t QVG_initLib(void);
MAGCAL_API int32_t QVG_enableLib(void);
MAGCAL_API int32_t QVG_caliApiGetOffset(float offset[3]);
MAGCAL_API int32_t QVG_caliApiSetOffset(const float offset[3]);
MAGCAL_API int32_t QVG_caliApiSetGyroData(const SensorSample* sample);
MAGCAL_API int32_t QVG_caliApiSetAccData(const SensorSample* sample);
MAGCAL_API int32_t QVG_caliApiSetMagData(const SensorSample* sample);
MAGCAL_API int32_t QVG_SetMagData(const SensorSample* sample);
MAGCAL_API int32_t QVG_doCaliApi(const SensorSample* mag, CalibratedMagResult* out);
MAGCAL_API int32_t QVG_getGravity(FusionOutput* out);
MAGCAL_API int32_t QVG_getRotationVector(FusionOutput* out);
MAGCAL_API int32_t QVG_getOrientation(FusionOutput* out);
MAGCAL_API int32_t QVG_getLinearaccel(FusionOutput* out);
MAGCAL_API int32_t QVG_getGameRotationVector(FusionOutput* out);
MAGCAL_API int32_t QVG_getGeoMagnetic(FusionOutput* out);
MAGCAL_API int32_t QVG_getVirtualGyro(FusionOutput* out);
MAGCAL_API int32_t QVG_LoadPDC(double matrix[9]);

/* Reads `count` numbers of the array member `key` of the JSON object in the
 * file at `path` into out (through single precision). 0 on success, 1 on
 * failure with out untouched. */
MAGCAL_API int32_t getJsonCalibration(const char* path, const char* key, double out[],
                                      size_t count);

#if defined(__cplusplus)
static_assert(sizeof(SensorSample) == 24, "SensorSample is 24 bytes");
static_assert(offsetof(SensorSample, x) == 8, "SensorSample.x at 8");
static_assert(offsetof(SensorSample, status) == 20, "SensorSample.status at 20");
static_assert(sizeof(FusionOutput) == 40, "FusionOutput is 40 bytes");
static_assert(offsetof(FusionOutput, values) == 8, "FusionOutput.values at 8");
static_assert(offsetof(FusionOutput, reserved) == 20, "FusionOutput.reserved at 20");
static_assert(offsetof(FusionOutput, accuracy) == 32, "FusionOutput.accuracy at 32");
static_assert(sizeof(CalibratedMagResult) == 40, "CalibratedMagResult is 40 bytes");
static_assert(offsetof(CalibratedMagResult, field) == 8, "field at 8");
static_assert(offsetof(CalibratedMagResult, offset) == 20, "offset at 20");
static_assert(offsetof(CalibratedMagResult, accuracy) == 32, "accuracy at 32");
static_assert(offsetof(MagLibApiInterface, getVirtualGyro) == 15 * sizeof(void*),
              "fifteen slots after the name");
#else
_Static_assert(sizeof(SensorSample) == 24, "SensorSample is 24 bytes");
_Static_assert(offsetof(SensorSample, x) == 8, "SensorSample.x at 8");
_Static_assert(offsetof(SensorSample, status) == 20, "SensorSample.status at 20");
_Static_assert(sizeof(FusionOutput) == 40, "FusionOutput is 40 bytes");
_Static_assert(offsetof(FusionOutput, values) == 8, "FusionOutput.values at 8");
_Static_assert(offsetof(FusionOutput, reserved) == 20, "FusionOutput.reserved at 20");
_Static_assert(offsetof(FusionOutput, accuracy) == 32, "FusionOutput.accuracy at 32");
_Static_assert(sizeof(CalibratedMagResult) == 40, "CalibratedMagResult is 40 bytes");
_Static_assert(offsetof(CalibratedMagResult, field) == 8, "field at 8");
_Static_assert(offsetof(CalibratedMagResult, offset) == 20, "offset at 20");
_Static_assert(offsetof(CalibratedMagResult, accuracy) == 32, "accuracy at 32");
_Static_assert(offsetof(MagLibApiInterface, getVirtualGyro) == 15 * sizeof(void*),
               "fifteen slots after the name");
#endif

MAGCAL_EXTERN_C_END

#endif /* MAGCAL_HOST_H */
