// SPDX-License-Identifier: Apache-2.0
// Copyright 2026 The magcal Authors
//
// Golden replay: a recorded sensor stream goes through the host C interface
// and every result of every magnetometer sample is compared exactly with the
// stored outputs, written as hex floats. Any change in the arithmetic, however
// small, shows up here. To regenerate deliberately (and say why in the
// commit), see tests/golden/README.md.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "api/host_state.h"
#include "magcal/magcal_host.h"
#include "sim/session_simulator.h"
#include "support/library_reset.h"

namespace {

const std::string kInput = std::string(MAGCAL_GOLDEN_DIR) + "/figure8_50hz_input.csv";
const std::string kExpected = std::string(MAGCAL_GOLDEN_DIR) + "/figure8_50hz_expected.txt";

struct LogLine {
    int64_t t_ns;
    char sensor;  // 'a', 'g' or 'm'
    float v[3];
};

bool update_requested() {
    const char* flag = std::getenv("MAGCAL_UPDATE_GOLDEN");
    return flag != nullptr && std::string(flag) == "1";
}

// The stream is a fixed simulated figure-eight session: 30 s at 50 Hz with a
// hard-iron offset of (25, -35, 40) uT, stored so that later changes to the
// simulator cannot move the golden outputs.
void write_input() {
    magcal::sim::Config config;
    config.duration_s = 30.0;
    config.seed = 20261121;
    const magcal::sim::Session session = magcal::sim::simulate(config);
    std::ofstream out(kInput);
    out << "timestamp_ns,sensor,x,y,z\n";
    char line[160];
    for (const auto& s : session.samples) {
        const char* name = s.sensor == magcal::sim::Sensor::Acc    ? "acc"
                           : s.sensor == magcal::sim::Sensor::Gyro ? "gyro"
                                                                   : "mag";
        std::snprintf(line, sizeof line, "%" PRId64 ",%s,%.9g,%.9g,%.9g\n", s.t_ns, name, s.v[0],
                      s.v[1], s.v[2]);
        out << line;
    }
}

std::vector<LogLine> read_input() {
    std::vector<LogLine> lines;
    std::ifstream in(kInput);
    std::string text;
    std::getline(in, text);  // header
    while (std::getline(in, text)) {
        LogLine l{};
        char name[8] = {0};
        if (std::sscanf(text.c_str(), "%" SCNd64 ",%7[a-z],%f,%f,%f", &l.t_ns, name, &l.v[0],
                        &l.v[1], &l.v[2]) != 5)
            continue;
        l.sensor = name[0];
        lines.push_back(l);
    }
    return lines;
}

// One line per magnetometer sample: its time, the accuracy and every double
// of the calibration result in hex.
std::string format_result(int64_t t_ns, const CalibrationResult& r) {
    std::string line = std::to_string(t_ns) + " " + std::to_string(r.accuracy);
    const double* fields[] = {r.rotation_vector, r.orientation, r.linear_accel,
                              r.gravity,         r.offset,      r.calibrated};
    const int counts[] = {4, 3, 3, 3, 3, 3};
    char hex[64];
    for (int f = 0; f < 6; ++f)
        for (int k = 0; k < counts[f]; ++k) {
            std::snprintf(hex, sizeof hex, " %a", fields[f][k]);
            line += hex;
        }
    std::snprintf(hex, sizeof hex, " %a", r.radius);
    return line + hex;
}

std::vector<std::string> replay(const std::vector<LogLine>& input) {
    magcal_test::reset_library_state();
    testing::internal::CaptureStderr();
    QVG_initLib();
    testing::internal::GetCapturedStderr();
    std::vector<std::string> results;
    for (const LogLine& l : input) {
        SensorSample s{l.t_ns, l.v[0], l.v[1], l.v[2], 0};
        if (l.sensor == 'a') QVG_caliApiSetAccData(&s);
        if (l.sensor == 'g') QVG_caliApiSetGyroData(&s);
        if (l.sensor == 'm') {
            CalibratedMagResult out{};
            QVG_doCaliApi(&s, &out);
            results.push_back(format_result(l.t_ns, magcal::g_host.result));
        }
    }
    return results;
}

TEST(GoldenReplay, Figure8SessionReproducesEveryOutputBitForBit) {
    if (update_requested()) {
        write_input();
        std::ofstream out(kExpected);
        for (const std::string& line : replay(read_input())) out << line << "\n";
        GTEST_SKIP() << "golden files regenerated in " << MAGCAL_GOLDEN_DIR;
    }
    const std::vector<LogLine> input = read_input();
    ASSERT_GT(input.size(), 4000u) << "missing or short " << kInput;
    std::vector<std::string> expected;
    std::ifstream in(kExpected);
    for (std::string line; std::getline(in, line);) expected.push_back(line);
    const std::vector<std::string> actual = replay(input);
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_EQ(actual[i], expected[i]) << "first difference at magnetometer sample " << i;
    // The stream must exercise the whole pipeline, not a corner of it.
    EXPECT_EQ(expected.back().substr(expected.back().find(' ') + 1, 1), "3");
}

}  // namespace
