// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Start-up with a soft-iron file present. This program links a variant of
// the library whose parameter file path points into the build tree.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "api/host_state.h"
#include "calib/calibration_state.h"
#include "magcal/magcal_host.h"

namespace {

void write_parameter_file(const std::string& text) {
    const std::string path = MAGCAL_TEST_SOFTIRON_FILE;
    mkdir(path.substr(0, path.rfind('/')).c_str(), 0755);
    FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs(text.c_str(), f);
    std::fclose(f);
}

TEST(SoftIronFile, InitialisationInstallsTheMatrixAndLogsIt) {
    write_parameter_file("{\"other\": 1, \"qvg\": [1.5, 0, 0.25, 0, 1, 0, -0.5, 0, 2]}");
    testing::internal::CaptureStderr();
    QVG_initLib();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(magcal::softiron[0], 1.5);
    EXPECT_EQ(magcal::softiron[2], 0.25);
    EXPECT_EQ(magcal::softiron[6], -0.5);
    EXPECT_EQ(magcal::softiron[8], 2.0);
    EXPECT_NE(log.find("E/QV_DAEMON: reload QVG_PDC_FILE success\n"
                       "E/QV_DAEMON: QVG softpara[0][0]= 1.500000 \n"
                       "E/QV_DAEMON: QVG softpara[0][1]= 0.000000 \n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("E/QV_DAEMON: QVG softpara[2][2]= 2.000000 \n"), std::string::npos);

    // A later start-up with a broken file keeps the matrix loaded before.
    write_parameter_file("{\"qvg\": [1, 2, 3]}");
    testing::internal::CaptureStderr();
    QVG_initLib();
    const std::string second = testing::internal::GetCapturedStderr();
    EXPECT_EQ(magcal::softiron[0], 1.5);
    EXPECT_NE(second.find("E/QV_DAEMON: QVG fail to load the mag_soft_parameter.json\n"),
              std::string::npos);
}

TEST(SoftIronFile, LoadPdcFillsTheCallersMatrixOnly) {
    write_parameter_file("{\"qvg\": [2, 0, 0, 0, 2, 0, 0, 0, 16777217]}");
    double matrix[9] = {};
    testing::internal::CaptureStderr();
    EXPECT_EQ(QVG_LoadPDC(matrix), 1);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(matrix[0], 2.0);
    EXPECT_EQ(matrix[8], 16777216.0);
    EXPECT_NE(magcal::softiron[8], 16777216.0);  // loaded, not applied
    EXPECT_NE(log.find("E/QV_DAEMON: reload QVG_PDC_FILE success\n"), std::string::npos);
}

}  // namespace
