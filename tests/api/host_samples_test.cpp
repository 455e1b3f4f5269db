// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include <cstring>

#include "api/host_state.h"
#include "calib/calibration_state.h"
#include "fusion/fusion_state.h"
#include "magcal/magcal_host.h"
#include "support/library_reset.h"

namespace {

using magcal::g_host;

SensorSample sample(int64_t t_ns, float x, float y, float z) {
    SensorSample s;
    s.timestamp = t_ns;
    s.x = x;
    s.y = y;
    s.z = z;
    s.status = -7;
    return s;
}

class HostSamples : public testing::Test {
protected:
    void SetUp() override {
        magcal_test::reset_library_state();
        testing::internal::CaptureStderr();  // start-up logs the missing soft-iron file
        QVG_initLib();
        testing::internal::GetCapturedStderr();
    }
};

TEST_F(HostSamples, TimestampReachesThePipelineInSeconds) {
    const SensorSample acc = sample(1, 0.0f, 0.0f, 9.8f);
    const SensorSample gyro = sample(1, 0.0f, 0.0f, 0.0f);
    QVG_caliApiSetAccData(&acc);
    QVG_caliApiSetGyroData(&gyro);
    const SensorSample mag = sample(1500000000, 0.0f, 30.0f, -40.0f);
    CalibratedMagResult out{};
    QVG_doCaliApi(&mag, &out);
    EXPECT_EQ(magcal::g_gyro_cal.last_time, 1.5);
    EXPECT_EQ(g_host.magDataIn.status, -7);
    EXPECT_EQ(g_host.mag_vec[1], 30.0);
    EXPECT_EQ(out.timestamp, 1500000000);
    // A refused sample (zero field) still republishes the outputs with its time.
    const SensorSample zero = sample(1600000000, 0.0f, 0.0f, 0.0f);
    QVG_doCaliApi(&zero, &out);
    EXPECT_EQ(magcal::g_gyro_cal.last_time, 1.5);
    FusionOutput geo{};
    QVG_getGeoMagnetic(&geo);
    EXPECT_EQ(geo.timestamp, 1600000000);
    EXPECT_EQ(geo.values[1], 30.0f);
}

TEST_F(HostSamples, ProcessingNeedsBothOtherSensors) {
    const SensorSample gyro = sample(1, 0.0f, 0.0f, 0.0f);
    QVG_caliApiSetGyroData(&gyro);
    const SensorSample mag = sample(5, 0.0f, 30.0f, -40.0f);
    QVG_caliApiSetMagData(&mag);
    EXPECT_FALSE(magcal::g_gyro_cal.start_state == 1);
    g_host.acc_ready = 2;  // only exactly 1 counts as ready
    QVG_caliApiSetMagData(&mag);
    EXPECT_FALSE(magcal::g_gyro_cal.start_state == 1);
    const SensorSample acc = sample(1, 0.0f, 0.0f, 9.8f);
    QVG_caliApiSetAccData(&acc);
    QVG_caliApiSetMagData(&mag);
    EXPECT_EQ(magcal::g_gyro_cal.start_state, 1);
}

TEST_F(HostSamples, InitialisationClearsFlagsAndResultsButNotTheRecords) {
    const SensorSample acc = sample(1, 0.0f, 0.0f, 9.8f);
    const SensorSample gyro = sample(1, 0.0f, 0.0f, 0.0f);
    const SensorSample mag = sample(5, 0.0f, 30.0f, -40.0f);
    QVG_caliApiSetAccData(&acc);
    QVG_caliApiSetGyroData(&gyro);
    CalibratedMagResult out{};
    QVG_doCaliApi(&mag, &out);
    testing::internal::CaptureStderr();
    QVG_initLib();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("E/QV_DAEMON: QVG reading mag soft para\n"), std::string::npos);
    EXPECT_NE(log.find("E/QV_DAEMON: QVG get pdc fial, use default pdc\n"
                       "E/QV_DAEMON: QVG fail to load the mag_soft_parameter.json\n"),
              std::string::npos);
    EXPECT_EQ(g_host.acc_ready, 0);
    EXPECT_EQ(g_host.gyro_ready, 0);
    EXPECT_EQ(g_host.result.calibrated[1], 0.0);
    EXPECT_EQ(g_host.mag_vec[1], 0.0);
    EXPECT_EQ(g_host.accDataIn.z, 9.8f);  // the stored samples stay
    FusionOutput geo{};
    QVG_getGeoMagnetic(&geo);
    EXPECT_EQ(geo.timestamp, 5);  // and so do the output records
    EXPECT_EQ(g_host.softpara[4], 1.0);
}

TEST_F(HostSamples, SetOffsetStoresTheLastAccuracyAndRadius) {
    g_host.result.accuracy = 2;
    g_host.result.radius = 41.5;
    const float offset[3] = {1.5f, -2.5f, 3.1f};
    QVG_caliApiSetOffset(offset);
    EXPECT_EQ(magcal::g_fusion.offset_pub[2], static_cast<double>(3.1f));
    EXPECT_EQ(magcal::g_fusion.accuracy, 2);
    EXPECT_EQ(magcal::g_fusion.radius, 41.5);
    float read[3];
    QVG_caliApiGetOffset(read);
    EXPECT_EQ(read[1], -2.5f);
}

TEST_F(HostSamples, LoadPdcReportsFailureWithoutTouchingTheMatrix) {
    double matrix[9] = {2, 0, 0, 0, 2, 0, 0, 0, 2};
    testing::internal::CaptureStderr();
    const int32_t result = QVG_LoadPDC(matrix);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(matrix[0], 2.0);
    EXPECT_NE(log.find("E/QV_DAEMON: QVG get pdc fial, use default pdc\n"), std::string::npos);
}

}  // namespace
