/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors */

/* A minimal sensor-service host in C: load the plug-in, resolve its table,
 * feed a few seconds of samples, read every output. This is the whole
 * integration a device needs (plus persisting the offset, see README).
 *
 * Build: part of the default preset. Run: build/default/examples/host_example
 * [path/to/libmagcal.so] */
#include <dlfcn.h>
#include <math.h>
#include <stdio.h>

#include "magcal/magcal_host.h"

/* A phone lying flat, turning about its z axis at 1 rad/s, in a 45 uT field
 * with a 60 degree dip, its magnetometer carrying a hard-iron offset. */
static void make_samples(int64_t t_ns, SensorSample* acc, SensorSample* gyro, SensorSample* mag) {
    const double t = (double)t_ns * 1e-9;
    const double yaw = 1.0 * t;
    const double horizontal = 45.0 * cos(60.0 * M_PI / 180.0);
    const double vertical = -45.0 * sin(60.0 * M_PI / 180.0);
    const SensorSample a = {t_ns, 0.0f, 0.0f, 9.81f, 3};
    const SensorSample g = {t_ns, 0.0f, 0.0f, 1.0f, 3};
    const SensorSample m = {t_ns, (float)(horizontal * sin(yaw) + 20.0),
                            (float)(horizontal * cos(yaw) - 30.0), (float)(vertical + 15.0), 3};
    *acc = a;
    *gyro = g;
    *mag = m;
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : MAGCAL_PLUGIN_PATH;
    void* plugin = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "cannot load %s: %s\n", path, dlerror());
        return 1;
    }
    const MagLibApiInterface* api =
        (const MagLibApiInterface*)dlsym(plugin, "MAG_LIB_API_INTERFACE");
    if (api == NULL) {
        fprintf(stderr, "%s has no MAG_LIB_API_INTERFACE\n", path);
        return 1;
    }
    printf("loaded %s (%s)\n", path, api->name);
    api->initLib();

    CalibratedMagResult result = {0};
    for (int i = 0; i < 500; ++i) { /* 10 s at 50 Hz */
        SensorSample acc, gyro, mag;
        make_samples(1000000000LL + (int64_t)i * 20000000LL, &acc, &gyro, &mag);
        api->caliApiSetAccData(&acc);
        api->caliApiSetGyroData(&gyro);
        api->doCaliApi(&mag, &result); /* never slot 7: it does nothing */
    }

    FusionOutput orientation, gravity, rotation;
    api->getOrientation(&orientation);
    api->getGravity(&gravity);
    api->getRotationVector(&rotation);
    printf("accuracy %d\n", result.accuracy);
    printf("calibrated field  %8.3f %8.3f %8.3f uT\n", result.field[0], result.field[1],
           result.field[2]);
    printf("published offset  %8.3f %8.3f %8.3f uT\n", result.offset[0], result.offset[1],
           result.offset[2]);
    printf("azimuth/pitch/roll %7.2f %7.2f %7.2f deg\n", orientation.values[0],
           orientation.values[1], orientation.values[2]);
    printf("gravity           %8.3f %8.3f %8.3f m/s^2\n", gravity.values[0], gravity.values[1],
           gravity.values[2]);
    printf("rotation vector   %8.4f %8.4f %8.4f\n", rotation.values[0], rotation.values[1],
           rotation.values[2]);

    /* Persist the calibration as a host would, and restore it. */
    float offset[3];
    api->caliApiGetOffset(offset);
    api->caliApiSetOffset(offset);
    dlclose(plugin);
    return 0;
}
