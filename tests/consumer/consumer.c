/* SPDX-License-Identifier: Apache-2.0
 * Copyright 2026 The magcal Authors
 *
 * A host built against an installed (or embedded) magcal: it loads the
 * plug-in as a sensor service does (dlopen, then only the table), or, built
 * without MAGCAL_PLUGIN_PATH, calls the statically linked table. It replays
 * the golden stream and checks that every result a host can see is the
 * golden output narrowed to float, bit for bit, and that the headers carry
 * the version the package or pkg-config file announced. Exit 0 on success. */
#include <dlfcn.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "magcal/magcal_host.h"
#include "magcal/magcal_version.h"

enum {
    kGoldenColumns = 22
}; /* t, accuracy, rv[4], angles[3], lin[3], grav[3], offset[3], cal[3], radius */

static int failures = 0;

static void expect_same(const char* what, long line, float actual, double golden) {
    const float expected = (float)golden;
    if (memcmp(&actual, &expected, sizeof actual) != 0 && failures++ < 10)
        fprintf(stderr, "golden line %ld: %s is %a, expected %a\n", line, what, actual, expected);
}

static const MagLibApiInterface* load_table(void) {
#ifdef MAGCAL_PLUGIN_PATH
    void* plugin = dlopen(MAGCAL_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "cannot load %s: %s\n", MAGCAL_PLUGIN_PATH, dlerror());
        return NULL;
    }
    const MagLibApiInterface* api = dlsym(plugin, "MAG_LIB_API_INTERFACE");
    if (api == NULL) fprintf(stderr, "%s has no MAG_LIB_API_INTERFACE\n", MAGCAL_PLUGIN_PATH);
    return api;
#else
    return &MAG_LIB_API_INTERFACE;
#endif
}

int main(void) {
#ifdef MAGCAL_EXPECTED_VERSION
    if (strcmp(MAGCAL_VERSION_STRING, MAGCAL_EXPECTED_VERSION) != 0) {
        fprintf(stderr, "header version %s, package version %s\n", MAGCAL_VERSION_STRING,
                MAGCAL_EXPECTED_VERSION);
        return 1;
    }
#endif
    const MagLibApiInterface* api = load_table();
    if (api == NULL) return 1;
    FILE* input = fopen(MAGCAL_GOLDEN_DIR "/figure8_50hz_input.csv", "r");
    FILE* golden = fopen(MAGCAL_GOLDEN_DIR "/figure8_50hz_expected.txt", "r");
    if (input == NULL || golden == NULL) {
        fprintf(stderr, "cannot open the golden files in %s\n", MAGCAL_GOLDEN_DIR);
        return 1;
    }
    api->initLib();

    char text[1024];
    long mag_samples = 0;
    int last_accuracy = -1;
    if (fgets(text, sizeof text, input) == NULL) return 1; /* header */
    while (fgets(text, sizeof text, input) != NULL) {
        SensorSample s = {0};
        char sensor[8] = {0};
        if (sscanf(text, "%" SCNd64 ",%7[a-z],%f,%f,%f", &s.timestamp, sensor, &s.x, &s.y, &s.z) !=
            5)
            continue;
        if (strcmp(sensor, "acc") == 0) api->caliApiSetAccData(&s);
        if (strcmp(sensor, "gyro") == 0) api->caliApiSetGyroData(&s);
        if (strcmp(sensor, "mag") != 0) continue;

        CalibratedMagResult result;
        api->doCaliApi(&s, &result);
        FusionOutput rotation, angles, gravity;
        api->getRotationVector(&rotation);
        api->getOrientation(&angles);
        api->getGravity(&gravity);

        double g[kGoldenColumns];
        if (fgets(text, sizeof text, golden) == NULL) {
            fprintf(stderr, "golden file ends before magnetometer sample %ld\n", mag_samples);
            return 1;
        }
        char* cursor = text;
        for (int k = 0; k < kGoldenColumns; ++k) g[k] = strtod(cursor, &cursor);
        ++mag_samples;
        if ((double)result.timestamp != g[0] || (double)result.accuracy != g[1]) {
            if (failures++ < 10)
                fprintf(stderr, "golden line %ld: t %" PRId64 " accuracy %d\n", mag_samples,
                        result.timestamp, result.accuracy);
        }
        for (int k = 0; k < 3; ++k) {
            expect_same("rotation vector", mag_samples, rotation.values[k], g[2 + k]);
            expect_same("orientation", mag_samples, angles.values[k], g[6 + k]);
            expect_same("gravity", mag_samples, gravity.values[k], g[12 + k]);
            expect_same("offset", mag_samples, result.offset[k], g[15 + k]);
            expect_same("field", mag_samples, result.field[k], g[18 + k]);
        }
        last_accuracy = result.accuracy;
    }
    if (mag_samples < 1000 || fgets(text, sizeof text, golden) != NULL) {
        fprintf(stderr, "replayed %ld magnetometer samples; the golden file has another count\n",
                mag_samples);
        return 1;
    }
    printf("magcal %s: %ld magnetometer samples as golden, final accuracy %d, %d differences\n",
           MAGCAL_VERSION_STRING, mag_samples, last_accuracy, failures);
    return failures == 0 && last_accuracy == 3 ? 0 : 1;
}
