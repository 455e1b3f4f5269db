// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// The one object a host resolves: a name, then fifteen entry points in a
// fixed slot order. Slot 7 is the do-nothing magnetometer entry; the working
// one is reached through QVG_doCaliApi.
#include "magcal/magcal_host.h"

extern "C" MAGCAL_API const MagLibApiInterface MAG_LIB_API_INTERFACE = {
    "MAG_LIB_API_INTERFACE",
    QVG_initLib,
    QVG_enableLib,
    QVG_caliApiGetOffset,
    QVG_caliApiSetOffset,
    QVG_caliApiSetGyroData,
    QVG_caliApiSetAccData,
    QVG_SetMagData,
    QVG_doCaliApi,
    QVG_getGravity,
    QVG_getRotationVector,
    QVG_getOrientation,
    QVG_getLinearaccel,
    QVG_getGameRotationVector,
    QVG_getGeoMagnetic,
    QVG_getVirtualGyro,
};
