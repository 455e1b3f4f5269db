// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Getters: copy timestamp, the three values and the accuracy byte of one
// output record. Bytes 20-31 and 33-39 of the caller's record stay as the
// caller had them. There is no separate game rotation vector: it is the
// rotation vector.
#include "api/host_state.h"
#include "magcal/magcal_host.h"

using namespace magcal;

namespace {
int32_t copy_output(FusionOutput* out, const FusionOutput& src) {
    if (out == nullptr) return 0;
    out->timestamp = src.timestamp;
    out->accuracy = src.accuracy;
    out->values[0] = src.values[0];
    out->values[1] = src.values[1];
    out->values[2] = src.values[2];
    return 0;
}
}  // namespace

extern "C" MAGCAL_API int32_t QVG_getGravity(FusionOutput* out) {
    return copy_output(out, g_host.qvGravity);
}
extern "C" MAGCAL_API int32_t QVG_getRotationVector(FusionOutput* out) {
    return copy_output(out, g_host.qvRotationVector);
}
extern "C" MAGCAL_API int32_t QVG_getOrientation(FusionOutput* out) {
    return copy_output(out, g_host.qvOrientation);
}
extern "C" MAGCAL_API int32_t QVG_getLinearaccel(FusionOutput* out) {
    return copy_output(out, g_host.qvLinearaccel);
}
extern "C" MAGCAL_API int32_t QVG_getGameRotationVector(FusionOutput* out) {
    return copy_output(out, g_host.qvRotationVector);
}
extern "C" MAGCAL_API int32_t QVG_getGeoMagnetic(FusionOutput* out) {
    return copy_output(out, g_host.qvGeoMagnetic);
}
extern "C" MAGCAL_API int32_t QVG_getVirtualGyro(FusionOutput* out) {
    return copy_output(out, g_host.qvVirtualGyro);
}
