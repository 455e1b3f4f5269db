// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Sample entry points. Accelerometer and gyroscope samples are only stored;
// a magnetometer sample runs the whole pipeline on the caller's thread once
// both other sensors have delivered, and parks the results in the output
// records. Values are widened to double on the way in and narrowed to float
// on the way out.
#include "api/host_state.h"
#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_host.h"

namespace magcal {

HostInterfaceState g_host = {
    0, 0, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {},
    {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0}, 0,
};

namespace {

// Values, status, then timestamp: the order the host's record is read in.
void store_sample(SensorSample* dst, const SensorSample* src) {
    dst->x = src->x;
    dst->y = src->y;
    dst->z = src->z;
    dst->status = src->status;
    dst->timestamp = src->timestamp;
}

void widen(double dst[3], const SensorSample& s) {
    dst[0] = static_cast<double>(s.x);
    dst[1] = static_cast<double>(s.y);
    dst[2] = static_cast<double>(s.z);
}

// Writes timestamp, the three values and the accuracy byte; the rest of the
// record is never touched.
void write_output(FusionOutput* out, int64_t timestamp, const double values[3],
                  int32_t accuracy) {
    out->timestamp = timestamp;
    out->values[0] = static_cast<float>(values[0]);
    out->values[1] = static_cast<float>(values[1]);
    out->values[2] = static_cast<float>(values[2]);
    out->accuracy = static_cast<uint8_t>(accuracy & 0xff);
}

}  // namespace
}  // namespace magcal

using namespace magcal;

extern "C" MAGCAL_API int32_t QVG_caliApiSetGyroData(const SensorSample* sample) {
    if (sample == nullptr) return 0;
    store_sample(&g_host.gyroDataIn, sample);
    g_host.gyro_ready = 1;
    return 0;
}

extern "C" MAGCAL_API int32_t QVG_caliApiSetAccData(const SensorSample* sample) {
    if (sample == nullptr) return 0;
    store_sample(&g_host.accDataIn, sample);
    g_host.acc_ready = 1;
    return 0;
}

// Deliberately a no-op: magnetometer samples are processed through
// QVG_doCaliApi only, and a host that feeds this slot gets no processing.
extern "C" MAGCAL_API int32_t QVG_SetMagData(const SensorSample* sample) {
    (void)sample;
    return 0;
}

extern "C" MAGCAL_API int32_t QVG_caliApiSetMagData(const SensorSample* s) {
    if (s == nullptr) return 0;
    HostInterfaceState& h = g_host;
    store_sample(&h.magDataIn, s);
    if (!(h.acc_ready == 1 && h.gyro_ready != 0)) return 0;

    const double t = static_cast<double>(s->timestamp) / 1e9;
    widen(h.mag_vec, *s);
    widen(h.acc_vec, h.accDataIn);
    widen(h.gyro_vec, h.gyroDataIn);
    // A refused sample leaves the results as they were; the outputs are still
    // rewritten from them with the new timestamp.
    QvGyroCal_update_offset(&h.result, h.mag_vec, h.acc_vec, h.gyro_vec, t);

    const CalibrationResult& r = h.result;
    const int64_t ts = s->timestamp;
    write_output(&h.qvGravity, ts, r.gravity, r.accuracy);
    write_output(&h.qvRotationVector, ts, r.rotation_vector, r.accuracy);
    write_output(&h.qvOrientation, ts, r.orientation, r.accuracy);
    write_output(&h.qvLinearaccel, ts, r.linear_accel, r.accuracy);
    write_output(&h.qvGeoMagnetic, ts, r.calibrated, r.accuracy);
    write_output(&h.qvVirtualGyro, ts, h.gyro_vec, r.accuracy);
    return 0;
}

extern "C" MAGCAL_API int32_t QVG_doCaliApi(const SensorSample* s, CalibratedMagResult* out) {
    if (s == nullptr) return 0;
    widen(g_host.mag_vec, *s);
    QVG_caliApiSetMagData(s);
    if (out == nullptr) return 0;
    const CalibrationResult& r = g_host.result;
    out->accuracy = static_cast<uint8_t>(r.accuracy & 0xff);
    out->timestamp = s->timestamp;
    for (int k = 0; k < 3; ++k) {
        out->field[k] = static_cast<float>(r.calibrated[k]);
        out->offset[k] = static_cast<float>(r.offset[k]);
    }
    return 0;
}
