// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Start-up, the soft-iron reload, and the stored calibration a host persists
// between boots (read with QVG_caliApiGetOffset, pushed back with
// QVG_caliApiSetOffset).
#include <cstring>

#include "api/host_state.h"
#include "api/log.h"
#include "api/softiron_path.h"
#include "magcal/magcal_algorithms.h"
#include "magcal/magcal_host.h"

using namespace magcal;

extern "C" MAGCAL_API int32_t QVG_initLib(void) {
    HostInterfaceState& h = g_host;
    h.qv_log_value = 0;
    QvGyroCal_init();
    log_error(kHostLogTag, "QVG reading mag soft para\n");
    if (getJsonCalibration(softiron_file_path(), "qvg", h.softpara, 9) != 0) {
        log_error(kHostLogTag, "QVG get pdc fial, use default pdc\n");
        log_error(kHostLogTag, "QVG fail to load the mag_soft_parameter.json\n");
    } else {
        log_error(kHostLogTag, "reload QVG_PDC_FILE success\n");
        for (int row = 0; row < 3; ++row)
            for (int col = 0; col < 3; ++col)
                log_error(kHostLogTag, "QVG softpara[%d][%d]= %f \n", row, col,
                          h.softpara[row * 3 + col]);
    }
    QvGyroCal_config_softiron(h.softpara);
    h.acc_ready = 0;
    h.gyro_ready = 0;
    std::memset(&h.result, 0, sizeof h.result);
    for (int k = 0; k < 3; ++k) h.acc_vec[k] = h.mag_vec[k] = h.gyro_vec[k] = 0.0;
    return 0;
}

extern "C" MAGCAL_API int32_t QVG_enableLib(void) { return 0; }

extern "C" MAGCAL_API int32_t QVG_caliApiGetOffset(float offset[3]) {
    if (offset == nullptr) return 0;
    for (int k = 0; k < 3; ++k) offset[k] = static_cast<float>(g_host.result.offset[k]);
    return 0;
}

// The offset is stored with the accuracy and radius of the last result.
extern "C" MAGCAL_API int32_t QVG_caliApiSetOffset(const float offset[3]) {
    if (offset == nullptr) return 0;
    CalibrationResult& r = g_host.result;
    for (int k = 0; k < 3; ++k) r.offset[k] = static_cast<double>(offset[k]);
    QvGyroCal_config_status(r.offset, r.accuracy, r.radius);
    return 0;
}

extern "C" MAGCAL_API int32_t QVG_LoadPDC(double matrix[9]) {
    log_error(kHostLogTag, "QVG reading mag soft para\n");
    if (getJsonCalibration(softiron_file_path(), "qvg", matrix, 9) == 0) {
        log_error(kHostLogTag, "reload QVG_PDC_FILE success\n");
        return 1;
    }
    log_error(kHostLogTag, "QVG get pdc fial, use default pdc\n");
    return -1;
}
