// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors

#include <gtest/gtest.h>

#include "api/log.h"

namespace {

TEST(Log, WritesTaggedLineToStderr) {
    testing::internal::CaptureStderr();
    magcal::log_error("QV_DAEMON", "QVG softpara[%d][%d]= %f \n", 1, 2, 0.5);
    magcal::log_error("JSONObject", "Msensor readSettings size is %d", 17);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(text,
              "E/QV_DAEMON: QVG softpara[1][2]= 0.500000 \n"
              "E/JSONObject: Msensor readSettings size is 17\n");
}

TEST(LogDeathTest, FatalWritesMessageAndAborts) {
    EXPECT_DEATH(magcal::log_assert("!(x)", "JSONObject", "CHECK(x) failed."),
                 "E/JSONObject: CHECK\\(x\\) failed\\.");
}

}  // namespace
